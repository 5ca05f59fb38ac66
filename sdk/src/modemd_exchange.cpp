#include "modemd_exchange.h"

#include "kal_gather.h"
#include "kal_io.h"
#include "kerv_settings.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

/* Owns the exchange's socket: every path out of the exchange closes it. */
struct SocketGuard {
    int fd;
    explicit SocketGuard(int descriptor) : fd(descriptor) {}
    ~SocketGuard() {
        if (fd >= 0)
            close(fd);
    }
    SocketGuard(const SocketGuard &) = delete;
    SocketGuard &operator=(const SocketGuard &) = delete;
};

constexpr const char *kStatusFormats[] = {
    "ok",
    "error,10001,can't create the socket",
    "error,10002,can't send the data. ret = %d",
    "error,10003,select timeout. errno = %d",
    "error,10003,can't receive the response. ret = %d",
    "error,10006,command timeout",
    "error,%d,response result code is error",
};
static_assert(sizeof(kStatusFormats) / sizeof(kStatusFormats[0]) == MODEMD_RESULT_ERROR + 1,
              "one status text per status");

sockaddr_in modemd_address() {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(kerv_modemd_port());
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

enum class WaitOutcome { Readable, Failed, TimedOut };

/*
 * The exchange socket is connected to the modem daemon's address and port, so that the
 * kernel hands it datagrams from there only: no other local sender can answer for the modem
 * daemon, nor fill the socket with datagrams that would crowd out the real answer.
 */
int open_exchange_socket() {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    const sockaddr_in address = modemd_address();
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

/* A connected socket learns that nothing listens on the modem daemon's port (an ICMP
   refusal) as a pending error. The modem daemon may be starting: that is no answer, and
   the waits go on as for silence. Reading the error clears it. */
void forget_refusal(int fd) {
    int pending = 0;
    socklen_t pending_len = sizeof(pending);
    getsockopt(fd, SOL_SOCKET, SO_ERROR, &pending, &pending_len);
}

/* Polls until the answer is readable (1) or the wait ends (0), or -1 with errno. A signal
   or a refusal neither ends nor restarts the wait. */
int poll_until(int fd, long long wait_ends) {
    for (;;) {
        const long long left = wait_ends - kal_now_ms();
        pollfd watched{fd, POLLIN, 0};
        const int ready = poll(&watched, 1, left > 0 ? static_cast<int>(left) : 0);
        if (ready > 0 && (watched.revents & POLLIN) == 0) {
            forget_refusal(fd);
            continue;
        }
        if (ready >= 0 || errno != EINTR)
            return ready;
    }
}

/*
 * timeout_count waits of one second (or the development setting) each until the answer is
 * readable. A signal that interrupts a wait neither counts as a wait nor restarts the
 * current one, so a stream of signals can neither shorten nor stretch the time limit. poll rather
 * than select: the daemon may hold more descriptors than an fd_set can name.
 */
WaitOutcome wait_for_answer(int fd, int timeout_count, kal_int32 *wait_errno) {
    const int one_wait = kerv_modemd_wait_ms();
    while (timeout_count > 0) {
        const int ready = poll_until(fd, kal_now_ms() + one_wait);
        if (ready > 0)
            return WaitOutcome::Readable;
        if (ready < 0) {
            *wait_errno = errno;
            return WaitOutcome::Failed;
        }
        /* Whoever watches the log while the modem daemon is silent sees the request now,
           not when the waiting is over. */
        kal_gather_flush();
        --timeout_count;
    }
    return WaitOutcome::TimedOut;
}

} // namespace

extern "C" {

void modemd_build_request(Modem_Request_t *req, kal_uint32 token, kal_uint32 target,
                          kal_uint32 request_id, const char *text) {
    memset(req, 0, sizeof(*req));
    const size_t text_len = strnlen(text, MODEM_REQUEST_MAX_TEXT);
    req->magic = MODEM_REQUEST_MAGIC;
    req->token = token;
    req->target = target;
    req->request_id = request_id;
    req->data_len = static_cast<kal_uint32>(text_len);
    memcpy(req->data, text, text_len);
}

modemd_status_enum modemd_exchange(const Modem_Request_t *req, Modem_Response_t *resp,
                                   int timeout_count, modemd_trace_fn trace, kal_int32 *detail) {
    *detail = 0;
    SocketGuard sock(open_exchange_socket());
    if (sock.fd < 0)
        return MODEMD_SOCKET_FAILED;
    trace(req);

    const ssize_t datagram_len = MODEM_REQUEST_HEADER_SIZE + req->data_len;
    const ssize_t sent = send(sock.fd, req, datagram_len, 0);
    if (sent != datagram_len) {
        *detail = static_cast<kal_int32>(sent);
        return MODEMD_SEND_FAILED;
    }

    switch (wait_for_answer(sock.fd, timeout_count, detail)) {
    case WaitOutcome::Failed:
        return MODEMD_WAIT_FAILED;
    case WaitOutcome::TimedOut:
        return MODEMD_TIMED_OUT;
    case WaitOutcome::Readable:
        break;
    }

    memset(resp, 0, sizeof(*resp));
    const ssize_t received = recv(sock.fd, resp, sizeof(*resp), 0);
    if (received < MODEM_RESPONSE_HEADER_SIZE) {
        *detail = static_cast<kal_int32>(received);
        return MODEMD_RECEIVE_FAILED;
    }
    return MODEMD_ANSWERED;
}

void modemd_status_text(char *out, unsigned int out_size, modemd_status_enum status,
                        kal_int32 detail) {
    if (out == nullptr || out_size == 0)
        return;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    snprintf(out, out_size, kStatusFormats[status], detail);
#pragma GCC diagnostic pop
}

} // extern "C"
