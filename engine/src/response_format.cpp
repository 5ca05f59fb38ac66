#include "response_format.h"

#include "engine_context.h"

#include <cstring>

namespace {

/* Room for a result code: the longest template expands to well under this. */
constexpr size_t kResultCodeSize = 128;
/* Echo and response are written as one block of at most 1022 bytes. */
constexpr size_t kResponseAreaSize = 1024;
/* Digits of the largest 32-bit value and the zero byte, with room to spare. */
constexpr size_t kDigitBufferSize = 15;
/* Above this a cause is not shown as a number in the text error report mode. */
constexpr kal_uint16 kHighestTextModeCause = 159;

/* Which value a result code template prints. */
enum class ResultArg { none, rsp_type, cause, rate };

struct ResultTemplate {
    const char *text; /* null: this result code is never written */
    ResultArg arg;
};

ResultTemplate numeric_or_verbose(const rmmi_context_struct *context, kal_uint8 rsp_type,
                                  kal_uint16 cause) {
    if (context->rsp_mode.format == RMMI_NUM_PARTIAL_HEAD_TAIL)
        return {"\r\n%d\r\n", ResultArg::rsp_type};
    switch (rsp_type) {
    case RMMI_RCODE_OK:
        return {RMMI_OK_RESULT, ResultArg::none};
    case RMMI_RCODE_CONNECT:
        /* No part of the system reports a rate; a cause other than the success cause is
         * taken as the rate to show. */
        if (cause == RMMI_SUCCESS_CAUSE)
            return {"\r\nCONNECT\r\n", ResultArg::none};
        return {"\r\nCONNECT %e\r\n", ResultArg::rate};
    case RMMI_RCODE_NO_CARRIER:
        return {"\r\nNO CARRIER\r\n", ResultArg::none};
    case RMMI_RCODE_BUSY:
        return {"\r\nBUSY\r\n", ResultArg::none};
    default: /* RMMI_RCODE_ERROR in the simple error report mode */
        return {RMMI_ERROR_RESULT, ResultArg::none};
    }
}

ResultTemplate choose_result_template(const rmmi_context_struct *context, kal_uint8 rsp_type,
                                      kal_uint16 cause) {
    switch (rsp_type) {
    case RMMI_RCODE_OK:
    case RMMI_RCODE_CONNECT:
    case RMMI_RCODE_NO_CARRIER:
    case RMMI_RCODE_BUSY:
        return numeric_or_verbose(context, rsp_type, cause);
    case RMMI_RCODE_ERROR:
        if (context->error_report_mode == RMMI_SIMPLE_ERROR)
            return numeric_or_verbose(context, rsp_type, cause);
        if (context->error_report_mode == RMMI_NUMERIC_ERROR || cause <= kHighestTextModeCause)
            return {"\r\n+CME ERROR: %u\r\n", ResultArg::cause};
        return {RMMI_ERROR_RESULT, ResultArg::none};
    default:
        return {nullptr, ResultArg::none};
    }
}

/* Formats one result code through the context's argument list and writes it. */
void write_result_code(rmmi_context_struct *context, const ResultTemplate &result,
                       kal_uint8 rsp_type, kal_uint16 cause) {
    kal_uint8 type_value = rsp_type;
    /* A command conflict is reported with the plain operation-not-allowed number. */
    kal_uint16 cause_value =
        (context->error_report_mode == RMMI_NUMERIC_ERROR && cause == RMMI_ERR_COMMAND_CONFLICT)
            ? static_cast<kal_uint16>(OPERATION_NOT_ALLOWED_ERR)
            : cause;
    kal_uint32 rate = cause;
    void *value = nullptr;
    switch (result.arg) {
    case ResultArg::rsp_type:
        value = &type_value;
        break;
    case ResultArg::cause:
        value = &cause_value;
        break;
    case ResultArg::rate:
        value = &rate;
        break;
    case ResultArg::none:
        break;
    }
    kal_uint8 text[kResultCodeSize];
    context->arg_list[0] = value;
    const kal_uint16 length =
        rmmi_fast_string_print(text, reinterpret_cast<const kal_uint8 *>(result.text),
                               context->arg_list, value != nullptr ? 1 : 0);
    /* The entry pointed into this frame; leave no dangling pointer in the context. */
    context->arg_list[0] = nullptr;
    rmmi_write_output(context->fd, text, length);
}

/* Appends the text src to out[0..kept), keeping at most 1022 bytes in all. */
size_t append_bounded(char *out, size_t kept, const kal_uint8 *src) {
    if (src == nullptr)
        return kept;
    const size_t room = kResponseAreaSize - 2 - kept;
    const size_t length = strnlen(reinterpret_cast<const char *>(src), room);
    memcpy(out + kept, src, length);
    return kept + length;
}

/* The template's %s (and the digits of a number) go in whole: rmmi_fast_string_print is
   unbounded by contract, its caller gives room. Returns the bytes written. */
kal_uint16 put_unbounded(kal_uint8 *out, const kal_uint8 *text) {
    kal_uint16 count = 0;
    while (text[count] != 0) {
        out[count] = text[count];
        ++count;
    }
    return count;
}

/* Writes value in decimal, with '-' when negative; returns the bytes written. */
kal_uint16 print_signed(kal_uint8 *out, kal_int32 value) {
    kal_uint16 count = 0;
    kal_uint32 magnitude = static_cast<kal_uint32>(value);
    if (value < 0) {
        out[count++] = '-';
        magnitude = 0u - magnitude;
    }
    kal_uint8 dec_val[kDigitBufferSize];
    rmmi_int_to_ascii_converter(magnitude, dec_val);
    return count + put_unbounded(out + count, dec_val);
}

/* Expands one known directive with its argument; returns the bytes written. */
kal_uint16 print_directive(kal_uint8 *out, kal_uint8 directive, void *arg) {
    switch (directive) {
    case 's':
        return put_unbounded(out, static_cast<const kal_uint8 *>(arg));
    case 'c':
        out[0] = *static_cast<const kal_uint8 *>(arg);
        return 1;
    case 'e': {
        kal_uint8 dec_val[kDigitBufferSize];
        rmmi_int_to_ascii_converter(*static_cast<const kal_uint32 *>(arg), dec_val);
        return put_unbounded(out, dec_val);
    }
    case 'a':
    case 'd':
        return print_signed(out, *static_cast<const kal_uint8 *>(arg));
    case 'u':
        return print_signed(out, *static_cast<const kal_uint16 *>(arg));
    case 'l':
        return print_signed(out, *static_cast<const short *>(arg));
    default: /* 'g' */
        return print_signed(out, *static_cast<const kal_int32 *>(arg));
    }
}

bool is_directive(kal_uint8 letter) {
    return letter != 0 && strchr("acdeglsu", letter) != nullptr;
}

/* The engine context; its absence (start-up was out of memory) is reported. */
rmmi_context_struct *engine_context() {
    rmmi_context_struct *context = rmmi_get_context_ptr();
    if (context == nullptr)
        KERV_WARN("no engine context: output dropped");
    return context;
}

} // namespace

