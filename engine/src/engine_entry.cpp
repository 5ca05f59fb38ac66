#include "engine_entry.h"

#include "command_analyzer.h"
#include "engine_context.h"
#include "response_format.h"

#include <cstdio>
#include <cstring>

namespace {

/* The generation hash takes at most this many name characters: five, then six. */
constexpr kal_uint32 kMaxGenerationChars = 11;

/* Answers a line that cannot be run with an error result of its own. */
void refuse_line(rmmi_context_struct *context, kal_uint16 cause) {
    context->is_multi_cmd &= static_cast<kal_uint8>(~1u);
    rmmi_result_code_fmttr(RMMI_RCODE_ERROR, cause);
}

bool is_a(kal_char c) {
    return c == 'A' || c == 'a';
}
bool is_t(kal_char c) {
    return c == 'T' || c == 't';
}

/* Steps over the prefix symbols; each may appear once, in this order, the last one counts. */
kal_uint32 take_prefix_symbols(const kal_char *arg, size_t *index) {
    constexpr struct {
        kal_char symbol;
        kal_uint32 value;
    } kSymbols[] = {{'+', RMMI_EXTEND_HASH_PLUS},
                    {'^', RMMI_EXTEND_HASH_HAT},
                    {'%', RMMI_EXTEND_HASH_PERCENT},
                    {'$', RMMI_EXTEND_HASH_MONEY}};
    kal_uint32 symbol_value = 0;
    for (const auto &entry : kSymbols) {
        if (arg[*index] == entry.symbol) {
            ++*index;
            symbol_value = entry.value;
        }
    }
    return symbol_value;
}

/* Generation value of a letter or digit; false for any other character. */
bool generation_value(kal_char c, kal_uint32 *value) {
    if (c >= 'A' && c <= 'Z') {
        *value = static_cast<kal_uint32>(c - 'A');
    } else if (c >= 'a' && c <= 'z') {
        *value = static_cast<kal_uint32>(c - 'a');
    } else if (c >= '0' && c <= '9') {
        *value = static_cast<kal_uint32>(c - 22);
    } else {
        return false;
    }
    return true;
}

bool ends_generation_name(kal_char c) {
    return c == 0 || c == '=' || c == '?' || c == ',' || c == ';';
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

kal_bool rmmi_custom_compute_at_cmd(const kal_char *arg, kal_uint32 *h1, kal_uint32 *h2) {
    if (arg == nullptr || h1 == nullptr || h2 == nullptr) {
        KERV_WARN(" EXIT. arg is NULL.");
        return KAL_FALSE;
    }
    const size_t length = strlen(arg);
    if (length == 0) {
        KERV_WARN(" EXIT. len=[%d]", 0);
        return KAL_FALSE;
    }
    KERV_FUNC(" ENTER");
    /* The hash only reads the text, so it works on the caller's text in place: no copy,
     * no length limit and nothing to fail for lack of memory. */
    KERV_INFO(" local string=[%s]", arg);
    size_t index = 0;
    while (arg[index] == ' ') {
        ++index;
        KERV_DBG("skip space: string=[%s], index=[%zu]", arg, index);
    }
    if (is_a(arg[index]) && is_t(arg[index + 1])) {
        index += 2;
        KERV_DBG("skip AT: string=[%s], index=[%zu]", arg, index);
    }
    const kal_uint32 symbol_value = take_prefix_symbols(arg, &index);
    KERV_DBG(" index=[%zu], string_ptr=[%s]", index, arg);
    if (arg[index] == 0) {
        KERV_ERR(" length is less than 2.");
        return KAL_FALSE;
    }

    kal_uint32 hash1 = 0;
    kal_uint32 hash2 = 0;
    kal_uint32 value = 0;
    for (kal_uint32 counter = 0; counter < kMaxGenerationChars; ++counter, ++index) {
        const kal_char c = arg[index];
        if (ends_generation_name(c))
            break;
        KERV_DBG("for string char=[%c]", c);
        if (!generation_value(c, &value)) {
            /* Any other character repeats the value of the one before it; a name that
             * starts with one has no value to repeat and no hash. */
            KERV_WARN("ERR because unknown string [%c]", c);
            if (c == '\r')
                KERV_WARN("CR");
            else if (c == '\n')
                KERV_WARN("LF");
            if (counter == 0)
                return KAL_FALSE;
        }
        kal_uint32 &hash = counter <= 4 ? hash1 : hash2;
        hash = hash * 38 + value + 1;
    }
    *h1 = hash1 + symbol_value;
    *h2 = hash2;
    return KAL_TRUE;
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
