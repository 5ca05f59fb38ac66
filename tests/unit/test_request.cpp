#include "request.h"

#include "test_support.h"

#include <fcntl.h>
#include <random>

namespace {

using bytes = std::vector<unsigned char>;

kervRequest_t make_request(u_int16_t type = KERV_REQUEST_TYPE_APP,
                           u_int16_t cmd = KERV_REQUEST_CMD_GEN_HASH) {
    kervRequest_t req;
    memset(&req, 0xA5, sizeof(req)); /* garbage everywhere a pack must not depend on */
    req.magic = KERV_REQUEST_MAGIC;
    req.type = type;
    req.cmd = cmd;
    req.status = 7;
    for (char *&arg : req.arg)
        arg = nullptr;
    return req;
}

bytes wire_of(const kervRequest_t &req, int size) {
    const auto *start = reinterpret_cast<const unsigned char *>(&req);
    return bytes(start, start + size);
}

/* What a receiver sees: the bytes land at the start of a record full of stale data. */
kervRequest_t received(const bytes &wire) {
    kervRequest_t req;
    memset(&req, 0x5A, sizeof(req));
    memcpy(&req, wire.data(), wire.size());
    return req;
}

TEST(RequestPack, WireBytesOfEmptyAndOneArgumentRecords) {
    kervRequest_t empty = make_request();
    ASSERT_EQ(kerv_pack_request(&empty), 52);
    bytes expected = {0x50, 0x4D, 0x57, 0x43, 0x00, 0x00, 0x04, 0x00, 0x07, 0x00, 0x00, 0x00};
    expected.resize(52, 0);
    EXPECT_EQ(wire_of(empty, 52), expected);

    kervRequest_t at = make_request();
    at.arg[3] = const_cast<char *>("AT");
    ASSERT_EQ(kerv_pack_request(&at), 55);
    memcpy(expected.data() + 24, "\x78\x56\x34\x12", 4);
    expected.insert(expected.end(), {'A', 'T', 0});
    EXPECT_EQ(wire_of(at, 55), expected);
    EXPECT_EQ(at.arg[3], at.buf); /* the record stays usable after packing */
}

TEST(RequestPack, StringsFillingBufExactlyFitOneMoreByteFailsAtFirstMisfit) {
    const std::string a(999, 'a'), b(1047, 'b'), longer(1048, 'b');
    kervRequest_t req = make_request();
    req.arg[0] = const_cast<char *>(a.c_str());
    req.arg[4] = const_cast<char *>(b.c_str());
    ASSERT_EQ(kerv_pack_request(&req), 2100);
    EXPECT_STREQ(req.arg[4], b.c_str());

    req = make_request();
    req.arg[0] = const_cast<char *>(a.c_str());
    req.arg[4] = const_cast<char *>(longer.c_str());
    req.arg[7] = const_cast<char *>("x");
    EXPECT_EQ(kerv_pack_request(&req), -104);
}

TEST(RequestPack, HeaderChecksRunInOrderWithTheirCodes) {
    const struct {
        u_int32_t magic;
        u_int16_t type, cmd;
        int pack_code, unpack_code;
    } cases[] = {
        {KERV_REQUEST_MAGIC, 1, 5, 52, 0},  {0x43574D51, 0, 0, -1, -2},
        {0, 2, 6, -1, -2},                  {KERV_REQUEST_MAGIC, 2, 6, -2, -3},
        {KERV_REQUEST_MAGIC, 0xFFFF, 0, -2, -3}, {KERV_REQUEST_MAGIC, 1, 6, -3, -4},
        {KERV_REQUEST_MAGIC, 0, 0x8000, -3, -4},
    };
    for (const auto &c : cases) {
        kervRequest_t req = make_request(c.type, c.cmd);
        req.magic = c.magic;
        memset(req.arg_slot, 0, sizeof(req.arg_slot));
        kervRequest_t in = received(wire_of(req, 52));
        EXPECT_EQ(kerv_unpack_request(&in, 52), c.unpack_code) << c.type << "/" << c.cmd;
        EXPECT_EQ(kerv_pack_request(&req), c.pack_code) << c.type << "/" << c.cmd;
    }
}

TEST(RequestUnpack, ReceivedBytesAreBoundedAndArgumentsCheckedInOrder) {
    kervRequest_t valid = make_request();
    ASSERT_EQ(kerv_pack_request(&valid), 52);
    for (int size : {-1, 0, 51, 2101, 1 << 30}) {
        kervRequest_t req = valid;
        EXPECT_EQ(kerv_unpack_request(&req, size), -1) << size;
    }
    const u_int32_t M = KERV_REQUEST_ARG_MARKER;
    const struct {
        std::vector<u_int32_t> slots; /* slots 0.. of the message, the rest 0 */
        std::string strings;          /* the bytes after the header */
        int code;
    } cases[] = {
        {{}, "", 0},
        {{0, 0, 1}, "", -102},
        {{M}, "", -100},
        {{M, M}, std::string("ok\0abc", 6), -101}, /* runs to the end of what came */
        {{0, M, 0, M}, std::string("ok\0", 3), -103},
        {{M, M}, std::string("\0\0", 2), 0},
        {{M}, std::string("x\0junk", 6), 0},
    };
    for (const auto &c : cases) {
        bytes wire = wire_of(valid, 52);
        memcpy(wire.data() + 12, c.slots.data(), c.slots.size() * 4);
        wire.insert(wire.end(), c.strings.begin(), c.strings.end());
        kervRequest_t req = received(wire);
        reinterpret_cast<char *>(&req)[wire.size()] = '\0'; /* just past what came: unseen */
        EXPECT_EQ(kerv_unpack_request(&req, static_cast<int>(wire.size())), c.code) << c.code;
        const int failed = c.code < 0 ? -100 - c.code : KERV_REQUEST_ARG_NUM;
        for (int i = failed; i < KERV_REQUEST_ARG_NUM; i++)
            EXPECT_EQ(req.arg[i], nullptr) << c.code << " arg " << i;
    }
}

TEST(RequestUnpack, RepackOfUnpackedRecordGivesTheSameBytesAndTakesNewArguments) {
    kervRequest_t sent = make_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_RELOAD);
    sent.arg[0] = const_cast<char *>("AT+CSQ");
    sent.arg[2] = const_cast<char *>("");
    sent.arg[9] = const_cast<char *>("second");
    const int size = kerv_pack_request(&sent);
    ASSERT_EQ(size, 52 + 7 + 1 + 7);
    const bytes wire = wire_of(sent, size);

