#include "answer_count.h"
#include "bare_relay.h"
#include "latency.h"
#include "line_server.h"
#include "modemd_stub.h"

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

/* The bare exchange against the modem-daemon stand-in; the answer text, or "failed". */
std::string relay_once(modemd_stub::Stub &modemd, const char *line) {
    char out[1420];
    const int answer_len =
        bare_relay_exchange(modemd.port(), MODEM_TARGET_LTE, line, strlen(line), out, sizeof(out));
    return answer_len < 0 ? "failed" : std::string(out, (size_t)answer_len);
}

TEST(BareRelay, SendsTheDaemonsRequestAndReturnsTheAnswerText) {
    modemd_stub::Stub modemd(0, false);
    const char *text = "\r\n+CSQ: 23,99\r\n\r\nOK\r\n";
    modemd.answer(modemd_stub::Reply::text, text);
    EXPECT_EQ(relay_once(modemd, "AT+CSQ"), text);
    EXPECT_EQ(relay_once(modemd, "AT+CSQ"), text);
    const std::vector<modemd_stub::Request> requests = modemd.take_requests();
    ASSERT_EQ(requests.size(), 2u);
    EXPECT_EQ(requests[0].datagram_size, 27u);
    EXPECT_EQ(requests[0].magic, MODEM_REQUEST_MAGIC);
    EXPECT_EQ(requests[0].target, 1u);
    EXPECT_EQ(requests[0].request_id, 998u);
    EXPECT_EQ(requests[0].data, "AT+CSQ\r");
    EXPECT_EQ(requests[1].token, requests[0].token + 1);
}

TEST(BareRelay, UnusableAnswersAreFailures) {
    modemd_stub::Stub modemd(0, false);
    modemd.answer(modemd_stub::Reply::text, "", 0, 0);
    EXPECT_EQ(relay_once(modemd, "AT"), "failed");
    modemd.answer(modemd_stub::Reply::short27);
    EXPECT_EQ(relay_once(modemd, "AT"), "failed");
    /* data_len claiming more than arrived: only what arrived is passed on */
    modemd.answer(modemd_stub::Reply::text, "\r\nOK\r\n", 0, 500);
    EXPECT_EQ(relay_once(modemd, "AT"), "\r\nOK\r\n");
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
