#include "host_output.h"

#include "daemon_config.h"
#include "kal_common.h"
#include "kal_io.h"

#include <cerrno>
#include <climits>
#include <cstddef>
#include <linux/tcp.h>
#include <netinet/in.h>
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
    bool pending;         /* output was left waiting at the last look */
    long long written_at; /* the last write to the host */
};
stall_clock stall = {-1, -1, false, 0};

/* Output the host has not taken, or room left in its receive window, that counts as backed
   up. A host that reads takes an answer within milliseconds and keeps its window open; a
   host that does not has its window shut and its send buffer (kept small, see
   channel_server.cpp) fill past this within a few answers. */
constexpr int kBackedUpBytes = 4096;

/* The room a TCP host's receive window offers; INT_MAX when fd is no TCP connection (or the
   kernel does not tell). */
long peer_window(int fd) {
    struct tcp_info info = {};
    socklen_t info_len = sizeof(info);
    if (getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &info_len) != 0 ||
        info_len < offsetof(struct tcp_info, tcpi_snd_wnd) + sizeof(info.tcpi_snd_wnd))
        return INT_MAX;
    return static_cast<long>(info.tcpi_snd_wnd);
}

/* Starts the host's clock if it is not running; how long it has run. */
long long stalled_for(int fd, long long now) {
    if (stall.fd != fd || stall.since < 0)
        stall = {fd, now, true, stall.written_at};
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

/*
 * Looks at the host's output after a write, or when the worker looks again: output waits
 * that the host does not take (much of it, or any behind a shut receive window) starts or
 * keeps the clock, and the host is given up once it has run for the stall time; anything
 * else stops it. A host that sends nothing more has no answer to wake the clock with: the
 * worker looks again while output is left waiting (kerv_host_stall_check).
 */
void look_at_output(int fd, int stall_ms) {
    int queued = 0;
    if (ioctl(fd, TIOCOUTQ, &queued) != 0)
        queued = 0;
    if (queued == 0 || (queued <= kBackedUpBytes && peer_window(fd) >= kBackedUpBytes)) {
        stall = {fd, -1, queued > 0, stall.written_at};
        return;
    }
    if (stalled_for(fd, kal_now_ms()) >= stall_ms)
        give_up(fd, stall_ms);
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
 * write could not hand over all it had, or after it more than kBackedUpBytes still wait
 * unsent or unacknowledged, or any output waits behind a receive window shut to less than
 * that (look_at_output). The clock starts at the first such look and runs across answers,
 * however slowly they come; it stops only once a look finds the host drained, which a host
 * that reads is at once. Counting every byte taken as
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
    look_at_output(fd, stall_ms);
    stall.written_at = kal_now_ms();
}

int kerv_host_stall_left_ms() {
    if (stall.fd < 0 || stall.fd == cut_off_fd || (stall.since < 0 && !stall.pending))
        return -1;
    const long long since = stall.since < 0 ? stall.written_at : stall.since;
    const long long left = since + stall_time_ms() - kal_now_ms();
    return left > 0 ? static_cast<int>(left) : 0;
}

void kerv_host_stall_check() {
    if (stall.fd < 0 || stall.fd == cut_off_fd)
        return;
    const int stall_ms = stall_time_ms();
    look_at_output(stall.fd, stall_ms);
    /* Output still waits a whole stall time after the last write: the host has not taken
       it, whatever its window says (or where the kernel does not tell the window). */
    if (stall.fd != cut_off_fd && stall.pending && kal_now_ms() - stall.written_at >= stall_ms)
        give_up(stall.fd, stall_ms);
}

bool kerv_host_cut_off(int fd) {
    return fd >= 0 && fd == cut_off_fd;
}

void kerv_host_forget(int fd) {
    if (fd == cut_off_fd)
        cut_off_fd = -1;
    if (fd == stall.fd)
        stall = {-1, -1, false, 0};
}
