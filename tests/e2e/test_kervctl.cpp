/* kervctl against the real daemon: each command's output and exit status. */
#include "harness.h"

#include <gtest/gtest.h>

namespace e2e {
namespace {

struct Kervctl : testing::Test {
    void SetUp() override {
        options.store["KERV_URC_LISTEN_ENABLE"] = "1";
        modem.add_rule({"AT+CSQ", 0, "\r\n+CSQ: 17,99\r\n\r\nOK\r\n"});
        modem.add_rule({"AT+COPS?", 0, "\r\n+CME ERROR: 30\r\n"});
        daemon = std::make_unique<Daemon>(dir, modem, options);
        ASSERT_TRUE(daemon->start()) << daemon->output();
        ASSERT_TRUE(eventually([&] { return udp_bound(daemon->urc_port()); }));
    }
    ToolRun kervctl(std::vector<std::string> args) {
        return run_tool(dir, KERV_TEST_KERVCTL_PATH, std::move(args), daemon->client_settings());
    }
    TempDir dir;
    FakeModem modem;
    DaemonOptions options;
    std::unique_ptr<Daemon> daemon;
};

TEST_F(Kervctl, ControlCommandsPrintTheDaemonsReply) {
    const struct {
        std::vector<std::string> args;
        int status;
        const char *out;
    } cases[] = {
        {{"hash", "+CSQ"}, 0, "hash_value1=[5071], hash_value2=[0]\n"},
        {{"hash", "AT"}, 1, "ERROR\n"},
        {{"reload"}, 0, "RELOAD...\n"},
        {{"frobnicate"}, 64, ""},
    };
    for (const auto &c : cases) {
        const ToolRun run = kervctl(c.args);
        EXPECT_EQ(run.status, c.status) << c.args[0] << ": " << run.err;
        EXPECT_EQ(run.out, c.out) << c.args[0];
    }
}

TEST_F(Kervctl, AtPrintsEachAnswerAndFailsOnTheFirstFailingLine) {
    ToolRun run = kervctl({"at", "ATE1", "AT+CSQ"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.out, "ATE1\r\r\nOK\r\nAT+CSQ\r\r\n+CSQ: 17,99\r\n\r\nOK\r\n");
    run = kervctl({"at", "AT+COPS?", "ATE1"});
    EXPECT_EQ(run.status, 1);
    EXPECT_EQ(run.out, "AT+COPS?\r\r\n+CME ERROR: 30\r\n");
}

TEST_F(Kervctl, UrcReachesTheConnectedHost) {
    Host host(daemon->tcp_port());
    host.send("ATE1\r");
    ASSERT_EQ(host.read_like("ATE1\r\r\nOK\r\n"), "ATE1\r\r\nOK\r\n");
    EXPECT_EQ(kervctl({"urc", "\r\n+CREG: 5\r\n"}).status, 0);
    EXPECT_EQ(host.read_like("\r\n+CREG: 5\r\n"), "\r\n+CREG: 5\r\n");
}

TEST_F(Kervctl, StopClosesTheChannelAndLaterCommandsReportWhatFails) {
    EXPECT_EQ(kervctl({"stop"}).status, 0);
    /* The channel is already closed when stop returns. */
    EXPECT_EQ(kervctl({"at", "ATE1"}).status, 2);
    EXPECT_EQ(kervctl({"start"}).status, 0);
    EXPECT_EQ(kervctl({"hash", "+CSQ"}).status, 0);
    daemon->stop();
    const ToolRun run = kervctl({"hash", "+CSQ"});
    EXPECT_EQ(run.status, 2);
    EXPECT_NE(run.err.find(daemon->socket_path()), std::string::npos) << run.err;
}

} // namespace
} // namespace e2e
