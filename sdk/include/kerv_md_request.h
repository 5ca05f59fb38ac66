/*
 * Exchange with the modem daemon: one request datagram, one response datagram, on a fresh
 * UDP socket to 127.0.0.1 for every request (port 14343, or KERVD_MODEMD_PORT when set).
 *
 * Both packets are records in the board's native byte order; a request datagram carries
 * the 20-byte header and then exactly data_len bytes of text, a response datagram the
 * 28-byte header and its text. Plain C: validator plug-ins written in C include this
 * header to send general requests (kerv_md_request).
 */
#ifndef KERV_MD_REQUEST_H
#define KERV_MD_REQUEST_H

#include "kal_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define MODEM_REQUEST_MAGIC 0x5498ACDEu
/* Longest request text: the record's 512 data bytes less the NUL and one spare byte. */
#define MODEM_REQUEST_MAX_TEXT 510
#define MODEM_REQUEST_HEADER_SIZE 20
#define MODEM_RESPONSE_HEADER_SIZE 28
#define MODEM_RESPONSE_DATA_SIZE 1420

typedef enum {
    MODEM_TARGET_DAEMON = 0,
    MODEM_TARGET_LTE = 1,
    MODEM_TARGET_MD = 16 /* the 2G/3G modem */
} Modem_Target_e;

typedef enum {
    MODEM_REQ_ATTACH = 1,
    MODEM_REQ_DETACH = 2,
    MODEM_REQ_RADIO_ON = 3,
    MODEM_REQ_RADIO_OFF = 4,
    MODEM_REQ_POWER_ON = 5,
    MODEM_REQ_POWER_OFF = 6,
    MODEM_REQ_CREATE_APN = 7,
    MODEM_REQ_DELETE_APN = 8,
    MODEM_REQ_CLEAR_APN = 9,
    MODEM_REQ_DUMP_APN = 10,
    MODEM_REQ_SEND_SMS = 11,
    MODEM_REQ_IAL_CONNECT = 12,
    MODEM_REQ_STANDBY = 13,
    MODEM_REQ_GET_STATUS = 101,
    MODEM_REQ_GET_INFO = 103,
    MODEM_REQ_GET_DL_FREQ = 105,
    MODEM_REQ_SET_DL_FREQ = 106,
    MODEM_REQ_GET_SIM_SIMULATOR = 107,
    MODEM_REQ_SET_SIM_SIMULATOR = 108,
    MODEM_REQ_GET_ATUO_SCAN = 109,
    MODEM_REQ_SET_ATUO_SCAN = 110,
    MODEM_REQ_GET_PREFERRED_NETWORK = 111,
    MODEM_REQ_SET_PREFERRED_NETWORK = 112,
    MODEM_REQ_PLMN_GET_OPER = 201,
    MODEM_REQ_PLMN_SET_SEL_MODE = 202,
    MODEM_REQ_PLMN_GET_AVAIL = 203,
    MODEM_REQ_ENTER_SIM_PIN = 302,
    MODEM_REQ_ENTER_SIM_PUK = 303,
    MODEM_REQ_ENTER_SIM_PIN2 = 304,
    MODEM_REQ_ENTER_SIM_PUK2 = 305,
    MODEM_REQ_CHANGE_SIM_PIN = 306,
    MODEM_REQ_CHANGE_SIM_PIN2 = 307,
    MODEM_REQ_SIM_PIN_LOCK = 308,
    MODEM_REQ_SIM_PIN_UNLOCK = 309,
    MODEM_REQ_SIM_PIN2_LOCK = 310,
    MODEM_REQ_SIM_PIN2_UNLOCK = 311,
    MODEM_REQ_DEFAULT_PROFILE = 312,
    MODEM_REQ_AT_CMD = 999,
    MODEM_REQ_SIM_PROXY = 998, /* what AT commands relayed by the engine are sent as */
    MODEM_REQ_SHUTDOWN = 997,
    MODEM_REQ_URC_TEST = 996
} Modem_Request_e;