    kervRequest_t req = received(wire);
    ASSERT_EQ(kerv_unpack_request(&req, size), 0);
    EXPECT_STREQ(req.arg[0], "AT+CSQ");
    EXPECT_EQ(req.arg[1], nullptr);
    ASSERT_EQ(kerv_pack_request(&req), size);
    EXPECT_EQ(wire_of(req, size), wire);

    /* The reply replaces argument 0 with a longer text while the others lie in buf. */
    req.arg[0] = const_cast<char *>("hash_value1=[1], hash_value2=[2]");
    ASSERT_EQ(kerv_pack_request(&req), 52 + 33 + 1 + 7);
    EXPECT_STREQ(req.arg[0], "hash_value1=[1], hash_value2=[2]");
    EXPECT_STREQ(req.arg[9], "second");
}

TEST(RequestCopy, CopyIsSelfContainedAndLeavesSourceUnchanged) {
    kervRequest_t src = make_request();
    src.arg[1] = const_cast<char *>("one");
    src.arg[5] = const_cast<char *>("five");
    const int size = kerv_pack_request(&src);
    ASSERT_GT(size, 0);
    const bytes src_before = wire_of(src, sizeof(src));

    kervRequest_t dest;
    memset(&dest, 0xEE, sizeof(dest));
    ASSERT_EQ(kerv_copy_request(&dest, &src), 0);
    EXPECT_EQ(wire_of(src, sizeof(src)), src_before);
    EXPECT_EQ(dest.arg[1], dest.buf);
    EXPECT_STREQ(dest.arg[5], "five");
    EXPECT_EQ(wire_of(dest, size), wire_of(src, size));
    EXPECT_EQ(kerv_copy_request(nullptr, &src), -1);
    EXPECT_EQ(kerv_copy_request(&dest, nullptr), -1);
}

