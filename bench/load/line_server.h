/*
 * The skeleton shared by the baseline servers of the load benchmark: a single-threaded
 * server, on loopback TCP (one host at a time) or on a serial device, that cuts what it
 * reads into command lines and hands each line to the server's own handler, which answers
 * on the host's descriptor. Nothing else runs in the process, so a round trip costs one wake-up of
 * this one thread: the floor against which the daemon is measured.
 */
#ifndef LOAD_LINE_SERVER_H
#define LOAD_LINE_SERVER_H

#include <stddef.h>

/* Longest line handed on; the daemon's command lines are shorter. */
enum { LINE_SERVER_MAX_LINE = 1022 };

/* Answers one line on host_fd; line is NUL-terminated and holds no terminator. */
typedef void (*line_handler_fn)(void *ctx, int host_fd, const char *line, size_t line_len);

/*
 * Framing state of one host connection. A line ends at a carriage return or a line feed;
 * empty lines (the line feed of a CR LF pair) are skipped, and a line longer than the limit
 * is dropped whole, up to its terminator.
 */
struct line_framer_t {
    char line[LINE_SERVER_MAX_LINE + 1];
    size_t line_len;
    bool too_long;
};

void line_framer_reset(line_framer_t *framer);
void line_framer_feed(line_framer_t *framer, const char *bytes, size_t len, int host_fd,
                      line_handler_fn handler, void *ctx);

/* Opens the serial device at path and makes it raw (8 bits, no echo, no line editing or
 * translation, a read returns with the first byte). Returns the descriptor, or -1 with a
 * message on stderr. */
int line_server_open_serial(const char *path);

/* Serves the host on host_fd until it closes. */
void line_server_serve(int host_fd, line_handler_fn handler, void *ctx);

/* A baseline server's whole life: the host on the serial device at serial_path when it is
 * given, else hosts on 127.0.0.1:port one after the other for ever (port 0: any free port;
 * the port taken is printed on the first line of standard output). Returns the exit status
 * when it cannot serve or the serial host has gone. */
int line_server_main(const char *serial_path, unsigned int port, line_handler_fn handler,
                     void *ctx);

#endif /* LOAD_LINE_SERVER_H */
