#include "csocket.h"

#include "test_support.h"

#include <arpa/inet.h>
#include <atomic>
#include <csignal>
#include <sys/time.h>
#include <thread>

namespace {

unsigned short bound_port(void *handle) {
    struct sockaddr_in addr {};
    socklen_t len = sizeof(addr);
    getsockname(SOCK_GetFd(handle), reinterpret_cast<struct sockaddr *>(&addr), &len);
    return ntohs(addr.sin_port);
}

in_addr_t bound_address(void *handle) {
    struct sockaddr_in addr {};
    socklen_t len = sizeof(addr);
    getsockname(SOCK_GetFd(handle), reinterpret_cast<struct sockaddr *>(&addr), &len);
    return addr.sin_addr.s_addr;
}

std::string receive(void *handle) {
    char buf[32] = {};
    const int n = SOCK_Recv(handle, buf, sizeof(buf));
    return n < 0 ? "<error>" : std::string(buf, static_cast<size_t>(n));
}

TEST(Socket, NullHandlesAreRefused) {
    char buf[4] = {};
    void *copy = nullptr;
    EXPECT_EQ(SOCK_GetFd(nullptr), -1);
    EXPECT_EQ(SOCK_Close(nullptr), -1);
    EXPECT_EQ(SOCK_Copy(nullptr, &copy), -1);
    EXPECT_EQ(SOCK_Recv(nullptr, buf, 4), -1);
    EXPECT_EQ(SOCK_FRecv(nullptr, buf, 4), -1);
    EXPECT_EQ(SOCK_Send(nullptr, buf, 4), -1);
}

TEST(Socket, ListenBindsLoopbackOnOddFlagsAndFailuresLeakNothing) {
    const struct {
        int type, flag;
        in_addr_t addr;
    } cases[] = {
        {SOCKET_TYPE_TCP, 0, htonl(INADDR_ANY)},   {SOCKET_TYPE_TCP, 1, htonl(INADDR_LOOPBACK)},
        {SOCKET_TYPE_UDP, 2, htonl(INADDR_ANY)},   {SOCKET_TYPE_UDP, 3, htonl(INADDR_LOOPBACK)},
    };
    for (const auto &c : cases) {
        void *sock = SOCK_Listen(0, c.type, c.flag);
        ASSERT_NE(sock, nullptr);
        EXPECT_EQ(bound_address(sock), c.addr) << c.type << "/" << c.flag;
        EXPECT_EQ(SOCK_Close(sock), 0);
    }
    const int before = rmmi_test::open_fd_count();
    EXPECT_EQ(SOCK_Listen(0, 2, 0), nullptr);
    void *taken = SOCK_Listen(0, SOCKET_TYPE_TCP, 1);
    EXPECT_EQ(SOCK_Listen(bound_port(taken), SOCKET_TYPE_TCP, 1), nullptr);
    SOCK_Close(taken);
    EXPECT_EQ(SOCK_Connect("127.0.0.1", bound_port(taken), SOCKET_TYPE_TCP), nullptr);
    EXPECT_EQ(rmmi_test::open_fd_count(), before);
}

TEST(Socket, TcpReceiveUntilFullGathersReadsAndStopsAtPeerEnd) {
    void *server = SOCK_Listen(0, SOCKET_TYPE_TCP, SOCKET_FLAG_LOCAL_ONLY);
    void *client = SOCK_Connect("127.0.0.1", bound_port(server), SOCKET_TYPE_TCP);
    ASSERT_NE(client, nullptr);
    const int host = accept(SOCK_GetFd(server), nullptr, nullptr);
    EXPECT_EQ(SOCK_Send(client, "AT+CSQ\r", 7), 7);
    char buf[16] = {};
    ASSERT_EQ(read(host, buf, sizeof(buf)), 7);

    ASSERT_EQ(write(host, "\r\nOK", 4), 4);
    std::thread later([host] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(write(host, "\r\n+CSQ:", 7), 7);
    });
    EXPECT_EQ(SOCK_FRecv(client, buf, 10), 10);
    EXPECT_EQ(std::string(buf, 10), "\r\nOK\r\n+CSQ");
    later.join();
    close(host);
    EXPECT_EQ(SOCK_FRecv(client, buf, 8), 1) << "the peer ended: what came is returned";
    SOCK_Close(client);
    SOCK_Close(server);
}

