#include "host_output.h"

#include "csocket.h"
#include "daemon_config.h"
#include "kal_common.h"

#include <cerrno>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>

namespace {

/* The host connection cut off for not reading, until the worker closes it. Worker only. */
int cut_off_fd = -1;

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
 * One write hands over one answer or URC, about a kilobyte at most. A host that has not
 * taken it within the stall time is given up: counting any byte taken as progress would
 * not do, since a peer that reads nothing still lets a few bytes in now and then while
 * the kernel compacts its buffers, and would hold the worker for many times the stall.
 * A TCP host's socket carries a send time-out of the stall time, so a blocked write
 * returns by then; the serial device is non-blocking and its writes wait in poll.
 */
void kerv_host_write(int fd, const void *buf, size_t len) {
    if (fd == cut_off_fd)
        return;
    static const int stall_ms = kerv_host_stall_ms();
    const char *next = static_cast<const char *>(buf);
    const long long started = kerv_now_ms();
    while (len > 0) {
        const ssize_t written = kerv_safe_write(fd, next, len);
        if (written > 0) {
            next += written;
            len -= static_cast<size_t>(written);
        } else if (written == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
            return;
        }
        const long long waited = kerv_now_ms() - started;
        if (len > 0 && waited >= stall_ms) {
            give_up(fd, stall_ms);
            return;
        }
        if (written <= 0) {
            struct pollfd room = {fd, POLLOUT, 0};
            poll(&room, 1, static_cast<int>(stall_ms - waited));
        }
    }
}

bool kerv_host_cut_off(int fd) {
    return fd >= 0 && fd == cut_off_fd;
}

void kerv_host_forget(int fd) {
    if (fd == cut_off_fd)
        cut_off_fd = -1;
}
