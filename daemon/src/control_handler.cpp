#include "control_handler.h"
#include "kal_io.h"

#include "csocket.h"
#include "channel.h"
#include "engine_entry.h"
#include "host_output.h"
#include "request_queue.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace {

constexpr int kHashResultSize = 2048;

constexpr char kReloadReply[] = "RELOAD...";

/* RELOADs handed to the worker and not yet answered: counted up by the main thread, down
   by the worker. */
std::atomic<int> held_reloads{0};
/* Refusals are reported once until a RELOAD is taken again. Main thread. */
bool refusing_reloads = false;

void release(struct req *req) {
    close(req->fd);
    kerv_req_free(req);
}

/*
 * Answers an application's request on req->fd with its own record, argument 0 now text and
 * no other argument, packed; then closes the connection. The element stays the caller's.
 */
void app_reply(struct req *req, const char *text) {
    kervRequest_t *record = req->request;
    /* The text may lie in the record's own buffer (a reply made from a received argument). */
    const size_t text_len = strnlen(text, sizeof(record->buf) - 1);
    memmove(record->buf, text, text_len);
    record->buf[text_len] = '\0';
    record->arg[0] = record->buf;
    for (size_t i = 1; i < KERV_REQUEST_ARG_NUM; i++)
        record->arg[i] = nullptr;
    const int packed = kerv_pack_request(record);
    KERV_DBG("kerv_pack_request ret=[%d]", packed);
    if (packed > 0)
        kal_write_all(req->fd, reinterpret_cast<const char *>(record), static_cast<size_t>(packed));
    close(req->fd);
}

void hand_reload_to_worker(struct req *req) {
    if (held_reloads.fetch_add(1) >= KERV_CONTROL_MAX_HELD) {
        held_reloads.fetch_sub(1);
        if (!refusing_reloads)
            KERV_PRINT("request_handle: %d RELOADs already wait, refusing more",
                       KERV_CONTROL_MAX_HELD);
        refusing_reloads = true;
        release(req);
        return;
    }
    refusing_reloads = false;
    appReqEnqueue(req);
}

/* Reads and unpacks the one request of the connection; KAL_FALSE after a printed refusal. */
kal_bool read_request(struct req *req) {
    const ssize_t got = kerv_safe_read(req->fd, req->request, KERV_REQUEST_WIRE_MAX);
    if (got < 0) {
        KERV_PRINT("Can't read request : %s !!", strerror(errno));
        return KAL_FALSE;
    }
    if (kerv_unpack_request(req->request, static_cast<int>(got)) != 0) {
        KERV_PRINT("Can't unpack request !!");
        return KAL_FALSE;
    }
    return KAL_TRUE;
}

void answer_hash(struct req *req) {
    req->request->status = 0;
    char result[kHashResultSize] = {};
    char *name = req->request->arg[0];
    const char *reply = "ERROR";
    if (name != nullptr &&
        rmmi_process_calcuate_cmd(req->fd, name, result, kHashResultSize - 1) == KAL_TRUE) {
        KERV_PRINT("[%s]", result);
        reply = result;
    } else {
        KERV_PRINT(" fail to caculate hash value for cmd");
    }
    app_reply(req, reply);
    kerv_req_free(req);
}

/* STOP and START alike. The channel is closed before the connection: when the application
   sees the end of the connection, the channel is already closed. */
void stop_channel(struct req *req) {
    KERV_DBG("start to de-init");
    kerv_deinit();
    release(req);
}

void act_on_request(struct req *req) {
    switch (req->request->cmd) {
    case KERV_REQUEST_CMD_START:
    case KERV_REQUEST_CMD_STOP:
        stop_channel(req);
        break;
    case KERV_REQUEST_CMD_RELOAD:
        KERV_DBG(" RELOAD");
        hand_reload_to_worker(req);
        break;
    case KERV_REQUEST_CMD_CMD:
        KERV_DBG(" HIHI CMD");
        release(req);
        break;
    case KERV_REQUEST_CMD_GEN_HASH:
        answer_hash(req);
        break;
    default:
        KERV_PRINT("request_handle: request cmd is not classified");
        release(req);
        break;
    }
}

} // namespace

void kerv_app_request_serve(int conn) {
    KERV_FUNC(" START");
    struct req *req = kerv_req_create_control(conn);
    if (req == nullptr) {
        KERV_PRINT("Can't malloc for pending request : %s !!", strerror(errno));
        close(conn);
        return;
    }
    if (!read_request(req)) {
        release(req);
        return;
    }
    KERV_DBG(" APP fd=[%d] in server side", conn);
    if (req->request->type != KERV_REQUEST_TYPE_APP) {
        KERV_PRINT("request_handle: request type is not application");
        release(req);
        return;
    }
    act_on_request(req);
    KERV_FUNC(" END");
}

void kerv_app_reload_reply(struct req *req) {
    app_reply(req, kReloadReply);
    held_reloads.fetch_sub(1);
}
