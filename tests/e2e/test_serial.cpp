/* The serial command channel on a pty: raw settings, answers, closing with the settings
   restored. */
#include "harness.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

namespace e2e {
namespace {

struct Serial : testing::Test {
    void SetUp() override {
        master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
        ASSERT_GE(master, 0);
        ASSERT_EQ(grantpt(master), 0);
        ASSERT_EQ(unlockpt(master), 0);
        device = ptsname(master);
        /* Our own view of the device, to read its settings. */
        slave = open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        ASSERT_GE(slave, 0);
        ASSERT_EQ(tcgetattr(slave, &before), 0);
        ASSERT_TRUE(before.c_lflag & ICANON); /* a fresh pty is cooked */

        DaemonOptions options;
        options.store["KERV_LISTEN_TYPE"] = "1";
        options.serial_device = device;
        daemon = std::make_unique<Daemon>(dir, modem, options);
        ASSERT_TRUE(daemon->start()) << daemon->output();
        ASSERT_TRUE(eventually([&] { return is_raw(); })) << daemon->output();
    }
    void TearDown() override {
        daemon.reset();
        close(slave);
        if (master >= 0)
            close(master);
    }
    bool is_raw() {
        struct termios now;
        return tcgetattr(slave, &now) == 0 && !(now.c_lflag & ICANON);
    }
    std::string read_master(size_t count) {
        std::string got;
        while (got.size() < count) {
            pollfd watched = {master, POLLIN, 0};
            if (poll(&watched, 1, static_cast<int>(kPatience / 1ms)) <= 0)
                break;
            char buf[256];
            const ssize_t n = read(master, buf, std::min(sizeof(buf), count - got.size()));
            if (n <= 0)
                break;
            got.append(buf, static_cast<size_t>(n));
        }
        return got;
    }
    void write_master(const std::string &bytes) {
        ASSERT_EQ(write(master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }
    TempDir dir;
    FakeModem modem;
    std::unique_ptr<Daemon> daemon;
    int master = -1;
    int slave = -1;
    std::string device;
    struct termios before;
};

TEST_F(Serial, DeviceIsSetRawAt115200WithoutSignalOrFlowCharacters) {
    struct termios raw;
    ASSERT_EQ(tcgetattr(slave, &raw), 0);
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
}

TEST_F(Serial, LinesAreAnsweredOnTheDeviceByteForByte) {
    modem.answer("AT+CSQ", {"\r\n+CSQ: 9,99\r\n\r\nOK\r\n"});
    /* Interrupt and XON/XOFF bytes are plain data now, and a line may come a byte at a time. */
    write_master(std::string("\x03\x11\x13\r"));
    for (const char c : std::string("AT+CSQ\r\n"))
        write_master(std::string(1, c));
    const std::string expected = "AT+CSQ\r\r\n+CSQ: 9,99\r\n\r\nOK\r\n";
    EXPECT_EQ(read_master(expected.size()), expected);
    ASSERT_TRUE(modem.wait_requests(1));
    EXPECT_EQ(modem.requests().size(), 1u);
    EXPECT_EQ(modem.requests()[0].text, "AT+CSQ\r");
}

TEST_F(Serial, StopRestoresTheDeviceSettings) {
    EXPECT_EQ(
        control_exchange(daemon->socket_path(),
                         packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_STOP, nullptr)),
        "");
    struct termios after;
    ASSERT_EQ(tcgetattr(slave, &after), 0);
    EXPECT_EQ(after.c_lflag, before.c_lflag);
    EXPECT_EQ(after.c_iflag, before.c_iflag);
    EXPECT_EQ(after.c_oflag, before.c_oflag);
    EXPECT_EQ(after.c_cflag, before.c_cflag);
    EXPECT_EQ(memcmp(after.c_cc, before.c_cc, sizeof(after.c_cc)), 0);
    EXPECT_NE(daemon->output().find("rollback UART settings.\n"), std::string::npos);
    /* The device is no longer read: what the host writes now is not answered (the
       terminal's own echo, back on, may show it). */
    write_master("ATE1\r");
    std::string seen;
    for (pollfd watched = {master, POLLIN, 0}; poll(&watched, 1, 300) > 0;) {
        char buf[64];
        const ssize_t n = read(master, buf, sizeof(buf));
        if (n <= 0)
            break;
        seen.append(buf, static_cast<size_t>(n));
    }
    EXPECT_EQ(seen.find("OK"), std::string::npos) << seen;
}

TEST_F(Serial, EndOfDeviceClosesTheChannelAndTheDaemonGoesOn) {
    write_master("ATE1\r");
    EXPECT_EQ(read_master(11), "ATE1\r\r\nOK\r\n");
    close(master);
    master = -1;
    EXPECT_TRUE(daemon->wait_output("UART disconnect")) << daemon->output();
    EXPECT_TRUE(daemon->wait_output("close new_fd.\n"));
    EXPECT_TRUE(daemon->wait_output("kerv_destory\n"));
    /* A STOP now finds nothing to close; the control socket still answers. */
    EXPECT_EQ(
        control_exchange(daemon->socket_path(),
                         packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_STOP, nullptr)),
        "");
    kervRequest_t reply;
    ASSERT_TRUE(unpack_reply(
        control_exchange(daemon->socket_path(),
                         packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_GEN_HASH, "E")),
        &reply));
    EXPECT_STREQ(reply.arg[0], "hash_value1=[5], hash_value2=[0]");
    EXPECT_TRUE(daemon->alive());
}

TEST_F(Serial, MissingDeviceLeavesTheDaemonWithoutAChannel) {
    TempDir other;
    DaemonOptions options;
    options.store["KERV_LISTEN_TYPE"] = "1";
    options.serial_device = other.file("ttyNONE");
    Daemon without(other, modem, options);
    ASSERT_TRUE(without.start());
    EXPECT_TRUE(without.wait_output("fail to start up listen channel.\n")) << without.output();
    EXPECT_TRUE(without.alive());
}

} // namespace
} // namespace e2e
