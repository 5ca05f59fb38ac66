/*
 * Nanoseconds per command line through the engine, the answer's write to /dev/null
 * included, against a bare write of the same answer as the baseline.
 *
 * The engine's diagnostics are off (debug level 0), apart from the trace lines that the
 * number reader of the echo and verbose commands always prints. Those are gathered as the
 * daemon's worker gathers a request's lines, and go to /dev/null whenever the gathering
 * buffer is full; the daemon's one write of them per request is, like its other
 * per-request costs, measured by the load benchmark. The report goes to standard error.
 */
#include "modemd_stub.h"
#include "plugin_loader.h"
#include "validator_registry.h"
#include "engine_context.h"
#include "engine_entry.h"
#include "kal_gather.h"

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
    kal_gather_begin();
    for (auto _ : state)
        rmmi_process_multi_cmd(null_fd, line);
    kal_gather_end();
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
        /* The example plug-in stores a new context only once the modem daemon confirms it;
           the measured repeats change nothing and ask nobody. */
        modemd_stub::Stub confirmer;
        rmmi_process_multi_cmd(null_fd, "AT+CGDCONT=1,\"IP\",\"internet.example\"");
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
