/*
 * Any bytes as one command line through the AT engine: answers go to /dev/null, a stand-in
 * modem daemon answers every relayed command, and every name is also hashed the way the
 * GEN_HASH request does. Whatever the line, nothing may be read or written outside a
 * buffer and no line flag may be left set for the next line.
 */
#include "command_name_hash.h"
#include "engine_context.h"
#include "engine_entry.h"

#include "modemd_stub.h"

#include <fcntl.h>

#include <cstdio>

namespace {

int null_fd = -1;
modemd_stub::Stub *modemd = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    null_fd = open("/dev/null", O_WRONLY);
    rmmi_init();
    rmmi_read_custom_default_setting(RMMI_PROCESS_CMD_FROM_SOCKET_PORT, RMMI_MODEMD_23G,
                                     RMMI_VERBOSE_FULL_HEAD_TAIL);
    modemd = new modemd_stub::Stub; /* lives as long as the process */
    /* The number reader of ATE/ATV always prints; keep it out of the fuzzer's output. */
    if (freopen("/dev/null", "w", stdout) == nullptr)
        return 1;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    const std::string line(reinterpret_cast<const char *>(data), size);
    rmmi_process_multi_cmd(null_fd, line.c_str());
    const rmmi_context_struct *context = rmmi_get_context_ptr();
    if ((context->is_multi_cmd & 1u) != 0 || (context->multi_cmd_error & 1u) != 0)
        abort();
    modemd->take_requests();
    kal_uint32 h1 = 0, h2 = 0;
    rmmi_custom_compute_at_cmd(line.c_str(), &h1, &h2);
    char answer[64];
    rmmi_process_calcuate_cmd(-1, line.c_str(), answer, sizeof(answer) - 1);
    return 0;
}
