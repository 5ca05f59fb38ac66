/* The service stays up for everybody and obeys only its own: hosts that leave, stall or
   storm, strangers on loopback, a full standard output, odd files at start-up. */
#include "harness.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace e2e {
namespace {

const std::string kEchoOn = "ATE1\r\r\nOK\r\n";
const std::string kSimPin = "\r\n+CPIN: SIM PIN\r\n\r\nOK\r\n";

int open_fds(pid_t pid) {
    std::error_code error;
    const std::filesystem::directory_iterator fds("/proc/" + std::to_string(pid) + "/fd", error);
    return static_cast<int>(std::distance(fds, std::filesystem::directory_iterator()));
}

/* A host connected now is answered at once. */
void expect_served(unsigned int port) {
    Host host(port);
    host.send("ATE1\r");
    EXPECT_EQ(host.read_like(kEchoOn), kEchoOn);
}

struct Availability : testing::Test {
    void start() {
        modem.add_rule({"AT+SLOW", 0, "@delay=500 \r\nOK\r\n"});
        modem.add_rule({"AT+WAIT", 0, "@delay=3000 \r\nOK\r\n"});
        modem.add_rule({"AT+BIG", 0, "\r\n+BIG: " + std::string(2000, 'x') + "\r\n\r\nOK\r\n"});
        modem.add_rule({"AT+CPIN?", 0, "@delay=1000 " + kSimPin});
        daemon = std::make_unique<Daemon>(dir, modem, options);
        ASSERT_TRUE(daemon->start()) << daemon->output();
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
    TempDir dir;
    FakeModem modem;
    DaemonOptions options;
    std::unique_ptr<Daemon> daemon;
};

TEST_F(Availability, HostThatResetsTakesItsQueuedLinesAlong) {
    start();
    auto host = host_with_lines_queued();
    const linger reset = {1, 0};
    setsockopt(host->fd(), SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
    host->close();
    expect_served(daemon->tcp_port()); /* once the running command ends */
    EXPECT_LE(modem.take_requests().size(), 1u);
}

TEST_F(Availability, NothingReachesTheModemAfterAStopReturns) {
    start();
    auto host = host_with_lines_queued();
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
    expect_served(daemon->tcp_port());
    EXPECT_EQ(app_request(daemon->socket_path(), KERV_REQUEST_CMD_RELOAD), "RELOAD...");
}

TEST_F(Availability, OnlyTheModemDaemonsOwnDatagramIsTheAnswer) {
    start();
    Host host(daemon->tcp_port());
    host.send("AT+CPIN?\r");
    ASSERT_TRUE(modem.wait_requests(1));
    const modemd_stub::Request asked = modem.take_requests().front();
    /* A stranger's answer with the right token, sent to the waiting exchange socket. */
    const std::string text = "\r\n+CPIN: READY\r\n\r\nOK\r\n";
    Modem_Response_t fake = {};
    fake.magic = MODEM_REQUEST_MAGIC;
    fake.token = asked.token;
    fake.target = asked.target;
    fake.response_id = fake.request_id = asked.request_id;
    fake.data_len = static_cast<uint32_t>(text.size());
    memcpy(fake.data, text.data(), text.size());
    const int stranger = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in address = loopback(asked.sender_port);
    sendto(stranger, &fake, MODEM_RESPONSE_HEADER_SIZE + text.size(), 0,
           reinterpret_cast<const sockaddr *>(&address), sizeof(address));
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
    const struct {
        const char *name;
        std::function<int(const std::string &)> make;
    } cases[] = {
        {"fifo", [](const std::string &path) { return mkfifo(path.c_str(), 0644); }},
        {"symlink", [&](const std::string &path) { return symlink(target.c_str(), path.c_str()); }},
    };
    for (const auto &c : cases) {
        write_file(target, "precious\n");
        FakeModem stand_in;
        Daemon one(dir, stand_in, {});
        unlink(one.pid_path().c_str());
        ASSERT_EQ(c.make(one.pid_path()), 0) << c.name;
        ASSERT_TRUE(one.start()) << c.name << one.output();
        expect_served(one.tcp_port());
        EXPECT_NE(one.output().find("Can't open pidfile " + one.pid_path()), std::string::npos)
            << c.name;
        EXPECT_EQ(read_file(target), "precious\n") << c.name;
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
    expect_served(daemon->tcp_port());
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
