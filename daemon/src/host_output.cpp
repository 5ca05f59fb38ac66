#include "host_output.h"

#include "csocket.h"
#include "daemon_config.h"
#include "kal_common.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>
#include <time.h>

namespace {

/* The host connection cut off for not reading, until the worker closes it. Worker only. */
int cut_off_fd = -1;

long long now_ms() {
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

/* Gives up on a host that took nothing for the stall time. */
void give_up(int fd, int stall_ms) {
    if (shutdown(fd, SHUT_RDWR) == 0) {
        cut_off_fd = fd;
        return;
    }
    /* Not a socket: the serial device. What it has not sent by now is stale. */
    tcflush(fd, TCOFLUSH);
    KERV_WARN("serial device took no output for %d ms: unsent output discarded", stall_ms);
}

} // namespace

void kerv_write_all(int fd, const void *buf, size_t len) {
    const char *next = static_cast<const char *>(buf);
    while (len > 0) {
        const ssize_t written = kerv_safe_write(fd, next, len);
        if (written <= 0)
            return;
        next += written;
        len -= static_cast<size_t>(written);
    }
}

/*
 * A TCP host's socket carries a send time-out of the stall time, so a blocked write
 * returns when it made no progress for that long; the serial device is non-blocking, so
 * its writes wait in poll. Either way the stall is measured from the last byte taken.
 */
void kerv_host_write(int fd, const void *buf, size_t len) {
    if (fd == cut_off_fd)
        return;
    static const int stall_ms = kerv_host_stall_ms();
    const char *next = static_cast<const char *>(buf);
    long long progress_at = now_ms();
    while (len > 0) {
        const ssize_t written = kerv_safe_write(fd, next, len);
        if (written > 0) {
            next += written;
            len -= static_cast<size_t>(written);
            progress_at = now_ms();
            continue;
        }
        if (written == 0 || (errno != EAGAIN && errno != EWOULDBLOCK))
            return;
        const long long waited = now_ms() - progress_at;
        if (waited >= stall_ms) {
            give_up(fd, stall_ms);
            return;
        }
        struct pollfd room = {fd, POLLOUT, 0};
        poll(&room, 1, static_cast<int>(stall_ms - waited));
    }
}

bool kerv_host_cut_off(int fd) {
    return fd >= 0 && fd == cut_off_fd;
}

void kerv_host_forget(int fd) {
    if (fd == cut_off_fd)
        cut_off_fd = -1;
}
