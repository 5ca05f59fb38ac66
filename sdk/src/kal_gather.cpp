#include "kal_gather.h"

#include "kal_io.h"
#include "kal_line.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <unistd.h>

namespace {

/* Holds the stdout lock for one diagnostic line. */
struct StdoutLineLock {
    StdoutLineLock() { flockfile(stdout); }
    ~StdoutLineLock() { funlockfile(stdout); }
    StdoutLineLock(const StdoutLineLock &) = delete;
    StdoutLineLock &operator=(const StdoutLineLock &) = delete;
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

/* Under the stdout lock: whatever stdio holds goes first, then the gathered lines. */
void write_gathered() {
    const size_t len = gathered_len.load(std::memory_order_relaxed);
    if (len == 0)
        return;
    fflush(stdout);
    kal_write_all(fileno(stdout), gathered, len);
    gathered_len.store(0, std::memory_order_release);
}

/* Appends the line to the gathered ones, making room by writing them out first if need be;
   false when the line is longer than the whole buffer. */
bool gather_line(const kal_line_shape &shape, const char *fmt, va_list args) {
    size_t len = gathered_len.load(std::memory_order_relaxed);
    size_t added = kal_format_line(gathered + len, kGatherBytes - len, shape, fmt, args);
    if (added == 0 && len > 0) {
        kal_gather_flush();
        len = 0;
        added = kal_format_line(gathered, kGatherBytes, shape, fmt, args);
    }
    if (added == 0)
        return false;
    gathered_len.store(len + added, std::memory_order_release);
    return true;
}

/* The line as stdio writes it, at once. */
void print_at_once(const kal_line_shape &shape, const char *fmt, va_list args) {
    StdoutLineLock lock;
    if (gathering)
        write_gathered();
    if (shape.func != nullptr)
        printf("[KERV] <%s:%d>", shape.func, shape.line);
    vprintf(fmt, args);
    fputs(shape.end, stdout);
}

} // namespace

void kal_print_line(kal_uint32 level, const kal_line_shape &shape, const char *fmt, va_list args) {
    if (!gathering || !gather_line(shape, fmt, args)) {
        print_at_once(shape, fmt, args);
        return;
    }
    if (level == KAL_DBG_ERROR)
        kal_gather_flush();
}

extern "C" {

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

} // extern "C"
