/*
 * Control requests: the record that local applications and the daemon exchange over the
 * Unix-domain control socket, its packing to and from the wire bytes, and the two
 * socket endpoints. Built as the client library of local applications (plain C).
 *
 * Wire form (machine byte order, both ends on one machine):
 *   offset 0   magic  (4)   0x43574D50
 *   offset 4   type   (2)
 *   offset 6   cmd    (2)
 *   offset 8   status (4)
 *   offset 12  ten 4-byte argument slots: 0 absent, 0x12345678 present
 *   offset 52  the present arguments' strings, each with its NUL, in argument order
 * so one message is 52 to 2100 bytes.
 *
 * In memory, the first 2100 bytes of a kervRequest_t ARE the wire image; the ten
 * argument references follow it, outside the wire bytes, because a reference is wider
 * than a wire slot. So an application:
 *   - sends:    fill magic/type/cmd/status/arg[], n = kerv_pack_request(&req),
 *               write(fd, &req, n)                       (one write)
 *   - receives: n = read(fd, &req, KERV_REQUEST_WIRE_MAX)  (one read)
 *               kerv_unpack_request(&req, n)
 * After packing or unpacking every present arg[i] refers into the record's own buf, so a
 * record stays usable after either, and packing a just-unpacked record gives back the
 * same bytes. A record owns nothing; before packing, arg[i] may refer anywhere (the
 * caller keeps those strings alive until kerv_pack_request returns).
 */
#ifndef KERV_REQUEST_H
#define KERV_REQUEST_H

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#ifdef __cplusplus
extern "C" {
#endif

#define KERV_REQUEST_MAGIC 0x43574D50u
#define KERV_REQUEST_ARG_MARKER 0x12345678u
#define KERV_REQUEST_ARG_NUM 10
#define KERV_REQUEST_BUF_SIZE 2048
#define KERV_REQUEST_HEADER_SIZE 52
#define KERV_REQUEST_WIRE_MAX (KERV_REQUEST_HEADER_SIZE + KERV_REQUEST_BUF_SIZE)

#define KERV_CONTROL_SOCKET_DEFAULT "/tmp/kerv.socket"
#define KERV_CONTROL_SOCKET_ENV "KERVD_CONTROL_SOCKET"

typedef enum {
    KERV_REQUEST_TYPE_APP = 0,
    KERV_REQUEST_TYPE_SRV = 1,
    KERV_REQUEST_TYPE_RESERVED = 2
} kervRequestType_e;

typedef enum {
    KERV_REQUEST_CMD_START = 0,
    KERV_REQUEST_CMD_STOP = 1,
    KERV_REQUEST_CMD_RELOAD = 2,
    KERV_REQUEST_CMD_CMD = 3,
    KERV_REQUEST_CMD_GEN_HASH = 4,
    KERV_REQUEST_URC_RESPONSE = 5,
    KERV_REQUEST_CMD_RESERVED = 6
} kervRequestCmd_e;

typedef struct kervRequest_s {
    /* The wire image: KERV_REQUEST_WIRE_MAX bytes. */
    u_int32_t magic;
    u_int16_t type;
    u_int16_t cmd;
    int status;
    u_int32_t arg_slot[KERV_REQUEST_ARG_NUM]; /* written by pack, read by unpack */
    char buf[KERV_REQUEST_BUF_SIZE];
    /* Argument i: a NUL-terminated string, or null when absent. */
    char *arg[KERV_REQUEST_ARG_NUM];
} kervRequest_t;

/*
 * Packs the arguments into buf and fills the wire slots. Returns the message size
 * (52 + the strings' bytes) or: -1 bad magic, -2 type > 1, -3 cmd > 5, -100 - i when
 * argument i no longer fits into buf. A failed pack leaves the record as it was.
 */
int kerv_pack_request(kervRequest_t *request);

/*
 * Unpacks the size bytes at the start of the record. Returns 0 or: -1 size below 52 or
 * above KERV_REQUEST_WIRE_MAX, -2 bad magic, -3 type > 1, -4 cmd > 5, -100 - i when
 * slot i is neither 0 nor the marker or its string has no NUL within the size bytes.
 * Never reads past size bytes. On failure arguments i and after are null.
 */
int kerv_unpack_request(kervRequest_t *request, int size);

/* Makes dest a self-contained copy of src (arguments refer into dest's buf). 0 or < 0. */
int kerv_copy_request(kervRequest_t *dest, kervRequest_t *src);

/*
 * One argument of the packing: copies the string *p to *next if it fits below roof,
 * advances *next past its NUL and points *p at the copy. 0, or -1 when it does not fit
 * (nothing written). A null *p is an absent argument: 0, nothing written.
 */
int pack_request_string(char **p, char **next, const char *roof);

/*
 * One argument of the unpacking, from its wire slot: 0 makes *p null; the marker points
 * *p at the NUL-terminated string at *next and moves *next past it. -1 for any other
 * slot value or when no NUL lies before roof.
 */
int unpack_request_string(u_int32_t slot, char **p, char **next, const char *roof);

/* The control socket path in force: $KERVD_CONTROL_SOCKET when set and not empty. */
const char *kerv_control_socket_path(void);

/*
 * Fills addr for the control socket path in force and returns the address length to
 * bind or connect with (the path's length plus 2), or 0 when the path does not fit.
 */
socklen_t kerv_control_socket_addr(struct sockaddr_un *addr);

/* Daemon side: the accepted connection with close-on-exec set, or -1 (errno kept). */
int kerv_accept_request(int sockfd);

/* Application side: a socket connected to the control socket, or -1 (errno kept). */
int kerv_connect_request(void);

#ifdef __cplusplus
}
#endif

#endif /* KERV_REQUEST_H */
