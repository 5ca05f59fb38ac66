/*
 * The main thread's control loop: accepts control connections and waits for the request
 * of every open one together, so a client that connects and stays silent holds nobody
 * else back. A request is served (control_handler.h) as soon as it has arrived; a
 * connection silent for the control time-out (kerv_control_timeout_ms) is closed.
 * At most KERV_CONTROL_MAX_WAITING connections wait for their request at once.
 */
#ifndef KERV_CONTROL_LOOP_H
#define KERV_CONTROL_LOOP_H

enum { KERV_CONTROL_MAX_WAITING = 16 };

/* Accepts one connection on the listening descriptor reqfd and keeps it until its request
   arrives; beyond the connection bound, or out of descriptors, it is closed at once. */
void app_request_handle(int reqfd);
/* Serves the control socket for ever. */
[[noreturn]] void kerv_control_loop(int reqfd);

#endif /* KERV_CONTROL_LOOP_H */
