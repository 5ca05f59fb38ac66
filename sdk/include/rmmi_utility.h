/*
 * Parameter toolkit for validators: read one parameter at a time at the command
 * cursor (numbers, quoted strings, message text, hexadecimal text, file names), check
 * it, and convert or print texts for answers.
 *
 * Cursor conventions shared by every reader:
 * - The text is source_string_ptr->string_ptr (zero-terminated); index is the position.
 *   A position at or beyond the text's length (taken when the function is entered) is
 *   "the end" and reads as a zero byte: nothing beyond the terminator is ever read.
 * - A blank is the space character only.
 * - delimiter separates this parameter from the next (','); delimiter2 ends the list
 *   (the engine's line-end character, S3).
 * - An omitted parameter steps the cursor over its delimiter; a malformed one leaves
 *   index on the offending byte, so a validator can go on or report where it failed.
 *   index never wraps: stepping past position 65535 keeps it there.
 * - The integer validators return 255 for an omitted or malformed parameter. 255 is
 *   also a valid value: only the outcome (error_cause / result) tells them apart.
 * - The text validators return 0 when a parameter with text was read, 255 otherwise.
 * - max_length of an output text is the size of its buffer, terminator included: at
 *   most max_length - 1 bytes of text are stored.
 *
 * Outcomes are rmmi_validator_cause_enum values (rmmi_common.h); the validators hand
 * them back through a kal_uint8.
 *
 * A null pointer is a programming error: the process stops with an assertion.
 * No function keeps state; the ones that upper-case change the caller's text in place.
 *
 * Plain C interface: validator plug-ins written in C include this header.
 */
#ifndef RMMI_UTILITY_H
#define RMMI_UTILITY_H

#include "kal_common.h"
#include "rmmi_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Numbers ---------------------------------------------------------------------- */

/*
 * Reads a decimal parameter ended by delimiter, delimiter2 or the end, after leading
 * blanks. The value grows modulo 2^32. The cursor steps one past whatever stopped the
 * number. No outcome: 255 marks omitted and malformed parameters alike.
 */
kal_uint32 rmmi_int_validator(rmmi_string_struct *source_string_ptr, kal_uint8 delimiter,
                              kal_uint8 delimiter2);

/*
 * As rmmi_int_validator, with the outcome in *error_cause (required). After a
 * delimiter, blanks are skipped and the cursor is left on the next parameter; a list
 * that ends in a delimiter followed by delimiter2 is RMMI_PARSE_ERROR.
 */
kal_uint32 rmmi_int_validator_ext(kal_uint8 *error_cause, rmmi_string_struct *source_string_ptr,
                                  kal_uint8 delimiter, kal_uint8 delimiter2);

/*
 * As rmmi_int_validator_ext, refusing any digit or value above max (the value never
 * exceeds max, so no overflow). error_cause may be null.
 */
kal_uint32 rmmi_int_validator_range_check(kal_uint8 *error_cause,
                                          rmmi_string_struct *source_string_ptr,
                                          kal_uint8 delimiter, kal_uint8 delimiter2,
                                          kal_uint32 max);

/*
 * As rmmi_int_validator, with an optional leading '-' (the result is negated in 32-bit
 * two's complement) and the outcome in *error_cause (required). A '-' directly followed
 * by a delimiter is an omitted parameter.
 */
kal_int32 rmmi_signed_int_validator(kal_uint8 *error_cause, rmmi_string_struct *source_string_ptr,
                                    kal_uint8 delimiter, kal_uint8 delimiter2);

/*
 * Reads digits at the cursor, without a delimiter; blanks after each digit are consumed.
 * The value is 16 bits wide (keep max at 65535 or below). Always prints the text and
 * index, and each digit it looks at, on standard output. result may be null.
 */
kal_uint32 rmmi_extract_number(rmmi_string_struct *source_string_ptr,
                               rmmi_validator_cause_enum *result, kal_uint32 max);

/*
 * rmmi_extract_number, then blanks; anything but delimiter2 after them makes the
 * outcome RMMI_PARSE_ERROR. index is left on that byte. result may be null.
 */
kal_uint16 rmmi_extract_number_ext(rmmi_string_struct *source_string_ptr,
                                   rmmi_validator_cause_enum *result, kal_uint32 max,
                                   kal_uint8 delimiter2);

/*
 * Copies a dial-string parameter into ss_string (max_length bytes, terminator included):
 * digits and * # + p P i I g G are kept, T t , blank ! are dropped, anything else
 * (the end of the text too, unless delimiter is 0) fails with KAL_FALSE, index on it and
 * ss_string unterminated. Stops, unconsumed, at delimiter or ';'. An over-long number is
 * cut at max_length - 1 bytes without error, index on the first byte not copied.
 */
kal_bool extract_number_string(rmmi_string_struct *source_string_ptr, kal_uint8 delimiter,
                               kal_uint8 *ss_string, kal_uint8 max_length);

/* Steps over T t @ ! P p and blanks (the dial modifiers a number may start with). */
void rmmi_skip_leading_chars(rmmi_string_struct *source_string_ptr);

/* KAL_TRUE when str is empty or all digits. */
kal_bool rmmi_is_number_string(const kal_uint8 *str);

/* ---- Strings, hexadecimal text and file names ------------------------------------- */

/*
 * Reads a quoted string into str. "\hh" (two hexadecimal digits, either case) stores
 * the byte 0xhh: the only way to put '"' or '\' into the text. After the closing quote,
 * blanks, then delimiter or delimiter2 (stepped over). An empty string "" gives 255
 * with RMMI_PARSE_OK. A string longer than max_length - 1 bytes gives
 * RMMI_PARSE_TEXT_TOO_LONG with the bytes that fit in str.
 */
