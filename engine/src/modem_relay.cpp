#include "modem_relay.h"

#include "modemd_exchange.h"
#include "rmmi_common.h"

#include <atomic>
#include <cassert>
#include <cstdio>
#include <cstring>

namespace {

constexpr int kRelayWaits = 60;

/* AT commands relayed by the engine are numbered from 1000. */
std::atomic<kal_uint32> modemd_req_token{1000};

void trace_relay_request(const Modem_Request_t *req) {
    kal_print_gated(KAL_DBG_INFO, "send_cmd_to_md", __LINE__,
                    "req_id = %d, token = %d, target = %d, len = %d", req->request_id, req->token,
                    req->target, req->data_len);
}

/*
 * The modem's text with a line feed after it, cut to data_len characters and to the
 * caller's buffer. A modem daemon whose data_len counts the text's terminating NUL thus
 * keeps the line feed; one that counts only the text loses it.
 */
void copy_answer(const Modem_Response_t *resp, char *out, kal_uint32 out_size) {
    if (out_size == 0)
        return;
    const size_t text_len = strnlen(resp->data, MODEM_RESPONSE_DATA_SIZE);
    kal_uint32 keep = resp->data_len < out_size - 1 ? resp->data_len : out_size - 1;
    const size_t with_line_feed = text_len + 1;
    if (keep > with_line_feed)
        keep = static_cast<kal_uint32>(with_line_feed);
    const size_t from_text = keep < text_len ? keep : text_len;
    memcpy(out, resp->data, from_text);
    if (keep > from_text)
        out[from_text] = '\n';
    out[keep] = '\0';
}

/*
 * The modem's text decides: an answer that carries text is passed on whatever its result
 * code (the text already tells the host what went wrong); one without text is a failure.
 */
kal_uint32 take_answer(const Modem_Response_t *resp, char *out, kal_uint32 *length) {
    if (resp->data_len == 0) {
        modemd_status_text(out, *length, MODEMD_RESULT_ERROR, static_cast<kal_int32>(resp->result));
        return NO_NW_SERVICE;
    }
    copy_answer(resp, out, *length);
    *length = resp->data_len + 1;
    return RMMI_NO_ERR;
}

} // namespace

kal_uint32 send_cmd_to_md(kal_uint32 target, kal_uint8 *in, char *out, kal_uint32 *length) {
    assert((in != nullptr) && (out != nullptr) && (length != nullptr));
    kal_uint32 result = RMMI_NO_ERR;
    Modem_Request_t req;
    Modem_Response_t resp;
    modemd_build_request(&req, modemd_req_token.fetch_add(1), target, MODEM_REQ_SIM_PROXY,
                         reinterpret_cast<const char *>(in));

    kal_int32 detail = 0;
    const modemd_status_enum status =
        modemd_exchange(&req, &resp, kRelayWaits, trace_relay_request, &detail);
    char status_text[64];
    /* After a time-out out holds whatever the caller left there: the log shows none of it. */
    const char *filled = out;
    switch (status) {
    case MODEMD_SOCKET_FAILED:
    case MODEMD_SEND_FAILED:
        modemd_status_text(status_text, sizeof(status_text), status, detail);
        KERV_WARN("%s", status_text);
        return NO_NW_SERVICE;
    case MODEMD_WAIT_FAILED:
        modemd_status_text(out, *length, status, detail);
        result = NO_NW_SERVICE;
        break;
    case MODEMD_RECEIVE_FAILED:
        KERV_WARN(" can't receive the response, ret = %d", detail);
        modemd_status_text(out, *length, status, detail);
        result = NO_NW_SERVICE;
        break;
    case MODEMD_TIMED_OUT:
        modemd_status_text(status_text, sizeof(status_text), status, detail);
        KERV_WARN("%s", status_text);
        result = NO_NW_SERVICE;
        filled = "";
        break;
    case MODEMD_ANSWERED:
        KERV_INFO(" resp_id = %d, token = %d, target = %d, result = %d, len = %d", resp.response_id,
                  resp.token, resp.target, resp.result, resp.data_len);
        result = take_answer(&resp, out, length);
        break;
    default:
        filled = "";
        break;
    }
    KERV_WARN("libmodemd response = [%s]", filled);
    return result;
}
