#include "request_worker.h"

#include "channel.h"
#include "control_handler.h"
#include "engine_entry.h"
#include "host_output.h"
#include "request_queue.h"

#include <cstring>
#include <unistd.h>

namespace {

constexpr char kErrorResult[] = "\r\nERROR\r\n";
constexpr char kReloadReply[] = "RELOAD...";

/* A URC goes to the host connected at the moment it is written; with no host it is
   dropped (a descriptor <= 0 is no host: 0 would be the daemon's own standard input). */
void write_urc(kervInfo_t *kerv, const struct req *req) {
    KERV_DBG("size=[%d]", static_cast<int>(req->text_len));
    const int host_fd = kerv != nullptr ? kerv_host_fd(kerv) : -1;
    if (host_fd <= 0) {
        KERV_DBG("no host for the URC, dropped");
        return;
    }
    kerv_host_write(host_fd, req->text, req->text_len);
}

/* Runs one element. The instance is null once the channel has been released. */
void run_request(kervInfo_t **kerv, struct req *req) {
    switch (req->kind) {
    case KERV_WORK_LINE:
        rmmi_process_multi_cmd(req->fd, req->text);
        break;
    case KERV_WORK_LINE_TOO_LONG:
        kerv_host_write(req->fd, kErrorResult, sizeof(kErrorResult) - 1);
        break;
    case KERV_WORK_URC:
        write_urc(*kerv, req);
        break;
    case KERV_WORK_CONTROL:
        kerv_info_reload(*kerv);
        kerv_app_reply(req, kReloadReply);
        break;
    case KERV_WORK_HOST_CLOSED:
        close(req->fd);
        break;
    case KERV_WORK_CHANNEL_CLOSED:
        kerv_destory();
        *kerv = nullptr;
        break;
    }
}

} // namespace

void *kerv_request_thread(void *) {
    KERV_FUNC(" START");
    kervInfo_t *kerv = kervGet();
    if (kerv == nullptr) {
        KERV_WARN(" no kerv");
        return nullptr;
    }
    for (;;) {
        struct req *req = appReqDequeue();
        if (req == nullptr)
            continue;
        KERV_DBG(" Listen request from fd = [%d]", req->fd);
        run_request(&kerv, req);
        if (kerv != nullptr)
            kerv_reset_buffer(kerv);
        kerv_req_free(req);
    }
}
