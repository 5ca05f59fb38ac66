/*
 * Test support for the AT engine: a host connection (one end of a socketpair the engine
 * writes to) and a stand-in modem daemon on a loopback UDP port that records every request
 * datagram and answers as the test tells it.
 */
#ifndef RMMI_TEST_SUPPORT_H
#define RMMI_TEST_SUPPORT_H

#include "rmmi_init.h"
#include "rmmi_msghdlr.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace rmmi_test {

/* A request datagram as the modem daemon receives it. */
struct ModemRequest {
    uint32_t magic = 0;
    uint32_t token = 0;
    uint32_t target = 0;
    uint32_t request_id = 0;
    uint32_t data_len = 0;
    std::string data;
    size_t datagram_size = 0;
};

enum class ModemReply {
    text,    /* a well-formed answer carrying reply_text */
    empty,   /* a 28-byte answer with data_len 0 */
    short27, /* a 27-byte datagram: not an answer */
    silent   /* no answer at all */
};

inline void put_u32(std::vector<uint8_t> &out, size_t offset, uint32_t value) {
    memcpy(out.data() + offset, &value, sizeof(value));
}

inline uint32_t get_u32(const uint8_t *in, size_t offset) {
    uint32_t value;
    memcpy(&value, in + offset, sizeof(value));
    return value;
}

/* The stand-in modem daemon; its port is published in KERVD_MODEMD_PORT while it lives. */
class FakeModemd {
  public:
    FakeModemd() {
        fd_ = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in addr = {};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(fd_, reinterpret_cast<sockaddr *>(&addr), sizeof(addr));
        socklen_t len = sizeof(addr);
        getsockname(fd_, reinterpret_cast<sockaddr *>(&addr), &len);
        port_ = ntohs(addr.sin_port);
        setenv("KERVD_MODEMD_PORT", std::to_string(port_).c_str(), 1);
        thread_ = std::thread([this] { serve(); });
    }
    ~FakeModemd() {
        stop_ = true;
        thread_.join();
        close(fd_);
    }
    FakeModemd(const FakeModemd &) = delete;
    FakeModemd &operator=(const FakeModemd &) = delete;

    void answer(ModemReply reply, const std::string &text = "\r\nOK\r\n", uint32_t result = 0) {
        std::lock_guard<std::mutex> lock(mutex_);
        reply_ = reply;
        reply_text_ = text;
        reply_result_ = result;
    }
    /* Overrides the answer's data_len (otherwise the text's length). */
    void claim_data_len(uint32_t data_len) {
        std::lock_guard<std::mutex> lock(mutex_);
        claimed_len_ = data_len;
        claim_ = true;
    }
    std::vector<ModemRequest> take_requests() {
        std::lock_guard<std::mutex> lock(mutex_);
        std::vector<ModemRequest> taken;
        taken.swap(requests_);
        return taken;
    }

  private:
    void serve() {
        while (!stop_) {
            pollfd pfd = {fd_, POLLIN, 0};
            if (poll(&pfd, 1, 20) <= 0)
                continue;
            uint8_t buf[2048];
            sockaddr_in peer = {};
            socklen_t peer_len = sizeof(peer);
            const ssize_t n =
                recvfrom(fd_, buf, sizeof(buf), 0, reinterpret_cast<sockaddr *>(&peer), &peer_len);
            if (n < 20)
                continue;
            std::vector<uint8_t> reply = record_and_build_reply(buf, static_cast<size_t>(n));
            if (!reply.empty())
                sendto(fd_, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr *>(&peer),
                       peer_len);
        }
    }

    std::vector<uint8_t> record_and_build_reply(const uint8_t *buf, size_t n) {
        std::lock_guard<std::mutex> lock(mutex_);
        ModemRequest request;
        request.magic = get_u32(buf, 0);
        request.token = get_u32(buf, 4);
        request.target = get_u32(buf, 8);
        request.request_id = get_u32(buf, 12);
        request.data_len = get_u32(buf, 16);
        request.data.assign(reinterpret_cast<const char *>(buf) + 20, n - 20);
        request.datagram_size = n;
        requests_.push_back(request);
        std::vector<uint8_t> reply;
        switch (reply_) {
        case ModemReply::silent:
            return reply;
        case ModemReply::short27:
            reply.assign(27, 0);
            return reply;
        case ModemReply::empty:
        case ModemReply::text: {
            const std::string text = reply_ == ModemReply::text ? reply_text_ : "";
            reply.assign(28 + text.size(), 0);
            put_u32(reply, 0, 0x5498ACDE);
            put_u32(reply, 4, request.token);
            put_u32(reply, 8, request.target);
            put_u32(reply, 16, reply_result_);
            put_u32(reply, 20, request.request_id);
            put_u32(reply, 24, claim_ ? claimed_len_ : static_cast<uint32_t>(text.size()));
            memcpy(reply.data() + 28, text.data(), text.size());
            return reply;
        }
        }
        return reply;
    }

    int fd_ = -1;
    uint16_t port_ = 0;
    std::atomic<bool> stop_{false};
    std::thread thread_;
    std::mutex mutex_;
    std::vector<ModemRequest> requests_;
    ModemReply reply_ = ModemReply::text;
    std::string reply_text_ = "\r\nOK\r\n";
    uint32_t reply_result_ = 0;
    uint32_t claimed_len_ = 0;
    bool claim_ = false;
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

} // namespace rmmi_test

#endif /* RMMI_TEST_SUPPORT_H */
