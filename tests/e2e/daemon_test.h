/* What the end-to-end tests share: a test with a kervd of its own, and the exchange that
   shows a host is served. */
#ifndef KERV_DAEMON_TEST_H
#define KERV_DAEMON_TEST_H

#include "harness.h"

#include <gtest/gtest.h>

#include <memory>

namespace e2e {

const std::string kEchoOn = "ATE1\r\r\nOK\r\n";

/* The host (a connection, or a pty's master end) is answered at once. */
inline void expect_served(Host host) {
    host.send("ATE1\r");
    EXPECT_EQ(host.read_like(kEchoOn), kEchoOn);
}

/* A test with a kervd of its own, started once its options are set. */
struct DaemonTest : testing::Test {
    void start_daemon() {
        daemon = std::make_unique<Daemon>(dir, modem, options);
        ASSERT_TRUE(daemon->start()) << daemon->output();
    }
    TempDir dir;
    FakeModem modem;
    DaemonOptions options;
    std::unique_ptr<Daemon> daemon;
};

} // namespace e2e

#endif /* KERV_DAEMON_TEST_H */
