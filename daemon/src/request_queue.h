/*
 * The request queue: one first-in, first-out list of work for the single request worker
 * (request_worker.h). Three producers append: the channel server thread (host lines and
 * host notices), the URC receiver (URCs) and the control handler on the main thread
 * (RELOAD requests). The worker alone removes.
 *
 * Ownership: a producer makes an element with one of the kerv_req_* constructors and hands
 * it over with appReqEnqueue; from then on the worker owns it and releases it with
 * kerv_req_free. An element carries its own copy of its text, so a producer may reuse its
 * buffers at once.
 */
#ifndef KERV_REQUEST_QUEUE_H
#define KERV_REQUEST_QUEUE_H

#include "kal_common.h"
#include "list.h"
#include "request.h"

#include <cstddef>

/* What an element asks of the worker. */
typedef enum {
    KERV_WORK_LINE,          /* run the host line in text; answers go to fd */
    KERV_WORK_LINE_TOO_LONG, /* answer the host on fd with "\r\nERROR\r\n" */
    KERV_WORK_PROMPT,        /* two-step command line in text: echo it and prompt on fd */
    KERV_WORK_TWO_STEP,      /* line, CR, message text, Ctrl-Z: one modem request for fd */
    KERV_WORK_PROMPT_CANCEL, /* the text was cancelled: answer the host on fd */
    KERV_WORK_URC,           /* write text to the host connected at that moment */
    KERV_WORK_CONTROL,       /* an application's request (RELOAD); answer on fd */
    KERV_WORK_HOST_CLOSED,   /* the host on fd has gone: close fd after its lines */
    KERV_WORK_CHANNEL_CLOSED /* the channel server thread has ended */
} kerv_work_e;

struct req {
    struct list next; /* first member: the element's address is its link's */
    int fd;           /* where the element's output goes */
    kerv_work_e kind;
    kervRequest_t *request; /* KERV_WORK_CONTROL: the application's record, owned */
    kal_bool host_ended;    /* line: its host's end of stream was seen after it was queued */
    size_t text_len;        /* line or URC: bytes in text, without its NUL */
    char text[];            /* line or URC, NUL-terminated; sized to fit */
};

/*
 * Sets the queue head to the empty list and makes the queue's room line; before any
 * thread starts. 1, or 0 when the room line cannot be made.
 */
int kerv_queue_init();
/*
 * Appends req at the tail and wakes the worker. Takes over req. URCs are bounded: beyond
 * KERV_QUEUE_MAX_URCS queued ones the oldest is dropped and counted.
 */
void appReqEnqueue(struct req *req);
/* Waits for an element and removes the first one; null when woken to an empty queue, or
   when wait_ms (if not negative) passed first. */
struct req *appReqDequeue(int wait_ms = -1);

/*
 * Back-pressure on the host. Host lines (and over-long-line notices) queued and not yet
 * taken by the worker are bounded: while they reach KERV_QUEUE_MAX_LINES or
 * KERV_QUEUE_MAX_LINE_BYTES, the channel server thread reads nothing more from the host
 * and the kernel pushes back on it. kerv_queue_lines_full tells the server thread so and,
 * when it does, makes the room line (kerv_queue_room_fd) readable as soon as the worker
 * has taken enough; kerv_queue_room_taken clears it again.
 */
enum { KERV_QUEUE_MAX_LINES = 32, KERV_QUEUE_MAX_LINE_BYTES = 4096, KERV_QUEUE_MAX_URCS = 256 };
kal_bool kerv_queue_lines_full();
/*
 * A host has ended and its connection goes to the worker with closed_notice, a
 * KERV_WORK_HOST_CLOSED element, which the worker runs as soon as nothing of the host is
 * queued or running: right behind the host's last queued line, or at the head of the queue.
 * KERV_HOST_GONE (reset, cut off, the channel stopped): the lines the host still has queued
 * are unlinked and released (their number is returned); nothing of it runs after this call.
 * KERV_HOST_HALF_CLOSED (end of stream): the host may still read, so its lines stay, marked
 * host_ended; the worker drops them once the connection shows that the host has gone.
 * Takes over closed_notice; without one (no memory was left for it) the lines are dropped
 * all the same.
 */
typedef enum { KERV_HOST_GONE, KERV_HOST_HALF_CLOSED } kerv_host_end_e;
kal_uint32 kerv_queue_host_gone(int host_fd, kerv_host_end_e end, struct req *closed_notice);
/*
 * Departed connections waiting for the worker to close them are bounded too: while
 * KERV_QUEUE_MAX_DEPARTED of them wait, the channel server thread accepts no new host (and
 * waits on the room line like for lines), so a reconnect storm during a long modem wait
 * cannot run the daemon out of descriptors.
 */
enum { KERV_QUEUE_MAX_DEPARTED = 8 };
kal_bool kerv_queue_departed_full();
int kerv_queue_room_fd();
void kerv_queue_room_taken();
/* URCs dropped since the last call, once no URC is queued any more (the episode is over);
   0 meanwhile. */
kal_uint32 kerv_queue_take_dropped_urcs();

/* An element of kind for fd carrying a NUL-terminated copy of text_len bytes of text
   (none when text is null). Null when no memory is left. */
struct req *kerv_req_create(kerv_work_e kind, int fd, const char *text, size_t text_len);
/* An application's request on the connection fd, with room for its record. */
struct req *kerv_req_create_control(int fd);
void kerv_req_free(struct req *req);
/* Queues a text-less element; KAL_FALSE when no memory was left for it. */
kal_bool kerv_req_notify(kerv_work_e kind, int fd);

#endif /* KERV_REQUEST_QUEUE_H */
