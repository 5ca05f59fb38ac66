#include "request.h"

#include "test_support.h"

#include <cstdlib>
#include <fcntl.h>
#include <random>

namespace {

using rmmi_test::open_fd_count;

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

std::vector<unsigned char> wire_of(const kervRequest_t &req, int size) {
    const auto *bytes = reinterpret_cast<const unsigned char *>(&req);
    return std::vector<unsigned char>(bytes, bytes + size);
}

/* What a receiver sees: the bytes land at the start of a record full of stale data. */
kervRequest_t received(const std::vector<unsigned char> &wire) {
    kervRequest_t req;
    memset(&req, 0x5A, sizeof(req));
    memcpy(&req, wire.data(), wire.size());
    return req;
}

std::vector<unsigned char> header_bytes(u_int16_t type, u_int16_t cmd, int status) {
    kervRequest_t req = make_request(type, cmd);
    req.status = status;
    memset(req.arg_slot, 0, sizeof(req.arg_slot));
    return wire_of(req, KERV_REQUEST_HEADER_SIZE);
}

TEST(RequestPack, EmptyAndSingleArgumentRecordsHaveExactWireBytes) {
    kervRequest_t empty = make_request();
    ASSERT_EQ(kerv_pack_request(&empty), 52);
    const std::vector<unsigned char> expected_header = {0x50, 0x4D, 0x57, 0x43, 0x00, 0x00,
                                                        0x04, 0x00, 0x07, 0x00, 0x00, 0x00};
    std::vector<unsigned char> wire = wire_of(empty, 52);
    EXPECT_EQ(std::vector<unsigned char>(wire.begin(), wire.begin() + 12), expected_header);
    EXPECT_EQ(std::vector<unsigned char>(wire.begin() + 12, wire.end()),
              std::vector<unsigned char>(40, 0));

    kervRequest_t at = make_request();
    at.arg[3] = const_cast<char *>("AT");
    ASSERT_EQ(kerv_pack_request(&at), 55);
    wire = wire_of(at, 55);
    for (int i = 0; i < KERV_REQUEST_ARG_NUM; i++)
        EXPECT_EQ(at.arg_slot[i], i == 3 ? KERV_REQUEST_ARG_MARKER : 0u) << "slot " << i;
    EXPECT_EQ(std::vector<unsigned char>(wire.begin() + 24, wire.begin() + 28),
              (std::vector<unsigned char>{0x78, 0x56, 0x34, 0x12}));
    EXPECT_EQ(memcmp(wire.data() + 52, "AT", 3), 0);
    EXPECT_EQ(at.arg[3], at.buf); /* the record stays usable after packing */
}

TEST(RequestPack, StringsFillingBufExactlyFitOneMoreByteFailsAtFirstMisfit) {
    const std::string a(999, 'a'), b(1047, 'b'); /* 1000 + 1048 = 2048 with terminators */
    kervRequest_t req = make_request();
    req.arg[0] = const_cast<char *>(a.c_str());
    req.arg[4] = const_cast<char *>(b.c_str());
    ASSERT_EQ(kerv_pack_request(&req), 2100);
    EXPECT_STREQ(req.arg[4], b.c_str());
    EXPECT_EQ(req.buf[2047], '\0');

    const std::string longer(1048, 'b');
    kervRequest_t over = make_request();
    over.arg[0] = const_cast<char *>(a.c_str());
    over.arg[4] = const_cast<char *>(longer.c_str());
    over.arg[7] = const_cast<char *>("x");
    kervRequest_t before;
    memcpy(&before, &over, sizeof(over));
    EXPECT_EQ(kerv_pack_request(&over), -104);
    EXPECT_EQ(memcmp(&over, &before, sizeof(over)), 0) << "a failed pack changes nothing";

    const std::string huge(5000, 'h');
    kervRequest_t first = make_request();
    first.arg[0] = const_cast<char *>(huge.c_str());
    EXPECT_EQ(kerv_pack_request(&first), -100);
}

struct HeaderCase {
    const char *name;
    u_int32_t magic;
    u_int16_t type;
    u_int16_t cmd;
    int pack_code;
    int unpack_code;
};

TEST(RequestPack, HeaderChecksRunInOrderWithTheirCodes) {
    const HeaderCase cases[] = {
        {"valid srv urc", KERV_REQUEST_MAGIC, 1, 5, 52, 0},
        {"bad magic", 0x43574D51, 0, 0, -1, -2},
        {"bad magic wins over bad type", 0, 2, 6, -1, -2},
        {"reserved type", KERV_REQUEST_MAGIC, 2, 0, -2, -3},
        {"type compared unsigned", KERV_REQUEST_MAGIC, 0xFFFF, 0, -2, -3},
        {"reserved cmd", KERV_REQUEST_MAGIC, 0, 6, -3, -4},
        {"type before cmd", KERV_REQUEST_MAGIC, 2, 6, -2, -3},
        {"cmd compared unsigned", KERV_REQUEST_MAGIC, 1, 0x8000, -3, -4},
    };
    for (const HeaderCase &c : cases) {
        kervRequest_t req = make_request(c.type, c.cmd);
        req.magic = c.magic;
        memset(req.arg_slot, 0, sizeof(req.arg_slot));
        kervRequest_t in = received(wire_of(req, 52));
        EXPECT_EQ(kerv_unpack_request(&in, 52), c.unpack_code) << c.name;
        EXPECT_EQ(kerv_pack_request(&req), c.pack_code) << c.name;
    }
    EXPECT_EQ(kerv_pack_request(nullptr), -1);
    EXPECT_EQ(kerv_unpack_request(nullptr, 52), -1);
}

TEST(RequestUnpack, SizeOutsideOneMessageIsRejected) {
    kervRequest_t valid = make_request();
    ASSERT_EQ(kerv_pack_request(&valid), 52);
    for (int size : {-1, 0, 51, 2101, 1 << 30}) {
        kervRequest_t req = valid;
        EXPECT_EQ(kerv_unpack_request(&req, size), -1) << size;
    }
    kervRequest_t header_only = received(wire_of(valid, 52));
    ASSERT_EQ(kerv_unpack_request(&header_only, 52), 0);
    for (const char *arg : header_only.arg)
        EXPECT_EQ(arg, nullptr);
}

struct SlotCase {
    const char *name;
    std::vector<u_int32_t> slots; /* slots 0.. of the message, the rest 0 */
    std::string strings;          /* the bytes after the header */
    int code;
};

TEST(RequestUnpack, MalformedArgumentsFailWithTheirIndex) {
    const SlotCase cases[] = {
        {"slot neither 0 nor marker", {0, 0, 1}, "", -102},
        {"marker with no bytes left", {KERV_REQUEST_ARG_MARKER}, "", -100},
        {"last string runs to the end",
         {KERV_REQUEST_ARG_MARKER, KERV_REQUEST_ARG_MARKER},
         std::string("ok\0abc", 6),
         -101},
        {"one string, two markers",
         {0, KERV_REQUEST_ARG_MARKER, 0, KERV_REQUEST_ARG_MARKER},
         std::string("ok\0", 3),
         -103},
        {"empty strings are present arguments",
         {KERV_REQUEST_ARG_MARKER, KERV_REQUEST_ARG_MARKER},
         std::string("\0\0", 2),
         0},
        {"trailing bytes ignored", {KERV_REQUEST_ARG_MARKER}, std::string("x\0junk", 6), 0},
    };
    for (const SlotCase &c : cases) {
        std::vector<unsigned char> wire = header_bytes(0, 4, 0);
        memcpy(wire.data() + 12, c.slots.data(), c.slots.size() * 4);
        /* Appended by hand: GCC 12 misreads vector::insert here (a false -Warray-bounds). */
        const size_t header_size = wire.size();
        wire.resize(header_size + c.strings.size());
        memcpy(wire.data() + header_size, c.strings.data(), c.strings.size());
        kervRequest_t req = received(wire);
        /* A NUL just past the received bytes must not be found. */
        reinterpret_cast<char *>(&req)[wire.size()] = '\0';
        EXPECT_EQ(kerv_unpack_request(&req, static_cast<int>(wire.size())), c.code) << c.name;
        const int failed = c.code < 0 ? -100 - c.code : KERV_REQUEST_ARG_NUM;
        for (int i = failed; i < KERV_REQUEST_ARG_NUM; i++)
            EXPECT_EQ(req.arg[i], nullptr) << c.name << " arg " << i;
    }
}

TEST(RequestUnpack, RepackOfUnpackedRecordGivesTheSameBytes) {
    kervRequest_t sent = make_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_RELOAD);
    sent.arg[0] = const_cast<char *>("RELOAD...");
    sent.arg[2] = const_cast<char *>("");
    sent.arg[9] = const_cast<char *>("+CSQ");
    const int size = kerv_pack_request(&sent);
    ASSERT_EQ(size, 52 + 10 + 1 + 5);
    const std::vector<unsigned char> wire = wire_of(sent, size);

