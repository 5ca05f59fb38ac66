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

/*
 * The daemon looks at most this far into a line for the start of a later command, and
 * takes a command only while what follows it, plus two, stays within it.
 */
constexpr size_t kMaxFollowing = 40;

bool is_a(char c) {
    return c == 'A' || c == 'a';
}
bool is_t(char c) {
    return c == 'T' || c == 't';
}

/*
 * Where the daemon finds the line's "AT": the first 'A' followed by 'T'; an 'A' followed
 * by anything else takes that character along (so "AAT" holds no command).
 */
size_t at_start(const char *line, size_t length) {
    size_t index = 0;
    while (index < length && !is_a(line[index]))
        index++;
    while (index < length && !is_t(line[index + 1])) {
        index += 2;
        while (index < length && !is_a(line[index]))
            index++;
    }
    return index;
}

size_t skip_blanks(const char *text, size_t index) {
    while (text[index] == ' ')
        index++;
    return index;
}

/*
 * A command starts with "AT" (blanks allowed after the 'A', the 'T' within the first 40
 * characters of the line); a later command may also start right at its name. "A/" is the
 * previous-command form, which needs a carriage return that a line never holds here.
 */
bool command_start_valid(const char *text, size_t index, bool first) {
    index = skip_blanks(text, index);
    if (!is_a(text[index]))
        return !first;
    index = skip_blanks(text, index + 1);
    return is_t(text[index]) && index <= kMaxFollowing;
}

/* Past the command at index: up to a ';' outside double quotes, then over ';' and blanks. */
size_t next_command(const char *text, size_t length, size_t index) {
    bool quoted = false;
    for (; index < length && (quoted || text[index] != ';'); index++) {
        if (text[index] == '"')
            quoted = !quoted;
    }
    while (index < length && (text[index] == ';' || text[index] == ' '))
        index++;
    return index;
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

void kervctl_plan_line(const char *line, kervctl_line_plan_t *plan) {
    memset(plan, 0, sizeof(*plan));
    const size_t length = strlen(line);
    if (length >= KERVCTL_LINE_REFUSED_LEN) {
        plan->answered = 1;
        plan->finals = 1;
        return;
    }
    const size_t start = at_start(line, length);
    if (start >= length || length - start < 2)
        return;
    plan->answered = 1;
    const char *text = line + start;
    const size_t text_len = length - start;
    bool stopped = false;
    for (size_t index = 0; index < text_len && !stopped;) {
        plan->finals++;
        if (!command_start_valid(text, index, plan->finals == 1)) {
            stopped = true;
            continue;
        }
        index = next_command(text, text_len, index);
        stopped = index < text_len && text_len - index + 2 > kMaxFollowing;
    }
    if (plan->finals > 1)
        plan->line_result = stopped ? KERVCTL_LINE_RESULT_MAYBE : KERVCTL_LINE_RESULT_FOLLOWS;
}

} // extern "C"
