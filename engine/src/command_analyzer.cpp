#include "command_analyzer.h"

#include "at_text.h"
#include "command_name_hash.h"

#include "validator_registry.h"
#include "internal_commands.h"
#include "engine_context.h"
#include "response_format.h"
#include "modem_relay.h"

#include <cstring>

namespace {

kal_uint16 position_of_a(const kal_uint8 *line, kal_uint16 index, kal_uint16 length) {
    while (index < length && !rmmi_is_a(line[index]))
        ++index;
    return index;
}

/* Where the first "AT" (any letter case) of the line begins, or length when it has none. */
kal_uint16 find_at(const kal_uint8 *line, kal_uint16 index, kal_uint16 length) {
    index = position_of_a(line, index, length);
    /* An 'A' not followed by 'T' takes the character after it along. */
    while (index < length && !rmmi_is_t(line[index + 1])) {
        index = position_of_a(line, static_cast<kal_uint16>(index + 2), length);
        KERV_INFO(" skip not AT");
    }
    return index;
}

/*
 * Step 4 of classification: "AT" (or "A/" for the previous command) at the start of a
 * command; later commands of a line may start right at their name.
 */
kal_uint8 classify_command_start(rmmi_string_struct *source, const rmmi_context_struct *context) {
    if (!rmmi_is_a(rmmi_at_cursor(source)))
        return context->cmd_number > 1 ? RMMI_EXTENDED_CMD : RMMI_INVALID_CMD_TYPE;
    ++source->index;
    rmmi_skip_blanks(source);
    const kal_uint8 c = rmmi_at_cursor(source);
    if (c == '/' && source->index <= MAX_MULTIPLE_CMD_INFO_LEN) {
        ++source->index;
        rmmi_skip_blanks(source);
        return rmmi_at_cursor(source) == context->s_reg.s3 &&
                       source->index <= MAX_MULTIPLE_CMD_INFO_LEN
                   ? RMMI_PREV_CMD
                   : RMMI_INVALID_CMD_TYPE;
    }
    if (!rmmi_is_t(c) || source->index > MAX_MULTIPLE_CMD_INFO_LEN)
        return RMMI_INVALID_CMD_TYPE;
    ++source->index;
    return RMMI_EXTENDED_CMD;
}

/* Fills v from the registered record of an extended command. */
void take_validator(rmmi_validator_t *v, const rmmi_validator_t *record) {
    v->at_name = rmmi_copy_validator_text(record->at_name);
    v->hash1 = record->hash1;
    v->hash2 = record->hash2;
    v->test_mode = rmmi_copy_validator_text(record->test_mode);
    v->func = record->func;
}

kal_bool run_command(rmmi_string_struct *cmd, rmmi_validator_t *validator) {
    switch (cmd->cmd_class) {
    case RMMI_BASIC_CMD:
        return rmmi_basic_cmd_processor(cmd);
    case RMMI_EXTENDED_CMD:
        return rmmi_extended_cmd_processor(cmd, validator);
    case RMMI_INTERNAL_CMD:
        return rmmi_internal_cmd_processor(cmd);
    default:
        /* "A/" (repeat the previous command) is not offered: the command failed, and so
         * does its line. */
        rmmi_result_code_fmttr(RMMI_RCODE_ERROR, RMMI_ERR_UNKNOWN);
        return KAL_FALSE;
    }
}

/* Skips what lies between two commands of a line: blanks, separators and line ends. */
void skip_to_next_command(rmmi_string_struct *source, const rmmi_context_struct *context) {
    for (;;) {
        const kal_uint8 c = rmmi_at_cursor(source);
        if (c != ' ' && c != ';' && c != context->s_reg.s3 && c != context->s_reg.s4)
            return;
        ++source->index;
    }
}

/* Runs every command of the line from its "AT" on; returns when the line is done. */
void run_commands(rmmi_string_struct *source, rmmi_context_struct *context,
                  kal_uint16 actual_length, kal_uint8 *command_buffer) {
    rmmi_string_struct cmd = {};
    cmd.string_ptr = command_buffer;
    rmmi_validator_t validator = {};
    do {
        if (rmmi_get_next_cmd(source, &cmd, &validator) == KAL_FALSE)
            break;
        if (source->cmd_class == RMMI_INVALID_CMD_TYPE) {
            rmmi_result_code_fmttr(RMMI_RCODE_ERROR, RMMI_ERR_SYNTEX_ERROR);
            break;
        }
        if (source->index < actual_length &&
            actual_length - source->index + 2 > MAX_MULTIPLE_CMD_INFO_LEN) {
            rmmi_release_validator_copies(&validator);
            rmmi_result_code_fmttr(RMMI_RCODE_ERROR, RMMI_ERR_SYNTEX_ERROR);
            break;
        }
        if (source->index >= actual_length)
            context->is_multi_cmd &= static_cast<kal_uint8>(~1u);
        const kal_bool ok = run_command(&cmd, &validator);
        rmmi_release_validator_copies(&validator);
        if (ok == KAL_FALSE) {
            KERV_DBG("we got KAL_FALSE");
            context->rsp_mode.ext_result_code = 0;
        }
    } while ((context->multi_cmd_error & 1u) == 0);
}

} // namespace

