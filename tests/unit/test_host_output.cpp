/* The host writer's stall clock, driven directly on socketpairs whose far end reads only
   when told: output over 4 KB left unread there counts as backed up. */
#include "host_output.h"

#include "test_support.h"

#include <sys/socket.h>
#include <thread>

namespace {

using namespace std::chrono_literals;

/* An answer of 8 KB that the host on fd leaves unread. */
void back_up(int fd) {
    const std::string answer(8192, 'x');
    kerv_host_write(fd, answer.data(), answer.size());
}

/* Each stall is timed from its own start: after the host has drained, and for a new host
   given the number of one that has gone. Backed up for the whole stall time, a host is
   given up. (Each pause is longer than the stall time.) */
TEST(HostStall, TheClockStartsAfreshForEachStallAndEachConnection) {
    rmmi_test::ScopedSetting stall("KERVD_HOST_STALL_MS", "200");
    int pair[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    back_up(pair[0]);
    char sink[16384];
    EXPECT_EQ(recv(pair[1], sink, sizeof(sink), MSG_DONTWAIT), 8192);
    kerv_host_write(pair[0], "\r\nOK\r\n", 6); /* a look finds the host drained */
    std::this_thread::sleep_for(300ms);
    back_up(pair[0]);
    EXPECT_FALSE(kerv_host_cut_off(pair[0])) << "the clock ran on after the host drained";

    const int number = pair[0];
    kerv_host_forget(number);
    close(pair[0]);
    close(pair[1]);
    std::this_thread::sleep_for(300ms);
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, pair), 0);
    ASSERT_EQ(pair[0], number);
    back_up(pair[0]);
    EXPECT_FALSE(kerv_host_cut_off(pair[0])) << "the new host inherited the clock";

    std::this_thread::sleep_for(300ms);
    back_up(pair[0]);
    EXPECT_TRUE(kerv_host_cut_off(pair[0]));
    close(pair[0]);
    close(pair[1]);
}

} // namespace
