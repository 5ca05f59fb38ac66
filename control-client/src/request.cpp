#include "request.h"

#include "kerv_settings.h"

#include "kal_common.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

/* The wire image is the start of the record, byte for byte. */
static_assert(offsetof(kervRequest_t, magic) == 0);
static_assert(offsetof(kervRequest_t, type) == 4);
static_assert(offsetof(kervRequest_t, cmd) == 6);
static_assert(offsetof(kervRequest_t, status) == 8 && sizeof(int) == 4);
static_assert(offsetof(kervRequest_t, buf) == KERV_REQUEST_HEADER_SIZE);
static_assert(KERV_REQUEST_WIRE_MAX == 2100);
#if __SIZEOF_POINTER__ == 4
/* The references are the wire slots: the record is the message. */
static_assert(offsetof(kervRequest_t, arg) == 12 && sizeof(char *) == 4);
static_assert(sizeof(kervRequest_t) == KERV_REQUEST_WIRE_MAX);
#else
static_assert(offsetof(kervRequest_t, arg_slot) == 12);
static_assert(offsetof(kervRequest_t, arg) >= KERV_REQUEST_WIRE_MAX);
#endif

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

/* What a packed argument reference holds; 0 stays 0 (absent). */
char *const kArgMarker = reinterpret_cast<char *>(uintptr_t{KERV_REQUEST_ARG_MARKER});

#if __SIZEOF_POINTER__ == 4
void slots_from_args(kervRequest_t *) {}
void args_from_slots(kervRequest_t *) {}
#else
/* The 4-byte wire slots of packed references (each 0 or the marker). */
void slots_from_args(kervRequest_t *request) {
    for (int i = 0; i < KERV_REQUEST_ARG_NUM; i++)
        request->arg_slot[i] = static_cast<u_int32_t>(reinterpret_cast<uintptr_t>(request->arg[i]));
}

/* The received slots as references to unpack, whatever value they hold. */
void args_from_slots(kervRequest_t *request) {
    for (int i = 0; i < KERV_REQUEST_ARG_NUM; i++)
        request->arg[i] = reinterpret_cast<char *>(uintptr_t{request->arg_slot[i]});
}
#endif

/* Packs and unpacks dest in place: its arguments end up in its own buf. */
int copy_by_packing(kervRequest_t *dest) {
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

/* close() that keeps the errno of the call that failed before it. */
void close_keeping_errno(int fd) {
    const int saved = errno;
    close(fd);
    errno = saved;
}

} // namespace

extern "C" {

/* The copy is a memmove: a string unpacked in place lies at the write position itself. */
int pack_request_string(char **p, char **next, const char *roof) {
    if (*p == nullptr)
        return 0;
    const size_t len = strlen(*p) + 1;
    if (roof - *next < static_cast<ptrdiff_t>(len))
        return -1;
    memmove(*next, *p, len);
    *next += len;
    *p = kArgMarker;
    return 0;
}

int unpack_request_string(char **p, char **next, const char *roof) {
    if (*p == nullptr)
        return 0;
    if (*p != kArgMarker || roof <= *next)
        return -1;
    char *end = static_cast<char *>(memchr(*next, '\0', static_cast<size_t>(roof - *next)));
    if (end == nullptr)
        return -1;
    *p = *next;
    *next = end + 1;
    return 0;
}

int kerv_pack_request(kervRequest_t *request) {
    if (request == nullptr)
        return -1;
    const int fault = header_fault(request);
    if (fault != 0)
        return -fault;

    char *next = request->buf;
    const char *roof = request->buf + KERV_REQUEST_BUF_SIZE;
    for (int i = 0; i < KERV_REQUEST_ARG_NUM; i++) {
        if (pack_request_string(&request->arg[i], &next, roof) != 0)
            return arg_fault(i);
    }
    slots_from_args(request);
    return static_cast<int>(next - reinterpret_cast<char *>(request));
}

int kerv_unpack_request(kervRequest_t *request, int size) {
    if (request == nullptr || size < KERV_REQUEST_HEADER_SIZE || size > KERV_REQUEST_WIRE_MAX)
        return -1;
    const int fault = header_fault(request);
    if (fault != 0)
        return -fault - 1;

    args_from_slots(request);
    char *next = request->buf;
    const char *roof = reinterpret_cast<const char *>(request) + size;
    for (int i = 0; i < KERV_REQUEST_ARG_NUM; i++) {
        if (unpack_request_string(&request->arg[i], &next, roof) != 0)
            return arg_fault(i);
    }
    return 0;
}

/*
 * dest's arguments point at heap copies of src's strings while dest is packed: src's
 * arguments may lie anywhere in src's buf, and src may be dest itself.
 */
int kerv_copy_request(kervRequest_t *dest, kervRequest_t *src) {
    if (dest == nullptr) {
        KERV_PRINT("kerv_copy_request: dest is NULL");
        return -1;
    }
    if (src == nullptr) {
        KERV_PRINT("kerv_copy_request: src is NULL");
        return -1;
    }
    char *held[KERV_REQUEST_ARG_NUM] = {};
    int ret = 0;
    for (int i = 0; i < KERV_REQUEST_ARG_NUM && ret == 0; i++) {
        if (src->arg[i] != nullptr && (held[i] = strdup(src->arg[i])) == nullptr)
            ret = -1;
    }
    if (ret == 0) {
        if (dest != src)
            memcpy(dest, src, sizeof(*dest));
        memcpy(dest->arg, held, sizeof(held));
        ret = copy_by_packing(dest);
    }
    for (char *copy : held)
        free(copy);
    return ret;
}
const char *kerv_control_socket_path(void) {
    return kerv_env_path(KERV_CONTROL_SOCKET_ENV, KERV_CONTROL_SOCKET_DEFAULT);
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
