/* URCs: exact bytes, never inside an answer, loopback only, switched by the store. */
#include "harness.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace e2e {
namespace {

struct Urcs : testing::Test {
    void SetUp() override {
        options.store["KERV_URC_LISTEN_ENABLE"] = "1";
        modem.answer("AT+CSQ", {"\r\n+CSQ: 5,99\r\n\r\nOK\r\n", 400ms});
    }
    void start() {
        daemon = std::make_unique<Daemon>(dir, modem, options);
        ASSERT_TRUE(daemon->start()) << daemon->output();
        ASSERT_TRUE(eventually([&] { return udp_bound(daemon->urc_port()); }));
    }
    TempDir dir;
    FakeModem modem;
    DaemonOptions options;
    std::unique_ptr<Daemon> daemon;
};

TEST_F(Urcs, EachDatagramReachesTheHostAsItsExactBytes) {
    start();
    Host host(daemon->tcp_port());
    host.send("ATE1\r"); /* the host is known to be connected once it is answered */
    host.read_like("ATE1\r\r\nOK\r\n");

    struct UrcCase {
        std::string sent;
        std::string delivered;
    };
    const UrcCase cases[] = {
        {"\r\n+CREG: 1,\"00C3\",\"0010\"\r\n", "\r\n+CREG: 1,\"00C3\",\"0010\"\r\n"},
        {"RING", "RING"},                                 /* shorter after longer: nothing stale */
        {std::string("ab\0cd", 5), "ab"},                 /* a NUL ends the URC */
        {std::string(1500, 'u'), std::string(1023, 'u')}, /* cut to 1023 bytes */
    };
    for (const UrcCase &c : cases) {
        send_urc(daemon->urc_port(), c.sent);
        EXPECT_EQ(host.read_like(c.delivered), c.delivered);
    }
    EXPECT_EQ(host.read_for(200ms), "");
}

TEST_F(Urcs, UrcArrivingDuringACommandFollowsItsAnswer) {
    start();
    Host host(daemon->tcp_port());
    host.send("AT+CSQ\r");
    ASSERT_TRUE(modem.wait_requests(1));
    send_urc(daemon->urc_port(), "\r\n+CMTI: \"SM\",1\r\n");
    const std::string expected =
        "AT+CSQ\r" + std::string("\r\n+CSQ: 5,99\r\n\r\nOK\r\n") + "\r\n+CMTI: \"SM\",1\r\n";
    EXPECT_EQ(host.read_like(expected), expected);
}

TEST_F(Urcs, UrcWithoutAHostIsDroppedNotKeptForTheNextHost) {
    options.store["KERV_DEBUG"] = "4"; /* to see when the worker has run the URC */
    start();
    send_urc(daemon->urc_port(), "\r\n+EARLY\r\n");
    ASSERT_TRUE(daemon->wait_output("no host for the URC, dropped")) << daemon->output();
    Host host(daemon->tcp_port());
    host.send("ATE1\r");
    EXPECT_EQ(host.read_like("ATE1\r\r\nOK\r\n"), "ATE1\r\r\nOK\r\n");
    EXPECT_EQ(host.read_for(200ms), "");
    EXPECT_TRUE(daemon->alive());
}

TEST_F(Urcs, ReceiverListensOnLoopbackOnly) {
    start();
    char local[32];
    snprintf(local, sizeof(local), "0100007F:%04X", daemon->urc_port());
    const std::string table = read_file("/proc/net/udp");
    EXPECT_NE(table.find(local), std::string::npos) << table;
    char any[32];
    snprintf(any, sizeof(any), "00000000:%04X", daemon->urc_port());
    EXPECT_EQ(table.find(any), std::string::npos);
}

TEST_F(Urcs, ReceiverIsOffUnlessTheStoreSwitchesItOn) {
    struct SwitchCase {
        const char *value; /* null: key absent */
        const char *message;
    };
    const SwitchCase cases[] = {
        {nullptr, "no KERV_URC_LISTEN_ENABLE.\r\n"},
        {"", "no KERV_URC_LISTEN_ENABLE.\r\n"},
        {"0", "KERV_URC_LISTEN_ENABLE is disable.\r\n"},
        {"on", "KERV_URC_LISTEN_ENABLE is disable.\r\n"},
    };
    for (const SwitchCase &c : cases) {
        TempDir case_dir;
        DaemonOptions off;
        if (c.value != nullptr)
            off.store["KERV_URC_LISTEN_ENABLE"] = c.value;
        Daemon quiet(case_dir, modem, off);
        ASSERT_TRUE(quiet.start());
        EXPECT_TRUE(quiet.wait_output(c.message)) << quiet.output();
        EXPECT_FALSE(udp_bound(quiet.urc_port()));
    }
}

} // namespace
} // namespace e2e
