#include "line_server.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

void line_framer_reset(line_framer_t *framer) {
    framer->line_len = 0;
    framer->too_long = false;
}

void line_framer_feed(line_framer_t *framer, const char *bytes, size_t len, int host_fd,
                      line_handler_fn handler, void *ctx) {
    for (size_t i = 0; i < len; i++) {
        char byte = bytes[i];
        if (byte != '\r' && byte != '\n') {
            if (framer->line_len == LINE_SERVER_MAX_LINE)
                framer->too_long = true;
            else
                framer->line[framer->line_len++] = byte;
            continue;
        }
        if (framer->line_len > 0 && !framer->too_long) {
            framer->line[framer->line_len] = '\0';
            handler(ctx, host_fd, framer->line, framer->line_len);
        }
        line_framer_reset(framer);
    }
}

static int line_server_listen(unsigned int port) {
    int listen_fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (listen_fd < 0) {
        fprintf(stderr, "socket: %s\n", strerror(errno));
        return -1;
    }
    int reuse = 1;
    setsockopt(listen_fd, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse));
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t addr_len = sizeof(addr);
    if (bind(listen_fd, (sockaddr *)&addr, sizeof(addr)) != 0 || listen(listen_fd, 4) != 0 ||
        getsockname(listen_fd, (sockaddr *)&addr, &addr_len) != 0) {
        fprintf(stderr, "listen on port %u: %s\n", port, strerror(errno));
        close(listen_fd);
        return -1;
    }
    printf("%u\n", ntohs(addr.sin_port));
    fflush(stdout);
    return listen_fd;
}

void line_server_serve(int host_fd, line_handler_fn handler, void *ctx) {
    static line_framer_t framer;
    char bytes[2048];
    line_framer_reset(&framer);
    for (;;) {
        ssize_t got = read(host_fd, bytes, sizeof(bytes));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return;
        line_framer_feed(&framer, bytes, (size_t)got, host_fd, handler, ctx);
    }
}

int line_server_open_serial(const char *path) {
    int fd = open(path, O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios raw;
    if (fd < 0 || tcgetattr(fd, &raw) != 0) {
        fprintf(stderr, "serial device %s: %s\n", path, strerror(errno));
        if (fd >= 0)
            close(fd);
        return -1;
    }
    cfmakeraw(&raw);
    raw.c_cc[VMIN] = 1;
    raw.c_cc[VTIME] = 0;
    if (tcsetattr(fd, TCSANOW, &raw) != 0) {
        fprintf(stderr, "raw settings on %s: %s\n", path, strerror(errno));
        close(fd);
        return -1;
    }
    return fd;
}

[[noreturn]] static void line_server_run(int listen_fd, line_handler_fn handler, void *ctx) {
    for (;;) {
        int host_fd = accept4(listen_fd, nullptr, nullptr, SOCK_CLOEXEC);
        if (host_fd < 0)
            continue;
        /* Like the daemon: no answer waits for the host's delayed acknowledgement of the
           previous one, so the 8-in-flight figures compare the servers, not Nagle. */
        int on = 1;
        setsockopt(host_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
        line_server_serve(host_fd, handler, ctx);
        close(host_fd);
    }
}

int line_server_main(const char *serial_path, unsigned int port, line_handler_fn handler,
                     void *ctx) {
    if (serial_path != nullptr) {
        int device_fd = line_server_open_serial(serial_path);
        if (device_fd < 0)
            return 1;
        line_server_serve(device_fd, handler, ctx);
        return 0;
    }
    int listen_fd = line_server_listen(port);
    if (listen_fd < 0)
        return 1;
    line_server_run(listen_fd, handler, ctx);
}
