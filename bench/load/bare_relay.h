/*
 * The bare request/response exchange with the modem daemon, as the daemon does it for a
 * relayed AT command: one request datagram from a fresh, unbound UDP socket to 127.0.0.1,
 * one response datagram awaited on that socket in waits of one second, socket closed.
 * Nothing else: no queue, no engine, no diagnostics.
 */
#ifndef LOAD_BARE_RELAY_H
#define LOAD_BARE_RELAY_H

#include "kerv_md_request.h"

#include <stddef.h>
#include <stdint.h>

/* Like the daemon's relay: at most 60 waits of one second for the answer. */
enum { BARE_RELAY_WAITS = 60 };

/*
 * Sends line (without terminator; a carriage return is added, as the daemon sends each
 * command ending in its termination character) to the modem daemon on modemd_port for
 * target, and copies the answer text into out (at most out_size bytes, not terminated).
 * Returns the length of the answer text, or -1 when no usable answer came.
 */
int bare_relay_exchange(unsigned int modemd_port, uint32_t target, const char *line,
                        size_t line_len, char *out, size_t out_size);

#endif /* LOAD_BARE_RELAY_H */
