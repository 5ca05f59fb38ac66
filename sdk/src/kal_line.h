/*
 * One diagnostic line: how it is framed around its text, and its formatting into a fixed
 * area. Private to the kal layer.
 */
#ifndef KAL_LINE_H
#define KAL_LINE_H

#include "kal_common.h"

#include <cstdarg>
#include <cstddef>

/* How a diagnostic line is framed around its text. */
struct kal_line_shape {
    const char *func; /* "[KERV] <func:line>" before the text; none when null */
    int line;
    const char *end;
};

/* "\r" written with puts: a carriage return and a line feed end every gated line. */
constexpr const char kKalLineEndCrLf[] = "\r\n";

/* Formats the whole line into at[0, room); its length, or 0 when it does not fit. */
size_t kal_format_line(char *at, size_t room, const kal_line_shape &shape, const char *fmt,
                       va_list args);
/* Prints one diagnostic line of the given level (0: printed whatever the level): gathered
   while the thread runs a request (kal_gather.h), else at once. */
void kal_print_line(kal_uint32 level, const kal_line_shape &shape, const char *fmt, va_list args);

#endif /* KAL_LINE_H */
