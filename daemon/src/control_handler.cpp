#include "control_handler.h"

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

/* Control connections open: waiting for their request on the main thread, or handed to
   the worker with a RELOAD. Changed by the main thread and (closing) the worker. */
std::atomic<int> open_conns{0};

void release(struct req *req) {
    kerv_control_close(req->fd);
    kerv_req_free(req);
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
    kerv_app_reply(req, reply);
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
        appReqEnqueue(req);
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

kal_bool kerv_control_admit() {
    int open = open_conns.load();
    do {
        if (open >= KERV_CONTROL_MAX_CONNS)
            return KAL_FALSE;
    } while (!open_conns.compare_exchange_weak(open, open + 1));
    return KAL_TRUE;
}

void kerv_control_close(int conn) {
    close(conn);
    open_conns.fetch_sub(1);
}

void kerv_app_request_serve(int conn) {
    KERV_FUNC(" START");
    struct req *req = kerv_req_create_control(conn);
    if (req == nullptr) {
        KERV_PRINT("Can't malloc for pending request : %s !!", strerror(errno));
        kerv_control_close(conn);
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

void kerv_app_reply(struct req *req, const char *text) {
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
        kerv_write_all(req->fd, reinterpret_cast<const char *>(record),
                       static_cast<size_t>(packed));
    kerv_control_close(req->fd);
}
