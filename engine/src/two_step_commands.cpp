/*
 * The engine's side of the two-step commands (engine_entry.h): the prompt after the
 * command line, and the command with its message text relayed as one modem request.
 */
#include "command_analyzer.h"
#include "engine_context.h"
#include "engine_entry.h"
#include "modem_relay.h"
#include "response_format.h"

#include <cstring>

namespace {

constexpr char kPrompt[] = "\r\n> ";

void write_text(int fd, const char *text) {
    rmmi_write_output(fd, text, strlen(text));
}

} // namespace

extern "C" {

void rmmi_two_step_prompt(int fd, const char *line) {
    const rmmi_context_struct *context = rmmi_get_context_ptr();
    if (context == nullptr)
        return;
    /* The echo is the command as typed with its carriage return, like any command's. */
    char echo[RMMI_MAX_LINE_LEN + 6];
    size_t kept = 0;
    if (context->rsp_mode.echo_flag != RMMI_ECHO_OFF) {
        kept = strnlen(line, RMMI_MAX_LINE_LEN);
        memcpy(echo, line, kept);
        echo[kept++] = '\r';
    }
    memcpy(echo + kept, kPrompt, sizeof(kPrompt) - 1);
    rmmi_write_output(fd, echo, kept + sizeof(kPrompt) - 1);
}

void rmmi_two_step_send(int fd, const char *request) {
    rmmi_context_struct *context = rmmi_get_context_ptr();
    if (context == nullptr)
        return;
    char response[RMMI_RSP_BUFFER_SIZE] = {};
    kal_uint32 length = RMMI_RSP_BUFFER_ROOM;
    const kal_uint32 result = send_cmd_to_md(
        rmmi_relay_target(context), reinterpret_cast<kal_uint8 *>(const_cast<char *>(request)),
        response, &length);
    if (result != RMMI_NO_ERR) {
        write_text(fd, RMMI_ERROR_RESULT);
        return;
    }
    /* The modem's answer (+CMGS: <mr> and OK, or its error) goes to the host as it is. */
    response[RMMI_RSP_BUFFER_ROOM] = 0;
    write_text(fd, response);
}

void rmmi_two_step_cancel(int fd) {
    write_text(fd, RMMI_OK_RESULT);
}

} // extern "C"
