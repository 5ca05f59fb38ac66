#include "request.h"

#include "test_support.h"

namespace {

using bytes = std::vector<unsigned char>;
const u_int32_t M = KERV_REQUEST_ARG_MARKER;

/* A record with garbage everywhere a pack must not depend on. */
kervRequest_t make_request(u_int16_t type = 0, u_int16_t cmd = KERV_REQUEST_CMD_GEN_HASH) {
    kervRequest_t req;
    memset(&req, 0xA5, sizeof(req));
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

/* What a receiver sees: the bytes land at the start of a record full of stale data, and a
   NUL just past them must not be found. */
std::unique_ptr<kervRequest_t> received(const bytes &wire) {
    auto req = std::make_unique<kervRequest_t>();
    memset(req.get(), 0x5A, sizeof(kervRequest_t));
    memcpy(req.get(), wire.data(), wire.size());
    reinterpret_cast<char *>(req.get())[wire.size()] = '\0';
    return req;
}

TEST(RequestPack, WireBytesAndTheBoundOfBuf) {
    kervRequest_t at = make_request();
    at.arg[3] = const_cast<char *>("AT");
    ASSERT_EQ(kerv_pack_request(&at), 55);
    bytes expected = {0x50, 0x4D, 0x57, 0x43, 0x00, 0x00, 0x04, 0x00, 0x07, 0x00, 0x00, 0x00};
    expected.resize(52, 0);
    memcpy(expected.data() + 24, "\x78\x56\x34\x12", 4);
    expected.insert(expected.end(), {'A', 'T', 0});
    EXPECT_EQ(wire_of(at, 55), expected);

    /* 1000 + 1048 bytes with terminators fill buf exactly; one byte more fails at arg 4. */
    const std::string a(999, 'a'), b(1047, 'b'), longer(1048, 'b');
    kervRequest_t req = make_request();
    req.arg[0] = const_cast<char *>(a.c_str());
    req.arg[4] = const_cast<char *>(b.c_str());
    ASSERT_EQ(kerv_pack_request(&req), 2100);
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
        {KERV_REQUEST_MAGIC, 1, 5, 52, 0},
        {0x43574D51, 0, 0, -1, -2},
        {0, 2, 6, -1, -2},
        {KERV_REQUEST_MAGIC, 2, 6, -2, -3},
        {KERV_REQUEST_MAGIC, 0xFFFF, 0, -2, -3},
        {KERV_REQUEST_MAGIC, 1, 6, -3, -4},
    };
    for (const auto &c : cases) {
        kervRequest_t req = make_request(c.type, c.cmd);
        req.magic = c.magic;
        memset(req.arg_slot, 0, sizeof(req.arg_slot));
        EXPECT_EQ(kerv_unpack_request(received(wire_of(req, 52)).get(), 52), c.unpack_code)
            << c.type << "/" << c.cmd;
        EXPECT_EQ(kerv_pack_request(&req), c.pack_code) << c.type << "/" << c.cmd;
    }
}

TEST(RequestUnpack, ReceivedBytesAreBoundedAndArgumentsCheckedInOrder) {
    kervRequest_t valid = make_request();
    ASSERT_EQ(kerv_pack_request(&valid), 52);
    for (int size : {-1, 51, 2101, 1 << 30})
        EXPECT_EQ(kerv_unpack_request(received(wire_of(valid, 52)).get(), size), -1) << size;
    const struct {
        std::vector<u_int32_t> slots; /* slots 0.. of the message, the rest 0 */
        std::string strings;          /* the bytes after the header */
        int code;
    } cases[] = {
        {{0}, "", 0},
        {{0, 0, 1}, "", -102},
        {{M}, "", -100},
        {{M, M}, std::string("ok\0abc", 6), -101}, /* runs to the end of what came */
        {{0, M, 0, M}, std::string("ok\0", 3), -103},
        {{M, M}, std::string("\0x\0junk", 7), 0},
    };
    for (const auto &c : cases) {
        /* Filled by hand: GCC 12 misreads vector::insert here (a false -Warray-bounds). */
        bytes wire = wire_of(valid, 52);
        wire.resize(52 + c.strings.size());
        memcpy(wire.data() + 12, c.slots.data(), c.slots.size() * 4);
        memcpy(wire.data() + 52, c.strings.data(), c.strings.size());
        const auto req = received(wire);
        EXPECT_EQ(kerv_unpack_request(req.get(), static_cast<int>(wire.size())), c.code);
        const int failed = c.code < 0 ? -100 - c.code : KERV_REQUEST_ARG_NUM;
        for (int i = failed; i < KERV_REQUEST_ARG_NUM; i++)
            EXPECT_EQ(req->arg[i], nullptr) << c.code << " arg " << i;
    }
}

TEST(RequestUnpack, RepackAndCopyGiveTheSameBytesAndTakeNewArguments) {
    kervRequest_t sent = make_request(0, KERV_REQUEST_CMD_RELOAD);
    sent.arg[0] = const_cast<char *>("AT+CSQ");
    sent.arg[9] = const_cast<char *>("second");
    const int size = kerv_pack_request(&sent);
    ASSERT_EQ(size, 52 + 7 + 7);
    const bytes wire = wire_of(sent, size);

    const auto req = received(wire);
    ASSERT_EQ(kerv_unpack_request(req.get(), size), 0);
    ASSERT_EQ(kerv_pack_request(req.get()), size);
    EXPECT_EQ(wire_of(*req, size), wire);
    kervRequest_t copy;
    memset(&copy, 0xEE, sizeof(copy));
    ASSERT_EQ(kerv_copy_request(&copy, req.get()), 0);
    EXPECT_EQ(wire_of(copy, size), wire);
    EXPECT_EQ(copy.arg[9], copy.buf + 7);

    /* The reply replaces argument 0 with a longer text while the others lie in buf. */
    req->arg[0] = const_cast<char *>("hash_value1=[1], hash_value2=[2]");
    ASSERT_EQ(kerv_pack_request(req.get()), 52 + 33 + 7);
    EXPECT_STREQ(req->arg[9], "second");
}

} // namespace
