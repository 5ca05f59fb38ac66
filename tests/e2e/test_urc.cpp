/* The URC receiver's switch; what it receives, and from where, is in the transcripts. */
#include "harness.h"

#include <gtest/gtest.h>

namespace e2e {
namespace {

TEST(Urcs, ReceiverIsOffUnlessTheStoreSwitchesItOn) {
    for (const char *value : {static_cast<const char *>(nullptr), "", "0", "on"}) {
        TempDir dir;
        FakeModem modem;
        DaemonOptions off;
        if (value != nullptr)
            off.store["KERV_URC_LISTEN_ENABLE"] = value;
        Daemon daemon(dir, modem, off);
        ASSERT_TRUE(daemon.start());
        /* The receiver says why it ends ("no ..." or "... is disable."). */
        EXPECT_TRUE(daemon.wait_output("KERV_URC_LISTEN_ENABLE")) << daemon.output();
        EXPECT_FALSE(udp_bound(daemon.urc_port())) << (value ? value : "(absent)");
    }
}

} // namespace
} // namespace e2e
