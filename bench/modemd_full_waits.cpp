/*
 * The modem-daemon clients' full waits for an answer that never comes, at the board's
 * length of one wait (one second): the relay gives up after 60 waits, the general request
 * after 30, however many signals interrupt them. Takes a minute and a half, so it is
 * labelled slow and left out of the ordinary test run (make test-slow runs it).
 */
#include "modem_relay.h"
#include "modemd_stub.h"
#include "rmmi_common.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <pthread.h>
#include <thread>

namespace {

using Clock = std::chrono::steady_clock;

void ignore_signal(int) {}

/* Interrupts the waiting thread with SIGUSR1 every 100 ms while it lives. */
struct SignalStorm {
    std::atomic<bool> running{true};
    pthread_t target = pthread_self();
    std::thread sender;
    SignalStorm() {
        struct sigaction action {};
        action.sa_handler = ignore_signal; /* no SA_RESTART: every wait is interrupted */
        sigaction(SIGUSR1, &action, nullptr);
        sender = std::thread([this] {
            while (running) {
                pthread_kill(target, SIGUSR1);
                std::this_thread::sleep_for(std::chrono::milliseconds(100));
            }
        });
    }
    ~SignalStorm() {
        running = false;
        sender.join();
    }
};

bool check(const char *what, bool holds) {
    printf("%s %s\n", holds ? "ok  " : "FAIL", what);
    return holds;
}

} // namespace

int main() {
    unsetenv("KERVD_MODEMD_WAIT_MS");
    g_dbg_print = 0;
    modemd_stub::Stub modemd;
    modemd.answer(modemd_stub::Reply::silent);
    bool ok = true;

    char out[1008] = "untouched";
    kal_uint32 length = 1007;
    kal_uint8 in[] = "AT+CSQ\r";
    auto started = Clock::now();
    kal_uint32 result;
    {
        SignalStorm storm;
        result = send_cmd_to_md(MODEM_TARGET_MD, in, out, &length);
    }
    const auto relay_waited = Clock::now() - started;
    printf("relay waited %.1f s\n", std::chrono::duration<double>(relay_waited).count());
    ok &= check("relay fails with no network service", result == NO_NW_SERVICE);
    ok &= check("relay leaves the answer buffer alone", strcmp(out, "untouched") == 0);
    ok &= check("relay waits 60 s despite signals", relay_waited >= std::chrono::seconds(59) &&
                                                        relay_waited < std::chrono::seconds(62));
    ok &= check("relay sends once", modemd.take_requests().size() == 1);

    kerv_md_request_t req = {};
    req.target = MODEM_TARGET_LTE;
    req.request_id = MODEM_REQ_GET_STATUS;
    char status[64] = {};
    started = Clock::now();
    const int general = kerv_md_request(&req, status, sizeof(status));
    const auto general_waited = Clock::now() - started;
    printf("general request waited %.1f s\n",
           std::chrono::duration<double>(general_waited).count());
    ok &= check("general request reports the time-out",
                general == 1 && strcmp(status, "error,10006,command timeout") == 0);
    ok &= check("general request waits 30 s", general_waited >= std::chrono::seconds(29) &&
                                                  general_waited < std::chrono::seconds(32));
    return ok ? 0 : 1;
}
