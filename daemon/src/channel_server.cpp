#include "channel_server.h"

#include "csocket.h"
#include "daemon_config.h"
#include "start_barrier.h"
#include "request_queue.h"
#include "two_step.h"

#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

enum srv_wait_e { SRV_READY, SRV_STOP, SRV_HOST_GONE };

/* Blocks until fd has something for us or the channel is asked to close; meanwhile the
   host on host_fd (when there is one) is watched for its end. */
srv_wait_e wait_for(int fd, int host_fd = -1) {
    struct pollfd watched[3] = {
        {fd, POLLIN, 0}, {kerv_stop_line_fd(), POLLIN, 0}, {host_fd, POLLRDHUP, 0}};
    while (poll(watched, 3, -1) < 0 && errno == EINTR) {
    }
    if (watched[1].revents != 0)
        return SRV_STOP;
    return watched[2].revents != 0 ? SRV_HOST_GONE : SRV_READY;
}

/* Where the framer's output goes: the host it was read from. */
struct srv_host {
    kervInfo_t *kerv;
    int fd;
};

/* Takes lines while the queue has room for them: the bound counts lines, so one read of
   many short lines cannot queue more than the worker is allowed to owe the host. */
kal_bool queue_line(void *ctx, const char *line, size_t line_len) {
    auto *host = static_cast<srv_host *>(ctx);
    KERV_DBG(" move and get cmd_buf = [%.*s]", static_cast<int>(line_len), line);
    /* The bytes after a two-step command line are its text: framing stops here. */
    if (kerv_two_step_begin(host->fd, line, line_len))
        return KAL_FALSE;
    const kal_bool queued = srv_request_handle(host->kerv, line, line_len);
    KERV_DBG(" command done (ret = %d)", queued);
    return kerv_queue_lines_full() ? KAL_FALSE : KAL_TRUE;
}

void refuse_long_line(void *ctx) {
    auto *host = static_cast<srv_host *>(ctx);
    KERV_WARN("line longer than %d characters from fd %d", KERV_FRAME_BUF_SIZE - 2, host->fd);
    kerv_req_notify(KERV_WORK_LINE_TOO_LONG, host->fd);
}

constexpr kerv_framing_sink_t kQueueSink = {queue_line, refuse_long_line};

size_t take_text(void *ctx, const char *bytes, size_t len) {
    return kerv_two_step_take(static_cast<srv_host *>(ctx)->fd, bytes, len);
}

/* Bytes read (or held) go to an open message text, otherwise to line framing. A text's
   end, or a two-step command line, stops either with bytes left that are of the other
   kind: they are taken at once, not after the next read. Held bytes of the same kind mean
   the queue is full. */
void frame(kerv_framing_t *framing, size_t read_len, srv_host *host) {
    for (;;) {
        const kal_bool in_text = kerv_two_step_text_open();
        if (in_text)
            kerv_framing_feed_raw(framing, read_len, take_text, host);
        else
            kerv_framing_feed(framing, read_len, &kQueueSink, host);
        read_len = 0;
        if (!framing->lines_held || kerv_two_step_text_open() == in_text)
            return;
    }
}

/* Back-pressure: while the worker has enough of this host's lines, nothing more is read,
   so a host that sends faster than its lines run is held back by the kernel. A host that
   leaves meanwhile is seen at once, so that its queued lines go with it. */
srv_wait_e wait_for_room(kal_bool (*full)(), int host_fd) {
    while (full()) {
        const srv_wait_e waited = wait_for(kerv_queue_room_fd(), host_fd);
        if (waited != SRV_READY)
            return waited;
        kerv_queue_room_taken();
    }
    return SRV_READY;
}

/* A TCP host is read in a blocking read, which a STOP wakes (channel.h). A STOP that came
   before the connection could be woken (while it was being accepted) is seen here. The
   serial device is non-blocking (for the worker's writes) and is waited for in poll. */
srv_wait_e wait_for_host(const kervInfo_t *kerv, int host_fd) {
    if (kerv->channel != KERV_CHANNEL_SOCKET)
        return wait_for(host_fd);
    return kerv_stop_asked() ? SRV_STOP : SRV_READY;
}

/* How one pass over the host's input ended. */
enum srv_pass_e {
    PASS_GO_ON,         /* more may come */
    PASS_CLOSED,        /* a STOP closed the channel */
    PASS_HOST_GONE,     /* a read error or reset: nothing more of the host is run */
    PASS_END_OF_STREAM, /* the host sends no more; it may still read its answers */
};

