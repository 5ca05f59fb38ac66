#include "engine_entry.h"

#include "command_analyzer.h"
#include "command_name_hash.h"
#include "engine_context.h"
#include "response_format.h"

#include <cstdio>
#include <cstring>

namespace {

/* Answers a line that cannot be run with an error result of its own. */
void refuse_line(rmmi_context_struct *context, kal_uint16 cause) {
    context->is_multi_cmd &= static_cast<kal_uint8>(~1u);
    rmmi_result_code_fmttr(RMMI_RCODE_ERROR, cause);
}

} // namespace

extern "C" {

void rmmi_process_multi_cmd(int fd, const char *arg) {
    KERV_TAG(KAL_DBG_FUNCTION, "RMMI_PROCESS_MULTI_CMD");
    rmmi_context_struct *context = rmmi_get_context_ptr();
    if (context == nullptr) {
        KERV_WARN("no engine context: line dropped");
        return;
    }
    context->fd = fd;
    if ((context->multi_cmd_error & 1u) != 0) {
        context->is_multi_cmd &= static_cast<kal_uint8>(~1u);
        context->multi_cmd_error &= static_cast<kal_uint8>(~1u);
        KERV_FUNC("SYSTEM ERR.");
        return;
    }
    const size_t length = arg != nullptr ? strnlen(arg, RMMI_MAX_LINE_LEN + 1) : 0;
    if (length == 0) {
        KERV_TAG(KAL_DBG_DBG, "RMMI_MULTI_CMD_STRING_NOT_EXIST");
        return;
    }
    KERV_TAG(KAL_DBG_DBG, "RMMI_MULTI_CMD_STRING_EXIST");
    if (length > RMMI_MAX_LINE_LEN) {
        /* Running part of an over-long line would act on a command the host never sent
         * whole; the host gets an error instead. */
        KERV_WARN("line longer than %d characters refused", RMMI_MAX_LINE_LEN);
        refuse_line(context, RMMI_ERR_SYNTEX_ERROR);
        return;
    }
    /* The line's copy lives on the worker's stack: no heap work per line. */
    kal_uint8 line[RMMI_MAX_LINE_LEN + 2];
    kal_mem_cpy(line, arg, static_cast<kal_uint32>(length));
    line[length] = 0;
    rmmi_string_struct cursor = {};
    cursor.string_ptr = line;
    context->is_multi_cmd &= static_cast<kal_uint8>(~1u);
    rmmi_cmd_processor(&cursor, static_cast<kal_uint16>(length));
}

kal_bool rmmi_process_calcuate_cmd(int /* fd: the answer goes back through res */, const char *arg,
                                   char *res, int string_length) {
    KERV_FUNC(" ENTER arg=[%s]", arg != nullptr ? arg : "");
    kal_uint32 h1 = 0;
    kal_uint32 h2 = 0;
    if (rmmi_custom_compute_at_cmd(arg, &h1, &h2) != KAL_TRUE)
        return KAL_FALSE;
    if (res == nullptr || string_length < 0)
        return KAL_FALSE;
    /* Printed as signed numbers: authors read the bit patterns the tables hold. */
    snprintf(res, static_cast<size_t>(string_length) + 1, "hash_value1=[%d], hash_value2=[%d]",
             static_cast<int>(h1), static_cast<int>(h2));
    return KAL_TRUE;
}

} // extern "C"
