#include "request_worker.h"
#include "kal_io.h"

#include "channel.h"
#include "control_handler.h"
#include "daemon_config.h"
#include "engine_entry.h"
#include "start_barrier.h"
#include "host_output.h"
#include "kal_gather.h"
#include "request_queue.h"
#include "response_format.h"

#include <climits>
#include <cstring>
#include <poll.h>
#include <unistd.h>

namespace {

/* While a two-step command's prompt is open the host is typing its text: URCs wait, as on
   a modem, so that none lands in the middle of it, and go out when the prompt closes. The
   wait is bounded: URCs that no longer fit are dropped. */
struct held_urcs {
    bool prompt_open;
    size_t len;
    char bytes[4096];
};

struct worker_state {
    kervInfo_t *kerv; /* null once the channel has been released */
    held_urcs *held;
    kal_uint32 dropped_lines;   /* lines of the cut-off host not run */
    kal_uint32 dropped_urcs;    /* URCs dropped and not yet reported */
    long long urcs_reported_ms; /* when dropped URCs were last reported */
};

/* A URC goes to the host connected at the moment it is written; with no host it is
   dropped (a descriptor <= 0 is no host: 0 would be the daemon's own standard input). */
void write_urc(const worker_state *worker, const struct req *req) {
    KERV_DBG("size=[%d]", static_cast<int>(req->text_len));
    const int host_fd = worker->kerv != nullptr ? kerv_host_fd(worker->kerv) : -1;
    if (host_fd <= 0) {
        KERV_DBG("no host for the URC, dropped");
        return;
    }
    kerv_host_write(host_fd, req->text, req->text_len);
}

void hold_urc(held_urcs *held, const struct req *req) {
    if (req->text_len > sizeof(held->bytes) - held->len) {
        KERV_WARN("URC dropped: %d bytes wait for a prompt to close", static_cast<int>(held->len));
        return;
    }
    memcpy(held->bytes + held->len, req->text, req->text_len);
    held->len += req->text_len;
}

void close_prompt(worker_state *worker) {
    held_urcs *held = worker->held;
    held->prompt_open = false;
    const int host_fd = worker->kerv != nullptr ? kerv_host_fd(worker->kerv) : -1;
    if (held->len > 0 && host_fd > 0)
        kerv_host_write(host_fd, held->bytes, held->len);
    held->len = 0;
}

/* Drops come in floods: one warning, with the count, at most every kUrcReportMs. */
void report_dropped_urcs(worker_state *worker) {
    constexpr long long kUrcReportMs = 10000;
    worker->dropped_urcs += kerv_queue_take_dropped_urcs();
    const long long now = kal_now_ms();
    if (worker->dropped_urcs == 0 || now - worker->urcs_reported_ms < kUrcReportMs)
        return;
    KERV_WARN("%u URCs dropped: the host took them slower than they came", worker->dropped_urcs);
    worker->dropped_urcs = 0;
    worker->urcs_reported_ms = now;
}

/* A host that closed its sending side may still read; once its connection reports the
   host gone for good (it was reset, or refused an answer), its remaining lines are not run. */
bool host_has_left(int host_fd) {
    struct pollfd connection = {host_fd, 0, 0};
    return poll(&connection, 1, 0) > 0 && (connection.revents & (POLLHUP | POLLERR)) != 0;
}

void run_line(worker_state *worker, const struct req *req) {
    if (kerv_host_cut_off(req->fd) || (req->host_ended && host_has_left(req->fd))) {
        worker->dropped_lines++;
        return;
    }
    switch (req->kind) {
    case KERV_WORK_LINE:
        rmmi_process_multi_cmd(req->fd, req->text);
        return;
    case KERV_WORK_PROMPT:
        rmmi_two_step_prompt(req->fd, req->text);
        worker->held->prompt_open = true;
        return;
    case KERV_WORK_TWO_STEP:
        rmmi_two_step_send(req->fd, req->text);
        break;
    case KERV_WORK_PROMPT_CANCEL:
        rmmi_two_step_cancel(req->fd);
        break;
    default:
        kerv_host_write(req->fd, RMMI_ERROR_RESULT, sizeof(RMMI_ERROR_RESULT) - 1);
        break;
    }
    /* A text's end (sent, cancelled or refused as too long) closes its prompt. */
    if (worker->held->prompt_open)
        close_prompt(worker);
}

/* Nothing of a departed host is queued or running any more: its connection can go. */
void close_host(worker_state *worker, int host_fd) {
    if (kerv_host_cut_off(host_fd))
        KERV_WARN("host fd %d took no output for %d ms: cut off, %u queued lines dropped", host_fd,
                  kerv_host_stall_ms(), worker->dropped_lines);
    else if (worker->dropped_lines > 0)
        KERV_WARN("host fd %d has gone: %u queued lines dropped", host_fd, worker->dropped_lines);
    worker->dropped_lines = 0;
    kerv_host_forget(host_fd);
    close(host_fd);
}

void run_request(worker_state *worker, struct req *req) {
    switch (req->kind) {
    case KERV_WORK_LINE:
    case KERV_WORK_LINE_TOO_LONG:
    case KERV_WORK_PROMPT:
    case KERV_WORK_TWO_STEP:
    case KERV_WORK_PROMPT_CANCEL:
        run_line(worker, req);
        break;
    case KERV_WORK_URC:
        if (worker->held->prompt_open)
            hold_urc(worker->held, req);
        else
            write_urc(worker, req);
        report_dropped_urcs(worker);
        break;
    case KERV_WORK_CONTROL:
        kerv_info_reload(worker->kerv);
        kerv_app_reload_reply(req);
        break;
    case KERV_WORK_HOST_CLOSED:
        if (worker->held->prompt_open)
            close_prompt(worker);
        close_host(worker, req->fd);
        break;
    case KERV_WORK_CHANNEL_CLOSED:
        kerv_destory();
        worker->kerv = nullptr;
        break;
    }
}

/* The diagnostics of one request go out together when it is done (kal_gather.h). */
struct GatheredLines {
    GatheredLines() { kal_gather_begin(); }
    ~GatheredLines() { kal_gather_end(); }
    GatheredLines(const GatheredLines &) = delete;
    GatheredLines &operator=(const GatheredLines &) = delete;
};

} // namespace

void *kerv_request_thread(void *) {
    KERV_FUNC(" START");
    static held_urcs held; /* the worker's own; static for its size */
    worker_state worker = {kervGet(), &held, 0, 0, LLONG_MIN / 2};
    if (worker.kerv == nullptr) {
        KERV_WARN(" no kerv");
        return nullptr;
    }
    kerv_thread_settled();
    for (;;) {
        /* A host whose output is backed up is looked at again when its stall time runs
           out, even if nothing else comes; otherwise the worker sleeps until work comes. */
        struct req *req = appReqDequeue(kerv_host_stall_left_ms());
        if (req == nullptr) {
            kerv_host_stall_check();
            continue;
        }
        GatheredLines lines;
        KERV_DBG(" Listen request from fd = [%d]", req->fd);
        run_request(&worker, req);
        if (worker.kerv != nullptr)
            kerv_reset_buffer(worker.kerv);
        kerv_req_free(req);
    }
}