typedef enum {
    MODEM_RET_OK = 0,
    MODEM_RET_NOT_SUPPORT = 1,
    MODEM_RET_DATA_SIZE_ERROR = 2,
    MODEM_RET_SET_CFUN_ERROR = 3,
    MODEM_RET_SET_EARFCN_ERROR = 4,
    MODEM_RET_ATTACH_ERROR = 5,
    MODEM_RET_DETACH_ERROR = 6,
    MODEM_RET_QUERY_ERROR = 7,
    MODEM_RET_CGDCONT_ERROR = 8,
    MODEM_RET_CGDATA_ERROR = 9,
    MODEM_RET_CGPRCO_ERROR = 10,
    MODEM_RET_CGACT_ERROR = 11,
    MODEM_RET_CGPADDR_ERROR = 12,
    MODEM_RET_POWER_ON_ERROR = 13,
    MODEM_RET_COMMAND_ERROR = 14,
    MODEM_RET_RESPONSE_FORMAT_ERROR = 15,
    MODEM_RET_RADIO_OFF_ERROR = 16,
    MODEM_RET_IMEI_INVALID = 17,
    MODEM_RET_NOT_REGISTEED = 18,
    MODEM_RET_GET_DNS_ERROR = 19,
    MODEM_RET_GET_IP_ERROR = 20,
    MODEM_RET_OPERATION_NOT_ALLOWED = 21,
    MODEM_RET_REQUEST_DATA_ERROR = 22,
    MODEM_RET_AT_COMMAND_TIMEOUT = 23,
    MODEM_RET_SIM_ERROR = 24,
    MODEM_RET_SMSAL_ERROR = 25,
    MODEM_RET_CONNECTION_FULL = 26,
    MODEM_RET_CONNECTION_USED = 27,
    MODEM_RET_CONNECTION_NOT_USED = 28,
    MODEM_RET_PROFILE_INVALID = 29,
    MODEM_RET_MODEM_POWER_DOWN = 30,
    MODEM_RET_ERROR_OTHERS = 9999
} Modem_Result_e;

/* Request packet; the datagram is the header and data_len bytes of data (no NUL). */
typedef struct {
    kal_uint32 magic; /* MODEM_REQUEST_MAGIC */
    kal_uint32 token; /* the sender's request counter */
    kal_uint32 target;
    kal_uint32 request_id;
    kal_uint32 data_len;
    char data[512];
} Modem_Request_t;

/* Response packet; a datagram of at most its size is received into it. */
typedef struct {
    kal_uint32 magic;
    kal_uint32 token;
    kal_uint32 target;
    kal_uint32 response_id;
    kal_uint32 result; /* Modem_Result_e */
    kal_uint32 request_id;
    kal_uint32 data_len;
    char data[MODEM_RESPONSE_DATA_SIZE];
} Modem_Response_t;

/* A caller's general request; data_len is not read, the length is taken from data. */
typedef struct _kerv_md_request {
    kal_uint32 target;     /* Modem_Target_e */
    kal_uint32 request_id; /* Modem_Request_e */
    kal_uint32 data_len;
    char data[512]; /* NUL-terminated text; only the first 510 characters are sent */
} kerv_md_request_t;

/*
 * Sends one general request and waits up to 30 seconds for its answer.
 * Returns 0 with "ok" in out when the modem daemon answered with MODEM_RET_OK; 1 when the
 * request was sent but failed (wait error, time-out, short answer, other result); -1 when
 * the socket could not be created or the request not sent. out (out_size bytes) always
 * receives "ok" or a status text of the form "error,<number>,<description>", cut to fit.
 * Blocks the calling thread; requests are numbered from 2000 by an atomic counter, so no
 * two requests share a number, whichever threads send them.
 */
int kerv_md_request(kerv_md_request_t *request_p, char *out, unsigned int out_size);

#ifdef __cplusplus
}
#endif

#ifdef __cplusplus
static_assert(sizeof(Modem_Request_t) == 532, "request record is 532 bytes");
static_assert(sizeof(Modem_Response_t) == 1448, "response record is 1448 bytes");
static_assert(__builtin_offsetof(Modem_Request_t, data) == MODEM_REQUEST_HEADER_SIZE,
              "request header is 20 bytes");
static_assert(__builtin_offsetof(Modem_Response_t, data) == MODEM_RESPONSE_HEADER_SIZE,
              "response header is 28 bytes");
static_assert(__builtin_offsetof(Modem_Response_t, data_len) == 24, "response data_len at 24");
static_assert(__builtin_offsetof(Modem_Response_t, result) == 16, "response result at 16");
#endif

#endif /* KERV_MD_REQUEST_H */