/* Any bytes from any local process: unpack must stay inside them and inside the record. */
TEST(RequestUnpack, RandomBytesNeverEscapeTheReceivedMessage) {
    std::mt19937 rng(20261123);
    int accepted = 0;
    for (int round = 0; round < 20000; round++) {
        const int size = static_cast<int>(rng() % 2200);
        bytes wire(static_cast<size_t>(std::min(size, KERV_REQUEST_WIRE_MAX)));
        for (unsigned char &byte : wire)
            byte = static_cast<unsigned char>(rng() % 4 == 0 ? 0 : rng());
        if (round % 2 == 0 && wire.size() >= 52) { /* a plausible header reaches the arguments */
            const u_int32_t header[3] = {KERV_REQUEST_MAGIC, u_int32_t(rng() % 2 | rng() % 6 << 16), 0};
            memcpy(wire.data(), header, sizeof(header));
            for (int i = 0; i < KERV_REQUEST_ARG_NUM; i++) {
                const u_int32_t slot = rng() % 3 == 0 ? 0 : KERV_REQUEST_ARG_MARKER;
                memcpy(wire.data() + 12 + 4 * i, &slot, 4);
            }
        }
        auto req = std::make_unique<kervRequest_t>();
        memcpy(req.get(), wire.data(), wire.size());
        if (kerv_unpack_request(req.get(), size) != 0)
            continue;
        accepted++;
        const char *end = reinterpret_cast<const char *>(req.get()) + size;
        for (const char *arg : req->arg) {
            if (arg != nullptr) {
                ASSERT_TRUE(arg >= req->buf && arg + strlen(arg) < end);
            }
        }
    }
    EXPECT_GT(accepted, 100) << "the loop must also reach fully unpacked records";
}

class ControlSocket : public testing::Test {
  protected:
    void SetUp() override { setenv(KERV_CONTROL_SOCKET_ENV, path.c_str(), 1); }
    void TearDown() override { unsetenv(KERV_CONTROL_SOCKET_ENV); }
    int listen_on_path() {
        struct sockaddr_un addr;
        const socklen_t len = kerv_control_socket_addr(&addr);
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        EXPECT_EQ(bind(fd, reinterpret_cast<struct sockaddr *>(&addr), len), 0);
        EXPECT_EQ(listen(fd, 5), 0);
        return fd;
    }
    rmmi_test::TempDir dir;
    std::string path = dir.path + "/control.socket";
};

TEST_F(ControlSocket, ConnectFailsWithoutLeakingWhenNoDaemonListens) {
    const int before = rmmi_test::open_fd_count();
    EXPECT_EQ(kerv_connect_request(), -1);
    EXPECT_EQ(errno, ENOENT);
    close(listen_on_path()); /* a socket file left behind by a daemon that is gone */
    EXPECT_EQ(kerv_connect_request(), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(rmmi_test::open_fd_count(), before);
}

TEST_F(ControlSocket, OneRequestCrossesTheSocketInOneRead) {
    const int listen_fd = listen_on_path();
    const int client = kerv_connect_request();
    ASSERT_GE(client, 0);
    const int server = kerv_accept_request(listen_fd);
    ASSERT_GE(server, 0);
    EXPECT_TRUE(fcntl(server, F_GETFD) & FD_CLOEXEC);

    kervRequest_t out = make_request();
    out.arg[0] = const_cast<char *>("+CSQ");
    const int size = kerv_pack_request(&out);
    ASSERT_EQ(write(client, &out, static_cast<size_t>(size)), size);
    kervRequest_t in;
    const ssize_t got = read(server, &in, KERV_REQUEST_WIRE_MAX);
    ASSERT_EQ(kerv_unpack_request(&in, static_cast<int>(got)), 0);
    EXPECT_STREQ(in.arg[0], "+CSQ");
    close(client);
    close(server);
    close(listen_fd);
}

} // namespace
