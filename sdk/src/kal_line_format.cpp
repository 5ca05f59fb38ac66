#include "kal_line.h"

#include <cstdio>
#include <cstring>

namespace {

/* Bytes written into a fixed area; what does not fit is counted, not written. */
struct LineWriter {
    char *at;
    size_t room;
    size_t len;

    void put(const char *bytes, size_t n) {
        if (len + n <= room)
            memcpy(at + len, bytes, n);
        len += n;
    }
    void put_text(const char *text) { put(text, strlen(text)); }
    void put_unsigned(unsigned int value, unsigned int base) {
        char digits[sizeof(unsigned int) * 8];
        size_t count = 0;
        do {
            digits[sizeof(digits) - ++count] = "0123456789abcdef"[value % base];
            value /= base;
        } while (value != 0);
        put(digits + sizeof(digits) - count, count);
    }
    void put_int(int value) {
        if (value < 0)
            put("-", 1);
        put_unsigned(value < 0 ? 0u - static_cast<unsigned int>(value)
                               : static_cast<unsigned int>(value),
                     10);
    }
};

/*
 * printf's plain conversions, %s %d %i %u %x %c and %%, which are what the daemon's messages
 * use, without the stdio formatter's set-up, which is most of what a short line costs. False
 * when the format holds anything else (flags, widths, precisions, lengths): the caller then
 * formats the line with vsnprintf.
 */
bool put_plain_format(LineWriter *out, const char *fmt, va_list args) {
    for (const char *next = fmt;;) {
        const char *percent = strchr(next, '%');
        if (percent == nullptr) {
            out->put_text(next);
            return true;
        }
        out->put(next, static_cast<size_t>(percent - next));
        switch (percent[1]) {
        case 's': {
            const char *text = va_arg(args, const char *);
            out->put_text(text != nullptr ? text : "(null)");
            break;
        }
        case 'd':
        case 'i':
            out->put_int(va_arg(args, int));
            break;
        case 'u':
            out->put_unsigned(va_arg(args, unsigned int), 10);
            break;
        case 'x':
            out->put_unsigned(va_arg(args, unsigned int), 16);
            break;
        case 'c': {
            const char c = static_cast<char>(va_arg(args, int));
            out->put(&c, 1);
            break;
        }
        case '%':
            out->put("%", 1);
            break;
        default:
            return false;
        }
        next = percent + 2;
    }
}

} // namespace

size_t kal_format_line(char *at, size_t room, const kal_line_shape &shape, const char *fmt,
                       va_list args) {
    LineWriter out = {at, room, 0};
    if (shape.func != nullptr) {
        out.put_text("[KERV] <");
        out.put_text(shape.func);
        out.put(":", 1);
        out.put_int(shape.line);
        out.put(">", 1);
    }
    const size_t head = out.len;
    va_list copy;
    va_copy(copy, args);
    const bool plain = put_plain_format(&out, fmt, copy);
    va_end(copy);
    if (!plain) {
        if (head > room)
            return 0;
        va_copy(copy, args);
        const int text = vsnprintf(at + head, room - head, fmt, copy);
        va_end(copy);
        if (text < 0)
            return 0;
        out.len = head + static_cast<size_t>(text);
    }
    out.put_text(shape.end);
    return out.len <= room ? out.len : 0;
}