    kervRequest_t req = received(wire);
    ASSERT_EQ(kerv_unpack_request(&req, size), 0);
    EXPECT_STREQ(req.arg[0], "RELOAD...");
    EXPECT_STREQ(req.arg[2], "");
    EXPECT_STREQ(req.arg[9], "+CSQ");
    EXPECT_EQ(req.arg[1], nullptr);
    EXPECT_EQ(req.arg[0], req.buf);

    ASSERT_EQ(kerv_pack_request(&req), size);
    EXPECT_EQ(wire_of(req, size), wire);
}

TEST(RequestPack, NewArgumentBesideStringsInBufPacksWithoutCorruption) {
    kervRequest_t req = make_request();
    req.arg[0] = const_cast<char *>("AT+CSQ");
    req.arg[1] = const_cast<char *>("second");
    ASSERT_GT(kerv_pack_request(&req), 0);
    /* The reply replaces argument 0 with a longer text while argument 1 lies in buf. */
    req.arg[0] = const_cast<char *>("hash_value1=[1], hash_value2=[2]");
    ASSERT_EQ(kerv_pack_request(&req), 52 + 33 + 7);
    EXPECT_STREQ(req.arg[0], "hash_value1=[1], hash_value2=[2]");
    EXPECT_STREQ(req.arg[1], "second");
    EXPECT_EQ(req.arg[1], req.buf + 33);
}

