#include "internal_commands.h"

#include "response_format.h"

#include "engine_context.h"
#include "rmmi_utility.h"

#include <cctype>
#include <cstdio>
#include <cstring>

const kal_uint32 rmmi_internal_cmd_table[RMMI_TOT_INTERNAL_CMD][2] = {
    {37824199, 0}, /* +RELAY (or RELAY: '+' adds nothing) */
    {191, 0},      /* E and one digit: digits hash like 'A' */
    {0, 0},        /* marker row: an all-zero pair never matches */
    {837, 0},      /* V and one digit */
};

const RMMI_BASIC_CMD_FUNCTION rmmi_internal_validator_ft[RMMI_TOT_INTERNAL_CMD] = {
    rmmi_atrelay_hdlr,
    rmmi_ate_hdlr,
    rmmi_empty_hdlr,
    rmmi_atv_hdlr,
};

namespace {

void report(char *out, const kal_uint32 *length, const char *text) {
    if (out != nullptr && length != nullptr && *length != 0)
        snprintf(out, *length, "%s", text);
}

/* The three characters at the cursor, letter case ignored; stops at the text's end. */
bool names_modem(const kal_uint8 *text, const char *name) {
    for (int i = 0; i < 3; ++i)
        if (text[i] == 0 || toupper(text[i]) != name[i])
            return false;
    return true;
}

/* AT+RELAY=<modem>: the first three characters choose the modem, the rest is ignored. */
kal_bool select_modem(rmmi_context_struct *context, rmmi_string_struct *cmd, char *out,
                      const kal_uint32 *length) {
    const kal_uint8 *at = cmd->string_ptr + cmd->index;
    KERV_DBG(" SET OR EXECUTE MODE, string=[%s], string[%d]=[%c]", cmd->string_ptr, cmd->index,
             *at);
    if (names_modem(at, "LTE")) {
        context->chip_type = RMMI_MODEMD_LTE;
        KERV_DBG("change to send command to LTE chip.");
        report(out, length, RMMI_OK_RESULT);
        return KAL_TRUE;
    }
    if (names_modem(at, "23G")) {
        context->chip_type = RMMI_MODEMD_23G;
        report(out, length, RMMI_OK_RESULT);
        KERV_DBG("change to send command to 23G MD chip.");
        return KAL_TRUE;
    }
    KERV_DBG(" Error, not set.");
    report(out, length, RMMI_ERROR_RESULT);
    return KAL_FALSE;
}

/* The context for a handler, or null after answering with an error when it cannot run. */
rmmi_context_struct *handler_context(const char *handler, const rmmi_string_struct *cmd, char *out,
                                     const kal_uint32 *length) {
    rmmi_context_struct *context = rmmi_get_context_ptr();
    if (cmd != nullptr && context != nullptr)
        return context;
    kal_print_gated(KAL_DBG_FUNCTION, handler, __LINE__, "EXIT. pointer is NULL.");
    report(out, length, RMMI_ERROR_RESULT);
    return nullptr;
}

/*
 * ATE<digit> and ATV<digit>: the digit (the last character of the name) sets the response
 * mode's field to 0 or 1; no digit at all counts as 1.
 */
kal_bool set_switch_from_digit(const char *handler, rmmi_string_struct *cmd, char *out,
                               const kal_uint32 *length, kal_uint8 rmmi_rsp_mode_struct::*field) {
    rmmi_context_struct *context = handler_context(handler, cmd, out, length);
    if (context == nullptr)
        return KAL_FALSE;
    /* Back onto the digit, over any blanks between it and the line end ("ATE0 "). */
    if (cmd->index > 0)
        --cmd->index;
    while (cmd->index > 0 && cmd->string_ptr[cmd->index] == ' ')
        --cmd->index;
    rmmi_validator_cause_enum result = RMMI_PARSE_OK;
    kal_uint32 value = rmmi_extract_number_ext(cmd, &result, 1, context->s_reg.s3);
    if (result == RMMI_PARSE_NOT_FOUND)
        value = 1;
    if (result == RMMI_PARSE_ERROR) {
        report(out, length, RMMI_ERROR_RESULT);
        return KAL_FALSE;
    }
    context->rsp_mode.*field = static_cast<kal_uint8>(value);
    report(out, length, RMMI_OK_RESULT);
    return KAL_TRUE;
}

} // namespace

extern "C" {

kal_bool rmmi_atrelay_hdlr(rmmi_string_struct *source_string_ptr, char *out, kal_uint32 *length) {
    KERV_FUNC(" ENTER");
    rmmi_context_struct *context = handler_context(__func__, source_string_ptr, out, length);
    if (context == nullptr)
        return KAL_FALSE;
    if (source_string_ptr->string_ptr[source_string_ptr->index] == '+')
        ++source_string_ptr->index;
    kal_bool result = KAL_TRUE;
    switch (source_string_ptr->cmd_mode) {
    case RMMI_SET_OR_EXECUTE_MODE:
        result = select_modem(context, source_string_ptr, out, length);
        break;
    case RMMI_READ_MODE:
    case RMMI_TEST_MODE:
        report(out, length, context->chip_type == RMMI_MODEMD_23G ? "\r\n23G\r\n" : "\r\nLTE\r\n");
        break;
    case RMMI_ACTIVE_MODE:
        report(out, length, "\r\nACTIVE MODE\r\n");
        break;
    default:
        return KAL_FALSE;
    }
    if (out != nullptr && length != nullptr) {
        *length = static_cast<kal_uint32>(strnlen(out, *length));
        KERV_DBG(" out_string=[%s], out_length=[%d]", out, *length);
    }
    return result;
}

kal_bool rmmi_ate_hdlr(rmmi_string_struct *source_string_ptr, char *out, kal_uint32 *length) {
    KERV_FUNC(" ENTER");
    const kal_bool result = set_switch_from_digit(__func__, source_string_ptr, out, length,
                                                  &rmmi_rsp_mode_struct::echo_flag);
    if (const rmmi_context_struct *context = rmmi_get_context_ptr())
        KERV_DBG("echo_flag=[%d]", context->rsp_mode.echo_flag);
    return result;
}

kal_bool rmmi_empty_hdlr(rmmi_string_struct *source_string_ptr, char *out, kal_uint32 *length) {
    if (source_string_ptr == nullptr) {
        report(out, length, RMMI_ERROR_RESULT);
        return KAL_FALSE;
    }
    if (length != nullptr)
        *length = 0;
    KERV_WARN("we shall not be here!!!!");
    return KAL_TRUE;
}

kal_bool rmmi_atv_hdlr(rmmi_string_struct *source_string_ptr, char *out, kal_uint32 *length) {
    KERV_FUNC(" ENTER");
    const kal_bool result = set_switch_from_digit(__func__, source_string_ptr, out, length,
                                                  &rmmi_rsp_mode_struct::format);
    if (const rmmi_context_struct *context = rmmi_get_context_ptr())
        KERV_DBG("format=[%s]", context->rsp_mode.format == RMMI_NUM_PARTIAL_HEAD_TAIL ? "P" : "V");
    return result;
}

} // extern "C"
