#include "kervctl_answer.h"

#include <cstring>

namespace {

struct FinalCode {
    const char *text;
    bool is_prefix; /* the code carries a number after its text */
    kervctl_answer_e result;
};

/*
 * Numeric codes are recognised whatever format is in force: a client cannot know whether
 * an earlier host switched the daemon to numeric codes, and no answer line of a command
 * consists of a lone 0, 3 or 4. The daemon's numeric ERROR is 3; modems use 4.
 */
constexpr FinalCode kFinalCodes[] = {
    {"OK", false, KERVCTL_ANSWER_OK},
    {"0", false, KERVCTL_ANSWER_OK},
    {"ERROR", false, KERVCTL_ANSWER_FAILED},
    {"3", false, KERVCTL_ANSWER_FAILED},
    {"4", false, KERVCTL_ANSWER_FAILED},
    {"+CME ERROR:", true, KERVCTL_ANSWER_FAILED},
    {"+CMS ERROR:", true, KERVCTL_ANSWER_FAILED},
    {"NO CARRIER", false, KERVCTL_ANSWER_FAILED},
    {"BUSY", false, KERVCTL_ANSWER_FAILED},
    {"NO ANSWER", false, KERVCTL_ANSWER_FAILED},
    {"NO DIALTONE", false, KERVCTL_ANSWER_FAILED},
};

bool is_line_end(char c) {
    return c == '\r' || c == '\n';
}

} // namespace

extern "C" {

void kervctl_answer_reset(kervctl_answer_scan_t *scan) {
    memset(scan, 0, sizeof(*scan));
}

kervctl_answer_e kervctl_final_result(const char *line, size_t len) {
    for (const FinalCode &code : kFinalCodes) {
        const size_t code_len = strlen(code.text);
        const bool matches = code.is_prefix
                                 ? len > code_len && memcmp(line, code.text, code_len) == 0
                                 : len == code_len && memcmp(line, code.text, len) == 0;
        if (matches)
            return code.result;
    }
    return KERVCTL_ANSWER_PENDING;
}

kervctl_answer_e kervctl_answer_feed(kervctl_answer_scan_t *scan, const char *bytes, size_t len,
                                     size_t *used) {
    for (size_t i = 0; i < len; i++) {
        const char c = bytes[i];
        if (!is_line_end(c)) {
            if (scan->len < KERVCTL_ANSWER_LINE_MAX)
                scan->line[scan->len] = c;
            scan->len++;
            continue;
        }
        const bool whole = scan->len <= KERVCTL_ANSWER_LINE_MAX;
        const kervctl_answer_e result =
            whole ? kervctl_final_result(scan->line, scan->len) : KERVCTL_ANSWER_PENDING;
        scan->len = 0;
        if (result == KERVCTL_ANSWER_PENDING)
            continue;
        /* Keep the line feed of "\r\n" with the final code it ends. */
        if (c == '\r' && i + 1 < len && bytes[i + 1] == '\n')
            i++;
        *used = i + 1;
        return result;
    }
    *used = len;
    return KERVCTL_ANSWER_PENDING;
}

int kervctl_line_command_count(const char *line) {
    int count = 1;
    bool quoted = false;
    for (const char *p = line; *p != '\0'; p++) {
        if (*p == '"')
            quoted = !quoted;
        else if (*p == ';' && !quoted)
            count++;
    }
    return count;
}

} // extern "C"
