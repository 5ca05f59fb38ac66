/* The URC receiver's switch and address; the URC bytes themselves are in urc.t. */
#include "harness.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace e2e {
namespace {

TEST(Urcs, ReceiverListensOnLoopbackOnlyAndDropsUrcsWithoutAHost) {
    TempDir dir;
    FakeModem modem;
    DaemonOptions options;
    options.store["KERV_URC_LISTEN_ENABLE"] = "1";
    options.store["KERV_DEBUG"] = "4"; /* to see when the worker has run the URC */
    Daemon daemon(dir, modem, options);
    ASSERT_TRUE(daemon.start()) << daemon.output();
    ASSERT_TRUE(eventually([&] { return udp_bound(daemon.urc_port()); }));
    char local[32];
    snprintf(local, sizeof(local), "0100007F:%04X", daemon.urc_port());
    EXPECT_NE(read_file("/proc/net/udp").find(local), std::string::npos);

    send_urc(daemon.urc_port(), "\r\n+EARLY\r\n");
    ASSERT_TRUE(daemon.wait_output("no host for the URC, dropped")) << daemon.output();
    Host host(daemon.tcp_port());
    host.send("ATE1\r");
    EXPECT_EQ(host.read_like("ATE1\r\r\nOK\r\n"), "ATE1\r\r\nOK\r\n");
    EXPECT_EQ(host.read_for(200ms), "");
}

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
