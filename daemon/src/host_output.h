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
/* True when fd is a host connection that was cut off for not reading. */
bool kerv_host_cut_off(int fd);
/* The host's connection is being closed: its number may be reused, by a host that starts
   with a clean stall clock. */
void kerv_host_forget(int fd);

#endif /* KERV_HOST_OUTPUT_H */
