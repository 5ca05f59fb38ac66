/*
 * kal layer: the fixed-width types every record and prototype of kervd uses, the
 * process-wide debug level, heap records (control buffers), thin memory and
 * formatting helpers, and the diagnostic macros every module prints with.
 *
 * Plain C interface: validator plug-ins written in C include this header.
 */
#ifndef KAL_COMMON_H
#define KAL_COMMON_H

#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum { KAL_FALSE = 0, KAL_TRUE = 1 } kal_bool;
typedef unsigned char kal_uint8;
typedef unsigned short kal_uint16;
typedef unsigned int kal_uint32;
typedef int kal_int32;
typedef char kal_int8;
typedef char kal_char;
typedef char kal_wchar;

/* Debug levels: a message of level L is printed when g_dbg_print >= L. */
enum {
    KAL_DBG_WARNING = 1,
    KAL_DBG_ERROR = 2,
    KAL_DBG_INFO = 3,
    KAL_DBG_DBG = 4,
    KAL_DBG_FUNCTION = 5
};

/* Written once by kal_init during start-up, read by every thread afterwards. */
extern kal_uint32 g_dbg_print;

void kal_init(unsigned int dbg);

/* Zero-filled heap block, or null when the heap is exhausted; the taker frees it. */
void *get_ctrl_buffer(kal_uint32 allocSize);
/* Null-safe; the caller's pointer is not cleared. */
void free_ctrl_buffer(void *memBlock);

void *kal_mem_set(void *dest, kal_uint32 c, kal_uint32 size);
void *kal_mem_cpy(void *dest, const void *src, kal_uint32 count);
/* sprintf without a bound: the caller sizes buffer. */
int kal_sprintf(char *buffer, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

/*
 * Diagnostic output, one line per message on standard output.
 * kal_print_gated: "[KERV] <func:line>" + text + "\r\n", when the level allows.
 * kal_print_tag:   "[KERV] <TAG>\r\n", when the level allows.
 * Each call writes its line under the stream lock, so lines of different threads
 * never interleave inside a line.
 */
void kal_print_gated(kal_uint32 level, const char *func, int line, const char *fmt, ...)
    __attribute__((format(printf, 4, 5)));
void kal_print_tag(kal_uint32 level, const char *tag);
/* Ungated: the text and a line feed, whatever the level. */
void kal_print_always(const char *fmt, ...) __attribute__((format(printf, 1, 2)));

#ifdef __cplusplus
}
#endif

/* Gated messages with the calling function's name and the line of the call. */
#define KERV_LOG(level, ...) kal_print_gated((level), __func__, __LINE__, __VA_ARGS__)
#define KERV_WARN(...) KERV_LOG(KAL_DBG_WARNING, __VA_ARGS__)
#define KERV_ERR(...) KERV_LOG(KAL_DBG_ERROR, __VA_ARGS__)
#define KERV_INFO(...) KERV_LOG(KAL_DBG_INFO, __VA_ARGS__)
#define KERV_DBG(...) KERV_LOG(KAL_DBG_DBG, __VA_ARGS__)
#define KERV_FUNC(...) KERV_LOG(KAL_DBG_FUNCTION, __VA_ARGS__)
/* Tag trace: KERV_TAG(KAL_DBG_FUNCTION, "GET_CTRL_BUFFER"). */
#define KERV_TAG(level, tag) kal_print_tag((level), (tag))
/* Always printed: the text and a line feed. */
#define KERV_PRINT(...) kal_print_always(__VA_ARGS__)

#endif /* KAL_COMMON_H */
