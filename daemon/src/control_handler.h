/*
 * The control socket request handler: serves the one request of a control connection on
 * the main thread, as soon as it has arrived (control_loop.h waits for it). STOP and START
 * close the command channel, GEN_HASH is answered at once, RELOAD passes to the request
 * worker, which answers it; everything else is refused by closing the connection.
 *
 * Control connections are bounded: at most KERV_CONTROL_MAX_CONNS are open at once,
 * counting those that wait for their request and those whose RELOAD waits for the worker.
 * Each one is closed through kerv_control_close, by the main thread or (RELOAD) the worker.
 */
#ifndef KERV_CONTROL_H
#define KERV_CONTROL_H

#include "kal_common.h"

struct req;

enum { KERV_CONTROL_MAX_CONNS = 16 };

/* Counts in a connection just accepted; KAL_FALSE, nothing counted, when the bound is
   reached (the caller closes it at once). */
kal_bool kerv_control_admit();
/* Closes an admitted connection. */
void kerv_control_close(int conn);
/* Reads the request that has arrived on the admitted connection conn and acts on it. */
void kerv_app_request_serve(int conn);

/*
 * Answers an application's request on req->fd with its own record, argument 0 now text and
 * no other argument, packed; then closes the connection. The element stays the caller's.
 * Main thread (GEN_HASH) and request worker (RELOAD).
 */
void kerv_app_reply(struct req *req, const char *text);

#endif /* KERV_CONTROL_H */
