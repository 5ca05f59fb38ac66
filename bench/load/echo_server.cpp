/*
 * Baseline 1 of the load benchmark: answers every command line with "\r\nOK\r\n", one write
 * per line, from a single thread. The cheapest possible AT answer over loopback TCP.
 *
 *   kerv-load-echo [--port N]     (N = 0, the default, takes a free port and prints it)
 */
#include "line_server.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

static void answer_ok(void *, int host_fd, const char *, size_t) {
    static const char ok[] = "\r\nOK\r\n";
    if (write(host_fd, ok, sizeof(ok) - 1) < 0)
        perror("write");
}

int main(int argc, char **argv) {
    unsigned int port = 0;
    for (int i = 1; i < argc; i++) {
        if (strcmp(argv[i], "--port") == 0 && i + 1 < argc) {
            port = (unsigned int)strtoul(argv[++i], nullptr, 10);
        } else {
            fprintf(stderr, "usage: %s [--port N]\n", argv[0]);
            return 2;
        }
    }
    int listen_fd = line_server_listen(port);
    if (listen_fd < 0)
        return 1;
    line_server_run(listen_fd, answer_ok, nullptr);
}
