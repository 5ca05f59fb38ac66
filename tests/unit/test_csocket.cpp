#include "csocket.h"

#include "kal_common.h"
#include "test_support.h"

#include <arpa/inet.h>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <regex>
#include <sys/syscall.h>
#include <thread>

namespace {

using rmmi_test::open_fd_count;

template <typename Fn> std::string warnings_of(Fn fn) {
    return rmmi_test::stdout_at_level(KAL_DBG_WARNING, fn);
}

struct sockaddr_in bound_addr(int fd) {
    struct sockaddr_in addr;
    memset(&addr, 0, sizeof(addr));
    socklen_t len = sizeof(addr);
    getsockname(fd, reinterpret_cast<struct sockaddr *>(&addr), &len);
    return addr;
}

unsigned short bound_port(int fd) {
    return ntohs(bound_addr(fd).sin_port);
}

/* Where a datagram from this unbound-address handle comes from on loopback. */
struct sockaddr_in loopback_sender(void *handle) {
    struct sockaddr_in addr = bound_addr(SOCK_GetFd(handle));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

bool same_endpoint(const struct sockaddr_in &a, const struct sockaddr_in &b) {
    return a.sin_family == b.sin_family && a.sin_port == b.sin_port &&
           a.sin_addr.s_addr == b.sin_addr.s_addr;
}

/* A UDP client handle aimed at a listening handle's port on loopback. */
void *udp_client_to(void *listener) {
    return SOCK_Connect("127.0.0.1", bound_port(SOCK_GetFd(listener)), SOCKET_TYPE_UDP);
}

TEST(Socket, NullHandlesAreRefused) {
    char buf[4] = {};
    void *copy = nullptr;
    EXPECT_EQ(SOCK_GetFd(nullptr), -1);
    EXPECT_EQ(SOCK_Close(nullptr), -1);
    EXPECT_EQ(SOCK_Copy(nullptr, &copy), -1);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(SOCK_Recv(nullptr, buf, 4), -1);
    EXPECT_EQ(SOCK_FRecv(nullptr, buf, 4), -1);
    const std::string out = warnings_of([&] { EXPECT_EQ(SOCK_Send(nullptr, buf, 4), -1); });
    EXPECT_TRUE(std::regex_match(out, std::regex(R"(\[KERV\] <SOCK_Send:\d+>SOCK_Send error, )"
                                                 R"(NULL porinter\r\n)")))
        << out;
}

TEST(Socket, ListenFlagBitZeroChoosesLoopbackElseEveryInterface) {
    const struct {
        int type;
        int flag;
        in_addr_t addr;
    } cases[] = {
        {SOCKET_TYPE_TCP, 0, htonl(INADDR_ANY)},
        {SOCKET_TYPE_TCP, 1, htonl(INADDR_LOOPBACK)},
        {SOCKET_TYPE_UDP, 2, htonl(INADDR_ANY)},
        {SOCKET_TYPE_UDP, 3, htonl(INADDR_LOOPBACK)},
        {SOCKET_TYPE_UDP, SOCKET_FLAG_LOCAL_ONLY, htonl(INADDR_LOOPBACK)},
    };
    for (const auto &c : cases) {
        void *sock = SOCK_Listen(0, c.type, c.flag);
        ASSERT_NE(sock, nullptr);
        const int fd = SOCK_GetFd(sock);
        EXPECT_EQ(bound_addr(fd).sin_addr.s_addr, c.addr) << c.type << "/" << c.flag;
        EXPECT_TRUE(fcntl(fd, F_GETFD) & FD_CLOEXEC);
        int listening = -1;
        socklen_t len = sizeof(listening);
        getsockopt(fd, SOL_SOCKET, SO_ACCEPTCONN, &listening, &len);
        EXPECT_EQ(listening, c.type == SOCKET_TYPE_TCP ? 1 : 0);
        EXPECT_EQ(SOCK_Close(sock), 0);
    }
}

TEST(Socket, ConstructorFailuresReportAndReleaseEverything) {
    const int before = open_fd_count();
    std::string out = warnings_of([] {
        EXPECT_EQ(SOCK_Listen(0, 2, 0), nullptr);
        EXPECT_EQ(SOCK_Connect("127.0.0.1", 1, -1), nullptr);
    });
    EXPECT_TRUE(
        std::regex_match(out, std::regex(R"(\[KERV\] <SOCK_Listen:\d+>error type = 2\r\n)"
                                         R"(\[KERV\] <SOCK_Connect:\d+>error type = -1\r\n)")))
        << out;

    void *taken = SOCK_Listen(0, SOCKET_TYPE_TCP, 1);
    ASSERT_NE(taken, nullptr);
    const unsigned short port = bound_port(SOCK_GetFd(taken));
    const int with_listener = open_fd_count();
    out = warnings_of([&] { EXPECT_EQ(SOCK_Listen(port, SOCKET_TYPE_TCP, 1), nullptr); });
    const std::string bind_msg = R"(\[KERV\] <SOCK_Listen:\d+>can' bind the port : )" +
                                 std::to_string(port) +
                                 R"(\.\r\n\[KERV\] <SOCK_Listen:\d+>socket error : )"
                                 R"(Address already in use \(98\)\r\n)";
    EXPECT_TRUE(std::regex_match(out, std::regex(bind_msg))) << out;
    EXPECT_EQ(open_fd_count(), with_listener);
    SOCK_Close(taken);

    /* Nothing listens on the port just released. */
    out =
        warnings_of([&] { EXPECT_EQ(SOCK_Connect("127.0.0.1", port, SOCKET_TYPE_TCP), nullptr); });
    EXPECT_TRUE(std::regex_match(
        out, std::regex(R"(\[KERV\] <SOCK_Connect:\d+>can't connect to 127\.0\.0\.1:)" +
                        std::to_string(port) + R"(\r\n)")))
        << out;
    EXPECT_EQ(SOCK_Connect(nullptr, port, SOCKET_TYPE_TCP), nullptr);
    EXPECT_EQ(open_fd_count(), before);
}

TEST(Socket, TcpSendAllReceiveOnceAndReceiveUntilFull) {
    void *server = SOCK_Listen(0, SOCKET_TYPE_TCP, SOCKET_FLAG_LOCAL_ONLY);
    ASSERT_NE(server, nullptr);
    void *client = SOCK_Connect("127.0.0.1", bound_port(SOCK_GetFd(server)), SOCKET_TYPE_TCP);
    ASSERT_NE(client, nullptr);
    const int host = accept(SOCK_GetFd(server), nullptr, nullptr);
    ASSERT_GE(host, 0);

    EXPECT_EQ(SOCK_Send(client, "ignored", 0), 0);
    EXPECT_EQ(SOCK_Send(client, "AT+CSQ\r", 7), 7);
    char buf[16] = {};
    ASSERT_EQ(read(host, buf, sizeof(buf)), 7);
    EXPECT_STREQ(buf, "AT+CSQ\r");

    ASSERT_EQ(write(host, "\r\nOK", 4), 4);
    std::thread later([host] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_EQ(write(host, "\r\n+CSQ:", 7), 7);
    });
    memset(buf, 0, sizeof(buf));
    EXPECT_EQ(SOCK_FRecv(client, buf, 10), 10);
    EXPECT_EQ(std::string(buf, 10), "\r\nOK\r\n+CSQ");
    later.join();

