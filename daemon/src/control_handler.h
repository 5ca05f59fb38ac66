/*
 * The control socket request handler: serves one control connection at a time on the main
 * thread. STOP and START close the command channel, GEN_HASH is answered at once, RELOAD
 * passes to the request worker, which answers it; everything else is refused by closing the
 * connection.
 */
#ifndef KERV_CONTROL_H
#define KERV_CONTROL_H

struct req;

/* Accepts and serves one connection on the listening descriptor reqfd. */
void app_request_handle(int reqfd);

/*
 * Answers an application's request on req->fd with its own record, argument 0 now text and
 * no other argument, packed; then closes the connection. The element stays the caller's.
 * Main thread (GEN_HASH) and request worker (RELOAD).
 */
void kerv_app_reply(struct req *req, const char *text);

#endif /* KERV_CONTROL_H */
