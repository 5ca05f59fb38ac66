/*
 * The control socket request handler: serves the one request of a control connection on
 * the main thread, as soon as it has arrived (control_loop.h waits for it). STOP and START
 * close the command channel, GEN_HASH is answered at once, RELOAD passes to the request
 * worker, which answers it; everything else is refused by closing the connection.
 *
 * RELOADs waiting for the worker hold their connections; at most KERV_CONTROL_MAX_HELD of
 * them at once (a busy worker must not let them use up the daemon's descriptors). Beyond
 * that a RELOAD is refused by closing its connection; GEN_HASH and STOP are still served.
 */
#ifndef KERV_CONTROL_HANDLER_H
#define KERV_CONTROL_HANDLER_H

struct req;

enum { KERV_CONTROL_MAX_HELD = 8 };

/* Reads the request that has arrived on the connection conn and acts on it. */
void kerv_app_request_serve(int conn);

/* The worker's answer to a RELOAD it has carried out: the reply, then the connection is
   closed and its place among the held ones freed. The element stays the caller's. */
void kerv_app_reload_reply(struct req *req);

#endif /* KERV_CONTROL_HANDLER_H */
