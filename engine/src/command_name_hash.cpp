#include "command_name_hash.h"

#include "at_text.h"
#include "command_analyzer.h"

#include <cstring>

namespace {

/* One character's step of either hash. */
constexpr kal_uint32 hash_step(kal_uint32 hash, kal_uint32 value) {
    return hash * 38 + value + 1;
}

bool ends_name(kal_uint8 c, const rmmi_context_struct *context) {
    return c == '=' || c == '?' || c == ',' || c == ';' || c == context->s_reg.s3 ||
           c == context->s_reg.s4;
}

/* The generation hash takes at most this many name characters: five, then six. */
constexpr kal_uint32 kMaxGenerationChars = 11;

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

void rmmi_hash_command_name(rmmi_string_struct *source, const rmmi_context_struct *context,
                            rmmi_command_name_t *name) {
    size_t match_length = 0;
    const kal_uint8 symbol = rmmi_at_cursor(source);
    if (rmmi_is_prefix_symbol(symbol) && source->index <= MAX_MULTIPLE_CMD_INFO_LEN) {
        rmmi_compute_symbol_hash(source);
        ++source->index;
        name->match[match_length++] = symbol;
    }
    for (kal_uint32 counter = 0; counter < RMMI_MAX_NAME_CHARS; ++counter) {
        const kal_uint8 c = rmmi_at_cursor(source);
        if (ends_name(c, context))
            break;
        kal_uint32 value = 0;
        if (rmmi_is_letter(c)) {
            value = static_cast<kal_uint32>((c | 0x20) - 'a');
            name->match[match_length++] = static_cast<kal_uint8>(c | 0x20);
        } else if (rmmi_is_digit(c)) {
            name->match[match_length++] = c;
        } else {
            KERV_DBG("ERR because unknown string [%c]", c);
            break;
        }
        kal_uint32 &hash = counter <= 4 ? name->hash1 : name->hash2;
        hash = hash_step(hash, value);
        ++source->index;
    }
    name->hash1 += static_cast<kal_uint32>(source->symbol_hash);
}

extern "C" {

void rmmi_compute_symbol_hash(rmmi_string_struct *source_string_ptr) {
    switch (rmmi_at_cursor(source_string_ptr)) {
    case '$':
        source_string_ptr->symbol_hash = RMMI_EXTEND_HASH_MONEY;
        break;
    case '%':
        source_string_ptr->symbol_hash = RMMI_EXTEND_HASH_PERCENT;
        break;
    case '^':
        source_string_ptr->symbol_hash = RMMI_EXTEND_HASH_HAT;
        break;
    default: /* '+' adds nothing, like no symbol at all */
        source_string_ptr->symbol_hash = RMMI_EXTEND_HASH_PLUS;
        break;
    }
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
    if (rmmi_is_a(static_cast<kal_uint8>(arg[index])) &&
        rmmi_is_t(static_cast<kal_uint8>(arg[index + 1]))) {
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
        hash = hash_step(hash, value);
    }
    *h1 = hash1 + symbol_value;
    *h2 = hash2;
    return KAL_TRUE;
}

} // extern "C"
