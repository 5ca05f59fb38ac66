/* modemd-sim, the stand-in behind a command line: its two modems, rules file and flag. */
#include "harness.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <csignal>
#include <poll.h>

namespace e2e {
namespace {

/* modemd-sim on a free port, and one request to it at a time. */
struct Sim {
    Sim(const TempDir &dir, std::vector<std::string> args)
        : pid(start_modemd_sim(dir, std::move(args), &port)) {}
    ~Sim() {
        kill(pid, SIGTERM);
        EXPECT_EQ(exit_status(pid), 0) << "a stop signal ends modemd-sim cleanly";
    }
    /* The answer's text, and its result in *result; "<none>" when no answer came. */
    std::string ask(uint32_t target, const std::string &text, uint32_t *result = nullptr) {
        Modem_Request_t req = {
            MODEM_REQUEST_MAGIC, 77, target, 998, static_cast<uint32_t>(text.size()), {}};
        memcpy(req.data, text.data(), text.size());
        Modem_Response_t resp{};
        ssize_t got = -1;
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
        pollfd answer{fd, POLLIN, 0};
        if (sendto(fd, &req, MODEM_REQUEST_HEADER_SIZE + text.size(), 0,
                   reinterpret_cast<sockaddr *>(&address), sizeof(address)) > 0 &&
            poll(&answer, 1, 1000) == 1)
            got = recv(fd, &resp, sizeof(resp), 0);
        close(fd);
        if (result != nullptr)
            *result = resp.result;
        return got < MODEM_RESPONSE_HEADER_SIZE ? "<none>" : std::string(resp.data, resp.data_len);
    }
    unsigned short port = 0; /* before pid: start_modemd_sim fills it */
    pid_t pid = -1;
};

TEST(ModemdSim, AnswersLikeTwoModemsThenFromItsRulesWithTheResultItIsGiven) {
    TempDir dir;
    write_file(dir.file("rules"),
               "# test rules\n\nAT+CSQ => \\r\\n+CSQ: 5,99\\r\\n\\r\\nOK\\r\\n\n"
               "at+kerv=1,\"x\" => \\r\\n+KERV: done\\r\\n\nAT+DROP => @silent\n");
    uint32_t result = 0;
    /* The largest result there is, on every word size. */
    Sim sim(dir, {"--rules", dir.file("rules"), "--result", "4294967295"});
    ASSERT_NE(sim.port, 0);
    EXPECT_EQ(sim.ask(1, "AT+CSQ\r", &result), "\r\n+CSQ: 5,99\r\n\r\nOK\r\n");
    EXPECT_EQ(result, 4294967295u);
    EXPECT_EQ(sim.ask(16, "AT+KERV=1,\"X\"\r"), "\r\n+KERV: done\r\n");
    EXPECT_EQ(sim.ask(16, "AT+DROP\r"), "<none>");
    EXPECT_EQ(sim.ask(1, "AT+CEREG?\r"), "\r\n+CEREG: 0,1\r\n\r\nOK\r\n");
    EXPECT_EQ(sim.ask(16, "AT+CEREG?\r"), "\r\nERROR\r\n");
    EXPECT_NE(sim.ask(1, "AT+CGSN\r"), sim.ask(16, "AT+CGSN\r"));
    for (const char *bad : {"4294967296", "-1"})
        EXPECT_EQ(run_tool(dir, KERV_TEST_MODEMD_SIM_PATH, {"--result", bad}, {}).status, 2) << bad;
    write_file(dir.file("broken"), "no arrow here\n");
    EXPECT_EQ(run_tool(dir, KERV_TEST_MODEMD_SIM_PATH, {"--rules", dir.file("broken")}, {}).status,
              2);
}

} // namespace
} // namespace e2e
