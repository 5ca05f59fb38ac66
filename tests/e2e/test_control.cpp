/* The control socket: every request with its reply or refusal. */
#include "harness.h"

#include <gtest/gtest.h>

namespace e2e {
namespace {

const std::string kEchoOn = "ATE1\r\r\nOK\r\n";

struct Control : testing::Test {
    void SetUp() override {
        options.store["KERV_MODEMD_TARGET_TYPE"] = "23G";
        options.store["KERV_URC_LISTEN_ENABLE"] = "1";
        daemon = std::make_unique<Daemon>(dir, modem, options);
        ASSERT_TRUE(daemon->start()) << daemon->output();
    }
    std::string exchange(u_int16_t type, u_int16_t cmd, const char *arg0) {
        return control_exchange(daemon->socket_path(), packed_request(type, cmd, arg0));
    }
    std::string app(u_int16_t cmd, const char *arg0 = nullptr) {
        return exchange(KERV_REQUEST_TYPE_APP, cmd, arg0);
    }
    /* The target of the next relayed command, as the modem sees it. */
    unsigned int target_of_next_command(Host &host) {
        const size_t before = modem.requests().size();
        host.send("AT+CSQ\r");
        host.read_like("AT+CSQ\r\r\nOK\r\n");
        EXPECT_TRUE(modem.wait_requests(before + 1));
        return modem.requests().back().target;
    }
    TempDir dir;
    FakeModem modem;
    DaemonOptions options;
    std::unique_ptr<Daemon> daemon;
};

TEST_F(Control, GenHashAnswersTheTwoValuesOrError) {
    struct HashCase {
        const char *name; /* null: no argument */
        const char *reply;
    };
    const HashCase cases[] = {
        {"+CSQ", "hash_value1=[5071], hash_value2=[0]"},
        {"AT+CGDCONT=1", "hash_value1=[6645417], hash_value2=[552]"},
        {"ABCDE999999", "hash_value1=[2199369], hash_value2=[-1365407572]"},
        {"AT", "ERROR"},
        {nullptr, "ERROR"},
    };
    for (const HashCase &c : cases) {
        const std::string bytes = app(KERV_REQUEST_CMD_GEN_HASH, c.name);
        kervRequest_t reply;
        ASSERT_TRUE(unpack_reply(bytes, &reply)) << (c.name ? c.name : "(none)");
        EXPECT_EQ(bytes.size(), KERV_REQUEST_HEADER_SIZE + strlen(c.reply) + 1);
        EXPECT_EQ(reply.magic, KERV_REQUEST_MAGIC);
        EXPECT_EQ(reply.type, KERV_REQUEST_TYPE_APP);
        EXPECT_EQ(reply.cmd, KERV_REQUEST_CMD_GEN_HASH);
        EXPECT_EQ(reply.status, 0);
        ASSERT_NE(reply.arg[0], nullptr);
        EXPECT_STREQ(reply.arg[0], c.reply);
        for (int i = 1; i < KERV_REQUEST_ARG_NUM; i++)
            EXPECT_EQ(reply.arg[i], nullptr);
    }
    const std::string out = daemon->output();
    EXPECT_NE(out.find("[hash_value1=[5071], hash_value2=[0]]\n"), std::string::npos) << out;
    EXPECT_NE(out.find(" fail to caculate hash value for cmd\n"), std::string::npos) << out;
}

TEST_F(Control, ReloadRestoresTheConfiguredTargetAfterRelay) {
    Host host(daemon->tcp_port());
    EXPECT_EQ(target_of_next_command(host), 16u);
    host.send("AT+RELAY=LTE\r");
    EXPECT_EQ(host.read_like("AT+RELAY=LTE\r\r\nOK\r\n"), "AT+RELAY=LTE\r\r\nOK\r\n");
    EXPECT_EQ(target_of_next_command(host), 1u);

    const std::string bytes = app(KERV_REQUEST_CMD_RELOAD);
    kervRequest_t reply;
    ASSERT_TRUE(unpack_reply(bytes, &reply));
    EXPECT_EQ(bytes.size(), 62u);
    EXPECT_STREQ(reply.arg[0], "RELOAD...");
    EXPECT_EQ(reply.cmd, KERV_REQUEST_CMD_RELOAD);
    EXPECT_EQ(target_of_next_command(host), 16u);

    /* A reload reads the store afresh. */
    write_file(dir.file("sncfg.conf"),
               read_file(dir.file("sncfg.conf")) + "KERV_MODEMD_TARGET_TYPE=lte\n");
    ASSERT_TRUE(unpack_reply(app(KERV_REQUEST_CMD_RELOAD), &reply));
    EXPECT_EQ(target_of_next_command(host), 1u);
}

TEST_F(Control, RequestsThatAreRefusedGetNoReplyAndChangeNothing) {
    Host host(daemon->tcp_port());
    struct RefusalCase {
        std::string bytes;
        const char *message;
    };
    const RefusalCase cases[] = {
        {"", "Can't unpack request !!\n"},
        {"not a request", "Can't unpack request !!\n"},
        {packed_request(KERV_REQUEST_TYPE_SRV, KERV_REQUEST_CMD_CMD, "ATE0"),
         "request_handle: request type is not application\n"},
        {packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_URC_RESPONSE, "\r\nRING\r\n"),
         "request_handle: request cmd is not classified\n"},
        {packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_CMD, "ATE0"), nullptr},
    };
    for (const RefusalCase &c : cases) {
        EXPECT_EQ(control_exchange(daemon->socket_path(), c.bytes), "");
        if (c.message != nullptr) {
            EXPECT_TRUE(daemon->wait_output(c.message)) << daemon->output();
        }
    }
    /* Nothing reached the host, and the ATE0 sent as an application command did not run. */
    EXPECT_EQ(host.read_for(200ms), "");
    host.send("ATE1\r");
    EXPECT_EQ(host.read_like(kEchoOn), kEchoOn);
    kervRequest_t reply;
    EXPECT_TRUE(unpack_reply(app(KERV_REQUEST_CMD_GEN_HASH, "+CSQ"), &reply));
}

