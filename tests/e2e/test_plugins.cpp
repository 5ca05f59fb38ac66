/* Validator plug-ins loaded by the running daemon answer their commands on the channel. */
#include "harness.h"

#include <gtest/gtest.h>

#include <filesystem>

namespace e2e {
namespace {

namespace fs = std::filesystem;

const std::string kOk = "\r\nOK\r\n";
const std::string kError = "\r\nERROR\r\n";

struct Plugins : testing::Test {
    void SetUp() override {
        const fs::path plugins = dir.file("plugins");
        fs::copy_file(KERV_TEST_CGDCONT_PATH, plugins / "libcgdcont.so");
        fs::copy_file(fs::path(KERV_TEST_PLUGINS_DIR) / "libnullfunc.so",
                      plugins / "libnullfunc.so");
        fs::copy_file(fs::path(KERV_TEST_PLUGINS_DIR) / "libnosym.so", plugins / "libnosym.so");
        write_file(dir.file("plugins/README"), "not a plug-in\n");
        modem.answer("AT+CSQ", {"\r\n+CSQ: 20,99\r\n\r\nOK\r\n"});
        modem.answer("AT+NOFUNC", {"\r\n+NOFUNC: relayed\r\n\r\nOK\r\n"});
        ASSERT_TRUE(daemon.start()) << daemon.output();
        host.reset(new Host(daemon.tcp_port()));
        host->send("ATE0\r");
        ASSERT_EQ(host->read_like(kOk), kOk);
    }
    std::string ask(const std::string &line, const std::string &expected) {
        host->send(line);
        return host->read_like(expected);
    }
    TempDir dir;
    FakeModem modem;
    Daemon daemon{dir, modem, {}};
    std::unique_ptr<Host> host;
};

TEST_F(Plugins, CgdcontIsAnsweredByItsPluginAndDefinitionsReachTheModemDaemon) {
    EXPECT_EQ(ask("AT+CGDCONT=1,\"IP\",\"internet\"\r", kOk), kOk);
    EXPECT_EQ(ask("at+cgdcont=2,\"IPV6\",\"ims\"\r", kOk), kOk);
    const std::string listed = "\r\n+CGDCONT: 1,\"IP\",\"internet\"\r\n"
                               "+CGDCONT: 2,\"IPV6\",\"ims\"\r\n\r\nOK\r\n";
    EXPECT_EQ(ask("AT+CGDCONT?\r", listed), listed);
    const std::string tested = "\r\n+CGDCONT: (1-15),\"IP\",,,(0-2),(0-4)\r\n"
                               "+CGDCONT: (1-15),\"IPV6\",,,(0-2),(0-4)\r\n"
                               "+CGDCONT: (1-15),\"IPV4V6\",,,(0-2),(0-4)\r\n\r\nOK\r\n";
    EXPECT_EQ(ask("AT+CGDCONT=?\r", tested), tested);
    EXPECT_EQ(ask("AT+CGDCONT=16,\"IP\",\"x\"\r", kError), kError);
    EXPECT_EQ(host->read_for(std::chrono::milliseconds(200)), "");
    /* Only the two definitions went to the modem daemon, as general requests. */
    const std::vector<ModemRequest> told = modem.requests();
    ASSERT_EQ(told.size(), 2u);
    EXPECT_EQ(told[0].request_id, 7u);
    EXPECT_EQ(told[0].target, 0u);
    EXPECT_EQ(told[0].text, "1,IP,internet");
    EXPECT_EQ(told[1].text, "2,IPV6,ims");

    const std::string csq = "\r\n+CSQ: 20,99\r\n\r\nOK\r\n";
    EXPECT_EQ(ask("AT+CSQ\r", csq), csq);
    EXPECT_EQ(modem.requests().size(), 3u);
}

TEST_F(Plugins, FaultyPluginsAreReportedAndTheirCommandsRelayed) {
    const std::string relayed = "\r\n+NOFUNC: relayed\r\n\r\nOK\r\n";
    EXPECT_EQ(ask("AT+NOFUNC\r", relayed), relayed);
    ASSERT_EQ(modem.requests().size(), 1u);
    EXPECT_EQ(modem.requests()[0].text, "AT+NOFUNC\r");
    const std::string output = daemon.output();
    EXPECT_NE(output.find("validator [+nofunc] has no function, not registered"),
              std::string::npos);
    EXPECT_NE(output.find("KERVLIB[" + dir.file("plugins") +
                          "/libnosym.so]:get rmmi_validators symbol error !!\n\r\n"),
              std::string::npos);
    EXPECT_EQ(output.find("README"), std::string::npos);
    EXPECT_TRUE(daemon.alive());
}

} // namespace
} // namespace e2e
