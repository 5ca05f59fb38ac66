/*
 * Baseline 1 of the load benchmark: answers every command line with "\r\nOK\r\n", one write
 * per line, from a single thread. The cheapest possible AT answer over loopback TCP, or
 * over a serial device (a pty in the benchmark).
 *
 *   kerv-load-echo [--port N]     (N = 0, the default, takes a free port and prints it)
 *   kerv-load-echo --serial DEVICE
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
    const char *serial_path = nullptr;
    for (int i = 1; i < argc; i++) {
        if (strcmp(argv[i], "--port") == 0 && i + 1 < argc) {
            port = (unsigned int)strtoul(argv[++i], nullptr, 10);
        } else if (strcmp(argv[i], "--serial") == 0 && i + 1 < argc) {
            serial_path = argv[++i];
        } else {
            fprintf(stderr, "usage: %s [--port N | --serial DEVICE]\n", argv[0]);
            return 2;
        }
    }
    return line_server_main(serial_path, port, answer_ok, nullptr);
}
