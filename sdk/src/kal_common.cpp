#include "kal_common.h"
#include "kal_gather.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <climits>
#include <cstring>
#include <poll.h>
#include <unistd.h>

kal_uint32 g_dbg_print = 0;

namespace {

/* Holds the stdout lock for one diagnostic line. */
struct StdoutLineLock {
    StdoutLineLock() { flockfile(stdout); }
    ~StdoutLineLock() { funlockfile(stdout); }
    StdoutLineLock(const StdoutLineLock &) = delete;
    StdoutLineLock &operator=(const StdoutLineLock &) = delete;
};

constexpr const char *kLevelLines[] = {
    nullptr,
    "dbg = [WARNING]\r",
    "dbg = [WARNING, ERROR]\r",
    "dbg = [WARNING, ERROR, INFO]\r",
    "dbg = [WARNING, ERROR, INFO, DBG]\r",
    "dbg = [WARNING, ERROR, INFO, FUNCTION, DBG]\r",
};

/* "\r" written with puts: a carriage return and a line feed end every gated line. */
constexpr const char kLineEndCrLf[] = "\r\n";

/* How a diagnostic line is framed around its text. */
struct LineShape {
    const char *func; /* "[KERV] <func:line>" before the text; none when null */
    int line;
    const char *end;
};

/*
 * The gathering buffer: complete lines of the request now running, gathered_len bytes of
 * them. Only the thread that owns it (gathering) appends; a signal handler on any thread may
 * read the committed part, which is why the length is published only after a line is whole.
 */
constexpr size_t kGatherBytes = 4096;
char gathered[kGatherBytes];
std::atomic<size_t> gathered_len{0};
std::atomic<bool> gather_owned{false};
/* Initial-exec: the library is loaded with the program, and this is read on every line. */
__attribute__((tls_model("initial-exec"))) thread_local bool gathering = false;

void write_fully(int fd, const char *bytes, size_t len) {
    while (len > 0) {
        const ssize_t written = write(fd, bytes, len);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return;
        bytes += written;
        len -= static_cast<size_t>(written);
    }
}

/* Under the stdout lock: whatever stdio holds goes first, then the gathered lines. */
void write_gathered() {
    const size_t len = gathered_len.load(std::memory_order_relaxed);
    if (len == 0)
        return;
    fflush(stdout);
    write_fully(fileno(stdout), gathered, len);
    gathered_len.store(0, std::memory_order_release);
}

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

/* Formats the whole line into at[0, room); its length, or 0 when it does not fit. */
size_t format_line(char *at, size_t room, const LineShape &shape, const char *fmt, va_list args) {
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

/* Appends the line to the gathered ones, making room by writing them out first if need be;
   false when the line is longer than the whole buffer. */
bool gather_line(const LineShape &shape, const char *fmt, va_list args) {
    size_t len = gathered_len.load(std::memory_order_relaxed);
    size_t added = format_line(gathered + len, kGatherBytes - len, shape, fmt, args);
    if (added == 0 && len > 0) {
        kal_gather_flush();
        len = 0;
        added = format_line(gathered, kGatherBytes, shape, fmt, args);
    }
    if (added == 0)
        return false;
    gathered_len.store(len + added, std::memory_order_release);
    return true;
}

/* The line as stdio writes it, at once. */
void print_at_once(const LineShape &shape, const char *fmt, va_list args) {
    StdoutLineLock lock;
    if (gathering)
        write_gathered();
    if (shape.func != nullptr)
        printf("[KERV] <%s:%d>", shape.func, shape.line);
    vprintf(fmt, args);
    fputs(shape.end, stdout);
}

/* One diagnostic line of the given level (0: printed whatever the level). */
void print_line(kal_uint32 level, const LineShape &shape, const char *fmt, va_list args) {
    if (!gathering || !gather_line(shape, fmt, args)) {
        print_at_once(shape, fmt, args);
        return;
    }
    if (level == KAL_DBG_ERROR)
        kal_gather_flush();
}

void print_linef(kal_uint32 level, const LineShape &shape, const char *fmt, ...)
    __attribute__((format(printf, 3, 4)));
void print_linef(kal_uint32 level, const LineShape &shape, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    print_line(level, shape, fmt, args);
    va_end(args);
}

} // namespace

extern "C" {

void kal_init(unsigned int dbg) {
    g_dbg_print = dbg;
    const unsigned int shown =
        dbg > KAL_DBG_FUNCTION ? static_cast<unsigned int>(KAL_DBG_FUNCTION) : dbg;
    if (shown != 0)
        puts(kLevelLines[shown]);
}

void *get_ctrl_buffer(kal_uint32 allocSize) {
    KERV_TAG(KAL_DBG_FUNCTION, "GET_CTRL_BUFFER");
    void *block = malloc(allocSize);
    if (block == nullptr)
        return nullptr;
    memset(block, 0, allocSize);
    return block;
}

void free_ctrl_buffer(void *memBlock) {
    KERV_TAG(KAL_DBG_FUNCTION, "FREE_CTRL_BUFFER");
    free(memBlock);
}

void *kal_mem_set(void *dest, kal_uint32 c, kal_uint32 size) {
    return memset(dest, static_cast<int>(c & 0xFFu), size);
}

void *kal_mem_cpy(void *dest, const void *src, kal_uint32 count) {
    return memcpy(dest, src, count);
}

int kal_sprintf(char *buffer, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int written = vsprintf(buffer, fmt, args);
    va_end(args);
    return written;
}

void kal_print_gated(kal_uint32 level, const char *func, int line, const char *fmt, ...) {
    if (g_dbg_print < level)
        return;
    va_list args;
    va_start(args, fmt);
    print_line(level, {func, line, kLineEndCrLf}, fmt, args);
    va_end(args);
}

void kal_print_tag(kal_uint32 level, const char *tag) {
    if (g_dbg_print < level)
        return;
    print_linef(level, {nullptr, 0, kLineEndCrLf}, "[KERV] <%s>", tag);
}

void kal_print_always(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    print_line(0, {nullptr, 0, "\n"}, fmt, args);
    va_end(args);
}

void kal_gather_begin(void) {
    if (gathering)
        return;
    bool expected = false;
    gathering = gather_owned.compare_exchange_strong(expected, true, std::memory_order_acquire);
}

void kal_gather_end(void) {
    if (!gathering)
        return;
    kal_gather_flush();
    gathering = false;
    gather_owned.store(false, std::memory_order_release);
}

void kal_gather_flush(void) {
    if (!gathering)
        return;
    StdoutLineLock lock;
    write_gathered();
}

void kal_gather_write_on_signal(void) {
    const size_t len = gathered_len.load(std::memory_order_acquire);
    const int saved_errno = errno;
    const size_t written = kal_write_without_blocking(STDOUT_FILENO, gathered, len);
    if (written < len) {
        char line[80];
        size_t line_len = kal_put_decimal(line, static_cast<unsigned int>(len - written));
        constexpr char kDropped[] = " bytes of diagnostics dropped: standard output is full\n";
        memcpy(line + line_len, kDropped, sizeof(kDropped) - 1);
        line_len += sizeof(kDropped) - 1;
        kal_write_without_blocking(STDOUT_FILENO, line, line_len);
    }
    errno = saved_errno;
}

/* A pipe that reports room takes a write of up to PIPE_BUF bytes whole, without blocking;
   so does a socket or terminal that reports room, for such a small write. */
size_t kal_write_without_blocking(int fd, const char *bytes, size_t len) {
    size_t written = 0;
    while (written < len) {
        struct pollfd room = {fd, POLLOUT, 0};
        if (poll(&room, 1, 0) != 1 || (room.revents & POLLOUT) == 0)
            break;
        const size_t chunk = len - written < PIPE_BUF ? len - written : PIPE_BUF;
        const ssize_t took = write(fd, bytes + written, chunk);
        if (took < 0 && errno == EINTR)
            continue;
        if (took <= 0)
            break;
        written += static_cast<size_t>(took);
    }
    return written;
}

size_t kal_put_decimal(char *at, unsigned int n) {
    char digits[10];
    size_t count = 0;
    do {
        digits[count++] = static_cast<char>('0' + n % 10);
        n /= 10;
    } while (n != 0);
    for (size_t i = 0; i < count; i++)
        at[i] = digits[count - 1 - i];
    return count;
}

} // extern "C"
