/*
 * A stand-in modem daemon on a loopback UDP port (published in KERVD_MODEMD_PORT while it
 * lives) that records every request datagram and answers as it is told. No test framework
 * needed: the fuzz targets use it too.
 */
#ifndef FAKE_MODEMD_H
#define FAKE_MODEMD_H

#include <arpa/inet.h>
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

/* A request datagram as the modem daemon receives it: five 32-bit fields, then data. */
struct ModemRequest {
    uint32_t magic, token, target, request_id, data_len;
    std::string data;
    size_t datagram_size;
};

enum class ModemReply {
    text,    /* a well-formed answer carrying the text */
    short27, /* a 27-byte datagram: not an answer */
    silent   /* no answer at all */
};

/* The stand-in modem daemon; its port is published in KERVD_MODEMD_PORT while it lives. */
class FakeModemd {
  public:
    FakeModemd() {
        fd_ = socket(AF_INET, SOCK_DGRAM, 0);
        sockaddr_in addr = {};
        addr.sin_family = AF_INET;
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof(addr);
        bind(fd_, reinterpret_cast<sockaddr *>(&addr), sizeof(addr));
        getsockname(fd_, reinterpret_cast<sockaddr *>(&addr), &len);
        setenv("KERVD_MODEMD_PORT", std::to_string(ntohs(addr.sin_port)).c_str(), 1);
        thread_ = std::thread([this] { serve(); });
    }
    ~FakeModemd() {
        stop_ = true;
        thread_.join();
        close(fd_);
    }

    /* How the next requests are answered; data_len is the text's length unless given. */
    void answer(ModemReply reply, const std::string &text = "\r\nOK\r\n", uint32_t result = 0,
                int64_t data_len = -1) {
        std::lock_guard<std::mutex> lock(mutex_);
        reply_ = reply;
        text_ = text;
        result_ = result;
        data_len_ = data_len;
    }
    std::vector<ModemRequest> take_requests() {
        std::lock_guard<std::mutex> lock(mutex_);
        return std::move(requests_);
    }
    /* The texts of the requests received since the last take. */
    std::vector<std::string> take_texts() {
        std::vector<std::string> texts;
        for (const ModemRequest &request : take_requests())
            texts.push_back(request.data);
        return texts;
    }

  private:
    void serve() {
        while (!stop_) {
            pollfd pfd = {fd_, POLLIN, 0};
            uint8_t buf[2048];
            sockaddr_in peer = {};
            socklen_t peer_len = sizeof(peer);
            if (poll(&pfd, 1, 20) <= 0)
                continue;
            const ssize_t n =
                recvfrom(fd_, buf, sizeof(buf), 0, reinterpret_cast<sockaddr *>(&peer), &peer_len);
            if (n < 20)
                continue;
            const std::vector<uint8_t> reply = record(buf, static_cast<size_t>(n));
            if (!reply.empty())
                sendto(fd_, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr *>(&peer),
                       peer_len);
        }
    }

    /* Keeps the request and builds its answer (empty: none is sent). */
    std::vector<uint8_t> record(const uint8_t *buf, size_t n) {
        std::lock_guard<std::mutex> lock(mutex_);
        uint32_t fields[5];
        memcpy(fields, buf, sizeof(fields));
        const ModemRequest request = {
            fields[0], fields[1], fields[2],
            fields[3], fields[4], std::string(reinterpret_cast<const char *>(buf) + 20, n - 20),
            n};
        requests_.push_back(request);
        if (reply_ != ModemReply::text)
            return std::vector<uint8_t>(reply_ == ModemReply::short27 ? 27 : 0, 0);
        const uint32_t header[7] = {0x5498ACDE,
                                    request.token,
                                    request.target,
                                    0,
                                    result_,
                                    request.request_id,
                                    data_len_ < 0 ? static_cast<uint32_t>(text_.size())
                                                  : static_cast<uint32_t>(data_len_)};
        std::vector<uint8_t> reply(sizeof(header) + text_.size());
        memcpy(reply.data(), header, sizeof(header));
        memcpy(reply.data() + sizeof(header), text_.data(), text_.size());
        return reply;
    }

    int fd_ = -1;
    std::atomic<bool> stop_{false};
    std::thread thread_;
    std::mutex mutex_;
    std::vector<ModemRequest> requests_;
    ModemReply reply_ = ModemReply::text;
    std::string text_ = "\r\nOK\r\n";
    uint32_t result_ = 0;
    int64_t data_len_ = -1;
};

} // namespace rmmi_test

#endif /* FAKE_MODEMD_H */
