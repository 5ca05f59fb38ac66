/*
 * Helpers shared by the unit tests: what a call prints, how many descriptors are open, a
 * private temporary directory, the stand-in modem daemon's request checks, the AT engine
 * writing to a host connection, and exactly sized texts and buffers for the toolkit.
 */
#ifndef TEST_SUPPORT_H
#define TEST_SUPPORT_H

#include "modemd_stub.h"
#include "kal_common.h"
#include "kerv_md_request.h"
#include "engine_context.h"
#include "engine_entry.h"
#include "rmmi_utility.h"
#include "modem_relay.h"

#include <gtest/gtest.h>

#include <dirent.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

namespace rmmi_test {

using FakeModemd = modemd_stub::Stub;
using ModemReply = modemd_stub::Reply;
using ModemRequest = modemd_stub::Request;

/* Runs fn at debug level dbg and returns what it printed on standard output. */
template <typename Fn> std::string stdout_at_level(kal_uint32 dbg, Fn fn) {
    const kal_uint32 saved = g_dbg_print;
    g_dbg_print = dbg;
    testing::internal::CaptureStdout();
    fn();
    fflush(stdout);
    g_dbg_print = saved;
    return testing::internal::GetCapturedStdout();
}

inline int open_fd_count() {
    int count = 0;
    DIR *dir = opendir("/proc/self/fd");
    while (readdir(dir) != nullptr)
        count++;
    closedir(dir);
    return count;
}

/* A fresh directory under /tmp, removed with everything in it at the end of its scope. */
struct TempDir {
    std::string path;
    TempDir() {
        char name[] = "/tmp/kerv-test-XXXXXX";
        EXPECT_NE(mkdtemp(name), nullptr);
        path = name;
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
};

/* The only request the modem daemon received since the last take: its fields and text. */
inline void expect_one_request(FakeModemd &modemd, uint32_t token, uint32_t target,
                               uint32_t request_id, const std::string &text) {
    const std::vector<ModemRequest> requests = modemd.take_requests();
    ASSERT_EQ(requests.size(), 1u);
    const ModemRequest &request = requests[0];
    EXPECT_EQ(request.datagram_size, 20 + text.size());
    EXPECT_EQ(request.magic, 0x5498ACDEu);
    EXPECT_EQ(request.token, token);
    EXPECT_EQ(request.target, target);
    EXPECT_EQ(request.request_id, request_id);
    EXPECT_EQ(request.data_len, text.size());
    EXPECT_EQ(request.data, text);
}

/* Requests this process sent through the two clients: relayed commands carry tokens from
   1000 on, general requests from 2000 on. */
inline kal_uint32 relays_sent = 0;
inline kal_uint32 general_requests_sent = 0;

struct ModemAnswer {
    kal_uint32 result;
    std::string out;
    kal_uint32 length; /* as the relay reported it */
};

/* Relays command with an answer buffer of out_size characters. */
inline ModemAnswer relay_command(kal_uint32 target, const std::string &command,
                                 kal_uint32 out_size = 1007) {
    char out[1008] = {};
    kal_uint32 length = out_size;
    std::string in = command;
    const kal_uint32 result =
        send_cmd_to_md(target, reinterpret_cast<kal_uint8 *>(in.data()), out, &length);
    ++relays_sent;
    return {result, out, length};
}

/* A general request with the given text; out is the status text in out_size bytes. */
inline ModemAnswer general_request(kal_uint32 target, kal_uint32 request_id,
                                   const std::string &text, unsigned int out_size = 128) {
    kerv_md_request_t req = {};
    req.target = target;
    req.request_id = request_id;
    req.data_len = 9999; /* never read: the length comes from the text */
    memcpy(req.data, text.data(), text.size());
    char out[128];
    memset(out, '#', sizeof(out));
    const int result = kerv_md_request(&req, out, out_size);
    ++general_requests_sent;
    return {static_cast<kal_uint32>(result), std::string(out, strnlen(out, sizeof(out))), 0};
}

/* While it lives, the process cannot open another descriptor. */
struct NoFreeDescriptors {
    rlimit saved{};
    NoFreeDescriptors() {
        getrlimit(RLIMIT_NOFILE, &saved);
        const int lowest_free = dup(0);
        close(lowest_free);
        rlimit exhausted = saved;
        exhausted.rlim_cur = static_cast<rlim_t>(lowest_free);
        setrlimit(RLIMIT_NOFILE, &exhausted);
    }
    ~NoFreeDescriptors() { setrlimit(RLIMIT_NOFILE, &saved); }
};

/*
 * The engine as the daemon sets it up (verbose codes, 2G/3G modem, echo on), writing to
 * a host connection whose other end the test reads.
 */
class EngineTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(rmmi_init(), KAL_TRUE);
        rmmi_read_custom_default_setting(RMMI_PROCESS_CMD_FROM_SOCKET_PORT, RMMI_MODEMD_23G,
                                         RMMI_VERBOSE_FULL_HEAD_TAIL);
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, host_), 0);
    }
    void TearDown() override {
        close(host_[0]);
        close(host_[1]);
    }

    /* Runs one line and returns every byte the engine wrote for it. */
    std::string run(const std::string &line) {
        rmmi_process_multi_cmd(host_[0], line.c_str());
        return host_bytes();
    }
    std::string host_bytes() {
        std::string bytes;
        char buf[4096];
        ssize_t n;
        while ((n = recv(host_[1], buf, sizeof(buf), MSG_DONTWAIT)) > 0)
            bytes.append(buf, static_cast<size_t>(n));
        return bytes;
    }
    rmmi_context_struct *context() { return rmmi_get_context_ptr(); }
    /* After every line, nothing of it may be left for the next one. */
    void expect_line_flags_clear() {
        EXPECT_EQ(context()->is_multi_cmd & 1, 0);
        EXPECT_EQ(context()->multi_cmd_error & 1, 0);
        EXPECT_EQ(context()->rsp_mode.ext_result_code, 1);
    }

    int host_[2] = {-1, -1};
};