extern "C" {

kal_uint16 rmmi_fast_string_print(kal_uint8 *buff_ptr, const kal_uint8 *fmt, void **arg_list,
                                  kal_uint8 nos_arg) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_FAST_STRING_PRINT_ENTRY");
    kal_uint16 count = 0;
    void **next_arg = arg_list;
    for (const kal_uint8 *p = fmt; *p != 0; ++p) {
        if (*p != '%' || nos_arg == 0) {
            buff_ptr[count++] = *p;
            continue;
        }
        const kal_uint8 letter = p[1];
        if (letter == 0) {
            /* A template ending in a lone '%' keeps it and ends there. */
            buff_ptr[count++] = '%';
            break;
        }
        ++p;
        if (is_directive(letter))
            count += print_directive(buff_ptr + count, letter, *next_arg++);
        else
            buff_ptr[count++] = letter;
    }
    buff_ptr[count] = 0;
    return count;
}

void rmmi_int_to_ascii_converter(kal_uint32 digit, kal_uint8 *buff_ptr) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_INT_TO_ASCII_CONVERTER_ENTRY");
    size_t count = 0;
    while (digit > 9) {
        buff_ptr[count++] = static_cast<kal_uint8>('0' + digit % 10);
        digit /= 10;
    }
    buff_ptr[count++] = static_cast<kal_uint8>('0' + digit);
    for (size_t low = 0, high = count - 1; low < high; ++low, --high) {
        const kal_uint8 swap = buff_ptr[low];
        buff_ptr[low] = buff_ptr[high];
        buff_ptr[high] = swap;
    }
    buff_ptr[count] = 0;
}

