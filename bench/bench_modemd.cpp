/*
 * Microseconds per AT command relayed to the modem daemon (send_cmd_to_md: fresh socket,
 * request packet, wait, receive, copy) against the bare loopback exchange of the same two
 * datagrams on a fresh socket as the baseline. The modem daemon is the in-process stand-in,
 * answering every request at once with "\r\nOK\r\n".
 */
#include "kerv_md_request.h"
#include "modem_relay.h"
#include "modemd_stub.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace {

sockaddr_in responder_address{};

void BM_BareLoopbackExchange(benchmark::State &state) {
    Modem_Request_t req{};
    req.magic = MODEM_REQUEST_MAGIC;
    req.request_id = MODEM_REQ_SIM_PROXY;
    req.data_len = 7;
    memcpy(req.data, "AT+CSQ\r", 7);
    Modem_Response_t resp;
    for (auto _ : state) {
        const int fd = socket(AF_INET, SOCK_DGRAM, 0);
        sendto(fd, &req, MODEM_REQUEST_HEADER_SIZE + 7, 0,
               reinterpret_cast<const sockaddr *>(&responder_address), sizeof(responder_address));
        benchmark::DoNotOptimize(recv(fd, &resp, sizeof(resp), 0));
        close(fd);
    }
}

void BM_RelayThroughSendCmdToMd(benchmark::State &state) {
    char out[1008];
    for (auto _ : state) {
        kal_uint8 in[] = "AT+CSQ\r";
        kal_uint32 length = 1007;
        benchmark::DoNotOptimize(send_cmd_to_md(MODEM_TARGET_MD, in, out, &length));
    }
}

} // namespace

BENCHMARK(BM_BareLoopbackExchange)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_RelayThroughSendCmdToMd)->Unit(benchmark::kMicrosecond);

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    g_dbg_print = 0; /* the relay's closing trace is a warning: keep it off the report */
    modemd_stub::Stub responder;
    responder_address.sin_family = AF_INET;
    responder_address.sin_port = htons(responder.port());
    responder_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