TEST(RequestCopy, CopyIsSelfContainedAndLeavesSourceUnchanged) {
    kervRequest_t src = make_request();
    src.arg[1] = const_cast<char *>("one");
    src.arg[5] = const_cast<char *>("five");
    const int size = kerv_pack_request(&src);
    ASSERT_GT(size, 0);
    kervRequest_t src_before;
    memcpy(&src_before, &src, sizeof(src));

    kervRequest_t dest;
    memset(&dest, 0xEE, sizeof(dest));
    ASSERT_EQ(kerv_copy_request(&dest, &src), 0);
    EXPECT_EQ(memcmp(&src, &src_before, sizeof(src)), 0);
    EXPECT_EQ(dest.arg[1], dest.buf);
    EXPECT_STREQ(dest.arg[5], "five");
    EXPECT_EQ(dest.arg[0], nullptr);
    EXPECT_EQ(wire_of(dest, size), wire_of(src, size));

    ASSERT_EQ(kerv_copy_request(&src, &src), 0);
    EXPECT_STREQ(src.arg[5], "five");
}

TEST(RequestCopy, NullOrInvalidRecordsAreReported) {
    kervRequest_t src = make_request();
    kervRequest_t dest;
    struct Case {
        kervRequest_t *dest;
        kervRequest_t *src;
        u_int32_t magic;
        int code;
        const char *output;
    };
    const Case cases[] = {
        {nullptr, &src, KERV_REQUEST_MAGIC, -1, "kerv_copy_request: dest is NULL\n"},
        {&dest, nullptr, KERV_REQUEST_MAGIC, -1, "kerv_copy_request: src is NULL\n"},
        {&dest, &src, 0, -1, "kerv_copy_request: pack clone request fail ret=[-1]\n"},
    };
    for (const Case &c : cases) {
        src.magic = c.magic;
        testing::internal::CaptureStdout();
        const int code = kerv_copy_request(c.dest, c.src);
        fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.output);
        EXPECT_EQ(code, c.code);
    }
}

