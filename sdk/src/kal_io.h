/*
 * Small input/output helpers shared by the daemon, its engine and its tools: writing a
 * whole buffer, the monotonic clock, and the async-signal-safe writes of signal handlers.
 */
#ifndef KAL_IO_H
#define KAL_IO_H

#include "kal_common.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Writes all of bytes to fd, as many writes as it takes (interrupted writes are retried);
   KAL_FALSE when fd refused the rest. Programs that may write to a peer that has gone
   ignore SIGPIPE, so that this fails with EPIPE instead of ending them. */
kal_bool kal_write_all(int fd, const void *bytes, size_t len);
/* Milliseconds on the monotonic clock, for time-outs. */
long long kal_now_ms(void);
/*
 * Async-signal-safe: writes as much of bytes to fd as fd takes now, without blocking (a pipe
 * or socket nobody reads, a terminal held by flow control); the number of bytes written.
 */
size_t kal_write_without_blocking(int fd, const char *bytes, size_t len);
/* Async-signal-safe: writes n in decimal at at; the number of digits. */
size_t kal_put_decimal(char *at, unsigned int n);

#ifdef __cplusplus
}
#endif

#endif /* KAL_IO_H */
