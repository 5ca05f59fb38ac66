#include "bare_relay.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

/* Request counter; only the server's one thread sends. */
static uint32_t relay_token = 1000;

static size_t build_request(Modem_Request_t *req, uint32_t target, const char *line,
                            size_t line_len) {
    memset(req, 0, sizeof(*req));
    size_t text_len = line_len < MODEM_REQUEST_MAX_TEXT ? line_len : MODEM_REQUEST_MAX_TEXT - 1;
    memcpy(req->data, line, text_len);
    req->data[text_len++] = '\r';
    req->magic = MODEM_REQUEST_MAGIC;
    req->token = relay_token++;
    req->target = target;
    req->request_id = MODEM_REQ_SIM_PROXY;
    req->data_len = (uint32_t)text_len;
    return MODEM_REQUEST_HEADER_SIZE + text_len;
}

/* One datagram from sock within the allowed waits, or -1. */
static ssize_t await_response(int sock, Modem_Response_t *resp) {
    for (int waits = BARE_RELAY_WAITS; waits > 0;) {
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(sock, &readable);
        timeval one_second = {1, 0};
        int ready = select(sock + 1, &readable, nullptr, nullptr, &one_second);
        if (ready < 0 && errno == EINTR)
            continue;
        if (ready < 0)
            return -1;
        if (ready == 0) {
            waits--;
            continue;
        }
        return recv(sock, resp, sizeof(*resp), 0);
    }
    return -1;
}

int bare_relay_exchange(unsigned int modemd_port, uint32_t target, const char *line,
                        size_t line_len, char *out, size_t out_size) {
    Modem_Request_t req;
    size_t req_size = build_request(&req, target, line, line_len);
    int sock = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (sock < 0)
        return -1;
    sockaddr_in modemd = {};
    modemd.sin_family = AF_INET;
    modemd.sin_port = htons(modemd_port);
    modemd.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    Modem_Response_t resp;
    ssize_t got = -1;
    if (sendto(sock, &req, req_size, 0, (sockaddr *)&modemd, sizeof(modemd)) == (ssize_t)req_size)
        got = await_response(sock, &resp);
    close(sock);
    if (got < (ssize_t)MODEM_RESPONSE_HEADER_SIZE || resp.data_len == 0)
        return -1;
    size_t text_len = (size_t)got - MODEM_RESPONSE_HEADER_SIZE;
    if (resp.data_len < text_len)
        text_len = resp.data_len;
    if (out_size < text_len)
        text_len = out_size;
    memcpy(out, resp.data, text_len);
    return (int)text_len;
}