TEST_F(Control, StopClosesTheChannelAndTheControlSocketKeepsWorking) {
    Host host(daemon->tcp_port());
    host.send("ATE1\r");
    ASSERT_EQ(host.read_like(kEchoOn), kEchoOn);

    /* The reply-less request returns once the channel is closed. */
    EXPECT_EQ(app(KERV_REQUEST_CMD_STOP), "");
    EXPECT_FALSE(tcp_accepts(daemon->tcp_port()));
    EXPECT_EQ(host.read_for(500ms), ""); /* the host sees the end of its connection */
    EXPECT_TRUE(daemon->wait_output("kerv_deinit\n"));

    /* Again, and START, which closes like STOP: nothing left to close, nothing breaks. */
    EXPECT_EQ(app(KERV_REQUEST_CMD_STOP), "");
    EXPECT_EQ(app(KERV_REQUEST_CMD_START), "");
    kervRequest_t reply;
    ASSERT_TRUE(unpack_reply(app(KERV_REQUEST_CMD_GEN_HASH, "+CSQ"), &reply));
    EXPECT_STREQ(reply.arg[0], "hash_value1=[5071], hash_value2=[0]");
    ASSERT_TRUE(unpack_reply(app(KERV_REQUEST_CMD_RELOAD), &reply));
    EXPECT_STREQ(reply.arg[0], "RELOAD...");
    send_urc(daemon->urc_port(), "RING");
    EXPECT_TRUE(daemon->alive());
}

TEST_F(Control, StopCutsOffAHostThatStoppedReading) {
    ASSERT_TRUE(eventually([&] { return udp_bound(daemon->urc_port()); }));
    Host host(daemon->tcp_port());
    host.send("ATE1\r");
    ASSERT_EQ(host.read_like(kEchoOn), kEchoOn);
    /* URCs for a host that never reads, until the worker waits for room to write. */
    const std::string urc(1000, 'u');
    ASSERT_TRUE(eventually([&] {
        for (int i = 0; i < 100; i++)
            send_urc(daemon->urc_port(), urc);
        return daemon->thread_blocked_writing();
    }));

    EXPECT_EQ(app(KERV_REQUEST_CMD_STOP), "");
    /* The worker is free again: a reload is answered. */
    kervRequest_t reply;
    ASSERT_TRUE(unpack_reply(app(KERV_REQUEST_CMD_RELOAD), &reply));
    EXPECT_STREQ(reply.arg[0], "RELOAD...");
}

TEST_F(Control, StartWhileNoHostIsConnectedClosesTheListeningChannel) {
    EXPECT_EQ(app(KERV_REQUEST_CMD_START), "");
    EXPECT_FALSE(tcp_accepts(daemon->tcp_port()));
    EXPECT_TRUE(daemon->alive());
}

TEST_F(Control, SilentClientDoesNotHoldTheControlSocket) {
    Host silent_tcp(daemon->tcp_port()); /* unrelated: the channel stays served meanwhile */
    const int silent = socket(AF_UNIX, SOCK_STREAM, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, daemon->socket_path().c_str(), sizeof(address.sun_path) - 1);
    ASSERT_EQ(connect(silent, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    kervRequest_t reply;
    EXPECT_TRUE(unpack_reply(app(KERV_REQUEST_CMD_GEN_HASH, "+CSQ"), &reply));
    close(silent);
}

} // namespace
} // namespace e2e
