/*
 * Nanoseconds per command line through the engine, the answer's write to /dev/null
 * included, against a bare write of the same answer as the baseline.
 *
 * The engine's diagnostics are off (debug level 0). Standard output, where the number
 * reader of the echo and verbose commands always prints its trace lines, goes to
 * /dev/null; the report goes to standard error.
 */
#include "kerv_md_request.h"
#include "plugin_loader.h"
#include "validator_registry.h"
#include "engine_context.h"
#include "engine_entry.h"

#include <benchmark/benchmark.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

namespace {

int null_fd = -1;
bool plugin_loaded = false;

void run_line(benchmark::State &state, const char *line) {
    for (auto _ : state)
        rmmi_process_multi_cmd(null_fd, line);
    state.SetLabel(line);
}

void BM_BareAnswerWrite(benchmark::State &state) {
    static const char ok[] = "ATE1\r\r\nOK\r\n";
    for (auto _ : state)
        benchmark::DoNotOptimize(write(null_fd, ok, sizeof(ok) - 1));
}

void BM_InternalCommand(benchmark::State &state) {
    run_line(state, "ATE1");
}

void BM_TwoInternalCommands(benchmark::State &state) {
    run_line(state, "ATE1;E1");
}

void BM_ExtendedCommandThroughPlugin(benchmark::State &state) {
    if (!plugin_loaded) {
        state.SkipWithError("the example plug-in is not built");
        return;
    }
    /* The test form: answered by the plug-in alone, with the record's test-mode text. */
    run_line(state, "AT+CGDCONT=?");
}

void BM_SyntaxError(benchmark::State &state) {
    /* 39 characters after the first command: refused before anything runs. */
    run_line(state, "ATE1;+CGDCONT=1,\"IP\",\"internet.example.org.\"");
}

/*
 * The example plug-in stores a new context only once the modem daemon confirms it. This
 * stand-in confirms the first definition; the measured repeats change nothing and ask
 * nobody.
 */
std::thread confirm_first_definition() {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t address_len = sizeof(address);
    bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address));
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &address_len);
    const timeval patience{5, 0}; /* never hold the benchmark up for long */
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    setenv("KERVD_MODEMD_PORT", std::to_string(ntohs(address.sin_port)).c_str(), 1);
    return std::thread([fd] {
        Modem_Request_t req;
        sockaddr_in sender{};
        socklen_t sender_len = sizeof(sender);
        if (recvfrom(fd, &req, sizeof(req), 0, reinterpret_cast<sockaddr *>(&sender),
                     &sender_len) >= 0) {
            Modem_Response_t resp{};
            resp.result = MODEM_RET_OK;
            sendto(fd, &resp, MODEM_RESPONSE_HEADER_SIZE, 0, reinterpret_cast<sockaddr *>(&sender),
                   sender_len);
        }
        close(fd);
    });
}

} // namespace

BENCHMARK(BM_BareAnswerWrite);
BENCHMARK(BM_InternalCommand);
BENCHMARK(BM_TwoInternalCommands);
BENCHMARK(BM_ExtendedCommandThroughPlugin);
BENCHMARK(BM_SyntaxError);

int main(int argc, char **argv) {
    benchmark::Initialize(&argc, argv);
    null_fd = open("/dev/null", O_WRONLY);
    g_dbg_print = 0;
    rmmi_init();
    rmmi_read_custom_default_setting(RMMI_PROCESS_CMD_FROM_SOCKET_PORT, RMMI_MODEMD_23G,
                                     RMMI_VERBOSE_FULL_HEAD_TAIL);
#ifdef KERV_BENCH_PLUGIN_DIR
    setenv("KERVD_PLUGIN_DIR", KERV_BENCH_PLUGIN_DIR, 1);
    plugin_loaded = config_libdir() == KAL_TRUE;
    if (plugin_loaded) {
        std::thread confirmer = confirm_first_definition();
        rmmi_process_multi_cmd(null_fd, "AT+CGDCONT=1,\"IP\",\"internet.example\"");
        confirmer.join();
    }
#endif
    fflush(stdout);
    dup2(null_fd, STDOUT_FILENO);
    benchmark::ConsoleReporter reporter(benchmark::ConsoleReporter::OO_Tabular);
    reporter.SetOutputStream(&std::cerr);
    reporter.SetErrorStream(&std::cerr);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
