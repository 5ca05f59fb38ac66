/* modemd-sim, the stand-in behind a command line: its modems, rules file, flags and log. */
#include "harness.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <csignal>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

namespace e2e {
namespace {

/* modemd-sim on a free port; its log is read from its output file. */
struct Sim {
    Sim(const TempDir &dir, std::vector<std::string> args)
        : log(dir.file("sim" + std::to_string(++started) + ".out")) {
        args.insert(args.begin(), {"--port", "0"});
        pid = spawn(KERV_TEST_MODEMD_SIM_PATH, args, {}, log, dir.file("sim.err"));
        eventually([&] {
            return sscanf(read_file(log).c_str(), "modemd-sim listening on 127.0.0.1:%hu", &port) ==
                   1;
        });
    }
    ~Sim() { stop(SIGTERM); }
    int stop(int sig) {
        if (pid <= 0)
            return -1;
        kill(pid, sig);
        const int status = exit_status(pid);
        pid = -1;
        return status;
    }
    /* One request; the answer's text and result, or "<none>" when none came. */
    std::string ask(uint32_t target, uint32_t request_id, const std::string &text,
                    uint32_t *result = nullptr) {
        Modem_Request_t req = {};
        req.magic = MODEM_REQUEST_MAGIC;
        req.token = 77;
        req.target = target;
        req.request_id = request_id;
        req.data_len = static_cast<uint32_t>(text.size());
        memcpy(req.data, text.data(), text.size());
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        sendto(fd, &req, MODEM_REQUEST_HEADER_SIZE + text.size(), 0,
               reinterpret_cast<sockaddr *>(&address), sizeof(address));
        Modem_Response_t resp{};
        pollfd watched{fd, POLLIN, 0};
        const ssize_t got = poll(&watched, 1, 1000) == 1 ? recv(fd, &resp, sizeof(resp), 0) : -1;
        close(fd);
        if (result != nullptr)
            *result = resp.result;
        return got < MODEM_RESPONSE_HEADER_SIZE ? "<none>" : std::string(resp.data, resp.data_len);
    }
    static inline int started = 0;
    std::string log;
    pid_t pid = -1;
    unsigned short port = 0;
};

TEST(ModemdSim, AnswersLikeTwoModemsLogsEachRequestAndStopsOnItsSignals) {
    TempDir dir;
    Sim sim(dir, {});
    ASSERT_NE(sim.port, 0);
    EXPECT_EQ(sim.ask(1, 998, "AT+CSQ\r"), "\r\n+CSQ: 23,99\r\n\r\nOK\r\n");
    EXPECT_EQ(sim.ask(16, 998, "at+csq\r"), "\r\n+CSQ: 18,99\r\n\r\nOK\r\n");
    EXPECT_NE(sim.ask(1, 999, "AT+CGSN\r"), sim.ask(16, 999, "AT+CGSN\r"));
    EXPECT_EQ(sim.ask(16, 998, "AT+NOSUCH\r"), "\r\nERROR\r\n");
    EXPECT_EQ(sim.ask(0, MODEM_REQ_GET_INFO, ""), "ok");
    EXPECT_NE(read_file(sim.log).find("token=77 target=16 request_id=998 data_len=7 "
                                      "text=\"at+csq\\r\"\n"),
              std::string::npos)
        << read_file(sim.log);
    for (int sig : {SIGTERM, SIGINT}) {
        Sim stopped(dir, {});
        EXPECT_EQ(stopped.stop(sig), 0) << sig;
    }
}

TEST(ModemdSim, RulesFileOverridesTheBuiltInAnswers) {
    TempDir dir;
    write_file(dir.file("rules"), "# test rules\n\nAT+CSQ => \\r\\n+CSQ: 5,99\\r\\n\\r\\nOK\\r\\n\n"
                                  "at+kerv=1,\"x\" => \\r\\n+KERV: done\\r\\n\n");
    Sim sim(dir, {"--rules", dir.file("rules")});
    EXPECT_EQ(sim.ask(1, 998, "AT+CSQ\r"), "\r\n+CSQ: 5,99\r\n\r\nOK\r\n");
    EXPECT_EQ(sim.ask(16, 998, "AT+KERV=1,\"X\"\r"), "\r\n+KERV: done\r\n");
    EXPECT_EQ(sim.ask(16, 998, "AT+CPIN?\r"), "\r\n+CPIN: READY\r\n\r\nOK\r\n");
    write_file(dir.file("broken"), "no arrow here\n");
    EXPECT_EQ(run_tool(dir, KERV_TEST_MODEMD_SIM_PATH, {"--rules", dir.file("broken")}, {}).status,
              2);
}

TEST(ModemdSim, FlagsBendEveryAnswer) {
    TempDir dir;
    uint32_t result = 0;
    {
        /* The largest result there is, on every word size. */
        Sim sim(dir, {"--result", "4294967295"});
        EXPECT_EQ(sim.ask(16, 998, "AT\r", &result), "\r\nOK\r\n");
        EXPECT_EQ(result, 4294967295u);
    }
    {
        Sim sim(dir, {"--result", "7", "--delay-ms", "300"});
        EXPECT_EQ(sim.ask(16, MODEM_REQ_GET_STATUS, "", &result), "ok");
        EXPECT_EQ(result, 7u);
    }
    {
        Sim sim(dir, {"--no-answer"});
        EXPECT_EQ(sim.ask(16, 998, "AT\r"), "<none>");
    }
    EXPECT_EQ(run_tool(dir, KERV_TEST_MODEMD_SIM_PATH, {"--result", "4294967296"}, {}).status, 2);
    EXPECT_EQ(run_tool(dir, KERV_TEST_MODEMD_SIM_PATH, {"--result", "-1"}, {}).status, 2);
    EXPECT_EQ(run_tool(dir, KERV_TEST_MODEMD_SIM_PATH, {"--port", "70000"}, {}).status, 2);
    EXPECT_EQ(run_tool(dir, KERV_TEST_MODEMD_SIM_PATH, {"--help"}, {}).status, 0);
}

} // namespace
} // namespace e2e
