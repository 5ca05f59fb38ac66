/* Validator plug-ins through the daemon: the example plug-in answers its command itself. */
#include "harness.h"

#include <gtest/gtest.h>

#include <filesystem>

#ifdef KERV_TEST_CGDCONT_PATH

namespace e2e {
namespace {

std::string exchange(Host &host, const std::string &line, const std::string &answer) {
    host.send(line + "\r");
    return host.read_like(line + "\r" + answer);
}

TEST(Plugins, ExampleValidatorAnswersItsCommandAndOthersAreStillRelayed) {
    TempDir dir;
    FakeModem modem;
    DaemonOptions options;
    options.plugin_dir = dir.file("plugins");
    std::filesystem::create_directory(options.plugin_dir);
    std::filesystem::copy_file(KERV_TEST_CGDCONT_PATH, options.plugin_dir + "/libcgdcont.so");
    write_file(options.plugin_dir + "/README", "not a plug-in");
    Daemon daemon(dir, modem, options);
    ASSERT_TRUE(daemon.start()) << daemon.output();
    EXPECT_NE(daemon.output().find("libcgdcont.so"), std::string::npos) << daemon.output();

    Host host(daemon.tcp_port());
    const std::string set = "AT+CGDCONT=1,\"IP\",\"internet\"";
    EXPECT_EQ(exchange(host, set, "\r\nOK\r\n"), set + "\r\r\nOK\r\n");
    /* The plug-in asked the modem daemon to create the context; nothing was relayed as AT. */
    ASSERT_EQ(modem.requests().size(), 1u);
    EXPECT_EQ(modem.requests()[0].request_id, 7u);
    EXPECT_EQ(modem.requests()[0].text, "1,IP,internet");

    const std::string list = "\r\n+CGDCONT: 1,\"IP\",\"internet\"\r\n\r\nOK\r\n";
    EXPECT_EQ(exchange(host, "AT+cgdcont?", list), "AT+cgdcont?\r" + list);
    EXPECT_EQ(exchange(host, "AT+CGDCONT=99", "\r\nERROR\r\n"), "AT+CGDCONT=99\r\r\nERROR\r\n");

    EXPECT_EQ(exchange(host, "AT+CSQ", "\r\nOK\r\n"), "AT+CSQ\r\r\nOK\r\n");
    ASSERT_EQ(modem.requests().size(), 2u);
    EXPECT_EQ(modem.requests()[1].text, "AT+CSQ\r");
}

TEST(Plugins, WithoutThePlugInItsCommandGoesToTheModem) {
    TempDir dir;
    FakeModem modem;
    modem.answer("AT+CGDCONT?", {"\r\n+CGDCONT: 3,\"IP\",\"modem\"\r\n\r\nOK\r\n"});
    Daemon daemon(dir, modem, {});
    ASSERT_TRUE(daemon.start()) << daemon.output();
    Host host(daemon.tcp_port());
    const std::string answer = "\r\n+CGDCONT: 3,\"IP\",\"modem\"\r\n\r\nOK\r\n";
    EXPECT_EQ(exchange(host, "AT+CGDCONT?", answer), "AT+CGDCONT?\r" + answer);
    ASSERT_EQ(modem.requests().size(), 1u);
    EXPECT_EQ(modem.requests()[0].text, "AT+CGDCONT?\r");
}

} // namespace
} // namespace e2e

#endif
