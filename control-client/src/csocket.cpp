#include "csocket.h"

#include "mutex_guard.h"

#include "kal_common.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

static_assert(sizeof(struct sockaddr_in) == 16, "address records are copied as 16 bytes");

namespace {

csocket_t *as_socket(void *sock) {
    return static_cast<csocket_t *>(sock);
}

void release_record(csocket_t *s) {
    pthread_mutex_destroy(&s->mutex);
    free_ctrl_buffer(s);
}

void release_socket(csocket_t *s) {
    close(s->fd);
    release_record(s);
}

/*
 * The steps both constructors share: record, mutex, descriptor of the wanted type with
 * close-on-exec. Messages carry the name of the constructor that was called (op).
 */
csocket_t *new_socket(const char *op, int type, short is_serv) {
    csocket_t *s = static_cast<csocket_t *>(get_ctrl_buffer(sizeof(csocket_t)));
    if (s == nullptr) {
        kal_print_gated(KAL_DBG_WARNING, op, __LINE__, "can't allocate memory");
        return nullptr;
    }
    if (pthread_mutex_init(&s->mutex, nullptr) != 0) {
        free_ctrl_buffer(s);
        kal_print_gated(KAL_DBG_WARNING, op, __LINE__, "can't initial mutex");
        return nullptr;
    }
    s->type = static_cast<short>(type);
    s->is_serv = is_serv;

    if (type == SOCKET_TYPE_TCP) {
        s->fd = socket(AF_INET, SOCK_STREAM, 0);
    } else if (type == SOCKET_TYPE_UDP) {
        s->fd = socket(AF_INET, SOCK_DGRAM, 0);
    } else {
        release_record(s);
        kal_print_gated(KAL_DBG_WARNING, op, __LINE__, "error type = %d", type);
        return nullptr;
    }
    if (s->fd < 0) {
        const int err = errno;
        release_record(s);
        kal_print_gated(KAL_DBG_WARNING, op, __LINE__, "socket error : %s (%d)", strerror(err),
                        err);
        return nullptr;
    }
    fcntl(s->fd, F_SETFD, FD_CLOEXEC);
    return s;
}

void warn_socket_error(const char *op, int line) {
    const int err = errno;
    kal_print_gated(KAL_DBG_WARNING, op, line, "socket error : %s (%d)", strerror(err), err);
}

/* recvfrom into buf; a datagram that came is recorded as the sender when keep is set. */
ssize_t receive_datagram(csocket_t *s, void *buf, int len, int flags, bool keep) {
    struct sockaddr_in from;
    memset(&from, 0, sizeof(from));
    socklen_t from_len = sizeof(from);
    const ssize_t ret = recvfrom(s->fd, buf, static_cast<size_t>(len), flags,
                                 reinterpret_cast<struct sockaddr *>(&from), &from_len);
    if (ret > 0 && keep) {
        MutexGuard lock(&s->mutex);
        memcpy(&s->receive_addr, &from, from_len < sizeof(from) ? from_len : sizeof(from));
    }
    return ret;
}

void warn_receive_error(const char *op, int line, ssize_t ret) {
    const int err = errno;
    kal_print_gated(KAL_DBG_WARNING, op, line, "SOCK_Recv error, ret = %d, error = %s(%d)",
                    static_cast<int>(ret), strerror(err), err);
}

} // namespace

extern "C" {

void *SOCK_Listen(unsigned int port, int type, int flag) {
    csocket_t *s = new_socket(__func__, type, 1);
    if (s == nullptr)
        return nullptr;

    const unsigned short port16 = static_cast<unsigned short>(port & 0xFFFFu);
    s->local_addr.sin_family = AF_INET;
    s->local_addr.sin_addr.s_addr =
        (flag & SOCKET_FLAG_LOCAL_ONLY) ? inet_addr("127.0.0.1") : htonl(INADDR_ANY);
    s->local_addr.sin_port = htons(port16);

    const int reuse = 1;
    if (setsockopt(s->fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse)) != 0) {
        warn_socket_error(__func__, __LINE__);
        release_socket(s);
        return nullptr;
    }
    if (bind(s->fd, reinterpret_cast<struct sockaddr *>(&s->local_addr), sizeof(s->local_addr)) !=
        0) {
        const int err = errno;
        KERV_WARN("can' bind the port : %d.", port16);
        errno = err;
        warn_socket_error(__func__, __LINE__);
        release_socket(s);
        return nullptr;
    }
    /* The port number doubles as the backlog; the system caps it at its own maximum. */
    if (type == SOCKET_TYPE_TCP && listen(s->fd, static_cast<int>(port16)) != 0) {
        KERV_WARN("can't listen the port : %d", port16);
        release_socket(s);
        return nullptr;
    }
    return s;
}

void *SOCK_Connect(const char *ip, unsigned int port, int type) {
    csocket_t *s = new_socket(__func__, type, 0);
    if (s == nullptr)
        return nullptr;

    /* Text that is not a dotted address (null included) gives the all-ones address. */
    const char *ip_text = ip != nullptr ? ip : "";
    s->remote_addr.sin_family = AF_INET;
    s->remote_addr.sin_port = htons(static_cast<unsigned short>(port));
    s->remote_addr.sin_addr.s_addr = inet_addr(ip_text);
    if (type == SOCKET_TYPE_UDP)
        return s;

    if (connect(s->fd, reinterpret_cast<struct sockaddr *>(&s->remote_addr),
                sizeof(s->remote_addr)) != 0) {
        release_socket(s);
        KERV_WARN("can't connect to %s:%d", ip_text, static_cast<int>(port));
        return nullptr;
    }
    return s;
}

