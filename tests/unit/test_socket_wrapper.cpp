#include "csocket.h"

#include "test_support.h"

#include <arpa/inet.h>
#include <csignal>
#include <sys/time.h>
#include <thread>

namespace {

struct sockaddr_in bound(void *handle) {
    struct sockaddr_in addr {};
    socklen_t len = sizeof(addr);
    getsockname(SOCK_GetFd(handle), reinterpret_cast<struct sockaddr *>(&addr), &len);
    return addr;
}

/* One datagram or read, or "<error>" when none comes within a second. */
std::string receive(void *handle) {
    const struct timeval one_second = {1, 0};
    setsockopt(SOCK_GetFd(handle), SOL_SOCKET, SO_RCVTIMEO, &one_second, sizeof(one_second));
    char buf[32] = {};
    const int n = SOCK_Recv(handle, buf, sizeof(buf));
    return n < 0 ? "<error>" : std::string(buf, static_cast<size_t>(n));
}

TEST(Socket, ListenBindsLoopbackOnlyWhenFlagBitZeroIsSet) {
    const struct {
        int type, flag;
        in_addr_t addr;
    } cases[] = {
        {SOCKET_TYPE_TCP, 0, htonl(INADDR_ANY)},
        {SOCKET_TYPE_UDP, 3, htonl(INADDR_LOOPBACK)},
    };
    for (const auto &c : cases) {
        void *sock = SOCK_Listen(0, c.type, c.flag);
        ASSERT_NE(sock, nullptr);
        EXPECT_EQ(bound(sock).sin_addr.s_addr, c.addr) << c.type << "/" << c.flag;
        EXPECT_EQ(SOCK_Close(sock), 0);
    }
}

TEST(Socket, TcpReceiveUntilFullGathersReadsAndAVanishedPeerRaisesNoSigpipe) {
    void *server = SOCK_Listen(0, SOCKET_TYPE_TCP, SOCKET_FLAG_LOCAL_ONLY);
    void *client = SOCK_Connect("127.0.0.1", ntohs(bound(server).sin_port), SOCKET_TYPE_TCP);
    ASSERT_NE(client, nullptr);
    const int host = accept(SOCK_GetFd(server), nullptr, nullptr);
    ASSERT_EQ(write(host, "\r\nOK", 4), 4);
    std::thread later([host] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(write(host, "\r\n+CSQ:", 7), 7);
    });
    char buf[16] = {};
    EXPECT_EQ(SOCK_FRecv(client, buf, 10), 10);
    EXPECT_EQ(std::string(buf, 10), "\r\nOK\r\n+CSQ");
    later.join();
    close(host);
    EXPECT_EQ(SOCK_FRecv(client, buf, 8), 1) << "the peer ended: what came is returned";

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

TEST(Socket, UdpListenerRepliesToItsLastSenderAndItsCopySharesTheSocket) {
    void *listener = SOCK_Listen(0, SOCKET_TYPE_UDP, SOCKET_FLAG_LOCAL_ONLY);
    void *first = SOCK_Connect("127.0.0.1", ntohs(bound(listener).sin_port), SOCKET_TYPE_UDP);
    void *second = SOCK_Connect("127.0.0.1", ntohs(bound(listener).sin_port), SOCKET_TYPE_UDP);
    ASSERT_EQ(SOCK_Send(first, "abcd", 4), 4);
    ASSERT_EQ(SOCK_Send(second, "efghij", 6), 6);
    char buf[11] = {};
    EXPECT_EQ(SOCK_FRecv(listener, buf, 10), 10);
    EXPECT_STREQ(buf, "abcdefghij");
    ASSERT_EQ(SOCK_Send(listener, "ack", 3), 3);
    EXPECT_EQ(receive(first), "ack") << "receiving until full keeps the first sender";

    ASSERT_EQ(SOCK_Send(second, "+CREG: 1", 8), 8);
    EXPECT_EQ(receive(listener), "+CREG: 1");
    const struct sockaddr_in to = static_cast<csocket_t *>(second)->remote_addr;
    sendto(SOCK_GetFd(first), "", 0, 0, reinterpret_cast<const struct sockaddr *>(&to), sizeof(to));
    EXPECT_EQ(receive(listener), "") << "an empty datagram does not replace the sender";

    void *copy = nullptr;
    ASSERT_EQ(SOCK_Copy(listener, &copy), 0);
    ASSERT_EQ(SOCK_Send(copy, "OK", 2), 2);
    EXPECT_EQ(receive(second), "OK");
    SOCK_Close(copy);
    EXPECT_EQ(SOCK_Recv(listener, buf, 4), -1) << "closing the copy closed the listener's socket";
    free_ctrl_buffer(listener);
    SOCK_Close(second);
    SOCK_Close(first);
}

int g_pipe[2];
void deliver_on_alarm(int) {
    EXPECT_EQ(write(g_pipe[1], "OK\r\n", 4), 4);
}

TEST(SafeIo, ReadInterruptedBySignalGoesOn) {
    struct sigaction action {
    }, saved;
    action.sa_handler = deliver_on_alarm; /* no SA_RESTART: the read itself sees EINTR */
    sigaction(SIGALRM, &action, &saved);
    ASSERT_EQ(pipe(g_pipe), 0);
    const struct itimerval in_20ms = {{0, 0}, {0, 20000}};
    setitimer(ITIMER_REAL, &in_20ms, nullptr);
    char buf[32];
    EXPECT_EQ(kerv_safe_read(g_pipe[0], buf, sizeof(buf)), 4);
    close(g_pipe[0]);
    close(g_pipe[1]);
    sigaction(SIGALRM, &saved, nullptr);
}

} // namespace