kal_uint32 rmmi_string_validator_ext(kal_uint8 *error_cause, rmmi_string_struct *source_string_ptr,
                                     kal_uint8 delimiter, kal_uint8 delimiter2,
                                     kal_uint16 max_length, kal_uint8 *str);

/*
 * Reads a quoted string of letters, digits and # * + , . / : ^ - [ ] < _ blank ; >
 * into str (no escapes). Any other byte, or one more byte than fits, ends the text with
 * 255; either way the cursor then goes over blanks and steps over delimiter, or stays
 * on the byte that is not delimiter.
 */
kal_uint32 rmmi_string_validator(rmmi_string_struct *source_string_ptr, kal_uint8 delimiter,
                                 kal_uint16 max_length, kal_uint8 *str);

/*
 * Copies raw bytes (blanks included) from the cursor up to delimiter, which is stepped
 * over (a message text ended by control-Z, say). A lone delimiter is an empty text and
 * gives 0. A text that does not fit, or that is not ended by delimiter, gives 255.
 */
kal_uint32 rmmi_sms_text_validator(rmmi_string_struct *source_string_ptr, kal_uint8 delimiter,
                                   kal_uint16 max_length, kal_uint8 *str);

/*
 * Reads unquoted hexadecimal text into str, upper case. Upper-cases the whole command
 * text in place first, so later parameters see it in upper case too. A text longer than
 * max_length - 1 digits is RMMI_PARSE_ERROR.
 */
kal_uint32 rmmi_hex_validator_ext(kal_uint8 *error_cause, rmmi_string_struct *source_string_ptr,
                                  kal_uint8 delimiter, kal_uint8 delimiter2, kal_uint16 max_length,
                                  kal_uint8 *str);

/*
 * Reads a quoted file name of up to max_length - 1 characters into filename, which
 * holds 2 * max_length bytes (one-byte kal_wchar, two bytes per character):
 * - RMMI_CHSET_IRA: the name as text, copied one byte per character, terminated;
 *   *filename_length is its length + 1.
 * - RMMI_CHSET_UCS2: the name as hexadecimal text, four digits per character, high byte
 *   first (at most 499 digits); stored low byte first; *filename_length is the number
 *   of characters + 1.
 * Any other coding scheme, undecodable hexadecimal text or lack of memory for the work
 * buffer is RMMI_PARSE_ERROR. Never writes more than 2 * max_length bytes of filename.
 */
kal_uint32 rmmi_filename_validator(kal_uint8 coding_scheme, rmmi_string_struct *source_string_ptr,
                                   kal_uint8 delimiter, kal_uint8 delimiter2, kal_uint16 max_length,
                                   kal_wchar *filename, kal_uint16 *filename_length,
                                   kal_uint8 *error_cause);

/*
 * Decodes hexadecimal text (upper-cased in place) into bytes, two digits per byte, high
 * digit first, and appends two zero bytes. An odd digit count or a non-hexadecimal byte
 * gives KAL_FALSE, with the bytes decoded so far in val, unterminated. val must hold
 * strlen(str) / 2 + 2 bytes.
 */
kal_bool check_hex_value_ext(kal_uint8 *str, kal_uint8 *val);

/*
 * As check_hex_value_ext without checks, result or terminator, for text known to be an
 * even number of valid digits. A lone last digit is ignored.
 */
void check_hex_value(kal_uint8 *str, kal_uint8 *val);

/*
 * Hexadecimal text (upper-cased in place) to an integer; only the last eight digits
 * count. KAL_FALSE, val untouched, for a non-hexadecimal byte. Empty text gives 0.
 */
kal_bool rmmi_hexstring_to_integer(kal_uint8 *str, kal_uint32 *val);

/*
 * For dcs RMMI_CHSET_UCS2: KAL_TRUE when every four-digit group of str (upper-cased in
 * place) is 00hh, i.e. each character is below 256; the hh digits are copied as text
 * into val (strlen(str) / 2 bytes, not terminated). Any other dcs gives KAL_FALSE.
 */
kal_bool string_is_pure_ascii(kal_uint8 *str, kal_uint8 *val, kal_uint8 dcs);

/* ---- Conversions and printing ------------------------------------------------------ */

/* Upper-cases a to z in place. */
void toUpper(kal_uint8 *str);

/* Copies the text with its terminator into dest, which holds strlen(src) + 1 bytes. */
void ascii_to_ucs2(const kal_uint8 *src, kal_wchar *dest);
kal_bool ucs2_to_ascii(const kal_wchar *ucs2_src, kal_uint8 *ascii_dest);

/* Swaps the bytes of each two-byte pair in the first length bytes; an odd last byte stays. */
void rmmi_byte_order_reverse(kal_uint8 *src, kal_uint16 length);

/* The first length bytes of val as "%02X" each into str (2 * length + 1 bytes). */
void print_hex_value_ext(const kal_uint8 *val, kal_char *str, kal_uint8 length);

/* val as "%02X" per byte, up to (not including) the first two consecutive zero bytes. */
void print_hex_value(const kal_uint8 *val, kal_char *str);

/* Two-byte characters of val as "%02X%02X", up to the first zero character. */
void rmmi_print_ucs2(const kal_wchar *val, kal_char *str);

/*
 * The first cnt bytes of val in dotted decimal ("192.168.0.1") into str, stopping once
 * the text is longer than 16 characters: str holds 21 bytes. cnt 0 leaves str untouched.
 */
void rmmi_value2string(kal_char *str, const kal_uint8 *val, kal_uint8 cnt);

#ifdef __cplusplus
}
#endif

#endif /* RMMI_UTILITY_H */
