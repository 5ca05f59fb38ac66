#include "pty_handoff.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static bool unix_address(const char *socket_path, sockaddr_un *addr) {
    memset(addr, 0, sizeof(*addr));
    addr->sun_family = AF_UNIX;
    if (strlen(socket_path) >= sizeof(addr->sun_path)) {
        errno = ENAMETOOLONG;
        return false;
    }
    strcpy(addr->sun_path, socket_path);
    return true;
}

int pty_handoff_listen(const char *socket_path) {
    sockaddr_un addr;
    int listen_fd = -1;
    if (unix_address(socket_path, &addr))
        listen_fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    unlink(socket_path);
    if (listen_fd < 0 || bind(listen_fd, (sockaddr *)&addr, sizeof(addr)) != 0 ||
        listen(listen_fd, 4) != 0) {
        fprintf(stderr, "listen on %s: %s\n", socket_path, strerror(errno));
        if (listen_fd >= 0)
            close(listen_fd);
        return -1;
    }
    return listen_fd;
}

/* One byte of data carries the descriptor: a message without data is not delivered. */
struct rights_message_t {
    char byte;
    iovec data;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
    msghdr msg;
};

static void rights_message_init(rights_message_t *m) {
    memset(m, 0, sizeof(*m));
    m->data = {&m->byte, 1};
    m->msg.msg_iov = &m->data;
    m->msg.msg_iovlen = 1;
    m->msg.msg_control = m->control;
    m->msg.msg_controllen = sizeof(m->control);
}

static void pass_descriptor(int client_fd, int master_fd) {
    rights_message_t m;
    rights_message_init(&m);
    cmsghdr *rights = CMSG_FIRSTHDR(&m.msg);
    rights->cmsg_level = SOL_SOCKET;
    rights->cmsg_type = SCM_RIGHTS;
    rights->cmsg_len = CMSG_LEN(sizeof(int));
    memcpy(CMSG_DATA(rights), &master_fd, sizeof(int));
    if (sendmsg(client_fd, &m.msg, MSG_NOSIGNAL) != 1)
        perror("sendmsg");
}

void pty_handoff_serve(int listen_fd, int master_fd) {
    for (;;) {
        int client_fd = accept4(listen_fd, nullptr, nullptr, SOCK_CLOEXEC);
        if (client_fd < 0)
            continue;
        pass_descriptor(client_fd, master_fd);
        close(client_fd);
    }
}

int pty_handoff_take(const char *socket_path) {
    sockaddr_un addr;
    if (!unix_address(socket_path, &addr))
        return -1;
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (connect(fd, (sockaddr *)&addr, sizeof(addr)) != 0) {
        int saved = errno;
        close(fd);
        errno = saved;
        return -1;
    }
    rights_message_t m;
    rights_message_init(&m);
    ssize_t got = recvmsg(fd, &m.msg, MSG_CMSG_CLOEXEC);
    int saved = errno;
    close(fd);
    cmsghdr *rights = CMSG_FIRSTHDR(&m.msg);
    if (got != 1 || rights == nullptr || rights->cmsg_type != SCM_RIGHTS) {
        errno = got < 0 ? saved : EPROTO;
        return -1;
    }
    int master_fd;
    memcpy(&master_fd, CMSG_DATA(rights), sizeof(int));
    return master_fd;
}