    /* The peer ends: a receive-until-full gives what it had, a single receive gives 0. */
    close(host);
    memset(buf, 0, sizeof(buf));
    EXPECT_EQ(SOCK_FRecv(client, buf, 8), 1);
    EXPECT_EQ(buf[0], ':');
    EXPECT_EQ(SOCK_Recv(client, buf, 8), 0);
    EXPECT_EQ(SOCK_Recv(client, buf, -1), -1);
    SOCK_Close(client);
    SOCK_Close(server);
}

TEST(Socket, WritesToAVanishedPeerReturnAnErrorInsteadOfKillingTheProcess) {
    void *server = SOCK_Listen(0, SOCKET_TYPE_TCP, SOCKET_FLAG_LOCAL_ONLY);
    ASSERT_NE(server, nullptr);
    void *client = SOCK_Connect("127.0.0.1", bound_port(SOCK_GetFd(server)), SOCKET_TYPE_TCP);
    ASSERT_NE(client, nullptr);
    close(accept(SOCK_GetFd(server), nullptr, nullptr));

    /* SIGPIPE keeps its default action: if it were raised, this test program would end. */
    static char chunk[65536];
    const std::string out = warnings_of([&] {
        int sent = 0;
        for (int i = 0; i < 64 && sent >= 0; i++) {
            sent = SOCK_Send(client, chunk, sizeof(chunk));
            if (sent < static_cast<int>(sizeof(chunk)))
                break;
        }
        EXPECT_LT(sent, static_cast<int>(sizeof(chunk)));
    });
    EXPECT_NE(out.find("SOCK_Send error, ret = -1, error = "), std::string::npos) << out;
    errno = 0;
    EXPECT_EQ(kerv_safe_write(SOCK_GetFd(client), "x", 1), -1);
    EXPECT_TRUE(errno == EPIPE || errno == ECONNRESET) << strerror(errno);
    SOCK_Close(client);
    SOCK_Close(server);
}

TEST(Socket, UdpListenerRepliesToItsLastSender) {
    void *listener = SOCK_Listen(0, SOCKET_TYPE_UDP, SOCKET_FLAG_LOCAL_ONLY);
    ASSERT_NE(listener, nullptr);
    void *client = udp_client_to(listener);
    ASSERT_NE(client, nullptr);
    struct sockaddr_in peer;
    socklen_t peer_len = sizeof(peer);
    EXPECT_EQ(
        getpeername(SOCK_GetFd(client), reinterpret_cast<struct sockaddr *>(&peer), &peer_len), -1)
        << "a UDP client handle makes no connect";

    ASSERT_EQ(SOCK_Send(client, "+CREG: 1", 8), 8);
    char buf[16] = {};
    ASSERT_EQ(SOCK_Recv(listener, buf, 5), 5) << "a longer datagram is cut to the buffer";
    EXPECT_EQ(std::string(buf, 6), std::string("+CREG\0", 6));
    const struct sockaddr_in sender = loopback_sender(client);
    EXPECT_TRUE(same_endpoint(static_cast<csocket_t *>(listener)->receive_addr, sender));

    /* An empty datagram is received as 0 bytes and does not replace the sender. */
    void *other = udp_client_to(listener);
    ASSERT_EQ(SOCK_Send(other, "", 0), 0);
    ASSERT_EQ(
        sendto(SOCK_GetFd(other), "", 0, 0,
               reinterpret_cast<struct sockaddr *>(&static_cast<csocket_t *>(other)->remote_addr),
               sizeof(struct sockaddr_in)),
        0);
    EXPECT_EQ(SOCK_Recv(listener, buf, sizeof(buf)), 0);
    EXPECT_TRUE(same_endpoint(static_cast<csocket_t *>(listener)->receive_addr, sender));

    ASSERT_EQ(SOCK_Send(listener, "OK", 2), 2);
    memset(buf, 0, sizeof(buf));
    EXPECT_EQ(SOCK_Recv(client, buf, sizeof(buf)), 2);
    EXPECT_STREQ(buf, "OK");
    SOCK_Close(other);
    SOCK_Close(client);
    SOCK_Close(listener);
}

TEST(Socket, UdpReceiveUntilFullKeepsTheFirstSenderOnly) {
    void *listener = SOCK_Listen(0, SOCKET_TYPE_UDP, SOCKET_FLAG_LOCAL_ONLY);
    void *first = udp_client_to(listener);
    void *second = udp_client_to(listener);
    ASSERT_EQ(SOCK_Send(first, "abcd", 4), 4);
    ASSERT_EQ(SOCK_Send(second, "efghij", 6), 6);
    char buf[11] = {};
    EXPECT_EQ(SOCK_FRecv(listener, buf, 10), 10);
    EXPECT_STREQ(buf, "abcdefghij");
    EXPECT_TRUE(
        same_endpoint(static_cast<csocket_t *>(listener)->receive_addr, loopback_sender(first)));

    /* The copy shares the descriptor and carries the recorded sender. */
    void *copy = nullptr;
    ASSERT_EQ(SOCK_Copy(listener, &copy), 0);
    EXPECT_EQ(SOCK_GetFd(copy), SOCK_GetFd(listener));
    ASSERT_EQ(SOCK_Send(copy, "ack", 3), 3);
    memset(buf, 0, sizeof(buf));
    EXPECT_EQ(SOCK_Recv(first, buf, sizeof(buf)), 3);
    EXPECT_STREQ(buf, "ack");
    EXPECT_EQ(SOCK_Copy(listener, &copy), 0) << "an existing handle is reused as the target";
    EXPECT_EQ(SOCK_Copy(copy, &copy), 0);

    pthread_mutex_destroy(&static_cast<csocket_t *>(copy)->mutex);
    free_ctrl_buffer(copy); /* closing it would close the listener's descriptor too */
    SOCK_Close(second);
    SOCK_Close(first);
    SOCK_Close(listener);
}

std::atomic<int> g_signals_seen{0};

void count_signal(int) {
    g_signals_seen++;
}

/* True once thread tid sleeps inside the read system call. */
bool blocked_in_read(pid_t tid) {
    const std::string task = "/proc/self/task/" + std::to_string(tid);
    std::ifstream stat(task + "/stat");
    std::string line;
    std::getline(stat, line);
    const size_t state = line.rfind(')');
    if (state == std::string::npos || line.size() < state + 3 || line[state + 2] != 'S')
        return false;
    std::ifstream syscall_file(task + "/syscall");
    long number = -1;
    syscall_file >> number;
    return number == SYS_read;
}

/*
 * Blocks the calling thread in read_fn on a pipe; a helper thread waits until it sleeps
 * in read, interrupts it with a signal whose handler has no SA_RESTART, then sends data.
 */
template <typename ReadFn> ssize_t read_through_signal(ReadFn read_fn, char *buf, size_t len) {
    struct sigaction action {};
    action.sa_handler = count_signal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = 0;
    struct sigaction saved;
    sigaction(SIGUSR1, &action, &saved);
    int fds[2];
    EXPECT_EQ(pipe(fds), 0);
    g_signals_seen = 0;

    const pid_t reader_tid = static_cast<pid_t>(syscall(SYS_gettid));
    const pthread_t reader = pthread_self();
    std::thread helper([&] {
        for (int i = 0; i < 5000 && !blocked_in_read(reader_tid); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        pthread_kill(reader, SIGUSR1);
        while (g_signals_seen == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        for (int i = 0; i < 100 && !blocked_in_read(reader_tid); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        EXPECT_EQ(write(fds[1], "OK\r\n", 4), 4);
    });
    const ssize_t ret = read_fn(fds[0], buf, len);
    const int err = errno;
    helper.join();
    close(fds[0]);
    close(fds[1]);
    sigaction(SIGUSR1, &saved, nullptr);
    errno = err;
    return ret;
}

TEST(SafeIo, ReadInterruptedBySignalGoesOnAndShortReadIsReturnedAsIs) {
    char buf[32] = {};
    /* The same set-up makes a plain read fail, so the signal really lands in the read. */
    errno = 0;
    EXPECT_EQ(read_through_signal(read, buf, sizeof(buf)), -1);
    EXPECT_EQ(errno, EINTR);

    EXPECT_EQ(read_through_signal(kerv_safe_read, buf, sizeof(buf)), 4);
    EXPECT_EQ(g_signals_seen.load(), 1);
    EXPECT_EQ(std::string(buf, 4), "OK\r\n");
}

TEST(SafeIo, WriteReachesPipesAndClosedDescriptorsFail) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    EXPECT_EQ(kerv_safe_write(fds[1], "\r\nOK\r\n", 6), 6);
    char buf[8] = {};
    EXPECT_EQ(kerv_safe_read(fds[0], buf, sizeof(buf)), 6);
    EXPECT_STREQ(buf, "\r\nOK\r\n");
    close(fds[0]);
    close(fds[1]);
    EXPECT_EQ(kerv_safe_write(fds[1], "x", 1), -1);
    EXPECT_EQ(errno, EBADF);
}

} // namespace
