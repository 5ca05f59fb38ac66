#include "kal_common.h"

#include <cstdarg>
#include <cstdlib>
#include <cstring>

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
    StdoutLineLock lock;
    printf("[KERV] <%s:%d>", func, line);
    va_list args;
    va_start(args, fmt);
    vprintf(fmt, args);
    va_end(args);
    puts("\r");
}

void kal_print_tag(kal_uint32 level, const char *tag) {
    if (g_dbg_print < level)
        return;
    StdoutLineLock lock;
    printf("[KERV] <%s>", tag);
    puts("\r");
}

void kal_print_always(const char *fmt, ...) {
    StdoutLineLock lock;
    va_list args;
    va_start(args, fmt);
    vprintf(fmt, args);
    va_end(args);
    putchar('\n');
}

} // extern "C"
