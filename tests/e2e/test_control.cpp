/* The control socket: replies, refusals and STOP, against the real daemon. */
#include "harness.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include <sys/socket.h>
#include <sys/un.h>

namespace e2e {
namespace {

const std::string kEchoOn = "ATE1\r\r\nOK\r\n";

struct Control : testing::Test {
    void SetUp() override {
        options.store["KERV_URC_LISTEN_ENABLE"] = "1";
        daemon = std::make_unique<Daemon>(dir, modem, options);
        ASSERT_TRUE(daemon->start()) << daemon->output();
    }
    ScopedSetting silent_clients{"KERVD_CONTROL_TIMEOUT_MS", "200"}; /* dropped soon */
    /* No host is cut off for not reading before a test's deadline: only STOP does that. */
    ScopedSetting no_stall_cut_off{"KERVD_HOST_STALL_MS", "60000"};
    std::string app(u_int16_t cmd, const char *arg0 = nullptr) {
        return app_request(daemon->socket_path(), cmd, arg0);
    }
    TempDir dir;
    FakeModem modem;
    DaemonOptions options;
    std::unique_ptr<Daemon> daemon;
};

TEST_F(Control, ReplyIsThePackedRequestCarryingOnlyItsText) {
    const std::string bytes = control_exchange(
        daemon->socket_path(), packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_RELOAD, "x"));
    kervRequest_t reply;
    ASSERT_TRUE(unpack_reply(bytes, &reply));
    EXPECT_EQ(bytes.size(), 62u);
    EXPECT_EQ(reply.type, KERV_REQUEST_TYPE_APP);
    EXPECT_EQ(reply.cmd, KERV_REQUEST_CMD_RELOAD);
    EXPECT_STREQ(reply.arg[0], "RELOAD...");
    for (int i = 1; i < KERV_REQUEST_ARG_NUM; i++)
        EXPECT_EQ(reply.arg[i], nullptr);
}

TEST_F(Control, RefusedRequestsGetNoReplyAndChangeNothing) {
    Host host(daemon->tcp_port());
    for (const std::string &bytes : {
             std::string(),
             std::string("not a request"),
             packed_request(KERV_REQUEST_TYPE_SRV, KERV_REQUEST_CMD_CMD, "ATE0"),
             packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_URC_RESPONSE, "\r\nRING\r\n"),
             packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_CMD, "ATE0"),
         })
        EXPECT_EQ(control_exchange(daemon->socket_path(), bytes), "");
    /* Nothing reached the host, and the ATE0 sent as an application command did not run. */
    host.send("ATE1\r");
    EXPECT_EQ(host.read_like(kEchoOn), kEchoOn);
    EXPECT_EQ(host.read_for(100ms), "");
}

TEST_F(Control, StopAndStartCloseTheChannelAndTheControlSocketKeepsWorking) {
    Host host(daemon->tcp_port());
    host.send("ATE1\r");
    ASSERT_EQ(host.read_like(kEchoOn), kEchoOn);
    /* The reply-less request returns once the channel is closed. */
    EXPECT_EQ(app(KERV_REQUEST_CMD_STOP), "");
    EXPECT_FALSE(tcp_accepts(daemon->tcp_port()));
    EXPECT_EQ(host.read_for(500ms), ""); /* the host sees the end of its connection */
    /* Nothing left to close: again, and START, which closes like STOP. Each says so. */
    EXPECT_EQ(app(KERV_REQUEST_CMD_STOP), "");
    EXPECT_EQ(app(KERV_REQUEST_CMD_START), "");
    const std::string output = daemon->output();
    EXPECT_EQ(count_of(output, "kerv_deinit\n"), 3u) << output;
    EXPECT_EQ(count_of(output, "close new_fd.\n"), 1u) << output;
    EXPECT_EQ(count_of(output, "kerv is NULL"), 2u) << output;
    EXPECT_EQ(app(KERV_REQUEST_CMD_GEN_HASH, "E"), "hash_value1=[5], hash_value2=[0]");
    EXPECT_EQ(app(KERV_REQUEST_CMD_RELOAD), "RELOAD...");
    send_urc(daemon->urc_port(), "RING");
    EXPECT_TRUE(daemon->alive());
}

TEST_F(Control, StopCutsOffAHostThatStoppedReading) {
    ASSERT_TRUE(eventually([&] { return udp_bound(daemon->urc_port()); }));
    Host host(daemon->tcp_port());
    host.send("ATE1\r");
    ASSERT_EQ(host.read_like(kEchoOn), kEchoOn);
    /* URCs for a host that never reads, until the worker waits for room to write: the
       bytes the daemon holds for the host stop growing while URCs keep coming. */
    std::atomic<bool> flooding{true};
    std::thread flood([&] {
        while (flooding)
            send_urc(daemon->urc_port(), std::string(1000, 'u'));
    });
    unsigned long unsent = 0;
    int unchanged = 0;
    EXPECT_TRUE(eventually([&] {
        const unsigned long now = daemon->unsent_to_host();
        unchanged = now > 0 && now == unsent ? unchanged + 1 : 0;
        unsent = now;
        return unchanged == 10;
    }));
    EXPECT_EQ(app(KERV_REQUEST_CMD_STOP), "");
    flooding = false;
    flood.join();
    /* The worker is free again: a reload is answered. */
    EXPECT_EQ(app(KERV_REQUEST_CMD_RELOAD), "RELOAD...");
}

TEST_F(Control, SilentClientDoesNotHoldTheControlSocket) {
    const int silent = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, daemon->socket_path().c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(connect(silent, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    EXPECT_EQ(app(KERV_REQUEST_CMD_GEN_HASH, "E"), "hash_value1=[5], hash_value2=[0]");
    close(silent);
}

} // namespace
} // namespace e2e
