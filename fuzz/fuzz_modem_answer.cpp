/*
 * Any datagram as the modem daemon's answer, to both of its clients: the engine's relay
 * (send_cmd_to_md) and the plug-ins' general request (kerv_md_request). The stand-in modem
 * daemon sends the fuzz bytes back as the whole datagram. Whatever they hold, each client
 * writes only within the room it was given (guard bytes around it) and always leaves a
 * terminated text there; the relay passes on exactly the answer's text as its contract
 * cuts it, and the general request succeeds only on a whole header whose result is OK.
 *
 * Input: the room for the relay's text (two bytes), then the datagram.
 */
#include "kerv_md_request.h"
#include "modem_relay.h"
#include "modemd_stub.h"
#include "rmmi_common.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

modemd_stub::Stub *modemd = nullptr;

void check(bool holds) {
    if (!holds)
        abort();
}

/* A text buffer of exactly size bytes between guard bytes, filled with a marker. */
struct Guarded {
    static constexpr size_t kGuard = 16;
    std::vector<char> bytes;
    explicit Guarded(size_t size) : bytes(size + 2 * kGuard, '\x5A') {}
    char *data() { return bytes.data() + kGuard; }
    size_t size() const { return bytes.size() - 2 * kGuard; }
    bool guards_intact() const {
        for (size_t i = 0; i < kGuard; ++i)
            if (bytes[i] != '\x5A' || bytes[bytes.size() - 1 - i] != '\x5A')
                return false;
        return true;
    }
    bool terminated() { return memchr(data(), '\0', size()) != nullptr; }
};

uint32_t field(const std::string &datagram, size_t offset) {
    uint32_t value = 0;
    memcpy(&value, datagram.data() + offset, sizeof(value));
    return value;
}

/*
 * What the relay hands on for a whole answer: the text (up to its first NUL) and a line
 * feed, cut to data_len characters and to the room less the terminator.
 */
std::string relayed_text(const std::string &datagram, size_t room) {
    const uint32_t data_len = field(datagram, 24);
    const std::string data = datagram.substr(MODEM_RESPONSE_HEADER_SIZE, MODEM_RESPONSE_DATA_SIZE);
    std::string text = data.substr(0, data.find('\0')) + "\n";
    return text.substr(0, std::min<size_t>({text.size(), size_t{data_len}, room - 1}));
}

void check_relay(const std::string &datagram, size_t room) {
    Guarded out(room);
    kal_uint32 length = static_cast<kal_uint32>(room);
    char command[] = "AT+CSQ\r";
    const kal_uint32 result = send_cmd_to_md(
        MODEM_TARGET_LTE, reinterpret_cast<kal_uint8 *>(command), out.data(), &length);
    check(out.guards_intact() && out.terminated());
    const bool whole = datagram.size() >= MODEM_RESPONSE_HEADER_SIZE;
    check(result == (whole && field(datagram, 24) != 0 ? RMMI_NO_ERR : NO_NW_SERVICE));
    if (result == RMMI_NO_ERR) {
        check(length == field(datagram, 24) + 1);
        check(out.data() == relayed_text(datagram, room));
    }
}

void check_general_request(const std::string &datagram, size_t room) {
    kerv_md_request_t request{};
    request.target = MODEM_TARGET_DAEMON;
    request.request_id = MODEM_REQ_GET_STATUS;
    Guarded out(room);
    const int result = kerv_md_request(&request, out.data(), static_cast<unsigned int>(room));
    check(out.guards_intact() && out.terminated());
    const bool ok = datagram.size() >= MODEM_RESPONSE_HEADER_SIZE && field(datagram, 16) == 0;
    check(result == (ok ? 0 : 1));
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    /* Every request is answered, but on a loaded machine the stand-in's thread may take a
       while: 60 waits of 50 ms leave it three seconds before an answer counts as missing
       (and the next exchange would take the missing one's answer). */
    setenv("KERVD_MODEMD_WAIT_MS", "50", 1);
    modemd = new modemd_stub::Stub; /* lives as long as the process; publishes its port */
    return modemd->bound() ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 2)
        return 0;
    /* Mostly the engine's room, sometimes as little as one byte. */
    const size_t room = data[0] < 0x80 ? 1007 : 1 + (data[0] | data[1] << 8) % 1500;
    const std::string datagram(reinterpret_cast<const char *>(data) + 2, size - 2);
    modemd->answer_next_raw(datagram);
    modemd->answer_next_raw(datagram);
    check_relay(datagram, room);
    check_general_request(datagram, room);
    modemd->take_requests();
    return 0;
}
