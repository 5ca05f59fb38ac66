/*
 * Writing to hosts and applications. Every byte the daemon sends to a host goes through
 * kerv_host_write on the request worker; the engine's answers reach it as the engine's
 * output writer. Request worker only.
 *
 * A host that stops reading must not hold the worker (and with it RELOAD, URCs and the
 * next host): a write that the host has not taken within the stall time
 * (kerv_host_stall_ms) gives up. A TCP host is then cut off: its connection is shut down, so the
 * channel server thread sees it end, and the lines it still has queued are dropped
 * (kerv_host_cut_off). The serial device is never given up (it is the channel itself): its unsent
 * output is discarded and later answers are written again as the device takes them.
 */
#ifndef KERV_HOST_OUTPUT_H
#define KERV_HOST_OUTPUT_H

#include <cstddef>

/* Writes all of buf to the host connection fd, giving up on a host that stalls. */
void kerv_host_write(int fd, const void *buf, size_t len);
/* While the output of the host written to last stays backed up, the ms left until the stall
   time is reached (0: now); -1 when its clock is not running. */
int kerv_host_stall_left_ms();
/* Looks at that host again, with no write to wake its clock: a host that stopped sending
   and reading is given up all the same once its stall time has passed. */
void kerv_host_stall_check();
/* True when fd is a host connection that was cut off for not reading. */
bool kerv_host_cut_off(int fd);
/* The host's connection is being closed: its number may be reused, by a host that starts
   with a clean stall clock. */
void kerv_host_forget(int fd);

#endif /* KERV_HOST_OUTPUT_H */
