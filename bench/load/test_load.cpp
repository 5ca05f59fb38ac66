#include "answer_count.h"
#include "bare_relay.h"
#include "latency.h"
#include "line_server.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include <string>
#include <vector>

namespace {

struct answer_case_t {
    const char *stream;
    int answers;
    int errors;
};

const answer_case_t answer_cases[] = {
    {"ATE1\r\r\nOK\r\n", 1, 0},
    {"AT+CSQ\r\r\n+CSQ: 23,99\r\n\r\nOK\r\n", 1, 0},
    {"AT+CSQ\r\r\n+CSQ: 23,99\r\n\r\nOK\r\n\n", 1, 0}, /* modem text with a NUL-counted LF */
    {"\r\nOK\r\n\r\nOK\r\n\r\nERROR\r\n", 3, 1},
    {"AT+X\r\r\n+CME ERROR: 10\r\n", 1, 1},
    {"\r\n+CMS ERROR: 500\r\n\r\nNO CARRIER\r\n", 2, 2},
    {"\r\nOKAY\r\n\r\n+CSQ: OK\r\n\r\nERRORS\r\n", 0, 0},
    {"\r\nOK", 0, 0},
    {"\r\nOK-but-a-much-longer-line-than-the-head\r\n", 0, 0},
};

TEST(AnswerCount, CountsFinalResultCodesHoweverTheStreamIsCut) {
    for (const answer_case_t &c : answer_cases) {
        size_t len = strlen(c.stream);
        for (size_t cut = 0; cut <= len; cut++) {
            kervctl_answer_scan_t scan;
            kervctl_answer_reset(&scan);
            answer_count_t first = answer_count_feed(&scan, c.stream, cut);
            answer_count_t second = answer_count_feed(&scan, c.stream + cut, len - cut);
            EXPECT_EQ(first.answers + second.answers, c.answers) << c.stream << " cut " << cut;
            EXPECT_EQ(first.errors + second.errors, c.errors) << c.stream << " cut " << cut;
        }
    }
}

TEST(AnswerCount, AnswerEndsOnlyWithItsResultLine) {
    kervctl_answer_scan_t scan;
    kervctl_answer_reset(&scan);
    EXPECT_EQ(answer_count_feed(&scan, "ATE1\r\r\nOK", 9).answers, 0);
    EXPECT_EQ(answer_count_feed(&scan, "\r", 1).answers, 1);
    EXPECT_EQ(answer_count_feed(&scan, "\n", 1).answers, 0);
}

std::vector<std::string> framed_lines;

void record_line(void *, int, const char *line, size_t line_len) {
    EXPECT_EQ(strlen(line), line_len);
    framed_lines.push_back(line);
}

std::vector<std::string> frame_bytewise(const std::string &bytes) {
    framed_lines.clear();
    line_framer_t framer;
    line_framer_reset(&framer);
    for (char byte : bytes)
        line_framer_feed(&framer, &byte, 1, -1, record_line, nullptr);
    return framed_lines;
}

TEST(LineFramer, CutsLinesAtEitherTerminatorAndSkipsEmptyOnes) {
    using lines = std::vector<std::string>;
    EXPECT_EQ(frame_bytewise("AT\r"), lines({"AT"}));
    EXPECT_EQ(frame_bytewise("AT\r\nATI\nAT+CSQ\r\r\n"), lines({"AT", "ATI", "AT+CSQ"}));
    EXPECT_EQ(frame_bytewise("AT+CSQ"), lines());
}

TEST(LineFramer, DropsAnOverlongLineWholeAndGoesOn) {
    std::string longest(LINE_SERVER_MAX_LINE, 'A');
    EXPECT_EQ(frame_bytewise(longest + "\r").size(), 1u);
    EXPECT_EQ(frame_bytewise(longest + "B\rATI\r"), std::vector<std::string>({"ATI"}));
}

TEST(Latency, NearestRankPercentiles) {
    std::vector<uint32_t> none;
    EXPECT_EQ(latency_percentile(&none, 50.0), 0u);
    std::vector<uint32_t> one = {7};
    EXPECT_EQ(latency_percentile(&one, 99.0), 7u);
    std::vector<uint32_t> hundred;
    for (uint32_t i = 100; i >= 1; i--)
        hundred.push_back(i * 1000);
    latency_figures_t figures = latency_figures(hundred);
    EXPECT_DOUBLE_EQ(figures.p50_us, 50.0);
    EXPECT_DOUBLE_EQ(figures.p99_us, 99.0);
    EXPECT_EQ(latency_percentile(&hundred, 100.0), 100000u);
}

TEST(Latency, SamplesFileCollectsEveryAppend) {
    char path[] = "/tmp/test_load_samplesXXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    close(fd);
    ASSERT_TRUE(latency_append(path, {1, 2, 3}));
    ASSERT_TRUE(latency_append(path, {4}));
    std::vector<uint32_t> loaded;
    ASSERT_TRUE(latency_load(path, &loaded));
    EXPECT_EQ(loaded, std::vector<uint32_t>({1, 2, 3, 4}));
    unlink(path);
    EXPECT_FALSE(latency_load(path, &loaded));
}

/* A modem daemon stand-in on a free loopback port that answers each datagram once. */
struct fake_modemd_t {
    int fd;
    unsigned int port;
};

fake_modemd_t fake_modemd_open() {
    fake_modemd_t modemd = {socket(AF_INET, SOCK_DGRAM, 0), 0};
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t addr_len = sizeof(addr);
    EXPECT_EQ(bind(modemd.fd, (sockaddr *)&addr, sizeof(addr)), 0);
    EXPECT_EQ(getsockname(modemd.fd, (sockaddr *)&addr, &addr_len), 0);
    modemd.port = ntohs(addr.sin_port);
    return modemd;
}

/* Receives one request into *req (returning its size) and answers with reply_len bytes. */
ssize_t fake_modemd_answer(fake_modemd_t *modemd, bare_relay_request_t *req,
                           const bare_relay_response_t *reply, size_t reply_len) {
    sockaddr_in from = {};
    socklen_t from_len = sizeof(from);
    ssize_t got = recvfrom(modemd->fd, req, sizeof(*req), 0, (sockaddr *)&from, &from_len);
    sendto(modemd->fd, reply, reply_len, 0, (sockaddr *)&from, from_len);
    return got;
}

bare_relay_response_t modem_reply(const char *text, uint32_t data_len) {
    bare_relay_response_t reply = {};
    reply.data_len = data_len;
    memcpy(reply.data, text, strlen(text));
    return reply;
}

struct relay_result_t {
    int answer_len;
    std::string answer;
    bare_relay_request_t req;
    ssize_t req_size;
};

relay_result_t relay_once(fake_modemd_t *modemd, const char *line,
                          const bare_relay_response_t &reply, size_t reply_len) {
    relay_result_t result = {};
    std::thread modem(
        [&] { result.req_size = fake_modemd_answer(modemd, &result.req, &reply, reply_len); });
    char out[1420];
    result.answer_len = bare_relay_exchange(modemd->port, BARE_RELAY_TARGET_LTE, line, strlen(line),
                                            out, sizeof(out));
    modem.join();
    if (result.answer_len > 0)
        result.answer.assign(out, (size_t)result.answer_len);
    return result;
}

TEST(BareRelay, SendsTheDaemonsRequestAndReturnsTheAnswerText) {
    fake_modemd_t modemd = fake_modemd_open();
    const char *text = "\r\n+CSQ: 23,99\r\n\r\nOK\r\n";
    bare_relay_response_t reply = modem_reply(text, (uint32_t)strlen(text));
    size_t reply_len = offsetof(bare_relay_response_t, data) + strlen(text);

    relay_result_t first = relay_once(&modemd, "AT+CSQ", reply, reply_len);
    EXPECT_EQ(first.req_size, 27);
    EXPECT_EQ(first.req.magic, 0x5498ACDEu);
    EXPECT_EQ(first.req.target, 1u);
    EXPECT_EQ(first.req.request_id, 998u);
    EXPECT_EQ(first.req.data_len, 7u);
    EXPECT_EQ(std::string(first.req.data, 7), "AT+CSQ\r");
    EXPECT_EQ(first.answer, text);

    relay_result_t second = relay_once(&modemd, "AT+CSQ", reply, reply_len);
    EXPECT_EQ(second.req.token, first.req.token + 1);
    close(modemd.fd);
}

TEST(BareRelay, UnusableAnswersAreFailures) {
    fake_modemd_t modemd = fake_modemd_open();
    bare_relay_response_t empty = modem_reply("", 0);
    EXPECT_EQ(relay_once(&modemd, "AT", empty, 28).answer_len, -1);
    bare_relay_response_t text = modem_reply("\r\nOK\r\n", 6);
    EXPECT_EQ(relay_once(&modemd, "AT", text, 27).answer_len, -1);
    /* data_len claiming more than arrived: only what arrived is passed on */
    bare_relay_response_t overstated = modem_reply("\r\nOK\r\n", 500);
    EXPECT_EQ(relay_once(&modemd, "AT", overstated, 34).answer, "\r\nOK\r\n");
    close(modemd.fd);
}

/* Starts program with args; its standard output is returned through *out_fd. */
pid_t spawn(const std::vector<const char *> &args, int *out_fd) {
    int pipe_fds[2];
    EXPECT_EQ(pipe(pipe_fds), 0);
    pid_t pid = fork();
    if (pid == 0) {
        dup2(pipe_fds[1], STDOUT_FILENO);
        close(pipe_fds[0]);
        std::vector<const char *> argv = args;
        argv.push_back(nullptr);
        execv(argv[0], (char *const *)argv.data());
        _exit(127);
    }
    close(pipe_fds[1]);
    *out_fd = pipe_fds[0];
    return pid;
}

std::string read_all(int fd) {
    std::string text;
    char bytes[256];
    ssize_t got;
    while ((got = read(fd, bytes, sizeof(bytes))) > 0)
        text.append(bytes, (size_t)got);
    close(fd);
    return text;
}

TEST(LoadClient, KeepsEightLinesInFlightAgainstTheEchoBaseline) {
    int echo_out;
    pid_t echo = spawn({KERV_LOAD_ECHO_PATH}, &echo_out);
    FILE *echo_stdout = fdopen(echo_out, "r");
    unsigned int port = 0;
    ASSERT_EQ(fscanf(echo_stdout, "%u", &port), 1);

    std::string port_text = std::to_string(port);
    int client_out;
    pid_t client = spawn({KERV_LOAD_CLIENT_PATH, "--port", port_text.c_str(), "--line", "AT",
                          "--inflight", "8", "--seconds", "0.2", "--warmup", "0.05"},
                         &client_out);
    std::string summary = read_all(client_out);
    int status = 0;
    waitpid(client, &status, 0);
    kill(echo, SIGTERM);
    waitpid(echo, nullptr, 0);
    fclose(echo_stdout);

    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << summary;
    unsigned long answers = 0;
    int errors = -1;
    ASSERT_EQ(sscanf(summary.c_str(), "answers=%lu errors=%d", &answers, &errors), 2) << summary;
    EXPECT_GT(answers, 8u);
    EXPECT_EQ(errors, 0);
}

} // namespace
