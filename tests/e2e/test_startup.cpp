/* Start-up: banner, pid file and control socket. */
#include "daemon_test.h"

#include <gtest/gtest.h>

#include <regex>

namespace e2e {
namespace {

using StartUp = DaemonTest;

TEST_F(StartUp, BannerOncePidWrittenOverTheOldTextAndStaleSocketReplaced) {
    Daemon daemon(dir, modem, {});
    write_file(daemon.socket_path(), "stale");
    write_file(daemon.pid_path(), "123456789012\n");
    ASSERT_TRUE(daemon.start()) << daemon.output();

    const std::string out = daemon.output();
    EXPECT_EQ(count_of(out, "libkerv Build @ Date:"), 1u) << out;
    EXPECT_TRUE(std::regex_search(out, std::regex("^libkerv Build @ Date:[A-Z][a-z]{2} [ 0-9]\\d "
                                                  "\\d{4}, Time:\\d\\d:\\d\\d:\\d\\d\n\n")))
        << out;
    /* The pid is the daemon's, written over the start of the old text, which is kept. */
    const std::string pid_line = std::to_string(daemon.pid()) + "\n";
    const std::string pid_text = read_file(daemon.pid_path());
    EXPECT_EQ(pid_text.substr(0, pid_line.size()), pid_line);
    EXPECT_EQ(pid_text.size(), std::string("123456789012\n").size());
    EXPECT_EQ(app_request(daemon.socket_path(), KERV_REQUEST_CMD_GEN_HASH, "E"),
              "hash_value1=[5], hash_value2=[0]");
}

TEST_F(StartUp, ControlSocketThatCannotBeBoundEndsStartWithStatus255) {
    options.socket_path = dir.file("missing/kerv.socket"); /* no such directory */
    Daemon daemon(dir, modem, options);
    EXPECT_FALSE(daemon.start());
    EXPECT_EQ(daemon.launcher_status(), 255);
    EXPECT_NE(daemon.output().find("Can't bind on " + options.socket_path + " : "),
              std::string::npos)
        << daemon.output();
}

} // namespace
} // namespace e2e
