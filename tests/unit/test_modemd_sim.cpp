#include "rmmi_common.h"
#include "test_support.h"

#include <arpa/inet.h>
#include <csignal>
#include <fstream>
#include <netinet/in.h>
#include <poll.h>
#include <sys/wait.h>

namespace {

/* The real modemd-sim on a free port; its standard output is read line by line. */
struct Sim {
    pid_t pid = -1;
    int out_fd = -1;
    unsigned short port = 0;
    std::string pending;

    explicit Sim(std::vector<std::string> args) {
        args.insert(args.begin(), {KERV_TEST_MODEMD_SIM_PATH, "--port", "0"});
        int pipe_fds[2];
        if (pipe(pipe_fds) != 0)
            return;
        pid = fork();
        if (pid == 0) {
            dup2(pipe_fds[1], STDOUT_FILENO);
            close(pipe_fds[0]);
            close(pipe_fds[1]);
            std::vector<char *> argv;
            for (std::string &arg : args)
                argv.push_back(arg.data());
            argv.push_back(nullptr);
            execv(argv[0], argv.data());
            _exit(127);
        }
        close(pipe_fds[1]);
        out_fd = pipe_fds[0];
        const std::string first = line();
        const size_t colon = first.rfind(':');
        if (first.rfind("modemd-sim listening on 127.0.0.1:", 0) == 0 && colon != std::string::npos)
            port = static_cast<unsigned short>(std::stoi(first.substr(colon + 1)));
        setenv("KERVD_MODEMD_PORT", std::to_string(port).c_str(), 1);
    }

    ~Sim() {
        if (pid > 0) {
            kill(pid, SIGTERM);
            waitpid(pid, nullptr, 0);
        }
        if (out_fd >= 0)
            close(out_fd);
    }

    /* The next line of output, or "" when none comes within five seconds. */
    std::string line() {
        while (pending.find('\n') == std::string::npos) {
            pollfd watched{out_fd, POLLIN, 0};
            char chunk[512];
            ssize_t got;
            if (poll(&watched, 1, 5000) != 1 || (got = read(out_fd, chunk, sizeof(chunk))) <= 0)
                return "";
            pending.append(chunk, static_cast<size_t>(got));
        }
        const size_t end = pending.find('\n');
        std::string text = pending.substr(0, end);
        pending.erase(0, end + 1);
        return text;
    }

    /* Ends the simulator with sig and returns its exit status. */
    int stop(int sig) {
        kill(pid, sig);
        int status = 0;
        waitpid(pid, &status, 0);
        pid = -1;
        return status;
    }
};

/* Sends len bytes to the simulator; returns its answer, or nothing within wait_ms. */
std::vector<char> send_datagram(unsigned short port, const void *bytes, size_t len, int wait_ms) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    sendto(fd, bytes, len, 0, reinterpret_cast<sockaddr *>(&address), sizeof(address));
    std::vector<char> answer;
    pollfd watched{fd, POLLIN, 0};
    if (poll(&watched, 1, wait_ms) == 1) {
        answer.resize(sizeof(Modem_Response_t));
        answer.resize(
            static_cast<size_t>(std::max<ssize_t>(0, recv(fd, answer.data(), answer.size(), 0))));
    }
    close(fd);
    return answer;
}

/* A request with token 77, sent as a raw datagram. */
std::vector<char> exchange(unsigned short port, kal_uint32 target, kal_uint32 request_id,
                           const std::string &text, int wait_ms = 5000) {
    Modem_Request_t req = {};
    req.magic = MODEM_REQUEST_MAGIC;
    req.token = 77;
    req.target = target;
    req.request_id = request_id;
    req.data_len = static_cast<kal_uint32>(text.size());
    memcpy(req.data, text.data(), text.size());
    return send_datagram(port, &req, MODEM_REQUEST_HEADER_SIZE + text.size(), wait_ms);
}

/* The relayed answer's text, or "failed: " and the status text. */
std::string relay(kal_uint32 target, const std::string &command) {
    const rmmi_test::ModemAnswer got = rmmi_test::relay_command(target, command);
    return got.result == RMMI_NO_ERR ? got.out : "failed: " + got.out;
}

TEST(ModemdSim, AnswersLikeTwoDifferentModems) {
    Sim sim({});
    ASSERT_NE(sim.port, 0);
    EXPECT_EQ(relay(MODEM_TARGET_LTE, "AT+CSQ\r"), "\r\n+CSQ: 23,99\r\n\r\nOK\r\n");
    EXPECT_EQ(relay(MODEM_TARGET_MD, "at+csq\r"), "\r\n+CSQ: 18,99\r\n\r\nOK\r\n");
    EXPECT_EQ(relay(MODEM_TARGET_MD, "AT\r"), "\r\nOK\r\n");
    EXPECT_EQ(relay(MODEM_TARGET_LTE, "AT+CGMI\r"), relay(MODEM_TARGET_MD, "AT+CGMI\r"));
    EXPECT_NE(relay(MODEM_TARGET_LTE, "AT+CGSN\r"), relay(MODEM_TARGET_MD, "AT+CGSN\r"));
    EXPECT_NE(relay(MODEM_TARGET_LTE, "ATI\r"), relay(MODEM_TARGET_MD, "ATI\r"));
    EXPECT_EQ(relay(MODEM_TARGET_LTE, "AT+CEREG?\r"), "\r\n+CEREG: 0,1\r\n\r\nOK\r\n");
    EXPECT_EQ(relay(MODEM_TARGET_MD, "AT+CEREG?\r"), "\r\nERROR\r\n");
    EXPECT_EQ(relay(MODEM_TARGET_MD, "AT+CPIN?\r"), "\r\n+CPIN: READY\r\n\r\nOK\r\n");
    EXPECT_EQ(relay(MODEM_TARGET_MD, "AT+NOSUCH\r"), "\r\nERROR\r\n");
}

