#include "kal_common.h"

#include "kal_line.h"

#include <cstdarg>
#include <cstdio>

kal_uint32 g_dbg_print = 0;

namespace {

constexpr const char *kLevelLines[] = {
    nullptr,
    "dbg = [WARNING]\r",
    "dbg = [WARNING, ERROR]\r",
    "dbg = [WARNING, ERROR, INFO]\r",
    "dbg = [WARNING, ERROR, INFO, DBG]\r",
    "dbg = [WARNING, ERROR, INFO, FUNCTION, DBG]\r",
};

void print_linef(kal_uint32 level, const kal_line_shape &shape, const char *fmt, ...)
    __attribute__((format(printf, 3, 4)));
void print_linef(kal_uint32 level, const kal_line_shape &shape, const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    kal_print_line(level, shape, fmt, args);
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

void kal_print_gated(kal_uint32 level, const char *func, int line, const char *fmt, ...) {
    if (g_dbg_print < level)
        return;
    va_list args;
    va_start(args, fmt);
    kal_print_line(level, {func, line, kKalLineEndCrLf}, fmt, args);
    va_end(args);
}

void kal_print_tag(kal_uint32 level, const char *tag) {
    if (g_dbg_print < level)
        return;
    print_linef(level, {nullptr, 0, kKalLineEndCrLf}, "[KERV] <%s>", tag);
}

void kal_print_always(const char *fmt, ...) {
    va_list args;
    va_start(args, fmt);
    kal_print_line(0, {nullptr, 0, "\n"}, fmt, args);
    va_end(args);
}

} // extern "C"
