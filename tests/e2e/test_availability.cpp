/* The service stays up for everybody and obeys only its own: hosts that leave, stall or
   storm, strangers on loopback, a full standard output, odd files at start-up. */
#include "daemon_test.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace e2e {
namespace {

const std::string kSimPin = "\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n";

int open_fds(pid_t pid) {
    std::error_code error;
    const std::filesystem::directory_iterator fds("/proc/" + std::to_string(pid) + "/fd", error);
    return static_cast<int>(std::distance(fds, std::filesystem::directory_iterator()));
}

struct Availability : DaemonTest {
    void start() {
        modem.add_rule({"AT+SLOW", 0, "@delay=500 \r\nOK\r\n"});
        modem.add_rule({"AT+WAIT", 0, "@delay=3000 \r\nOK\r\n"});
        modem.add_rule({"AT+BIG", 0, "\r\n+BIG: " + std::string(2000, 'x') + "\r\n\r\nOK\r\n"});
        modem.add_rule({"AT+CPIN?", 0, "@delay=1000 " + kSimPin});
        start_daemon();
    }
    /* 300 lines in one write, the first of them running on a slow modem daemon. */
    std::unique_ptr<Host> host_with_lines_queued() {
        auto host = std::make_unique<Host>(daemon->tcp_port());
        std::string lines;
        for (int i = 0; i < 300; i++)
            lines += "AT+SLOW\r";
        host->send(lines);
        EXPECT_TRUE(modem.wait_requests(1));
        modem.take_requests();
        return host;
    }
};

TEST_F(Availability, AHostsQueuedLinesLeaveWithTheHostOrTheChannel) {
    start();
    auto host = host_with_lines_queued();
    const linger reset = {1, 0};
    setsockopt(host->fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
    host->close();
    expect_served(Host(daemon->tcp_port())); /* once the running command ends */
    EXPECT_LE(modem.take_requests().size(), 1u);

    host = host_with_lines_queued();
    EXPECT_EQ(app_request(daemon->socket_path(), KERV_REQUEST_CMD_STOP), "");
    modem.take_requests();
    EXPECT_FALSE(modem.wait_requests(1, 1500)); /* three of the slow modem's answers */
}

TEST_F(Availability, ReconnectStormDuringAModemWaitKeepsDescriptorsFlat) {
    start();
    const int idle = open_fds(daemon->pid());
    {
        Host leaving(daemon->tcp_port());
        leaving.send("AT+WAIT\r");
        ASSERT_TRUE(modem.wait_requests(1));
    }
    int most = 0;
    for (int i = 0; i < 500; i++) {
        const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        const sockaddr_in address = loopback(daemon->tcp_port());
        connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
        close(fd);
    }
    /* The daemon takes the storm from its listen backlog meanwhile. */
    for (int i = 0; i < 100; i++) {
        most = std::max(most, open_fds(daemon->pid()));
        std::this_thread::sleep_for(10ms);
    }
    EXPECT_LE(most, idle + 16) << "idle " << idle;
    EXPECT_EQ(app_request(daemon->socket_path(), KERV_REQUEST_CMD_GEN_HASH, "E"),
              "hash_value1=[5], hash_value2=[0]");
}

/* The daemon lets go of a host that sends slowly and reads nothing: the next host is served.
   (The stalled host itself may never hear of it: the connection's end waits behind the
   answers its shut window holds back.) */
TEST_F(Availability, HostThatSendsSlowlyAndNeverReadsIsCutOff) {
    ScopedSetting stall("KERVD_HOST_STALL_MS", "1000");
    start();
    Host host(daemon->tcp_port());
    const int window = 16 * 1024;
    setsockopt(host.fd(), SOL_SOCKET, SO_RCVBUF, &window, sizeof(window));
    /* Ten lines a second for five seconds, each with a 2 KB answer. */
    for (int i = 0; i < 50; i++) {
        send(host.fd(), "AT+BIG\r", 7, MSG_NOSIGNAL);
        std::this_thread::sleep_for(100ms);
    }
    expect_served(Host(daemon->tcp_port()));
    EXPECT_EQ(app_request(daemon->socket_path(), KERV_REQUEST_CMD_RELOAD), "RELOAD...");
}

TEST_F(Availability, OnlyTheModemDaemonsOwnDatagramIsTheAnswer) {
    start();
    Host host(daemon->tcp_port());
    host.send("AT+CPIN?\r");
    ASSERT_TRUE(modem.wait_requests(1));
    const modemd_stub::Request asked = modem.take_requests().front();
    /* A stranger's answer with the right token, sent to the waiting exchange socket. */
    const std::string fake =
        modemd_stub::answer_datagram(asked, MODEM_RET_OK, "\r\n+CPIN: READY\r\n\r\nOK\r\n");
    const int stranger = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in address = loopback(asked.sender_port);
    sendto(stranger, fake.data(), fake.size(), 0, reinterpret_cast<const sockaddr *>(&address),
           sizeof(address));
    close(stranger);
    EXPECT_EQ(host.read_like("AT+CPIN?\r" + kSimPin), "AT+CPIN?\r" + kSimPin);
}

TEST_F(Availability, SigtermEndsTheDaemonWhoseStandardOutputIsFull) {
    options.store["KERV_DEBUG"] = "5";
    /* Its standard output: a pipe that nobody reads. */
    ASSERT_EQ(mkfifo(dir.file("kervd.out").c_str(), 0600), 0);
    const int reader = open(dir.file("kervd.out").c_str(), O_RDONLY | O_NONBLOCK);
    start();
    Host host(daemon->tcp_port());
    for (int i = 0; i < 1000; i++) {
        host.send("ATE1\r");
        if (host.read_until(kEchoOn.size(), 500ms) != kEchoOn)
            break; /* the worker is held by the pipe */
    }
    EXPECT_TRUE(daemon->stop());
    close(reader);
}

TEST_F(Availability, PidPathThatIsNoRegularFileIsLeftAloneAndTheDaemonRuns) {
    const std::string target = dir.file("precious");
    for (const bool fifo : {true, false}) {
        write_file(target, "precious\n");
        FakeModem stand_in;
        Daemon one(dir, stand_in, {});
        unlink(one.pid_path().c_str());
        ASSERT_EQ(fifo ? mkfifo(one.pid_path().c_str(), 0644)
                       : symlink(target.c_str(), one.pid_path().c_str()),
                  0);
        ASSERT_TRUE(one.start()) << fifo << one.output();
        expect_served(Host(one.tcp_port()));
        EXPECT_NE(one.output().find("Can't open pidfile " + one.pid_path()), std::string::npos)
            << fifo;
        EXPECT_EQ(read_file(target), "precious\n") << fifo;
        one.stop();
        unlink(dir.file("kervd.out").c_str());
    }
}

/* Its number goes to nothing the daemon opens itself (a host, taken for "no host" there). */
TEST_F(Availability, StandardInputClosedAtStartIsOpenOnDevNullAndTheHostIsServed) {
    options.stdin_closed = true;
    start();
    std::error_code error;
    EXPECT_EQ(
        std::filesystem::read_symlink("/proc/" + std::to_string(daemon->pid()) + "/fd/0", error),
        "/dev/null");
    expect_served(Host(daemon->tcp_port()));
}

TEST(KervctlTrust, ControlSocketOfAnotherUnprivilegedUserIsNotObeyed) {
    if (geteuid() != 0)
        GTEST_SKIP() << "needs root to serve a socket as another user";
    TempDir dir;
    chmod(dir.path.c_str(), 0777);
    const std::string path = dir.file("kerv.socket");
    const std::string reply =
        packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_RELOAD, "RELOAD...");
    const pid_t other = fork();
    if (other == 0) {
        if (setgid(65534) != 0 || setuid(65534) != 0)
            _exit(1);
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        const sockaddr_un address = control_address(path);
        bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
        listen(fd, 1);
        const int client = accept(fd, nullptr, nullptr);
        char request[KERV_REQUEST_WIRE_MAX];
        if (read(client, request, sizeof(request)) > 0)
            write(client, reply.data(), reply.size());
        _exit(0);
    }
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(path); }));
    const ToolRun run =
        run_tool(dir, KERV_TEST_KERVCTL_PATH, {"reload"}, {{"KERVD_CONTROL_SOCKET", path}});
    kill(other, SIGKILL);
    exit_status(other);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_NE(run.err.find(path), std::string::npos) << run.err;
}

} // namespace
} // namespace e2e
