#include "two_step.h"

#include "kerv_md_request.h"
#include "request_queue.h"

#include <atomic>
#include <cctype>
#include <cstring>
#include <strings.h>

namespace {

std::atomic<bool> prompt_commands{false};

/* The open text: the line, its carriage return and the text so far. Bounded by what one
   modem request carries, the Ctrl-Z included. */
struct two_step_text {
    bool open;
    bool refused; /* grew past the bound: answered, the rest is dropped up to its end */
    size_t len;
    char request[MODEM_REQUEST_MAX_TEXT + 1];
};
two_step_text text; /* channel server thread only */

/* "AT" and the command name, then '=' and not '?': the set form, alone on its line. */
bool is_set_form(const char *line, size_t line_len, const char *name) {
    const size_t name_len = strlen(name);
    if (line_len <= name_len + 1 || strncasecmp(line, name, name_len) != 0)
        return false;
    return line[name_len] == '=' && line[name_len + 1] != '?' &&
           memchr(line, ';', line_len) == nullptr;
}

/* AT+CNMA=<n>,<length>: only a non-zero length brings a text (an acknowledgement PDU). */
bool has_length(const char *line, size_t line_len) {
    const char *comma = static_cast<const char *>(memchr(line, ',', line_len));
    if (comma == nullptr)
        return false;
    for (const char *digit = comma + 1; digit < line + line_len; ++digit)
        if (isdigit(static_cast<unsigned char>(*digit)) && *digit != '0')
            return true;
    return false;
}

bool is_two_step(const char *line, size_t line_len) {
    return is_set_form(line, line_len, "AT+CMGS") || is_set_form(line, line_len, "AT+CMGW") ||
           is_set_form(line, line_len, "AT+CMGC") ||
           (is_set_form(line, line_len, "AT+CNMA") && has_length(line, line_len));
}

void queue(kerv_work_e kind, int host_fd, const char *bytes, size_t len) {
    struct req *req = kerv_req_create(kind, host_fd, bytes, len);
    if (req == nullptr) {
        KERV_WARN("Can't malloc for pending req : %s !!", strerror(errno));
        return;
    }
    appReqEnqueue(req);
}

void end_text(int host_fd, char end) {
    text.open = false;
    if (text.refused)
        return;
    if (end == KERV_TEXT_CANCEL) {
        queue(KERV_WORK_PROMPT_CANCEL, host_fd, nullptr, 0);
        return;
    }
    text.request[text.len++] = end;
    queue(KERV_WORK_TWO_STEP, host_fd, text.request, text.len);
}

} // namespace

void kerv_two_step_configure(kal_bool on) {
    prompt_commands = on == KAL_TRUE;
}

kal_bool kerv_two_step_begin(int host_fd, const char *line, size_t line_len) {
    if (!prompt_commands || !is_two_step(line, line_len))
        return KAL_FALSE;
    /* Room for the carriage return and the Ctrl-Z at least; a longer line is an
       ordinary one (and fails as one). */
    if (line_len + 2 > MODEM_REQUEST_MAX_TEXT)
        return KAL_FALSE;
    queue(KERV_WORK_PROMPT, host_fd, line, line_len);
    memcpy(text.request, line, line_len);
    text.request[line_len] = '\r';
    text.len = line_len + 1;
    text.open = true;
    text.refused = false;
    return KAL_TRUE;
}

kal_bool kerv_two_step_text_open() {
    return text.open ? KAL_TRUE : KAL_FALSE;
}

size_t kerv_two_step_take(int host_fd, const char *bytes, size_t len) {
    size_t taken = 0;
    while (taken < len) {
        const char byte = bytes[taken++];
        if (byte == KERV_TEXT_SEND || byte == KERV_TEXT_CANCEL) {
            end_text(host_fd, byte);
            return taken;
        }
        if (text.refused)
            continue;
        /* The Ctrl-Z must still fit behind the text. */
        if (text.len + 1 >= MODEM_REQUEST_MAX_TEXT) {
            text.refused = true;
            queue(KERV_WORK_LINE_TOO_LONG, host_fd, nullptr, 0);
            continue;
        }
        text.request[text.len++] = byte;
    }
    return taken;
}

void kerv_two_step_reset() {
    text.open = false;
}
