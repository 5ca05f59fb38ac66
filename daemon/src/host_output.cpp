#include "host_output.h"

#include "daemon_config.h"
#include "kal_common.h"
#include "kal_io.h"

#include <cerrno>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace {

/* The host connection cut off for not reading, until the worker closes it. Worker only. */
int cut_off_fd = -1;

/*
 * The stall clock of the host written to last: since when its unread output has stayed
 * backed up (-1: it is not). Worker only. It belongs to that one connection: the worker
 * forgets it when it closes the connection, so a later host given the same descriptor
 * number starts with a clean clock.
 */
struct stall_clock {
    int fd;
    long long since;
};
stall_clock stall = {-1, -1};

/* Output the host has not taken that counts as backed up. A host that reads takes an
   answer within milliseconds; a host that does not has its send buffer (kept small, see
   channel_server.cpp) fill past this within a few answers. */
constexpr int kBackedUpBytes = 4096;

bool backed_up(int fd) {
    int queued = 0;
    return ioctl(fd, TIOCOUTQ, &queued) == 0 && queued > kBackedUpBytes;
}

/* Starts the host's clock if it is not running; how long it has run. */
long long stalled_for(int fd, long long now) {
    if (stall.fd != fd || stall.since < 0)
        stall = {fd, now};
    return now - stall.since;
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

/*
 * A host whose output has stayed backed up for the stall time is given up. Backed up: a
 * write could not hand over all it had, or more than kBackedUpBytes still wait unsent or
 * unacknowledged after a write. The clock starts at the first such write and runs across
 * answers, however slowly they come; it stops only once a write finds the host drained
 * below that mark, which a host that reads is at once. Counting every byte taken as
 * progress would not do: a peer that reads nothing still lets a few bytes in now and then
 * while the kernel compacts its receive buffer.
 * A TCP host's socket carries a send time-out of the stall time, so a blocked write returns
 * by then; the serial device is non-blocking and its writes wait in poll.
 */
void kerv_host_write(int fd, const void *buf, size_t len) {
    if (fd == cut_off_fd)
        return;
    const int stall_ms = stall_time_ms();
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
        const long long waited = stalled_for(fd, kal_now_ms());
        if (waited >= stall_ms) {
            give_up(fd, stall_ms);
            return;
        }
        if (written <= 0) {
            struct pollfd room = {fd, POLLOUT, 0};
            poll(&room, 1, static_cast<int>(stall_ms - waited));
        }
    }
    if (!backed_up(fd))
        stall = {fd, -1};
    else if (stalled_for(fd, kal_now_ms()) >= stall_ms)
        give_up(fd, stall_ms);
}

bool kerv_host_cut_off(int fd) {
    return fd >= 0 && fd == cut_off_fd;
}

void kerv_host_forget(int fd) {
    if (fd == cut_off_fd)
        cut_off_fd = -1;
    if (fd == stall.fd)
        stall = {-1, -1};
}
