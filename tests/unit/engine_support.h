/*
 * The engine writing to a host connection, for the unit tests that drive it directly.
 */
#ifndef ENGINE_SUPPORT_H
#define ENGINE_SUPPORT_H

#include "engine_context.h"
#include "engine_entry.h"
#include "test_support.h"

#include <sys/socket.h>

namespace rmmi_test {

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

    int host_[2] = {-1, -1};
};

} // namespace rmmi_test

#endif /* ENGINE_SUPPORT_H */
