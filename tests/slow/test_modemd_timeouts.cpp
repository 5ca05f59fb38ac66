#include "fake_modemd.h"
#include "rmmi_common.h"
#include "modem_relay.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <pthread.h>

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

TEST(ModemTimeouts, RelayWaitsSixtySecondsWhateverSignalsArriveThenFails) {
    rmmi_test::FakeModemd modemd;
    modemd.answer(rmmi_test::ModemReply::silent);
    char out[1008] = "untouched";
    kal_uint32 length = 1007;
    kal_uint8 in[] = "AT+CSQ\r";
    const auto started = Clock::now();
    kal_uint32 result;
    {
        SignalStorm storm;
        result = send_cmd_to_md(MODEM_TARGET_MD, in, out, &length);
    }
    const auto waited = Clock::now() - started;
    EXPECT_EQ(result, NO_NW_SERVICE);
    EXPECT_STREQ(out, "untouched");
    EXPECT_GE(waited, std::chrono::seconds(59));
    EXPECT_EQ(modemd.take_requests().size(), 1u) << "one request, never repeated";
}

TEST(ModemTimeouts, GeneralRequestTimesOutAfterThirtySecondsWithItsStatusText) {
    rmmi_test::FakeModemd modemd;
    modemd.answer(rmmi_test::ModemReply::silent);
    kerv_md_request_t req = {};
    req.target = MODEM_TARGET_LTE;
    req.request_id = MODEM_REQ_GET_STATUS;
    char out[64] = {};
    const auto started = Clock::now();
    EXPECT_EQ(kerv_md_request(&req, out, sizeof(out)), 1);
    EXPECT_STREQ(out, "error,10006,command timeout");
    EXPECT_GE(Clock::now() - started, std::chrono::seconds(29));
}

} // namespace
