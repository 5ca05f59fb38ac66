/*
 * The URC receiver: one thread that takes each UDP datagram on 127.0.0.1 as one
 * unsolicited result code and queues it for the request worker, which writes it to the
 * host between the requests it runs. Switched off by the configuration store unless
 * KERV_URC_LISTEN_ENABLE is non-zero.
 */
#ifndef KERV_URC_RECEIVER_H
#define KERV_URC_RECEIVER_H

#include "kal_common.h"

enum { KERV_URC_BUF_SIZE = 1024 };

/* One per thread, from get_ctrl_buffer; released when the thread ends. */
typedef struct urcInfo_s {
    unsigned int port;               /* UDP port on 127.0.0.1 */
    int new_fd;                      /* output descriptor of every URC request: stays 0 */
    char cmd_buf[KERV_URC_BUF_SIZE]; /* the latest URC, NUL-terminated */
    int cmd_buf_offset;              /* stays 0: each URC is one whole datagram */
    void *sock;                      /* the listening UDP socket wrapper while open */
} urcInfo_t;

void *kerv_urc_thread(void *arg);
urcInfo_t *urc_info_create();
int urc_info_init(urcInfo_t *urc);
/* Queues the text now in urc->cmd_buf; the queued request keeps its own copy. */
kal_bool urc_request_handle(urcInfo_t *urc);

#endif /* KERV_URC_RECEIVER_H */
