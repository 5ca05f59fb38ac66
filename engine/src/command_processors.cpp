#include "command_analyzer.h"

#include "at_text.h"
#include "engine_context.h"
#include "internal_commands.h"
#include "modem_relay.h"
#include "response_format.h"

#include <cstring>

namespace {

/*
 * A later command of a line carries no "AT" of its own; the modem gets one in front, so
 * that it always receives a complete command. The command buffer has room for it.
 */
void complete_at(rmmi_string_struct *cmd) {
    kal_uint8 *text = cmd->string_ptr;
    if (rmmi_is_a(text[0]))
        return;
    const size_t length = strlen(reinterpret_cast<const char *>(text));
    if (length + 3 > RMMI_CMD_BUFFER_SIZE)
        return;
    memmove(text + 2, text, length + 1);
    text[0] = 'A';
    text[1] = 'T';
    cmd->index = static_cast<kal_uint16>(cmd->index + 2);
    KERV_DBG("add AT back=[%s]", text);
}

/* Answers a command that cannot run at all, with the error result of its processor. */
kal_bool answer_error(const rmmi_string_struct *cmd) {
    rmmi_rsp_generator(cmd->string_ptr, reinterpret_cast<const kal_uint8 *>(RMMI_ERROR_RESULT),
                       sizeof(RMMI_ERROR_RESULT) - 1);
    return KAL_FALSE;
}

} // namespace

extern "C" {

kal_bool rmmi_basic_cmd_processor(rmmi_string_struct *source_string_ptr) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_BASIC_CMD_PROCESSOR_ENTRY");
    const rmmi_context_struct *context = rmmi_get_context_ptr();
    if (context == nullptr || source_string_ptr == nullptr)
        return KAL_FALSE;
    char response[RMMI_RSP_BUFFER_SIZE] = {};
    kal_uint32 length = RMMI_RSP_BUFFER_ROOM;
    rmmi_skip_blanks(source_string_ptr);
    complete_at(source_string_ptr);
    const kal_uint32 result = send_cmd_to_md(rmmi_relay_target(context),
                                             source_string_ptr->string_ptr, response, &length);
    KERV_DBG("print results from md[%d]", result);
    if (result != RMMI_NO_ERR)
        return answer_error(source_string_ptr);
    /* The modem's answer goes to the host as it is, up to its first zero byte. */
    response[RMMI_RSP_BUFFER_ROOM] = 0;
    rmmi_rsp_generator(source_string_ptr->string_ptr, reinterpret_cast<kal_uint8 *>(response),
                       static_cast<kal_uint16>(strlen(response)));
    return KAL_TRUE;
}

kal_bool rmmi_extended_cmd_processor(rmmi_string_struct *source_string_ptr,
                                     rmmi_validator_t *validator) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_EXTENDED_CMD_PROCESSOR_ENTRY");
    if (rmmi_get_context_ptr() == nullptr || source_string_ptr == nullptr || validator == nullptr)
        return KAL_FALSE;
    char response[RMMI_RSP_BUFFER_SIZE] = {};
    int length = RMMI_RSP_BUFFER_ROOM;
    rmmi_skip_blanks(source_string_ptr);
    source_string_ptr->ip_string =
        reinterpret_cast<kal_uint8 *>(rmmi_copy_validator_text(validator->test_mode));
    kal_bool result = KAL_FALSE;
    if (validator->func != nullptr) {
        result = validator->func(source_string_ptr, response, &length);
        /* Whatever the validator did with the length, its text ends inside the buffer. */
        response[RMMI_RSP_BUFFER_ROOM] = 0;
        rmmi_rsp_generator(source_string_ptr->string_ptr, reinterpret_cast<kal_uint8 *>(response),
                           static_cast<kal_uint16>(strlen(response)));
    } else {
        answer_error(source_string_ptr);
    }
    rmmi_release_validator_copies(validator);
    free_ctrl_buffer(source_string_ptr->ip_string);
    source_string_ptr->ip_string = nullptr;
    return result;
}

kal_bool rmmi_internal_cmd_processor(rmmi_string_struct *source_string_ptr) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_INTERNAL_CMD_PROCESSOR_ENTRY");
    const rmmi_context_struct *context = rmmi_get_context_ptr();
    if (context == nullptr || source_string_ptr == nullptr)
        return KAL_FALSE;
    const kal_uint16 row = source_string_ptr->cmd_index;
    if (row >= RMMI_TOT_INTERNAL_CMD)
        return answer_error(source_string_ptr);
    kal_uint32 err_id = RMMI_NO_ERR;
    char response[RMMI_RSP_BUFFER_SIZE] = {};
    kal_uint32 length = RMMI_RSP_BUFFER_ROOM;
    rmmi_skip_blanks(source_string_ptr);
    if (row > RMMI_AT_NEED_RELAY_TO_MD) {
        /* The modem switches its own setting too; if it cannot, neither do we. */
        KERV_DBG("send to modem also.");
        err_id = send_cmd_to_md(rmmi_relay_target(context), source_string_ptr->string_ptr, response,
                                &length);
        if (err_id != RMMI_NO_ERR)
            return answer_error(source_string_ptr);
    }
    /* The handlers write their bounded, terminated reports from the start. */
    response[0] = 0;
    length = RMMI_RSP_BUFFER_ROOM;
    const kal_bool ret = rmmi_internal_validator_ft[row](source_string_ptr, response, &length);
    KERV_DBG("ret=[%d], err_id=[%d]", ret, err_id);
    /* The host gets only the result code; the handler's report is for the trace. */
    const bool ok = ret != KAL_FALSE && err_id == RMMI_NO_ERR;
    const char *answer = ok ? RMMI_OK_RESULT : RMMI_ERROR_RESULT;
    rmmi_rsp_generator(source_string_ptr->string_ptr, reinterpret_cast<const kal_uint8 *>(answer),
                       static_cast<kal_uint16>(strlen(answer)));
    return ok ? KAL_TRUE : KAL_FALSE;
}

} // extern "C"