int SOCK_Send(void *sock, const void *buf, int len) {
    csocket_t *s = as_socket(sock);
    if (s == nullptr) {
        KERV_WARN("SOCK_Send error, NULL porinter");
        return -1;
    }
    if (len < 0)
        return -1;

    /* A server replies to whoever it last heard from. */
    struct sockaddr_in dest;
    {
        MutexGuard lock(&s->mutex);
        dest = s->is_serv == 1 ? s->receive_addr : s->remote_addr;
    }
    const char *bytes = static_cast<const char *>(buf);
    int offset = 0;
    while (offset < len) {
        const size_t rest = static_cast<size_t>(len - offset);
        ssize_t ret;
        if (s->type == SOCKET_TYPE_TCP) {
            ret = send(s->fd, bytes + offset, rest, MSG_NOSIGNAL);
        } else if (s->type == SOCKET_TYPE_UDP) {
            ret = sendto(s->fd, bytes + offset, rest, MSG_NOSIGNAL,
                         reinterpret_cast<struct sockaddr *>(&dest), sizeof(dest));
        } else {
            KERV_WARN("SOCK_Send error, type = %d", s->type);
            return -1;
        }
        if (ret < 1) {
            const int err = errno;
            KERV_WARN("SOCK_Send error, ret = %d, error = %s(%d)", static_cast<int>(ret),
                      strerror(err), err);
            return offset;
        }
        offset += static_cast<int>(ret);
    }
    return len;
}

int SOCK_Recv(void *sock, void *buf, int len) {
    csocket_t *s = as_socket(sock);
    if (s == nullptr || len < 0)
        return -1;
    if (s->type == SOCKET_TYPE_TCP)
        return static_cast<int>(recv(s->fd, buf, static_cast<size_t>(len), 0));
    if (s->type != SOCKET_TYPE_UDP)
        return -1;

    const ssize_t ret = receive_datagram(s, buf, len, 0, true);
    if (ret < 0) {
        warn_receive_error(__func__, __LINE__, ret);
        return -1;
    }
    return static_cast<int>(ret);
}

/* Only the first datagram's sender is kept as the address to reply to. */
int SOCK_FRecv(void *sock, void *buf, int len) {
    csocket_t *s = as_socket(sock);
    if (s == nullptr || len < 0)
        return -1;

    char *bytes = static_cast<char *>(buf);
    int offset = 0;
    bool keep_addr = false;
    while (offset < len) {
        const int rest = len - offset;
        ssize_t ret;
        if (s->type == SOCKET_TYPE_TCP) {
            ret = recv(s->fd, bytes + offset, static_cast<size_t>(rest), 0);
        } else if (s->type == SOCKET_TYPE_UDP) {
            ret = receive_datagram(s, bytes + offset, rest, MSG_WAITALL, !keep_addr);
            if (ret > 0)
                keep_addr = true;
            if (ret < 0) {
                warn_receive_error(__func__, __LINE__, ret);
                return offset;
            }
        } else {
            return -1;
        }
        if (ret <= 0)
            return offset;
        offset += static_cast<int>(ret);
    }
    return len;
}

/* The copy shares the descriptor; its mutex is its own. */
int SOCK_Copy(void *sock, void **new_sock) {
    csocket_t *s = as_socket(sock);
    if (s == nullptr || new_sock == nullptr)
        return -1;
    if (*new_sock == sock)
        return 0;
    if (*new_sock == nullptr)
        *new_sock = get_ctrl_buffer(sizeof(csocket_t));
    else
        pthread_mutex_destroy(&as_socket(*new_sock)->mutex);
    csocket_t *copy = as_socket(*new_sock);
    if (copy == nullptr)
        return -1;

    MutexGuard lock(&s->mutex);
    copy->fd = s->fd;
    copy->type = s->type;
    copy->is_serv = s->is_serv;
    copy->receive_addr = s->receive_addr;
    copy->remote_addr = s->remote_addr;
    copy->local_addr = s->local_addr;
    pthread_mutex_init(&copy->mutex, nullptr);
    return 0;
}

int SOCK_GetFd(void *sock) {
    const csocket_t *s = as_socket(sock);
    return s != nullptr ? s->fd : -1;
}

/* The owner makes sure no other thread still uses the handle. */
int SOCK_Close(void *sock) {
    csocket_t *s = as_socket(sock);
    if (s == nullptr)
        return -1;
    shutdown(s->fd, SHUT_RDWR);
    release_socket(s);
    return 0;
}

ssize_t kerv_safe_read(int fd, void *buf, size_t count) {
    ssize_t ret;
    do {
        ret = read(fd, buf, count);
    } while (ret < 0 && errno == EINTR);
    return ret;
}

/*
 * Sockets are written with send(MSG_NOSIGNAL) so that a host that disconnected gives
 * EPIPE instead of the broken-pipe signal; other descriptors (the serial device) are
 * not sockets and take a plain write.
 */
ssize_t kerv_safe_write(int fd, const void *buf, size_t count) {
    ssize_t ret;
    do {
        ret = send(fd, buf, count, MSG_NOSIGNAL);
        if (ret < 0 && errno == ENOTSOCK)
            ret = write(fd, buf, count);
    } while (ret < 0 && errno == EINTR);
    return ret;
}

} // extern "C"
