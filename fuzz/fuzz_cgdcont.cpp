/*
 * The example plug-in's validator as the engine calls it, on any parameter text, in any
 * mode, with any room for its answer, beside a stand-in modem daemon that confirms or
 * refuses each change. The answer must fit the room it was given (guard bytes around it),
 * its length must be the one reported, it must end in OK exactly when the validator says
 * so, the command text must stay as it was, and a refused definition must leave the
 * stored contexts as they were.
 *
 * Input: mode, modem verdict, room for the answer, then the text after "AT+CGDCONT=".
 */
#include "kerv_plugin.h"

#include "modemd_stub.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

extern "C" rmmi_validator_t rmmi_validators[];

namespace {

modemd_stub::Stub *modemd = nullptr;

constexpr int kEngineRoom = 1007; /* what the engine gives: a 1008-byte buffer */
constexpr int kSmallestRoom = 9;
constexpr char kOk[] = "\r\nOK\r\n";
constexpr char kError[] = "\r\nERROR\r\n";

void check(bool holds) {
    if (!holds)
        abort();
}

struct Answer {
    kal_bool result;
    std::string text;
};

bool ends_with(const std::string &text, const std::string &tail) {
    return text.size() >= tail.size() &&
           text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

/* Runs the validator on the command text with the cursor where the engine leaves it. */
Answer run(std::string command, kal_uint8 mode, size_t name_end, int room) {
    const std::string sent = command;
    std::string test_text = rmmi_validators[0].test_mode;
    rmmi_string_struct cursor = {};
    cursor.string_ptr = reinterpret_cast<kal_uint8 *>(command.data());
    cursor.index = static_cast<kal_uint16>(name_end);
    cursor.ip_string = reinterpret_cast<kal_uint8 *>(test_text.data());
    cursor.cmd_mode = mode;
    cursor.cmd_class = RMMI_EXTENDED_CMD;

    constexpr size_t kGuard = 16;
    std::vector<char> out(kGuard + static_cast<size_t>(room) + 1 + kGuard, '\x5A');
    char *answer = out.data() + kGuard;
    int out_len = room;
    const kal_bool result = rmmi_validators[0].func(&cursor, answer, &out_len);
    for (size_t i = 0; i < kGuard; ++i)
        check(out[i] == '\x5A' && out[out.size() - 1 - i] == '\x5A');
    check(out_len >= 0 && out_len <= room && answer[out_len] == '\0');
    check(strlen(answer) == static_cast<size_t>(out_len));
    check(command == sent);
    const std::string text(answer, static_cast<size_t>(out_len));
    check(result == KAL_TRUE ? ends_with(text, kOk) : text == kError);
    return {result, text};
}

std::string stored_contexts() {
    return run("AT+CGDCONT?\r", RMMI_READ_MODE, 11, kEngineRoom).text;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    modemd = new modemd_stub::Stub; /* lives as long as the process */
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 3)
        return 0;
    const kal_uint8 mode = data[0] % (RMMI_ACTIVE_MODE + 2);
    modemd->answer(modemd_stub::Reply::text, "",
                   data[1] % 2 == 0 ? MODEM_RET_OK : MODEM_RET_CGDCONT_ERROR);
    /* Mostly the engine's room; sometimes less, down to what the error answer needs. */
    const int room = data[2] < 0xC0 ? kEngineRoom : kSmallestRoom + (data[2] - 0xC0) * 4;
    const std::string params(reinterpret_cast<const char *>(data) + 3,
                             strnlen(reinterpret_cast<const char *>(data) + 3, size - 3));

    const std::string before = stored_contexts();
    const Answer answer = run("AT+CGDCONT=" + params + "\r", mode, 11, room);
    if (answer.result == KAL_FALSE && mode == RMMI_SET_OR_EXECUTE_MODE)
        check(stored_contexts() == before);
    modemd->take_requests();
    return 0;
}