extern "C" {

void rmmi_cmd_processor(rmmi_string_struct *source_string_ptr, kal_uint16 cmd_length) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_CMD_PROCESSOR_ENTRY");
    rmmi_context_struct *context = rmmi_get_context_ptr();
    if (context == nullptr || source_string_ptr == nullptr)
        return;
    kal_uint8 *line = source_string_ptr->string_ptr;
    const kal_uint16 start = find_at(line, source_string_ptr->index, cmd_length);
    const kal_uint16 actual_length =
        start < cmd_length ? static_cast<kal_uint16>(cmd_length - start) : 0;
    if (actual_length <= 1) {
        KERV_INFO(" actual_length < 2");
        return;
    }
    memmove(line, line + start, actual_length);
    line[actual_length] = 0;
    source_string_ptr->index = 0;

    const kal_uint16 first_end = rmmi_find_multicmd_seperator(line, actual_length);
    if (first_end < actual_length && line[first_end] == ';' && line[first_end + 1] >= ' ')
        KERV_INFO("RMMI_MULTI_CMD_RECEIVED");

    /* One command at a time, each ended by its zero byte; on the stack like the line. */
    kal_uint8 command_buffer[RMMI_CMD_BUFFER_SIZE];
    command_buffer[0] = 0;
    context->is_multi_cmd |= 1u;
    context->cmd_number = 0;
    context->rsp_mode.ext_result_code = 1;
    run_commands(source_string_ptr, context, actual_length, command_buffer);
    if (context->cmd_number > 1)
        rmmi_final_rsp_generator(context->rsp_mode.ext_result_code != 0 ? KAL_TRUE : KAL_FALSE,
                                 nullptr, 0);
    KERV_INFO("command done");
    context->is_multi_cmd &= static_cast<kal_uint8>(~1u);
    context->multi_cmd_error &= static_cast<kal_uint8>(~1u);
    context->rsp_mode.ext_result_code = 1;
}

kal_uint16 rmmi_find_multicmd_seperator(const kal_uint8 *str, kal_uint16 length) {
    const rmmi_context_struct *context = rmmi_get_context_ptr();
    const kal_uint8 s3 = context != nullptr ? context->s_reg.s3 : '\r';
    const kal_uint8 s4 = context != nullptr ? context->s_reg.s4 : '\n';
    /* No escape inside strings: every double quote opens or closes one. */
    bool in_string = false;
    kal_uint16 count = 0;
    for (; count < length; ++count) {
        const kal_uint8 c = str[count];
        if (c == 0 || c == s3 || c == s4 || (c == ';' && !in_string))
            break;
        if (c == '"')
            in_string = !in_string;
    }
    return count;
}

