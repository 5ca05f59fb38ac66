/*
 * The two hashes of a command name. Classification hashes the name of the command being
 * run, to find its internal row or its validator; generation hashes a name given in a
 * GEN_HASH request, so that plug-in authors can fill their tables. Both sum a value per
 * character into hash1 (the first five characters) and hash2 (the next ones), each step
 * hash * 38 + value + 1, and add the prefix symbol's value to hash1; they differ in what a
 * character is worth and where a name ends.
 */
#ifndef KERV_COMMAND_NAME_HASH_H
#define KERV_COMMAND_NAME_HASH_H

#include "engine_context.h"
#include "rmmi_common.h"

/* Match string: a prefix symbol, up to 17 name characters and the zero byte. */
#define RMMI_MAX_NAME_CHARS 17
#define RMMI_MATCH_STRING_SIZE 20

/* A command's name as classification sees it. */
struct rmmi_command_name_t {
    kal_uint8 match[RMMI_MATCH_STRING_SIZE]; /* registry key: symbol, lower-case name */
    kal_uint32 hash1;
    kal_uint32 hash2;
};

/* Classification: hashes the name at the cursor (its prefix symbol, then letters and
   digits, any letter case, every digit worth 'A') and steps the cursor over it. */
void rmmi_hash_command_name(rmmi_string_struct *source, const rmmi_context_struct *context,
                            rmmi_command_name_t *name);

#ifdef __cplusplus
extern "C" {
#endif

/* The value of the prefix symbol at the cursor, into its symbol_hash. */
void rmmi_compute_symbol_hash(rmmi_string_struct *source_string_ptr);
/* Generation: the hash pair of the name in arg (leading blanks and "AT" skipped); at most
   eleven characters count. KAL_FALSE for a text without a name. */
kal_bool rmmi_custom_compute_at_cmd(const kal_char *arg, kal_uint32 *h1, kal_uint32 *h2);

#ifdef __cplusplus
}
#endif

#endif /* KERV_COMMAND_NAME_HASH_H */
