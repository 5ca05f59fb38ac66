#include "request.h"

#include "test_support.h"

#include <cstdint>

namespace {

using bytes = std::vector<unsigned char>;
const u_int32_t M = KERV_REQUEST_ARG_MARKER;

char *text(const char *s) {
    return const_cast<char *>(s);
}

/* A packed reference as its 4-byte wire value. */
u_int32_t slot_of(const char *arg) {
    return static_cast<u_int32_t>(reinterpret_cast<uintptr_t>(arg));
}

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

/* A message header with the given slots (the rest 0) and the bytes after it. */
bytes message(u_int32_t magic, u_int16_t type, u_int16_t cmd, std::vector<u_int32_t> slots = {0},
              const std::string &strings = "") {
    bytes wire(52 + strings.size(), 0);
    memcpy(wire.data(), &magic, 4);
    memcpy(wire.data() + 4, &type, 2);
    memcpy(wire.data() + 6, &cmd, 2);
    memcpy(wire.data() + 12, slots.data(), slots.size() * 4);
    memcpy(wire.data() + 52, strings.data(), strings.size());
    return wire;
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

/* Packing happens in the record itself: its first bytes are the message, and a packed
   argument holds the marker. */
TEST(RequestPack, TheRecordBecomesTheMessageUpToTheBoundOfBuf) {
    kervRequest_t at = make_request();
    at.arg[3] = text("AT");
    ASSERT_EQ(kerv_pack_request(&at), 55);
    bytes expected = message(KERV_REQUEST_MAGIC, 0, 4, {0, 0, 0, M}, std::string("AT\0", 3));
    expected[8] = 7;
    EXPECT_EQ(wire_of(at, 55), expected);
    EXPECT_EQ(slot_of(at.arg[3]), M);
    EXPECT_EQ(at.arg[0], nullptr);

    /* 1000 + 1048 bytes with terminators fill buf exactly; one byte more fails at arg 4,
       after arg 0 was packed. */
    const std::string a(999, 'a'), b(1047, 'b'), longer(1048, 'b');
    kervRequest_t req = make_request();
    req.arg[0] = text(a.c_str());
    req.arg[4] = text(b.c_str());
    ASSERT_EQ(kerv_pack_request(&req), 2100);
    req = make_request();
    req.arg[0] = text(a.c_str());
    req.arg[4] = text(longer.c_str());
    EXPECT_EQ(kerv_pack_request(&req), -104);
    EXPECT_EQ(slot_of(req.arg[0]), M);
    EXPECT_EQ(req.arg[4], longer.c_str());

    /* One argument on its own, below an exact roof. */
    char area[3];
    char *next = area, *slot = text("AT");
    EXPECT_EQ(pack_request_string(&slot, &next, area + 2), -1);
    ASSERT_EQ(pack_request_string(&slot, &next, area + 3), 0);
    EXPECT_EQ(slot_of(slot), M);
    next = area;
    ASSERT_EQ(unpack_request_string(&slot, &next, area + 3), 0);
    EXPECT_EQ(slot, area);
    EXPECT_EQ(next, area + 3);
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
        EXPECT_EQ(kerv_unpack_request(received(message(c.magic, c.type, c.cmd)).get(), 52),
                  c.unpack_code)
            << c.type << "/" << c.cmd;
        kervRequest_t req = make_request(c.type, c.cmd);
        req.magic = c.magic;
        EXPECT_EQ(kerv_pack_request(&req), c.pack_code) << c.type << "/" << c.cmd;
    }
}

TEST(RequestUnpack, ReceivedBytesAreBoundedAndArgumentsCheckedInOrder) {
    for (int size : {-1, 51, 2101, 1 << 30})
        EXPECT_EQ(kerv_unpack_request(received(message(KERV_REQUEST_MAGIC, 0, 0)).get(), size), -1)
            << size;
    const struct {
        std::vector<u_int32_t> slots; /* slots 0.. of the message, the rest 0 */
        std::string strings;          /* the bytes after the header */
        int code;
    } cases[] = {
        {{0}, "", 0},
        {{0, 0, 1}, "", -102},
        {{M}, "", -100},
        {{M, M}, std::string("ok\0abc", 6), -101}, /* runs to the end of what came */
        {{0, M, 0, M, 5}, std::string("ok\0", 3), -103},
        {{M, M}, std::string("\0x\0junk", 7), 0},
    };
    for (const auto &c : cases) {
        const bytes wire = message(KERV_REQUEST_MAGIC, 0, 4, c.slots, c.strings);
        const auto req = received(wire);
        EXPECT_EQ(kerv_unpack_request(req.get(), static_cast<int>(wire.size())), c.code);
        /* From the failed slot on, the references hold what was received. */
        const int failed = c.code < 0 ? -100 - c.code : KERV_REQUEST_ARG_NUM;
        for (int i = failed; i < KERV_REQUEST_ARG_NUM; i++)
            EXPECT_EQ(slot_of(req->arg[i]), i < int(c.slots.size()) ? c.slots[i] : 0)
                << c.code << " arg " << i;
    }
}

TEST(RequestUnpack, RepackAndCopyGiveTheSameBytes) {
    kervRequest_t sent = make_request(0, KERV_REQUEST_CMD_RELOAD);
    sent.arg[0] = text("AT+CSQ");
    sent.arg[9] = text("second");
    const int size = kerv_pack_request(&sent);
    ASSERT_EQ(size, 52 + 7 + 7);
    const bytes wire = wire_of(sent, size);

    const auto req = received(wire);
    ASSERT_EQ(kerv_unpack_request(req.get(), size), 0);
    EXPECT_EQ(req->arg[9], req->buf + 7);
    kervRequest_t copy;
    memset(&copy, 0xEE, sizeof(copy));
    ASSERT_EQ(kerv_copy_request(&copy, req.get()), 0);
    EXPECT_EQ(copy.arg[9], copy.buf + 7);
    ASSERT_EQ(kerv_pack_request(&copy), size);
    EXPECT_EQ(wire_of(copy, size), wire);
    ASSERT_EQ(kerv_pack_request(req.get()), size);
    EXPECT_EQ(wire_of(*req, size), wire);

    /* A record copied onto itself with its strings in its buf out of argument order. */
    ASSERT_EQ(kerv_unpack_request(req.get(), size), 0);
    std::swap(req->arg[0], req->arg[9]);
    ASSERT_EQ(kerv_copy_request(req.get(), req.get()), 0);
    EXPECT_STREQ(req->arg[0], "second");
    EXPECT_STREQ(req->arg[9], "AT+CSQ");
}

} // namespace