kal_bool rmmi_get_next_cmd(rmmi_string_struct *source_string_ptr,
                           rmmi_string_struct *des_string_ptr, rmmi_validator_t *validator_p) {
    const rmmi_context_struct *context = rmmi_get_context_ptr();
    if (context == nullptr || source_string_ptr == nullptr || des_string_ptr == nullptr)
        return KAL_FALSE;
    const kal_uint8 *line = source_string_ptr->string_ptr;
    const auto length = static_cast<kal_uint16>(strlen(reinterpret_cast<const char *>(line)));
    const kal_uint16 begin = source_string_ptr->index;
    if (begin >= length)
        return KAL_FALSE;
    KERV_INFO("Get command=[%s]. index=[%d]", line, begin);

    source_string_ptr->cmd_class = rmmi_find_cmd_class(source_string_ptr, validator_p);
    if (source_string_ptr->cmd_class == RMMI_INVALID_CMD_TYPE)
        return KAL_TRUE;

    const kal_uint16 end =
        static_cast<kal_uint16>(begin + rmmi_find_multicmd_seperator(
                                            line + begin, static_cast<kal_uint16>(length - begin)));
    kal_uint16 cmd_length = static_cast<kal_uint16>(end - begin);
    const kal_uint16 name_end = static_cast<kal_uint16>(source_string_ptr->index - begin);
    des_string_ptr->index = name_end < cmd_length ? name_end : cmd_length;
    des_string_ptr->cmd_class = source_string_ptr->cmd_class;
    des_string_ptr->cmd_index = source_string_ptr->cmd_index;
    des_string_ptr->cmd_row_index = source_string_ptr->cmd_row_index;
    des_string_ptr->symbol_hash = source_string_ptr->symbol_hash;
    des_string_ptr->ip_string = nullptr;
    kal_uint8 *text = des_string_ptr->string_ptr;
    memcpy(text, line + begin, cmd_length);
    if (cmd_length == 0 || text[cmd_length - 1] != context->s_reg.s3)
        text[cmd_length++] = context->s_reg.s3;
    text[cmd_length] = 0;
    des_string_ptr->cmd_mode = rmmi_find_cmd_mode(des_string_ptr);
    KERV_WARN("cmd_class=[%d], cmd_index=[%d], cmd_mode=[%d]", des_string_ptr->cmd_class,
              des_string_ptr->cmd_index, des_string_ptr->cmd_mode);

    source_string_ptr->index = end;
    skip_to_next_command(source_string_ptr, context);
    return KAL_TRUE;
}

kal_uint8 rmmi_find_cmd_class(rmmi_string_struct *source_string_ptr, rmmi_validator_t *v) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_FIND_CMD_CLASS_ENTRY");
    rmmi_context_struct *context = rmmi_get_context_ptr();
    if (context == nullptr || source_string_ptr == nullptr || v == nullptr)
        return RMMI_INVALID_CMD_TYPE;
    rmmi_skip_blanks(source_string_ptr);
    source_string_ptr->symbol_hash = RMMI_EXTEND_HASH_PLUS;
    if (context->cmd_number == 0)
        KERV_DBG("Get the first command.");
    ++context->cmd_number;

    const kal_uint8 start_class = classify_command_start(source_string_ptr, context);
    if (start_class != RMMI_EXTENDED_CMD)
        return start_class;
    rmmi_skip_blanks(source_string_ptr);
    rmmi_command_name_t name = {};
    rmmi_hash_command_name(source_string_ptr, context, &name);

    if (rmmi_internal_command_analyzer(name.hash1, name.hash2, &source_string_ptr->cmd_index,
                                       &source_string_ptr->cmd_row_index) == KAL_TRUE) {
        KERV_INFO(" OK. INTERNAL_CMD");
        return RMMI_INTERNAL_CMD;
    }
    KERV_DBG("Search [%s] in validator table.", name.match);
    kal_uint8 cmd_class = RMMI_EXTENDED_CMD;
    rmmi_validator_t *record = nullptr;
    if (get_validator(reinterpret_cast<char *>(name.match), &record) == KAL_TRUE &&
        record != nullptr) {
        KERV_INFO(" OK. EXTENDED_CMD");
        take_validator(v, record);
    } else {
        cmd_class = RMMI_BASIC_CMD;
        KERV_INFO(" OK. BASIC_CMD");
        v->at_name = nullptr;
        v->test_mode = nullptr;
    }
    source_string_ptr->cmd_index = 0;
    source_string_ptr->cmd_row_index = 0;
    return cmd_class;
}

