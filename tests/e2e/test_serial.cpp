/* The serial channel on a pty: raw settings while open, the old ones restored on closing. */
#include "daemon_test.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <termios.h>
#include <unistd.h>

namespace e2e {
namespace {

DaemonOptions serial_on(const std::string &device) {
    DaemonOptions options;
    options.store["KERV_LISTEN_TYPE"] = "1";
    options.serial_device = device;
    return options;
}

struct Serial : DaemonTest {
    void SetUp() override {
        ASSERT_EQ(tcgetattr(pty.slave, &before), 0);
        ASSERT_TRUE(before.c_lflag & ICANON); /* a fresh pty is cooked */
        options = serial_on(pty.device);
        start_daemon();
        ASSERT_TRUE(pty.wait_opened()) << daemon->output();
    }
    Pty pty;
    struct termios before;
};

TEST_F(Serial, DeviceIsRawAt115200WithoutSignalOrFlowCharactersUntilStopRestoresIt) {
    struct termios raw;
    ASSERT_EQ(tcgetattr(pty.slave, &raw), 0);
    EXPECT_EQ(raw.c_cflag & CSIZE, static_cast<tcflag_t>(CS8));
    EXPECT_EQ(raw.c_cflag & (CSTOPB | PARENB | PARODD | CRTSCTS), 0u);
    EXPECT_EQ(raw.c_cflag & (CREAD | CLOCAL), static_cast<tcflag_t>(CREAD | CLOCAL));
    EXPECT_EQ(raw.c_lflag & (ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHONL), 0u);
    EXPECT_EQ(raw.c_iflag & (IXON | IXOFF | IXANY | ICRNL | ISTRIP | INPCK | IGNPAR | PARMRK), 0u);
    EXPECT_EQ(raw.c_oflag & (OPOST | OCRNL), 0u);
    EXPECT_EQ(raw.c_cc[VMIN], 1);
    EXPECT_EQ(raw.c_cc[VTIME], 0);
    for (const int c : {VINTR, VQUIT, VSTART, VSTOP, VSUSP})
        EXPECT_EQ(raw.c_cc[c], 0) << "control character " << c;
    EXPECT_EQ(cfgetispeed(&raw), static_cast<speed_t>(B115200));
    EXPECT_EQ(cfgetospeed(&raw), static_cast<speed_t>(B115200));

    EXPECT_EQ(app_request(daemon->socket_path(), KERV_REQUEST_CMD_STOP), "");
    struct termios after;
    ASSERT_EQ(tcgetattr(pty.slave, &after), 0);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_oflag, before.c_oflag);
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(memcmp(after.c_cc, before.c_cc, sizeof(after.c_cc)), 0);
    /* The device is no longer read: a line now gets no answer (the terminal's own echo,
       back on, may show it). */
    Host host = Host::on(pty.master);
    host.send("ATE1\r");
    EXPECT_EQ(host.read_for(300ms).find("OK"), std::string::npos);
}

TEST_F(Serial, EndOfDeviceClosesTheChannelAndTheDaemonGoesOn) {
    expect_served(Host::on(pty.master));
    close(pty.master);
    pty.master = -1;
    EXPECT_TRUE(daemon->wait_output("UART disconnect")) << daemon->output();
    /* A STOP now finds nothing to close; the control socket still answers. */
    EXPECT_EQ(app_request(daemon->socket_path(), KERV_REQUEST_CMD_STOP), "");
    EXPECT_EQ(app_request(daemon->socket_path(), KERV_REQUEST_CMD_GEN_HASH, "E"),
              "hash_value1=[5], hash_value2=[0]");
    EXPECT_TRUE(daemon->alive());
}

/* With KERV_SERIAL_REOPEN the channel outlives a hang-up: the device (a link that the test
   points at a new pty, as a gadget port comes back after the cable) is opened again. */
using SerialReopen = DaemonTest;
TEST_F(SerialReopen, AfterAHangUpTheReturningDeviceIsServedAgain) {
    auto first = std::make_unique<Pty>();
    const std::string link = dir.file("ttyGS0");
    ASSERT_EQ(symlink(first->device.c_str(), link.c_str()), 0);
    options = serial_on(link);
    options.store["KERV_SERIAL_REOPEN"] = "1";
    start_daemon();
    ASSERT_TRUE(first->wait_opened()) << daemon->output();
    expect_served(Host::on(first->master));

    first.reset(); /* the hang-up */
    Pty second;
    const std::string next_link = dir.file("ttyGS0.next");
    ASSERT_EQ(symlink(second.device.c_str(), next_link.c_str()), 0);
    ASSERT_EQ(rename(next_link.c_str(), link.c_str()), 0);
    ASSERT_TRUE(second.wait_opened()) << daemon->output();
    expect_served(Host::on(second.master));
}

using SerialMissing = DaemonTest;
TEST_F(SerialMissing, DaemonRunsOnWithoutAChannel) {
    options = serial_on(dir.file("ttyNONE"));
    start_daemon();
    EXPECT_TRUE(daemon->wait_output("fail to start up listen channel.\n")) << daemon->output();
    EXPECT_TRUE(daemon->alive());
}

} // namespace
} // namespace e2e