TEST(Socket, WritesToAVanishedPeerFailInsteadOfRaisingSigpipe) {
    void *server = SOCK_Listen(0, SOCKET_TYPE_TCP, SOCKET_FLAG_LOCAL_ONLY);
    void *client = SOCK_Connect("127.0.0.1", bound_port(server), SOCKET_TYPE_TCP);
    ASSERT_NE(client, nullptr);
    close(accept(SOCK_GetFd(server), nullptr, nullptr));
    /* SIGPIPE keeps its default action here: if it were raised, the test program would end. */
    static char chunk[65536];
    int sent = static_cast<int>(sizeof(chunk));
    for (int i = 0; i < 64 && sent == static_cast<int>(sizeof(chunk)); i++)
        sent = SOCK_Send(client, chunk, sizeof(chunk));
    EXPECT_LT(sent, static_cast<int>(sizeof(chunk)));
    EXPECT_EQ(kerv_safe_write(SOCK_GetFd(client), "x", 1), -1);
    SOCK_Close(client);
    SOCK_Close(server);
}

TEST(Socket, UdpListenerRepliesToTheFirstSenderOfItsLastReceive) {
    void *listener = SOCK_Listen(0, SOCKET_TYPE_UDP, SOCKET_FLAG_LOCAL_ONLY);
    void *first = SOCK_Connect("127.0.0.1", bound_port(listener), SOCKET_TYPE_UDP);
    void *second = SOCK_Connect("127.0.0.1", bound_port(listener), SOCKET_TYPE_UDP);
    ASSERT_EQ(SOCK_Send(first, "abcd", 4), 4);
    ASSERT_EQ(SOCK_Send(second, "efghij", 6), 6);
    char buf[11] = {};
    EXPECT_EQ(SOCK_FRecv(listener, buf, 10), 10);
    EXPECT_STREQ(buf, "abcdefghij");
    ASSERT_EQ(SOCK_Send(listener, "ack", 3), 3);
    EXPECT_EQ(receive(first), "ack");

    /* An empty datagram is 0 bytes and does not replace the sender. */
    ASSERT_EQ(SOCK_Send(second, "+CREG: 1", 8), 8);
    EXPECT_EQ(receive(listener), "+CREG: 1");
    const struct sockaddr_in to = static_cast<csocket_t *>(second)->remote_addr;
    sendto(SOCK_GetFd(first), "", 0, 0, reinterpret_cast<const struct sockaddr *>(&to), sizeof(to));
    EXPECT_EQ(receive(listener), "");

    /* The copy shares the descriptor and the recorded sender. */
    void *copy = nullptr;
    ASSERT_EQ(SOCK_Copy(listener, &copy), 0);
    EXPECT_EQ(SOCK_GetFd(copy), SOCK_GetFd(listener));
    ASSERT_EQ(SOCK_Send(copy, "OK", 2), 2);
    EXPECT_EQ(receive(second), "OK");
    SOCK_Close(copy);
    EXPECT_EQ(SOCK_Recv(listener, buf, 4), -1) << "closing the copy closed the listener's socket";
    free_ctrl_buffer(listener);
    SOCK_Close(second);
    SOCK_Close(first);
}

std::atomic<int> g_alarms{0};
void count_alarm(int) {
    g_alarms++;
}

TEST(SafeIo, ReadInterruptedBySignalGoesOn) {
    struct sigaction action {}, saved;
    action.sa_handler = count_alarm; /* no SA_RESTART: the read itself sees EINTR */
    sigaction(SIGALRM, &action, &saved);
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    /* Only this thread takes the alarm; the writer waits for it, then sends. */
    sigset_t alarm_set;
    sigemptyset(&alarm_set);
    sigaddset(&alarm_set, SIGALRM);
    pthread_sigmask(SIG_BLOCK, &alarm_set, nullptr);
    std::thread writer([&] {
        while (g_alarms == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(write(fds[1], "OK\r\n", 4), 4);
    });
    pthread_sigmask(SIG_UNBLOCK, &alarm_set, nullptr);
    const struct itimerval in_20ms = {{0, 0}, {0, 20000}};
    setitimer(ITIMER_REAL, &in_20ms, nullptr);
    char buf[32];
    EXPECT_EQ(kerv_safe_read(fds[0], buf, sizeof(buf)), 4);
    writer.join();
    EXPECT_EQ(g_alarms.load(), 1);
    close(fds[0]);
    close(fds[1]);
    sigaction(SIGALRM, &saved, nullptr);
}

} // namespace