kal_uint8 rmmi_find_cmd_mode(rmmi_string_struct *source_string_ptr) {
    KERV_TAG(KAL_DBG_FUNCTION, "FUNC_RMMI_FIND_CMD_MODE_ENTRY");
    const rmmi_context_struct *context = rmmi_get_context_ptr();
    if (context == nullptr || source_string_ptr == nullptr)
        return RMMI_WRONG_MODE;
    const kal_uint8 s3 = context->s_reg.s3;
    rmmi_skip_blanks(source_string_ptr);
    const kal_uint8 c = rmmi_at_cursor(source_string_ptr);
    if (c == '?') {
        ++source_string_ptr->index;
        rmmi_skip_blanks(source_string_ptr);
        return rmmi_at_cursor(source_string_ptr) == s3 ? RMMI_READ_MODE : RMMI_WRONG_MODE;
    }
    if (c == '=') {
        ++source_string_ptr->index;
        rmmi_skip_blanks(source_string_ptr);
        if (rmmi_at_cursor(source_string_ptr) != '?')
            return RMMI_SET_OR_EXECUTE_MODE;
        ++source_string_ptr->index;
        rmmi_skip_blanks(source_string_ptr);
        return rmmi_at_cursor(source_string_ptr) == s3 ? RMMI_TEST_MODE : RMMI_WRONG_MODE;
    }
    if (c == s3 || c == context->s_reg.s4)
        return RMMI_ACTIVE_MODE;
    return RMMI_WRONG_MODE;
}

kal_bool rmmi_internal_command_analyzer(kal_uint32 hash_value1, kal_uint32 hash_value2,
                                        kal_uint16 *cmd_index_ptr, kal_uint16 *cmd_row_index_ptr) {
    KERV_FUNC(" ENTER");
    if (cmd_index_ptr == nullptr || cmd_row_index_ptr == nullptr)
        return KAL_FALSE;
    if (hash_value1 == 0 && hash_value2 == 0) {
        KERV_FUNC(" no hash value. EXIT");
        return KAL_FALSE;
    }
    kal_bool result = KAL_FALSE;
    kal_uint16 row = 0;
    for (; row < RMMI_TOT_INTERNAL_CMD; ++row) {
        if (rmmi_internal_cmd_table[row][0] == hash_value1 &&
            rmmi_internal_cmd_table[row][1] == hash_value2) {
            *cmd_row_index_ptr = row;
            *cmd_index_ptr = row;
            result = KAL_TRUE;
            break;
        }
    }
    KERV_INFO(" BASIC HASH Table, %d, %d, %d, result=[%d]", hash_value1, hash_value2, row, result);
    KERV_FUNC(" EXIT");
    return result;
}

void rmmi_release_validator_copies(rmmi_validator_t *v) {
    free_ctrl_buffer(v->at_name);
    free_ctrl_buffer(v->test_mode);
    v->at_name = nullptr;
    v->test_mode = nullptr;
}

char *rmmi_copy_validator_text(const char *text) {
    if (text == nullptr)
        return nullptr;
    const size_t size = strlen(text) + 1;
    char *copy = static_cast<char *>(get_ctrl_buffer(static_cast<kal_uint32>(size)));
    if (copy != nullptr)
        kal_mem_cpy(copy, text, static_cast<kal_uint32>(size));
    return copy;
}

} // extern "C"