TEST(ModemdSim, LogsEveryRequestOnOneEscapedLine) {
    Sim sim({});
    std::vector<char> answer = exchange(sim.port, 16, 998, "AT+CSQ\r\n\"x\\");
    ASSERT_GE(answer.size(), 28u);
    EXPECT_EQ(sim.line(),
              "token=77 target=16 request_id=998 data_len=11 text=\"AT+CSQ\\r\\n\"x\\\\\"");
    exchange(sim.port, 1, 101, "");
    EXPECT_EQ(sim.line(), "token=77 target=1 request_id=101 data_len=0 text=\"\"");
}

TEST(ModemdSim, GeneralRequestsGetOk) {
    Sim sim({});
    const rmmi_test::ModemAnswer status =
        rmmi_test::general_request(MODEM_TARGET_DAEMON, MODEM_REQ_GET_STATUS, "");
    EXPECT_EQ(status.result, 0u);
    EXPECT_EQ(status.out, "ok");
    std::vector<char> answer = exchange(sim.port, 0, MODEM_REQ_GET_INFO, "");
    ASSERT_EQ(answer.size(), 28u + 2u);
    EXPECT_EQ(std::string(answer.begin() + 28, answer.end()), "ok");
}

TEST(ModemdSim, RulesFileAddsAndOverridesAnswers) {
    char path[] = "/tmp/modemd-sim-rules-XXXXXX";
    const int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    std::ofstream(path) << "# test rules\n"
                        << "\n"
                        << "AT+CSQ => \\r\\n+CSQ: 5,99\\r\\n\\r\\nOK\\r\\n\n"
                        << "at+kerv=1,\"x\" => \\r\\n+KERV: done\\r\\n\\r\\nOK\\r\\n\n";
    {
        Sim sim({"--rules", path});
        EXPECT_EQ(relay(MODEM_TARGET_LTE, "AT+CSQ\r"), "\r\n+CSQ: 5,99\r\n\r\nOK\r\n");
        EXPECT_EQ(relay(MODEM_TARGET_MD, "AT+KERV=1,\"X\"\r"), "\r\n+KERV: done\r\n\r\nOK\r\n");
        EXPECT_EQ(relay(MODEM_TARGET_MD, "AT+CPIN?\r"), "\r\n+CPIN: READY\r\n\r\nOK\r\n");
    }
    std::ofstream(path) << "no arrow here\n";
    Sim broken({"--rules", path});
    EXPECT_EQ(broken.port, 0);
    unlink(path);
}

TEST(ModemdSim, TestFlagsBendTheAnswer) {
    {
        Sim sim({"--result", "7"});
        EXPECT_EQ(relay(MODEM_TARGET_MD, "AT\r"), "\r\nOK\r\n");
        const rmmi_test::ModemAnswer status =
            rmmi_test::general_request(MODEM_TARGET_MD, MODEM_REQ_GET_STATUS, "");
        EXPECT_EQ(status.result, 1u);
        EXPECT_EQ(status.out, "error,7,response result code is error");
    }
    {
        Sim sim({"--no-answer"});
        EXPECT_TRUE(exchange(sim.port, 16, 998, "AT\r", 300).empty());
        EXPECT_EQ(sim.line(), "token=77 target=16 request_id=998 data_len=3 text=\"AT\\r\"");
    }
    {
        Sim sim({"--delay-ms", "400"});
        EXPECT_TRUE(exchange(sim.port, 16, 998, "AT\r", 100).empty());
        EXPECT_EQ(relay(MODEM_TARGET_MD, "AT\r"), "\r\nOK\r\n");
    }
}

TEST(ModemdSim, StopsCleanlyOnTerminationAndInterrupt) {
    for (int sig : {SIGTERM, SIGINT}) {
        Sim sim({});
        const int status = sim.stop(sig);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << sig;
    }
}

TEST(ModemdSim, HelpAndBadOptions) {
    const std::string sim = KERV_TEST_MODEMD_SIM_PATH;
    EXPECT_EQ(system((sim + " --help > /dev/null").c_str()), 0);
    EXPECT_EQ(WEXITSTATUS(system((sim + " --port 70000 2> /dev/null").c_str())), 2);
    EXPECT_EQ(WEXITSTATUS(system((sim + " --bogus 2> /dev/null").c_str())), 2);
}

} // namespace