/* Toolkit texts and buffers are sized exactly, so AddressSanitizer and the guard bytes catch
   any access past them. */
constexpr kal_uint8 kGuard = 0xAA;

/* A zero-terminated copy of s in a buffer of exactly its size. */
inline std::vector<kal_uint8> text_bytes(const std::string &s) {
    std::vector<kal_uint8> bytes(s.begin(), s.end());
    bytes.push_back(0);
    return bytes;
}

inline std::string as_string(const kal_uint8 *bytes) {
    return reinterpret_cast<const char *>(bytes);
}

/* A command text and a cursor over it. */
struct cursor_fixture {
    std::vector<kal_uint8> text;
    rmmi_string_struct cursor{};

    explicit cursor_fixture(const std::string &s, kal_uint16 index = 0) : text(text_bytes(s)) {
        cursor.string_ptr = text.data();
        cursor.index = index;
    }
};

/* An output buffer of size bytes followed by guard bytes that must stay untouched. */
struct output_buffer {
    std::vector<kal_uint8> bytes;
    size_t size;

    explicit output_buffer(size_t n) : bytes(n + 4, kGuard), size(n) {}
    kal_uint8 *data() { return bytes.data(); }
    /* The stored text, or "<unterminated>" when no terminator lies within size. */
    std::string text() const {
        const void *end = memchr(bytes.data(), 0, size);
        return end != nullptr ? as_string(bytes.data()) : "<unterminated>";
    }
    bool guards_intact() const {
        return std::vector<kal_uint8>(bytes.begin() + size, bytes.end()) ==
               std::vector<kal_uint8>(4, kGuard);
    }
};

} // namespace rmmi_test

#endif /* TEST_SUPPORT_H */