srv_pass_e close_for_stop(kervInfo_t *kerv) {
    kerv_channel_close(kerv);
    return PASS_CLOSED;
}

/* One read from the host and the lines it completes (or the lines a full queue left in the
   framing buffer, without a read). */
srv_pass_e read_pass(kervInfo_t *kerv, kerv_framing_t *framing) {
    const int host_fd = kerv_host_fd(kerv);
    const srv_wait_e room = wait_for_room(kerv_queue_lines_full, host_fd);
    if (room == SRV_HOST_GONE) {
        KERV_WARN("network/UART disconnect");
        return PASS_HOST_GONE;
    }
    if (room == SRV_STOP || wait_for_host(kerv, host_fd) == SRV_STOP)
        return close_for_stop(kerv);
    srv_host host = {kerv, host_fd};
    if (framing->lines_held) {
        frame(framing, 0, &host);
        return PASS_GO_ON;
    }
    const ssize_t got = kerv_safe_read(host_fd, framing->cmd_buf + framing->cmd_buf_offset,
                                       kerv_framing_room(framing));
    /* Whatever the read brought after a STOP is not run. */
    if (kerv_stop_asked())
        return close_for_stop(kerv);
    /* The serial device is non-blocking (for the worker's writes): readiness can pass. */
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
        return PASS_GO_ON;
    /* The bytes just read are not NUL-terminated yet: print only what is held. */
    const int held = framing->cmd_buf_offset + (got > 0 ? static_cast<int>(got) : 0);
    KERV_DBG("cmd_buf=[%.*s], offset=[%d], size=[%d]", held, framing->cmd_buf,
             framing->cmd_buf_offset, static_cast<int>(got));
    if (got < 0) {
        KERV_WARN("network/UART error = %s", strerror(errno));
        KERV_PRINT("disconnect");
        return PASS_HOST_GONE;
    }
    if (got == 0) {
        KERV_PRINT("network/UART offline. size=[%d]", 0);
        KERV_WARN("network/UART disconnect");
        KERV_PRINT("disconnect");
        return PASS_END_OF_STREAM;
    }
    frame(framing, static_cast<size_t>(got), &host);
    return PASS_GO_ON;
}

/* Asked for a host's send buffer; the kernel doubles it for its own bookkeeping. Room for
   several long answers, far less than a host that reads nothing could bury. */
constexpr int kHostSendBuffer = 16 * 1024;

void set_host_options(int host_fd) {
    /* An answer often takes several writes (echo and text, then the line's result); none
       of them may wait for the host's delayed acknowledgement. */
    const int on = 1;
    setsockopt(host_fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
    /* A host that vanished without a word (cable, power) frees the channel within about
       a minute: probes after 30 s of silence, 4 of them 5 s apart. */
    setsockopt(host_fd, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on));
    const int idle_s = 30, interval_s = 5, probes = 4;
    setsockopt(host_fd, IPPROTO_TCP, TCP_KEEPIDLE, &idle_s, sizeof(idle_s));
    setsockopt(host_fd, IPPROTO_TCP, TCP_KEEPINTVL, &interval_s, sizeof(interval_s));
    setsockopt(host_fd, IPPROTO_TCP, TCP_KEEPCNT, &probes, sizeof(probes));
    /* A write that makes no progress for the stall time returns, so the worker can give
       up on a host that stopped reading (host_output.h). */
    const int stall_ms = kerv_host_stall_ms();
    const struct timeval stall = {stall_ms / 1000, (stall_ms % 1000) * 1000};
    setsockopt(host_fd, SOL_SOCKET, SO_SNDTIMEO, &stall, sizeof(stall));
    /* A fixed, small send buffer: left to itself the kernel grows it to megabytes for a
       host that reads nothing, and answers would pile up there unseen by the stall rule. */
    const int send_buffer = kHostSendBuffer;
    setsockopt(host_fd, SOL_SOCKET, SO_SNDBUF, &send_buffer, sizeof(send_buffer));
    /* A host that vanished with a little output pending (too little for the stall rule)
       would hold the channel for the kernel's quarter of an hour of retransmissions: output
       unacknowledged for a minute ends the connection, as keepalive does for an idle one. */
    const unsigned int unacknowledged_ms = 60 * 1000;
    setsockopt(host_fd, IPPROTO_TCP, TCP_USER_TIMEOUT, &unacknowledged_ms,
               sizeof(unacknowledged_ms));
}

