#include "answer_scan.h"

#include <string.h>

namespace {

enum line_kind_e { LINE_TEXT, LINE_FINAL_OK, LINE_FINAL_ERROR };

struct final_code_t {
    const char *text;
    bool whole_line; /* false: the code is followed by a cause, e.g. "+CME ERROR: 10" */
    line_kind_e kind;
};

/* The verbose final result codes an AT command server ends its answers with. */
constexpr final_code_t final_codes[] = {
    {"OK", true, LINE_FINAL_OK},
    {"ERROR", true, LINE_FINAL_ERROR},
    {"+CME ERROR:", false, LINE_FINAL_ERROR},
    {"+CMS ERROR:", false, LINE_FINAL_ERROR},
    {"NO CARRIER", true, LINE_FINAL_ERROR},
    {"BUSY", true, LINE_FINAL_ERROR},
    {"NO ANSWER", true, LINE_FINAL_ERROR},
    {"NO DIALTONE", true, LINE_FINAL_ERROR},
};

static_assert(sizeof("NO DIALTONE") <= ANSWER_SCAN_LINE_HEAD, "line head too short");

line_kind_e classify_line(const answer_scan_t *scan) {
    for (const final_code_t &code : final_codes) {
        size_t code_len = strlen(code.text);
        bool length_fits =
            code.whole_line ? scan->line_len == code_len : scan->line_len >= code_len;
        if (length_fits && memcmp(scan->line_head, code.text, code_len) == 0)
            return code.kind;
    }
    return LINE_TEXT;
}

} // namespace

void answer_scan_reset(answer_scan_t *scan) {
    memset(scan, 0, sizeof(*scan));
}

answer_count_t answer_scan_feed(answer_scan_t *scan, const char *bytes, size_t len) {
    answer_count_t count = {0, 0};
    for (size_t i = 0; i < len; i++) {
        char byte = bytes[i];
        if (byte == '\r')
            continue;
        if (byte != '\n') {
            if (scan->line_len < ANSWER_SCAN_LINE_HEAD)
                scan->line_head[scan->line_len] = byte;
            scan->line_len++;
            continue;
        }
        line_kind_e kind = classify_line(scan);
        if (kind != LINE_TEXT)
            count.answers++;
        if (kind == LINE_FINAL_ERROR)
            count.errors++;
        scan->line_len = 0;
    }
    return count;
}
