/*
 * Writing to hosts and applications. Every byte the daemon sends to a host goes through
 * kerv_host_write, on the request worker; the engine's answers reach it as the engine's
 * output writer.
 */
#ifndef KERV_HOST_OUTPUT_H
#define KERV_HOST_OUTPUT_H

#include <cstddef>

/* Writes all of buf to fd, as many writes as it takes; a peer that has gone simply loses
   the rest (writes never raise the broken-pipe signal). */
void kerv_write_all(int fd, const void *buf, size_t len);
/* Writes all of buf to the host connection fd. */
void kerv_host_write(int fd, const void *buf, size_t len);

#endif /* KERV_HOST_OUTPUT_H */
