/*
 * The request queue and its single worker. Three producers (channel server thread, URC
 * receiver, control handler on the main thread) append elements; one worker takes them in
 * order and runs each to completion. The worker is the only thread that runs the AT
 * engine and the only one that writes to the host connection, so a URC never lands inside
 * an answer and answers keep their order.
 *
 * Ownership: a producer allocates an element with get_ctrl_buffer and hands it over with
 * appReqEnqueue; the worker frees it. Every element made inside the daemon carries its text
 * (command line, URC) in its own request record, so the producer may reuse its buffers at
 * once and a queued text stays intact until the worker has run it.
 */
#ifndef KERV_QUEUE_H
#define KERV_QUEUE_H

#include "kal_common.h"
#include "list.h"
#include "request.h"

#include <cstddef>

struct req {
    struct list next; /* first member: the element's address is its link's */
    int fd;           /* where the request's output goes */
    kervRequest_t request;
};

/*
 * What the channel server thread hands the worker besides command lines (type
 * KERV_REQUEST_TYPE_SRV). These values lie above the wire's command range, so a record
 * from the control socket can never carry one.
 */
enum kerv_srv_notice_e : u_int16_t {
    KERV_SRV_LINE_TOO_LONG = 0x100, /* answer the host on fd with "\r\nERROR\r\n" */
    KERV_SRV_HOST_CLOSED,           /* the host on fd has gone: close fd */
    KERV_SRV_CHANNEL_CLOSED         /* the channel server thread has ended: release the
                                       channel instance */
};

/* Sets the queue head to the empty list; before any thread starts. */
void kerv_queue_init();
void appReqEnqueue(struct req *req);
/* Waits for an element and removes the first one; null when woken to an empty queue. */
struct req *appReqDequeue();

/*
 * A zero-filled element of type KERV_REQUEST_TYPE_SRV for fd and cmd, whose argument 0 is
 * its own copy of text (text_len bytes, fewer than the record's buffer holds; no argument
 * when text is null). Null when no memory is left.
 */
struct req *kerv_srv_req_create(int fd, u_int16_t cmd, const char *text, size_t text_len);
/* Queues a notice for fd; KAL_FALSE when no memory was left for it. */
kal_bool kerv_srv_notify(int fd, u_int16_t notice);

void *kerv_request_thread(void *arg);

/* Writes all of buf to fd, as many writes as it takes; a peer that has gone simply loses
   the rest (the daemon ignores SIGPIPE). */
void kerv_write_all(int fd, const char *buf, size_t len);

#endif /* KERV_QUEUE_H */