void rmmi_result_code_fmttr(kal_uint8 rsp_type, kal_uint16 cause) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_RESULT_CODE_FMTTR_ENTRY");
    rmmi_context_struct *context = engine_context();
    if (context == nullptr)
        return;
    if (rsp_type == RMMI_RCODE_ERROR) {
        KERV_DBG(" result=[%d], cause=[%d]", rsp_type, cause);
        context->cmee_err = cause;
    } else {
        KERV_DBG(" result=[%d]", rsp_type);
    }
    context->isAtdAction_flag &= static_cast<kal_uint8>(~1u);
    if (context->cmd_from_tst == KAL_TRUE) {
        KERV_TAG(KAL_DBG_INFO, "RMMI_CMD_FROM_TST");
        context->cmd_from_tst = KAL_FALSE;
        return;
    }
    const ResultTemplate result = choose_result_template(context, rsp_type, cause);
    if (result.text == nullptr)
        return;
    const bool in_multi_cmd = (context->is_multi_cmd & 1u) != 0;
    if (rsp_type == RMMI_RCODE_OK && in_multi_cmd) {
        /* Commands that are not the last of their line get no OK of their own. */
        KERV_TAG(KAL_DBG_INFO, "RMMI_RCODE_OK_STR");
        return;
    }
    if (rsp_type == RMMI_RCODE_ERROR && context->fd >= 0 && in_multi_cmd) {
        KERV_TAG(KAL_DBG_INFO, "RMMI_MULTI_CMD_ERROR");
        context->multi_cmd_error |= 1u;
    }
    write_result_code(context, result, rsp_type, cause);
    KERV_FUNC(" EXIT");
}

void rmmi_final_rsp_generator(kal_bool ret_val, const kal_uint8 *buffer, kal_uint16 string_length) {
    rmmi_context_struct *context = engine_context();
    if (context == nullptr)
        return;
    if (ret_val != KAL_TRUE) {
        rmmi_result_code_fmttr(RMMI_RCODE_ERROR, context->cmee_err);
        return;
    }
    if (string_length != 0 && buffer != nullptr)
        rmmi_write_output(context->fd, buffer, string_length);
    rmmi_result_code_fmttr(RMMI_RCODE_OK, RMMI_SUCCESS_CAUSE);
}

void rmmi_rsp_generator(const kal_uint8 *string_ptr, const kal_uint8 *buffer,
                        kal_uint16 /* string_length: the response is written up to its zero */) {
    const rmmi_context_struct *context = engine_context();
    if (context == nullptr)
        return;
    char out[kResponseAreaSize];
    size_t kept = 0;
    if (context->rsp_mode.echo_flag != RMMI_ECHO_OFF)
        kept = append_bounded(out, kept, string_ptr);
    kept = append_bounded(out, kept, buffer);
    if (kept != 0)
        rmmi_write_output(context->fd, out, kept);
}

void rmmi_sms_result_code_fmttr(kal_uint8 rsp_type, kal_uint16 cause, kal_bool cause_present) {
    rmmi_context_struct *context = engine_context();
    if (context == nullptr)
        return;
    if (rsp_type != RMMI_RCODE_ERROR || context->error_report_mode == RMMI_SIMPLE_ERROR) {
        rmmi_result_code_fmttr(rsp_type, cause);
        return;
    }
    KERV_WARN("RMMI_RESULT_CODE_ERROR %d, %d", rsp_type, cause);
    if (context->cmd_from_tst == KAL_TRUE) {
        context->cmd_from_tst = KAL_FALSE;
        return;
    }
    if (context->rsp_mode.suppress_flag == RMMI_SUPRESS_ON)
        return;
    if ((context->is_multi_cmd & 1u) != 0)
        context->multi_cmd_error |= 1u;
    /* Framed like every other final result code, so a host's line reader sees it. */
    char text[kResultCodeSize];
    const int length = cause_present == KAL_TRUE
                           ? kal_sprintf(text, "\r\n+CMS ERROR: %u\r\n", cause)
                           : kal_sprintf(text, RMMI_ERROR_RESULT);
    rmmi_write_output(context->fd, text, static_cast<size_t>(length));
}

void rmmi_sms_final_rsp_generator(kal_bool ret_val, const kal_uint8 *buffer,
                                  kal_uint16 string_length) {
    rmmi_context_struct *context = engine_context();
    if (context == nullptr)
        return;
    if (ret_val == KAL_TRUE) {
        rmmi_final_rsp_generator(ret_val, buffer, string_length);
        return;
    }
    const kal_bool cause_present =
        context->cmee_err == RMMI_ERR_COMMAND_CONFLICT ? KAL_TRUE : KAL_FALSE;
    rmmi_sms_result_code_fmttr(RMMI_RCODE_ERROR, context->cmee_err, cause_present);
    context->cmee_err = RMMI_ERR_UNSPECIFIED;
}

} // extern "C"
