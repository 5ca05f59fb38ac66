#include "control_loop.h"
#include "kal_io.h"

#include "control_handler.h"
#include "daemon_config.h"
#include "kal_common.h"
#include "request.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/* How long the listener rests when a connection cannot be taken even to close it. */
constexpr int kAcceptRetryMs = 100;

/* Connections waiting for their request, with the moment they are given up. Main thread. */
struct waiting_conn {
    int fd;
    long long deadline_ms;
};
waiting_conn waiting[KERV_CONTROL_MAX_WAITING];
int waiting_count = 0;

/* A descriptor held in reserve: out of descriptors, it is given up for a moment to take
   a pending connection off the backlog and close it, so clients are told at once and
   the listener does not stay readable for nothing. */
int spare_fd = -1;
/* One warning per episode: descriptors ran out / the connection bound was reached. */
bool out_of_fds = false;
bool at_bound = false;
/* While descriptors are short and none could be freed, the listener rests until then. */
long long listen_resume_ms = 0;

void forget_waiting(int index) {
    waiting[index] = waiting[--waiting_count];
}

void take_spare() {
    if (spare_fd < 0)
        spare_fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

void refuse_for_lack_of_fds(int reqfd, int error) {
    if (!out_of_fds)
        KERV_PRINT("Can't accept request socket : %s !!", strerror(error));
    out_of_fds = true;
    if (spare_fd >= 0) {
        close(spare_fd);
        spare_fd = -1;
        const int conn = accept(reqfd, nullptr, nullptr);
        if (conn >= 0)
            close(conn);
        take_spare();
        if (conn >= 0)
            return;
    }
    listen_resume_ms = kal_now_ms() + kAcceptRetryMs;
}

void refuse_beyond_bound(int conn) {
    if (!at_bound)
        KERV_WARN("%d control connections wait for their request: refusing more",
                  KERV_CONTROL_MAX_WAITING);
    at_bound = true;
    close(conn);
}

/* Time until the next deadline (or until the listener may accept again); -1: none. */
int poll_timeout(long long now) {
    long long next = listen_resume_ms > now ? listen_resume_ms : -1;
    for (int i = 0; i < waiting_count; i++)
        if (next < 0 || waiting[i].deadline_ms < next)
            next = waiting[i].deadline_ms;
    return next < 0 ? -1 : static_cast<int>(next > now ? next - now : 0);
}

/* Serves the connections whose request has arrived (or that ended) and gives up the
   silent ones whose time is over. ready holds the poll results, one per waiting entry. */
void serve_waiting(const struct pollfd *ready, long long now) {
    for (int i = waiting_count - 1; i >= 0; i--) {
        const int conn = waiting[i].fd;
        if (ready[i].revents != 0) {
            forget_waiting(i);
            kerv_app_request_serve(conn);
        } else if (waiting[i].deadline_ms <= now) {
            forget_waiting(i);
            KERV_PRINT("Can't read request : %s !!", strerror(ETIMEDOUT));
            close(conn);
        }
    }
}

} // namespace

void app_request_handle(int reqfd) {
    const int conn = kerv_accept_request(reqfd);
    if (conn < 0) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
            refuse_for_lack_of_fds(reqfd, errno);
        else
            KERV_PRINT("Can't accept request socket : %s !!", strerror(errno));
        return;
    }
    out_of_fds = false;
    take_spare();
    if (waiting_count == KERV_CONTROL_MAX_WAITING) {
        refuse_beyond_bound(conn);
        return;
    }
    at_bound = false;
    waiting[waiting_count++] = {conn, kal_now_ms() + kerv_control_timeout_ms()};
}

void kerv_control_loop(int reqfd) {
    take_spare();
    for (;;) {
        /* Entry 0 is the listener (ignored by poll while it rests), then one per waiting
           connection, in the order of waiting[]. */
        struct pollfd watched[1 + KERV_CONTROL_MAX_WAITING];
        const long long now = kal_now_ms();
        watched[0] = {listen_resume_ms > now ? -1 : reqfd, POLLIN, 0};
        for (int i = 0; i < waiting_count; i++)
            watched[1 + i] = {waiting[i].fd, POLLIN, 0};
        const int ready = poll(watched, 1 + waiting_count, poll_timeout(now));
        if (ready < 0)
            continue;
        serve_waiting(watched + 1, kal_now_ms());
        if ((watched[0].revents & POLLIN) != 0)
            app_request_handle(reqfd);
    }
}
