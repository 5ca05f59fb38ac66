#include "request.h"

#include "kal_common.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

/* The wire image is the start of the record, byte for byte. */
static_assert(offsetof(kervRequest_t, magic) == 0);
static_assert(offsetof(kervRequest_t, type) == 4);
static_assert(offsetof(kervRequest_t, cmd) == 6);
static_assert(offsetof(kervRequest_t, status) == 8 && sizeof(int) == 4);
static_assert(offsetof(kervRequest_t, arg_slot) == 12);
static_assert(offsetof(kervRequest_t, buf) == KERV_REQUEST_HEADER_SIZE);
static_assert(offsetof(kervRequest_t, arg) >= KERV_REQUEST_WIRE_MAX);
static_assert(KERV_REQUEST_WIRE_MAX == 2100);

namespace {

/* 0 for a valid header, else 1 bad magic, 2 bad type, 3 bad cmd (checked in that order). */
int header_fault(const kervRequest_t *request) {
    if (request->magic != KERV_REQUEST_MAGIC)
        return 1;
    if (request->type > KERV_REQUEST_TYPE_SRV)
        return 2;
    if (request->cmd > KERV_REQUEST_URC_RESPONSE)
        return 3;
    return 0;
}

int arg_fault(int index) {
    return -100 - index;
}

/* close() that keeps the errno of the call that failed before it. */
void close_keeping_errno(int fd) {
    const int saved = errno;
    close(fd);
    errno = saved;
}

} // namespace

extern "C" {

int pack_request_string(char **p, char **next, const char *roof) {
    if (*p == nullptr)
        return 0;
    const size_t len = strlen(*p) + 1;
    if (roof - *next < static_cast<ptrdiff_t>(len))
        return -1;
    memmove(*next, *p, len);
    *p = *next;
    *next += len;
    return 0;
}

int unpack_request_string(u_int32_t slot, char **p, char **next, const char *roof) {
    if (slot == 0) {
        *p = nullptr;
        return 0;
    }
    if (slot != KERV_REQUEST_ARG_MARKER || roof <= *next)
        return -1;
    char *end = static_cast<char *>(memchr(*next, '\0', static_cast<size_t>(roof - *next)));
    if (end == nullptr)
        return -1;
    *p = *next;
    *next = end + 1;
    return 0;
}

/*
 * The strings are gathered in a scratch copy first and only then moved into buf: an
 * argument may refer into buf itself (a record that was unpacked, then given a new
 * argument 0), and copying straight into buf would overwrite it before it is read.
 */
int kerv_pack_request(kervRequest_t *request) {
    if (request == nullptr)
        return -1;
    const int fault = header_fault(request);
    if (fault != 0)
        return -fault;

    char scratch[KERV_REQUEST_BUF_SIZE];
    char *packed[KERV_REQUEST_ARG_NUM];
    char *next = scratch;
    for (int i = 0; i < KERV_REQUEST_ARG_NUM; i++) {
        packed[i] = request->arg[i];
        if (pack_request_string(&packed[i], &next, scratch + sizeof(scratch)) != 0)
            return arg_fault(i);
    }

    const size_t used = static_cast<size_t>(next - scratch);
    memcpy(request->buf, scratch, used);
    for (int i = 0; i < KERV_REQUEST_ARG_NUM; i++) {
        const bool present = packed[i] != nullptr;
        request->arg_slot[i] = present ? KERV_REQUEST_ARG_MARKER : 0;
        request->arg[i] = present ? request->buf + (packed[i] - scratch) : nullptr;
    }
    return static_cast<int>(KERV_REQUEST_HEADER_SIZE + used);
}

int kerv_unpack_request(kervRequest_t *request, int size) {
    if (request == nullptr || size < KERV_REQUEST_HEADER_SIZE || size > KERV_REQUEST_WIRE_MAX)
        return -1;
    const int fault = header_fault(request);
    if (fault != 0)
        return -fault - 1;

    for (char *&arg : request->arg)
        arg = nullptr;
    char *next = request->buf;
    const char *roof = reinterpret_cast<const char *>(request) + size;
    for (int i = 0; i < KERV_REQUEST_ARG_NUM; i++) {
        if (unpack_request_string(request->arg_slot[i], &request->arg[i], &next, roof) != 0) {
            request->arg[i] = nullptr;
            return arg_fault(i);
        }
    }
    return 0;
}

/* Packing reads every source string before it writes dest's buf, so src may be anywhere. */
int kerv_copy_request(kervRequest_t *dest, kervRequest_t *src) {
    if (dest == nullptr) {
        KERV_PRINT("kerv_copy_request: dest is NULL");
        return -1;
    }
    if (src == nullptr) {
        KERV_PRINT("kerv_copy_request: src is NULL");
        return -1;
    }
    if (dest != src)
        memcpy(dest, src, sizeof(*dest));

    const int size = kerv_pack_request(dest);
    if (size < 0) {
        KERV_PRINT("kerv_copy_request: pack clone request fail ret=[%d]", size);
        return size;
    }
    const int ret = kerv_unpack_request(dest, size);
    if (ret != 0)
        KERV_PRINT("kerv_copy_request: unpack clone request fail ret=[%d]", ret);
    return ret;
}

const char *kerv_control_socket_path(void) {
    const char *path = getenv(KERV_CONTROL_SOCKET_ENV);
    return (path != nullptr && path[0] != '\0') ? path : KERV_CONTROL_SOCKET_DEFAULT;
}

socklen_t kerv_control_socket_addr(struct sockaddr_un *addr) {
    const char *path = kerv_control_socket_path();
    const size_t path_len = strlen(path);
    if (path_len >= sizeof(addr->sun_path))
        return 0;
    memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    memcpy(addr->sun_path, path, path_len);
    return static_cast<socklen_t>(offsetof(struct sockaddr_un, sun_path) + path_len);
}

int kerv_accept_request(int sockfd) {
    struct sockaddr_un peer;
    socklen_t peer_len = sizeof(peer);
    const int fd = accept(sockfd, reinterpret_cast<struct sockaddr *>(&peer), &peer_len);
    if (fd < 0)
        return -1;
    if (fcntl(fd, F_SETFD, FD_CLOEXEC) < 0) {
        close_keeping_errno(fd);
        return -1;
    }
    return fd;
}

/*
 * The client's socket is close-on-exec as well: an application that starts other
 * programs must not hand them its open control connection.
 */
int kerv_connect_request(void) {
    struct sockaddr_un addr;
    const socklen_t addr_len = kerv_control_socket_addr(&addr);
    if (addr_len == 0) {
        errno = ENAMETOOLONG;
        return -1;
    }
    if (access(addr.sun_path, R_OK | W_OK) != 0)
        return -1;
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (connect(fd, reinterpret_cast<struct sockaddr *>(&addr), addr_len) != 0) {
        close_keeping_errno(fd);
        return -1;
    }
    return fd;
}

} // extern "C"
