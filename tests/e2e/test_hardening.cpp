/* Hostile and broken peers: hosts that stop reading, silent or crowding control clients. */
#include "daemon_test.h"

#include <gtest/gtest.h>

#include <atomic>
#include <poll.h>
#include <thread>
#include <sys/socket.h>
#include <unistd.h>

namespace e2e {
namespace {

/* True when the daemon closes fd without a word within patience. */
bool closed_silently(int fd, std::chrono::milliseconds patience) {
    char byte;
    pollfd watched = {fd, POLLIN, 0};
    return poll(&watched, 1, static_cast<int>(patience.count())) == 1 && read(fd, &byte, 1) == 0;
}

using Hardening = DaemonTest;

/* STOP cuts off a host whose worker waits for room to write; the stall rule would only
   do so long after the test's deadline. */
TEST_F(Hardening, StopCutsOffAHostThatStoppedReading) {
    ScopedSetting no_stall_cut_off("KERVD_HOST_STALL_MS", "60000");
    options.store["KERV_URC_LISTEN_ENABLE"] = "1";
    start_daemon();
    ASSERT_TRUE(eventually([&] { return udp_bound(daemon->urc_port()); }));
    Host host(daemon->tcp_port()); /* its receive buffer left to grow as it will */
    expect_served(Host::on(host.fd()));
    /* URCs for a host that never reads, until the worker waits for room to write: the
       bytes the daemon holds for the host stop growing while URCs keep coming. */
    std::atomic<bool> flooding{true};
    std::thread flood_urcs([&] {
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
    EXPECT_EQ(app_request(daemon->socket_path(), KERV_REQUEST_CMD_STOP), "");
    flooding = false;
    flood_urcs.join();
    /* The worker is free again: a reload is answered. */
    EXPECT_EQ(app_request(daemon->socket_path(), KERV_REQUEST_CMD_RELOAD), "RELOAD...");
}

TEST_F(Hardening, ControlRequestsAreServedOrRefusedAtOnceWhileTheWorkerIsBusy) {
    ScopedSetting wait("KERVD_MODEMD_WAIT_MS", "1000");
    modem.add_rule({"AT+CSQ", 0, "@delay=4000 \r\nOK\r\n"});
    start_daemon();
    Host host(daemon->tcp_port());
    host.send("AT+CSQ\r"); /* holds the worker while the modem takes its time */
    ASSERT_TRUE(modem.wait_requests(1));
    const std::string reload =
        packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_RELOAD, nullptr);
    std::vector<int> held;
    int refused = 0;
    for (int i = 0; i < 40; i++) {
        const int fd = connect_control(daemon->socket_path());
        send(fd, reload.data(), reload.size(), MSG_NOSIGNAL);
        /* Beyond the bound a RELOAD ends at once, without a reply. */
        if (closed_silently(fd, 50ms)) {
            refused++;
            close(fd);
        } else {
            held.push_back(fd);
        }
    }
    EXPECT_GT(refused, 0);
    EXPECT_FALSE(held.empty());
    /* Other requests are still served while the worker is busy, and while clients that
       have sent nothing are still waited for, not after their time-out... */
    const int silent = connect_control(daemon->socket_path());
    EXPECT_EQ(app_request(daemon->socket_path(), KERV_REQUEST_CMD_GEN_HASH, "+CSQ"),
              "hash_value1=[5071], hash_value2=[0]");
    pollfd unanswered = {silent, POLLIN, 0};
    EXPECT_EQ(poll(&unanswered, 1, 0), 0) << "answered or closed";
    close(silent);
    /* ...and the held ones are answered once it is free. */
    for (const int fd : held) {
        kervRequest_t reply;
        EXPECT_TRUE(unpack_reply(Host::on(fd).read_for(kPatience), &reply));
        close(fd);
    }
}

/* A request's diagnostics wait for its end; a signal that ends the daemon first still lets
   them out, so the log shows what the daemon was doing. */
TEST_F(Hardening, ARequestsLinesReachTheLogWhenASignalEndsTheDaemonMidway) {
    ScopedSetting one_long_wait("KERVD_MODEMD_WAIT_MS", "60000");
    modem.add_rule({"AT+CSQ", 0, "@silent"});
    /* Start-up has printed all it prints once the URC receiver holds its port. */
    options.store["KERV_URC_LISTEN_ENABLE"] = "1";
    start_daemon();
    ASSERT_TRUE(eventually([&] { return udp_bound(daemon->urc_port()); }));
    Host host(daemon->tcp_port());
    const size_t before = count_of(daemon->output(), "[KERV] <");
    host.send("AT+CSQ\r");
    ASSERT_TRUE(modem.wait_requests(1));
    EXPECT_EQ(count_of(daemon->output(), "[KERV] <"), before);
    daemon->stop();
    EXPECT_GT(count_of(daemon->output(), "[KERV] <"), before) << daemon->output();
}

} // namespace
} // namespace e2e
