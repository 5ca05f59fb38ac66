/*
 * Command line analysis: finding "AT", splitting a line into single commands, naming and
 * classifying each command (its name's hash: command_name_hash.h), finding its mode; and
 * the three processors (relay to the modem, validator plug-in, internal handler) that
 * answer it, in command_processors.cpp.
 */
#ifndef KERV_COMMAND_ANALYZER_H
#define KERV_COMMAND_ANALYZER_H

#include "rmmi_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * At most 38 characters may follow a command of a multi-command line (38 + 2 <= 40), and
 * "AT" or a prefix symbol is recognised only up to this position of the line.
 */
#define MAX_MULTIPLE_CMD_INFO_LEN 40

/* Size of each single command's buffer: the command, its terminator and the zero byte. */
#define RMMI_CMD_BUFFER_SIZE 2048

/* Response buffer of the processors and the room for text in it. */
#define RMMI_RSP_BUFFER_SIZE 1008
#define RMMI_RSP_BUFFER_ROOM (RMMI_RSP_BUFFER_SIZE - 1)

/* Runs the commands of the line under source (its index 0, cmd_length characters). */
void rmmi_cmd_processor(rmmi_string_struct *source_string_ptr, kal_uint16 cmd_length);

/* Characters of str, at most length, that belong to its first command. */
kal_uint16 rmmi_find_multicmd_seperator(const kal_uint8 *str, kal_uint16 length);

/* Takes the next command of the line into des; KAL_FALSE when the line is exhausted. */
kal_bool rmmi_get_next_cmd(rmmi_string_struct *source_string_ptr,
                           rmmi_string_struct *des_string_ptr, rmmi_validator_t *validator_p);

/*
 * Classifies the command at the line cursor and counts it in the context's cmd_number.
 * For an extended command v receives heap copies of the record's at_name and test_mode;
 * rmmi_release_validator_copies gives them back.
 */
kal_uint8 rmmi_find_cmd_class(rmmi_string_struct *source_string_ptr, rmmi_validator_t *v);
kal_uint8 rmmi_find_cmd_mode(rmmi_string_struct *source_string_ptr);
kal_bool rmmi_internal_command_analyzer(kal_uint32 hash_value1, kal_uint32 hash_value2,
                                        kal_uint16 *cmd_index_ptr, kal_uint16 *cmd_row_index_ptr);
void rmmi_release_validator_copies(rmmi_validator_t *v);
/* A heap copy of a validator record's text (null for null, or without memory); the taker
   releases it with free_ctrl_buffer. */
char *rmmi_copy_validator_text(const char *text);

/* The processors (command_processors.cpp): relay to the modem, validator, internal handler. */
kal_bool rmmi_basic_cmd_processor(rmmi_string_struct *source_string_ptr);
kal_bool rmmi_extended_cmd_processor(rmmi_string_struct *source_string_ptr,
                                     rmmi_validator_t *validator);
kal_bool rmmi_internal_cmd_processor(rmmi_string_struct *source_string_ptr);

#ifdef __cplusplus
}
#endif

#endif /* KERV_COMMAND_ANALYZER_H */
