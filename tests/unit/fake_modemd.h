/*
 * A scripted modem daemon for the client tests: a UDP socket on 127.0.0.1 (a fresh port,
 * published through KERVD_MODEMD_PORT) served by a thread that takes one request datagram,
 * keeps its bytes and answers with the datagram the test scripted (or stays silent).
 */
#ifndef FAKE_MODEMD_H
#define FAKE_MODEMD_H

#include "kerv_md_request.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <vector>

struct FakeModemd {
    int fd = -1;
    int stop_pipe[2] = {-1, -1}; /* written by the destructor: ends a serve still waiting */
    std::thread server;
    std::vector<char> request; /* the request datagram as received */

    FakeModemd() {
        fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (pipe(stop_pipe) != 0)
            stop_pipe[0] = stop_pipe[1] = -1;
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t len = sizeof(address);
        bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address));
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &len);
        setenv("KERVD_MODEMD_PORT", std::to_string(ntohs(address.sin_port)).c_str(), 1);
    }

    ~FakeModemd() {
        if (write(stop_pipe[1], "x", 1) != 1 && server.joinable())
            ADD_FAILURE() << "cannot stop the fake modem daemon";
        if (server.joinable())
            server.join();
        close(fd);
        close(stop_pipe[0]);
        close(stop_pipe[1]);
    }

    /* Serves one request (or none, if none comes before the fake ends); with answer false
       the request is kept but not answered. */
    void serve(std::vector<char> reply, bool answer = true) {
        server = std::thread([this, reply, answer] {
            pollfd watched[2] = {{fd, POLLIN, 0}, {stop_pipe[0], POLLIN, 0}};
            if (poll(watched, 2, 10000) < 1 || watched[0].revents == 0)
                return;
            char datagram[2048];
            sockaddr_in sender{};
            socklen_t sender_len = sizeof(sender);
            const ssize_t got = recvfrom(fd, datagram, sizeof(datagram), 0,
                                         reinterpret_cast<sockaddr *>(&sender), &sender_len);
            if (got < 0)
                return;
            request.assign(datagram, datagram + got);
            if (answer)
                sendto(fd, reply.data(), reply.size(), 0, reinterpret_cast<sockaddr *>(&sender),
                       sender_len);
        });
    }

    void wait() {
        if (server.joinable())
            server.join();
    }

    kal_uint32 request_field(size_t offset) const {
        kal_uint32 value = 0;
        if (request.size() >= offset + sizeof(value))
            memcpy(&value, request.data() + offset, sizeof(value));
        return value;
    }

    std::string request_text() const {
        return request.size() > MODEM_REQUEST_HEADER_SIZE
                   ? std::string(request.begin() + MODEM_REQUEST_HEADER_SIZE, request.end())
                   : std::string();
    }
};

/* The request datagram the fake received: its header fields and exactly its text. */
inline void expect_request(const FakeModemd &modemd, kal_uint32 token, kal_uint32 target,
                           kal_uint32 request_id, const std::string &text) {
    ASSERT_EQ(modemd.request.size(), MODEM_REQUEST_HEADER_SIZE + text.size());
    EXPECT_EQ(modemd.request_field(0), 0x5498ACDEu);
    EXPECT_EQ(modemd.request_field(4), token);
    EXPECT_EQ(modemd.request_field(8), target);
    EXPECT_EQ(modemd.request_field(12), request_id);
    EXPECT_EQ(modemd.request_field(16), text.size());
    EXPECT_EQ(modemd.request_text(), text);
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

/* A response datagram: the 28-byte header and text, data_len as given. */
inline std::vector<char> response_datagram(kal_uint32 result, kal_uint32 data_len,
                                           const std::string &text) {
    Modem_Response_t resp;
    memset(&resp, 0, sizeof(resp));
    resp.magic = MODEM_REQUEST_MAGIC;
    resp.result = result;
    resp.data_len = data_len;
    memcpy(resp.data, text.data(), text.size());
    const char *bytes = reinterpret_cast<const char *>(&resp);
    return std::vector<char>(bytes, bytes + MODEM_RESPONSE_HEADER_SIZE + text.size());
}

#endif /* FAKE_MODEMD_H */
