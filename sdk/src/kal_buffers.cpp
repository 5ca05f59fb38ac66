#include "kal_common.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

extern "C" {

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

} // extern "C"