/* Any bytes from any local process: unpack must stay inside them and inside the record. */
TEST(RequestUnpack, RandomBytesNeverEscapeTheReceivedMessage) {
    std::mt19937 rng(20261123);
    int accepted = 0;
    for (int round = 0; round < 20000; round++) {
        const int size = static_cast<int>(rng() % 2200);
        const int stored = size < KERV_REQUEST_WIRE_MAX ? size : KERV_REQUEST_WIRE_MAX;
        std::vector<unsigned char> wire(static_cast<size_t>(stored));
        for (unsigned char &byte : wire)
            byte = static_cast<unsigned char>(rng() % 4 == 0 ? 0 : rng());
        if (round % 2 == 0 && stored >= 52) { /* a plausible header reaches the arguments */
            const std::vector<unsigned char> header = header_bytes(rng() % 2, rng() % 6, 0);
            memcpy(wire.data(), header.data(), 12);
            for (int i = 0; i < KERV_REQUEST_ARG_NUM; i++) {
                const u_int32_t slot = rng() % 3 == 0 ? 0 : KERV_REQUEST_ARG_MARKER;
                memcpy(wire.data() + 12 + 4 * i, &slot, 4);
            }
        }
        kervRequest_t *req = new kervRequest_t;
        if (!wire.empty())
            memcpy(req, wire.data(), wire.size());
        const int code = kerv_unpack_request(req, size);
        const char *end = reinterpret_cast<const char *>(req) + size;
        if (code == 0) {
            accepted++;
            for (const char *arg : req->arg) {
                if (arg == nullptr)
                    continue;
                ASSERT_GE(arg, req->buf);
                ASSERT_LT(arg + strlen(arg), end);
            }
            ASSERT_EQ(kerv_pack_request(req) <= size, true);
        } else {
            ASSERT_TRUE((code >= -4 && code <= -1) || (code >= -109 && code <= -100)) << code;
        }
        delete req;
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
        EXPECT_EQ(len, path.size() + 2);
        const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
        EXPECT_EQ(bind(fd, reinterpret_cast<struct sockaddr *>(&addr), len), 0);
        EXPECT_EQ(listen(fd, 5), 0);
        return fd;
    }
    rmmi_test::TempDir dir;
    std::string path = dir.path + "/control.socket";
};

TEST_F(ControlSocket, PathComesFromEnvironmentElseDefault) {
    EXPECT_EQ(std::string(kerv_control_socket_path()), path);
    setenv(KERV_CONTROL_SOCKET_ENV, "", 1);
    EXPECT_STREQ(kerv_control_socket_path(), "/tmp/kerv.socket");
    unsetenv(KERV_CONTROL_SOCKET_ENV);
    EXPECT_STREQ(kerv_control_socket_path(), "/tmp/kerv.socket");

    setenv(KERV_CONTROL_SOCKET_ENV, std::string(200, 'p').c_str(), 1);
    struct sockaddr_un addr;
    EXPECT_EQ(kerv_control_socket_addr(&addr), 0u);
    EXPECT_EQ(kerv_connect_request(), -1);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(ControlSocket, ConnectFailsWithoutLeakingWhenNoDaemonListens) {
    const int before = open_fd_count();
    EXPECT_EQ(kerv_connect_request(), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(open_fd_count(), before);

    close(listen_on_path()); /* a socket file left behind by a daemon that is gone */
    ASSERT_EQ(access(path.c_str(), R_OK | W_OK), 0);
    EXPECT_EQ(kerv_connect_request(), -1);
    EXPECT_EQ(errno, ECONNREFUSED);
    EXPECT_EQ(open_fd_count(), before);

    EXPECT_EQ(kerv_accept_request(-1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(ControlSocket, OneRequestAndReplyCrossTheSocketInOneReadEach) {
    const int listen_fd = listen_on_path();
    const int client = kerv_connect_request();
    ASSERT_GE(client, 0);
    const int server = kerv_accept_request(listen_fd);
    ASSERT_GE(server, 0);
    EXPECT_TRUE(fcntl(server, F_GETFD) & FD_CLOEXEC);
    EXPECT_TRUE(fcntl(client, F_GETFD) & FD_CLOEXEC);

    kervRequest_t out = make_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_GEN_HASH);
    out.arg[0] = const_cast<char *>("+CSQ");
    const int size = kerv_pack_request(&out);
    ASSERT_EQ(write(client, &out, static_cast<size_t>(size)), size);

    kervRequest_t in;
    const ssize_t got = read(server, &in, KERV_REQUEST_WIRE_MAX);
    ASSERT_EQ(got, size);
    ASSERT_EQ(kerv_unpack_request(&in, static_cast<int>(got)), 0);
    EXPECT_STREQ(in.arg[0], "+CSQ");
    EXPECT_EQ(in.cmd, KERV_REQUEST_CMD_GEN_HASH);
    close(client);
    close(server);
    close(listen_fd);
}

} // namespace
