/*
 * Mechanics shared by the two clients of the modem daemon (the engine's AT relay and the
 * general request of the utility library): building a request packet, the exchange itself
 * (fresh socket, one send, waits of one second, one receive) and the status texts. Each
 * client keeps its own counter, traces and verdict on the answer.
 *
 * Not part of the plug-in interface: it is not installed.
 */
#ifndef MODEMD_EXCHANGE_H
#define MODEMD_EXCHANGE_H

#include "kerv_md_request.h"

#ifdef __cplusplus
extern "C" {
#endif

/* How an exchange ended, and the status text each outcome reports. */
typedef enum {
    MODEMD_ANSWERED = 0,   /* "ok": a datagram of at least the response header arrived */
    MODEMD_SOCKET_FAILED,  /* "error,10001,..." */
    MODEMD_SEND_FAILED,    /* "error,10002,...", detail: the send result */
    MODEMD_WAIT_FAILED,    /* "error,10003,select timeout...", detail: errno */
    MODEMD_RECEIVE_FAILED, /* "error,10003,can't receive...", detail: the receive result */
    MODEMD_TIMED_OUT,      /* "error,10006,command timeout" */
    MODEMD_RESULT_ERROR    /* "error,<result>,...", detail: the response's result */
} modemd_status_enum;

/* Called once the socket exists, just before the request is sent. */
typedef void (*modemd_trace_fn)(const Modem_Request_t *req);

/*
 * Zero-fills req and sets its header; data is text cut to MODEM_REQUEST_MAX_TEXT
 * characters (text is read no further than that, so it need not be terminated beyond).
 */
void modemd_build_request(Modem_Request_t *req, kal_uint32 token, kal_uint32 target,
                          kal_uint32 request_id, const char *text);

/*
 * Sends req to the modem daemon on a fresh UDP socket and waits up to timeout_count
 * seconds for one datagram, received into resp (zero-filled first; a full-size datagram
 * leaves its text unterminated, so read it within MODEM_RESPONSE_DATA_SIZE). Waits interrupted by a
 * signal are repeated without being counted. *detail receives the number the status text carries.
 * The socket is closed on return.
 */
modemd_status_enum modemd_exchange(const Modem_Request_t *req, Modem_Response_t *resp,
                                   int timeout_count, modemd_trace_fn trace, kal_int32 *detail);

/* Writes the status text of status into out, cut to out_size. */
void modemd_status_text(char *out, unsigned int out_size, modemd_status_enum status,
                        kal_int32 detail);

#ifdef __cplusplus
}
#endif

#endif /* MODEMD_EXCHANGE_H */
