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
    host.send("ATE1\r");
    ASSERT_EQ(host.read_like(kEchoOn), kEchoOn);
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

/* The host's receive buffer is kept from growing (to megabytes on loopback), so that it
   fills soon; not much smaller, though: a buffer that cannot hold a few of loopback's 64 KB
   segments drops them, and the daemon's retransmissions back off for tens of seconds with
   its writes long done. */
TEST_F(Hardening, HostThatFallsBehindButResumesInTimeLosesNothing) {
    ScopedSetting stall("KERVD_HOST_STALL_MS", "5000");
    start_daemon();
    Host host(daemon->tcp_port());
    const int window = 1024 * 1024;
    setsockopt(host.fd(), SOL_SOCKET, SO_RCVBUF, &window, sizeof(window));
    const timeval patience = {10, 0}; /* a sender left facing a host cut off gives up */
    setsockopt(host.fd(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
    /* Lines whose echoed answers are about a kilobyte ("ATE1" ignores the blanks after it),
       more of them than the connection holds, sent while the host does not read. */
    const std::string line = "ATE1" + std::string(1000, ' ') + "\r";
    constexpr int kLines = 3000;
    std::string expected;
    for (int i = 0; i < kLines; i++)
        expected += line + "\r\nOK\r\n";
    /* Twice: the host stops taking its output (more waits than the daemon lets a reading host
       have, so its stall clock runs), then reads it all within the stall time. Together the
       two stalls last longer than it: the clock must start afresh each time. */
    for (int round = 0; round < 2; round++) {
        std::thread sender([&] {
            for (int i = 0; i < kLines; i++)
                host.send(line);
        });
        EXPECT_TRUE(eventually([&] { return daemon->unsent_to_host() > 8 * 1024; }, 6 * kPatience));
        std::this_thread::sleep_for(3s);
        EXPECT_TRUE(host.read_like(expected) == expected) << round;
        sender.join();
    }
    expect_served(Host::on(host.fd()));
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

size_t gated_lines(const std::string &output) {
    return count_of(output, "[KERV] <");
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
    const size_t before = gated_lines(daemon->output());
    host.send("AT+CSQ\r");
    ASSERT_TRUE(modem.wait_requests(1));
    EXPECT_EQ(gated_lines(daemon->output()), before);
    daemon->stop();
    EXPECT_GT(gated_lines(daemon->output()), before) << daemon->output();
}

} // namespace
} // namespace e2e
