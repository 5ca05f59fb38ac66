/*
 * Baseline 2 of the load benchmark: relays every command line to the modem daemon through
 * the bare exchange (a fresh UDP socket per request) and writes the modem's answer text
 * back in one write, from a single thread; "\r\nERROR\r\n" when no answer came. Hosts come
 * over loopback TCP, or the one host over a serial device.
 *
 *   kerv-load-relay --modemd-port P [--port N | --serial DEVICE] [--target T]
 *   (N = 0, the default, takes a free port and prints it; T = 1, LTE, by default)
 */
#include "bare_relay.h"
#include "line_server.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

struct relay_config_t {
    unsigned int modemd_port;
    uint32_t target;
};

static void relay_line(void *ctx, int host_fd, const char *line, size_t line_len) {
    static const char error[] = "\r\nERROR\r\n";
    const relay_config_t *config = (const relay_config_t *)ctx;
    char answer[1420];
    int answer_len = bare_relay_exchange(config->modemd_port, config->target, line, line_len,
                                         answer, sizeof(answer));
    ssize_t written = answer_len < 0 ? write(host_fd, error, sizeof(error) - 1)
                                     : write(host_fd, answer, (size_t)answer_len);
    if (written < 0)
        perror("write");
}

int main(int argc, char **argv) {
    unsigned int port = 0;
    const char *serial_path = nullptr;
    relay_config_t config = {0, MODEM_TARGET_LTE};
    for (int i = 1; i < argc; i++) {
        if (strcmp(argv[i], "--port") == 0 && i + 1 < argc) {
            port = (unsigned int)strtoul(argv[++i], nullptr, 10);
        } else if (strcmp(argv[i], "--serial") == 0 && i + 1 < argc) {
            serial_path = argv[++i];
        } else if (strcmp(argv[i], "--modemd-port") == 0 && i + 1 < argc) {
            config.modemd_port = (unsigned int)strtoul(argv[++i], nullptr, 10);
        } else if (strcmp(argv[i], "--target") == 0 && i + 1 < argc) {
            config.target = (uint32_t)strtoul(argv[++i], nullptr, 10);
        } else {
            fprintf(stderr, "usage: %s --modemd-port P [--port N | --serial DEVICE] [--target T]\n",
                    argv[0]);
            return 2;
        }
    }
    if (config.modemd_port == 0) {
        fprintf(stderr, "%s: --modemd-port is required\n", argv[0]);
        return 2;
    }
    return line_server_main(serial_path, port, relay_line, &config);
}
