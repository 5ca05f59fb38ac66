/* The TCP command channel: line framing, answers in order, hosts coming and going. */
#include "harness.h"

#include <gtest/gtest.h>

namespace e2e {
namespace {

const std::string kEchoOn = "ATE1\r\r\nOK\r\n";
const std::string kCsqAnswer = "\r\n+CSQ: 20,99\r\n\r\nOK\r\n";

struct TcpChannel : testing::Test {
    void SetUp() override {
        modem.answer("AT+CSQ", {kCsqAnswer});
        ASSERT_TRUE(daemon.start()) << daemon.output();
    }
    TempDir dir;
    FakeModem modem;
    Daemon daemon{dir, modem, {}};
};

TEST_F(TcpChannel, EveryLineEndFramesALine) {
    Host host(daemon.tcp_port());
    for (const std::string &end :
         std::vector<std::string>{"\r", "\n", "\r\n", std::string(1, '\0')}) {
        host.send("ATE1" + end);
        EXPECT_EQ(host.read_like(kEchoOn), kEchoOn) << "line end of " << end.size() << " byte(s)";
    }
    /* The line feed of a CR LF pair that arrives on its own is part of the line end. */
    host.send("ATE1\r");
    EXPECT_EQ(host.read_like(kEchoOn), kEchoOn);
    host.send("\n");
    EXPECT_EQ(host.read_for(200ms), "");
}

TEST_F(TcpChannel, RelayedCommandReachesTheModemOnceAndItsAnswerComesBackUnchanged) {
    Host host(daemon.tcp_port());
    /* Split over two segments. */
    host.send("AT+C");
    std::this_thread::sleep_for(50ms);
    host.send("SQ\r");
    const std::string expected = "AT+CSQ\r" + kCsqAnswer;
    EXPECT_EQ(host.read_like(expected), expected);
    ASSERT_EQ(modem.requests().size(), 1u);
    EXPECT_EQ(modem.requests()[0].text, "AT+CSQ\r");
    EXPECT_EQ(modem.requests()[0].target, 1u); /* LTE unless configured otherwise */
}

TEST_F(TcpChannel, LinesCompleteInOneSegmentAreAllAnsweredWithoutMoreInput) {
    Host host(daemon.tcp_port());
    host.send("ATE1\rAT+CSQ\r\nATE1\n");
    const std::string expected = kEchoOn + "AT+CSQ\r" + kCsqAnswer + kEchoOn;
    EXPECT_EQ(host.read_like(expected), expected);
    EXPECT_EQ(host.read_for(200ms), "");
}

TEST_F(TcpChannel, LineOf1022CharactersRunsLineOf1023IsRefusedOnce) {
    Host host(daemon.tcp_port());
    const std::string fits = "AT+CSQ=" + std::string(1022 - 7, '9');
    host.send(fits + "\r");
    ASSERT_TRUE(modem.wait_requests(1));
    EXPECT_EQ(modem.requests()[0].text.substr(0, 10), "AT+CSQ=999");
    /* The echo and answer together are cut to 1022 bytes. */
    EXPECT_EQ(host.read_exactly(1022), fits.substr(0, 1022));

    const std::string too_long = "AT+CSQ=" + std::string(1023 - 7, '9');
    host.send(too_long + "\r" + "ATE1\r");
    const std::string expected = "\r\nERROR\r\n" + kEchoOn;
    EXPECT_EQ(host.read_like(expected), expected);
    EXPECT_EQ(modem.requests().size(), 1u);

    /* Far longer, in many segments: still one error, and the next line is intact. */
    for (int i = 0; i < 5; i++)
        host.send(std::string(1000, 'x'));
    host.send("\r\nATE1\r");
    EXPECT_EQ(host.read_like(expected), expected);
    EXPECT_EQ(host.read_for(200ms), "");
}

TEST_F(TcpChannel, NewHostGetsNeitherLeftoverBytesNorOutputOfTheHostBefore) {
    modem.answer("AT+CSQ", {kCsqAnswer, 500ms});
    {
        Host first(daemon.tcp_port());
        first.send("AT+CSQ\r");
        ASSERT_TRUE(modem.wait_requests(1));
        /* Unterminated bytes, then the host leaves while its answer is still due. */
        first.send("ATE");
    }
    Host second(daemon.tcp_port());
    ASSERT_TRUE(second.connected());
    /* Joined to the leftover "ATE" this would be a command; alone it is no command. */
    second.send("1\rATE1\r");
    EXPECT_EQ(second.read_like(kEchoOn), kEchoOn);
    EXPECT_EQ(second.read_for(800ms), "");
    EXPECT_TRUE(daemon.alive());
    EXPECT_EQ(modem.requests().size(), 1u);
}

TEST_F(TcpChannel, HostHalfClosingAfterItsLinesStillGetsTheirAnswers) {
    Host host(daemon.tcp_port());
    host.send("AT+CSQ\rATE1\r");
    shutdown(host.fd(), SHUT_WR);
    const std::string expected = "AT+CSQ\r" + kCsqAnswer + kEchoOn;
    EXPECT_EQ(host.read_like(expected), expected);
}

} // namespace
} // namespace e2e