/* Out of descriptors or memory, accept fails until something is freed: wait a little
   (or for a STOP) rather than spin on a connection that stays pending. */
void pause_after_failed_accept() {
    constexpr int kRetryMs = 100;
    struct pollfd stop = {kerv_stop_line_fd(), POLLIN, 0};
    poll(&stop, 1, kRetryMs);
}

kal_bool accept_host(kervInfo_t *kerv) {
    const int listen_fd = SOCK_GetFd(kerv->sock);
    if (wait_for_room(kerv_queue_departed_full, -1) == SRV_STOP ||
        wait_for(listen_fd) == SRV_STOP) {
        kerv_channel_close(kerv);
        return KAL_TRUE;
    }
    struct sockaddr_in peer;
    socklen_t peer_len = sizeof(peer);
    const int host_fd =
        accept4(listen_fd, reinterpret_cast<struct sockaddr *>(&peer), &peer_len, SOCK_CLOEXEC);
    KERV_PRINT("kerv->new_fd=[%d]", host_fd);
    if (host_fd >= 0)
        set_host_options(host_fd);
    else
        pause_after_failed_accept();
    kerv_set_host_fd(kerv, host_fd);
    return KAL_TRUE;
}

void serve_channel(kervInfo_t *kerv) {
    kerv_framing_t framing;
    while (kerv->sock != nullptr) {
        if (!kerv_srvStartUp(kerv)) {
            KERV_WARN("fail to start up listen channel.");
            break;
        }
        /* Bytes left unterminated by an earlier host are not joined to this host's lines. */
        kerv_framing_reset(&framing);
        kerv_two_step_reset();
        srv_pass_e pass = PASS_GO_ON;
        while (kerv_host_fd(kerv) > 0 && (pass = read_pass(kerv, &framing)) == PASS_GO_ON) {
        }
        if (kerv->sock == nullptr)
            break;
        if (kerv_serial_reopen(kerv))
            continue;
        if (kerv->sock == nullptr)
            break;
        if (kerv->channel == KERV_CHANNEL_UART) {
            KERV_WARN("UART disconnect");
            kerv_channel_close(kerv);
            break;
        }
        kerv_host_release(kerv,
                          pass == PASS_END_OF_STREAM ? KERV_HOST_HALF_CLOSED : KERV_HOST_GONE);
    }
}

} // namespace

kal_bool kerv_srvStartUp(kervInfo_t *kerv) {
    KERV_FUNC(" ENTER");
    if (kerv == nullptr) {
        KERV_WARN("kerv is NULL");
        return KAL_FALSE;
    }
    switch (kerv->channel) {
    case KERV_CHANNEL_SOCKET:
        return accept_host(kerv);
    case KERV_CHANNEL_UART:
        return KAL_TRUE;
    default:
        KERV_PRINT(" unknown channel id.");
        return KAL_FALSE;
    }
}

kal_bool srv_request_handle(kervInfo_t *kerv, const char *line, size_t line_len) {
    KERV_FUNC(" ENTER");
    if (kerv == nullptr) {
        KERV_WARN("kerv is NULL");
        return KAL_FALSE;
    }
    const int host_fd = kerv_host_fd(kerv);
    if (host_fd < 0) {
        KERV_WARN("Can't open fd : %s !!", strerror(errno));
        return KAL_FALSE;
    }
    struct req *req = kerv_req_create(KERV_WORK_LINE, host_fd, line, line_len);
    if (req == nullptr) {
        KERV_WARN("Can't malloc for pending req : %s !!", strerror(errno));
        return KAL_FALSE;
    }
    appReqEnqueue(req);
    KERV_FUNC(" EXIT");
    return KAL_TRUE;
}

void *kerv_srv_thread(void *) {
    KERV_FUNC(" START");
    kervInfo_t *kerv;
    while ((kerv = kervGet()) == nullptr)
        sleep(1);
    kerv_init();
    kerv_thread_settled();
    if (kerv->sock == nullptr) {
        KERV_WARN("fail to start up listen channel.");
        KERV_PRINT("fail to start up listen channel.");
    } else {
        serve_channel(kerv);
    }
    /* The worker may still hold requests that use the instance; it releases it when it
       reaches this notice, after all of them. */
    kerv_req_notify(KERV_WORK_CHANNEL_CLOSED, -1);
    kerv_stop_line_release();
    KERV_FUNC(" END");
    pthread_exit(nullptr);
}
