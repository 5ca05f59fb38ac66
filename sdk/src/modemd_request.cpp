#include "kerv_md_request.h"

#include "modemd_exchange.h"

#include <atomic>
#include <cassert>

namespace {

constexpr int kRequestWaits = 30;

/* General requests are numbered from 2000, apart from the engine's AT relay (from 1000). */
std::atomic<kal_uint32> modemd_req_token{2000};

/* The traces name the packet routine, whichever helper prints them. */
#define PACKET_LOG(level, ...) kal_print_gated((level), "modemd_send_packet", __LINE__, __VA_ARGS__)

void trace_packet_request(const Modem_Request_t *req) {
    PACKET_LOG(KAL_DBG_DBG, "modemd_send_packet, req_id = %d, token = %d, target = %d, len = %d",
               req->request_id, req->token, req->target, req->data_len);
}

int modemd_send_packet(Modem_Request_t *req, Modem_Response_t *resp, char *out,
                       unsigned int out_size, int timeout_count) {
    kal_int32 detail = 0;
    modemd_status_enum status =
        modemd_exchange(req, resp, timeout_count, trace_packet_request, &detail);
    switch (status) {
    case MODEMD_SOCKET_FAILED:
    case MODEMD_SEND_FAILED:
        modemd_status_text(out, out_size, status, detail);
        return -1;
    case MODEMD_RECEIVE_FAILED:
        PACKET_LOG(KAL_DBG_WARNING, "modemd_send_packet, can't receive the response, ret = %d",
                   detail);
        break;
    case MODEMD_ANSWERED:
        PACKET_LOG(KAL_DBG_DBG,
                   "modemd_send_packet, resp_id = %d, token = %d, target = %d, result = %d, "
                   "len = %d",
                   resp->response_id, resp->token, resp->target, resp->result, resp->data_len);
        if (resp->result != MODEM_RET_OK) {
            status = MODEMD_RESULT_ERROR;
            detail = static_cast<kal_int32>(resp->result);
        }
        break;
    default:
        break;
    }
    modemd_status_text(out, out_size, status, detail);
    return status == MODEMD_ANSWERED ? 0 : 1;
}

} // namespace

extern "C" int kerv_md_request(kerv_md_request_t *request_p, char *out, unsigned int out_size) {
    assert(request_p != nullptr);
    Modem_Request_t req;
    Modem_Response_t resp;
    modemd_build_request(&req, modemd_req_token.fetch_add(1), request_p->target,
                         request_p->request_id, request_p->data);
    return modemd_send_packet(&req, &resp, out, out_size, kRequestWaits);
}
