#include "host_output.h"

#include "daemon_config.h"
#include "kal_common.h"

#include <cerrno>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace {

/* The host connection cut off for not reading, until the worker closes it. Worker only. */
int cut_off_fd = -1;
/* The host whose output is backed up, and since when. Worker only. */
int backed_up_fd = -1;
long long backed_up_since = 0;

/* The host has taken most of what waited for it: under a quarter of its send buffer (all
   of it, for the serial device) is still queued. */
bool drained(int fd) {
    int queued = 0;
    if (ioctl(fd, TIOCOUTQ, &queued) < 0)
        return true;
    int buffer_size = 0;
    socklen_t size_len = sizeof(buffer_size);
    if (getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &buffer_size, &size_len) < 0)
        return queued == 0;
    return queued < buffer_size / 4;
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

/* The stall time, read from the settings on the first write. Worker only, like every
   host write, so a plain variable does (no guarded static, whose first use would bring
   the C++ runtime into the hot path). */
int stall_time_ms() {
    static int stall_ms = 0;
    if (stall_ms == 0)
        stall_ms = kerv_host_stall_ms();
    return stall_ms;
}

/* One write(2), whatever the descriptor is: a TCP connection or the serial device. The daemon
   ignores the broken-pipe signal, so a host that has gone gives EPIPE, not the end of the
   process, and no write needs a first try as a socket send. */
ssize_t write_once(int fd, const void *buf, size_t len) {
    ssize_t written;
    do {
        written = write(fd, buf, len);
    } while (written < 0 && errno == EINTR);
    return written;
}

} // namespace

void kerv_write_all(int fd, const void *buf, size_t len) {
    const char *next = static_cast<const char *>(buf);
    while (len > 0) {
        const ssize_t written = write_once(fd, next, len);
        if (written <= 0)
            return;
        next += written;
        len -= static_cast<size_t>(written);
    }
}

/*
 * A host whose output has stayed backed up for the stall time is given up. Backed up: a
 * write could not hand over all it had. The clock starts at the first such write and runs
 * across answers; it stops only once the host has drained most of what waits for it, which a
 * host that reads does at once. Counting every byte taken as progress would not do: a peer
 * that reads nothing still lets a few bytes in now and then while the kernel compacts its
 * receive buffer, enough to finish an answer every second or so for minutes.
 * A TCP host's socket carries a send time-out of the stall time, so a blocked write returns
 * by then; the serial device is non-blocking and its writes wait in poll.
 */
void kerv_host_write(int fd, const void *buf, size_t len) {
    if (fd == cut_off_fd)
        return;
    const int stall_ms = stall_time_ms();
    if (fd != backed_up_fd)
        backed_up_fd = -1;
    const char *next = static_cast<const char *>(buf);
    while (len > 0) {
        const ssize_t written = write_once(fd, next, len);
        if (written > 0) {
            next += written;
            len -= static_cast<size_t>(written);
        } else if (written == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
            return;
        }
        if (len == 0)
            break;
        const long long now = kerv_now_ms();
        if (backed_up_fd != fd) {
            backed_up_fd = fd;
            backed_up_since = now;
        }
        const long long waited = now - backed_up_since;
        if (waited >= stall_ms) {
            give_up(fd, stall_ms);
            return;
        }
        if (written <= 0) {
            struct pollfd room = {fd, POLLOUT, 0};
            poll(&room, 1, static_cast<int>(stall_ms - waited));
        }
    }
    if (backed_up_fd == fd && drained(fd))
        backed_up_fd = -1;
}

bool kerv_host_cut_off(int fd) {
    return fd >= 0 && fd == cut_off_fd;
}

void kerv_host_forget(int fd) {
    if (fd == cut_off_fd)
        cut_off_fd = -1;
    if (fd == backed_up_fd)
        backed_up_fd = -1;
}
