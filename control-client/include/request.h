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
 * Where references are 4 bytes wide (the board), a kervRequest_t IS the wire form: the
 * ten argument references are the slots at offset 12 and buf is at offset 52, 2100 bytes
 * in all. Packing copies the strings into buf and turns each present reference into the
 * marker; unpacking turns the markers back into references into buf; both in place.
 * Where references are wider, the record keeps the wire image (with 4-byte slots) in its
 * first 2100 bytes and the references after it; the functions behave the same, so on
 * every width an application:
 *   - sends:    fill magic/type/cmd/status/arg[], n = kerv_pack_request(&req),
 *               write(fd, &req, n)                       (one write)
 *   - receives: n = read(fd, &req, KERV_REQUEST_WIRE_MAX)  (one read)
 *               kerv_unpack_request(&req, n)
 * After packing, a present arg[i] holds the marker, not a reference: the record is a
 * message to send (or to unpack again), not a record to read arguments from. After
 * unpacking, every present arg[i] refers into the record's own buf, and packing it again
 * gives back the same bytes. A record owns nothing; before packing, arg[i] may refer
 * anywhere except into buf after the write position (the caller keeps those strings alive
 * until kerv_pack_request returns).
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
    u_int32_t magic;
    u_int16_t type;
    u_int16_t cmd;
    int status;
#if __SIZEOF_POINTER__ == 4
    /* Argument i: a NUL-terminated string or null; packed, the marker or 0. */
    char *arg[KERV_REQUEST_ARG_NUM];
    char buf[KERV_REQUEST_BUF_SIZE];
#else
    u_int32_t arg_slot[KERV_REQUEST_ARG_NUM]; /* wire slots: written by pack, read by unpack */
    char buf[KERV_REQUEST_BUF_SIZE];
    /* Argument i: a NUL-terminated string or null; packed, the marker or 0. */
    char *arg[KERV_REQUEST_ARG_NUM];
#endif
} kervRequest_t;

/*
 * Packs the arguments into buf, in order, and fills the wire slots. Returns the message
 * size (52 + the strings' bytes) or: -1 bad magic, -2 type > 1, -3 cmd > 5, -100 - i when
 * argument i no longer fits into buf; arguments 0 to i-1 are packed then, and the record
 * is to be discarded.
 */
int kerv_pack_request(kervRequest_t *request);

/*
 * Unpacks the size bytes at the start of the record. Returns 0 or: -1 size below 52 or
 * above KERV_REQUEST_WIRE_MAX, -2 bad magic, -3 type > 1, -4 cmd > 5, -100 - i when
 * slot i is neither 0 nor the marker or its string has no NUL within the size bytes.
 * Never reads past size bytes. On failure arguments i and after hold what was received.
 */
int kerv_unpack_request(kervRequest_t *request, int size);

/* Makes dest a self-contained copy of src (arguments refer into dest's buf). 0 or < 0. */
int kerv_copy_request(kervRequest_t *dest, kervRequest_t *src);

/*
 * One argument of the packing: copies the string *p (which may lie at *next itself) to
 * *next if it fits below roof, advances *next past its NUL and sets the slot *p to the
 * marker. 0, or -1 when it does not fit (nothing written, *p kept). A null *p is an
 * absent argument: 0, nothing written.
 */
int pack_request_string(char **p, char **next, const char *roof);

/*
 * One argument of the unpacking: a null slot *p is an absent argument (0); the marker
 * becomes a reference to the NUL-terminated string at *next, and *next moves past it.
 * -1 for any other slot value or when no NUL lies before roof.
 */
int unpack_request_string(char **p, char **next, const char *roof);

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
