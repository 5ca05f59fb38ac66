/*
 * The bare request/response exchange with the modem daemon, as the daemon does it for a
 * relayed AT command: one request datagram from a fresh, unbound UDP socket to 127.0.0.1,
 * one response datagram awaited on that socket in waits of one second, socket closed.
 * Nothing else: no queue, no engine, no diagnostics.
 */
#ifndef LOAD_BARE_RELAY_H
#define LOAD_BARE_RELAY_H

#include <stddef.h>
#include <stdint.h>

enum {
    BARE_RELAY_MAGIC = 0x5498ACDE,
    BARE_RELAY_REQ_SIM_PROXY = 998, /* the request id the daemon relays AT commands with */
    BARE_RELAY_TARGET_LTE = 1,
    BARE_RELAY_MAX_TEXT = 510,
    BARE_RELAY_WAITS = 60,
};

/* Request datagram: 20-byte header (native byte order) and data_len bytes of text. */
struct bare_relay_request_t {
    uint32_t magic;
    uint32_t token;
    uint32_t target;
    uint32_t request_id;
    uint32_t data_len;
    char data[512];
};
static_assert(sizeof(bare_relay_request_t) == 532, "request record is 532 bytes");

/* Response datagram: 28-byte header and up to 1420 bytes of answer text. */
struct bare_relay_response_t {
    uint32_t magic;
    uint32_t token;
    uint32_t target;
    uint32_t response_id;
    uint32_t result;
    uint32_t request_id;
    uint32_t data_len;
    char data[1420];
};
static_assert(sizeof(bare_relay_response_t) == 1448, "response record is 1448 bytes");

/*
 * Sends line (without terminator; a carriage return is added, as the daemon sends each
 * command ending in its termination character) to the modem daemon on modemd_port for
 * target, and copies the answer text into out (at most out_size bytes, not terminated).
 * Returns the length of the answer text, or -1 when no usable answer came.
 */
int bare_relay_exchange(unsigned int modemd_port, uint32_t target, const char *line,
                        size_t line_len, char *out, size_t out_size);

#endif /* LOAD_BARE_RELAY_H */
