/*
 * The commands the daemon answers itself: AT+RELAY (which modem receives relayed
 * commands), ATE<n> (echo) and ATV<n> (verbose or numeric result codes). Commands are
 * identified by the classification hash of their name; the handler table runs parallel
 * to the hash table.
 */
#ifndef KERV_INTERNAL_COMMANDS_H
#define KERV_INTERNAL_COMMANDS_H

#include "rmmi_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Rows of the internal table. Rows after RMMI_AT_NEED_RELAY_TO_MD also go to the modem. */
typedef enum {
    RMMI_AT_RELAY = 0,
    RMMI_ATE = 1,
    RMMI_AT_NEED_RELAY_TO_MD = 2,
    RMMI_ATV = 3,
    RMMI_TOT_INTERNAL_CMD = 4
} rmmi_internal_cmd_enum;

/* An internal handler: reads the command at the cursor, leaves a report text in out. */
typedef kal_bool (*RMMI_BASIC_CMD_FUNCTION)(rmmi_string_struct *source_string_ptr, char *out,
                                            kal_uint32 *length);

/* Classification hash pair (hash1, hash2) of each row's name. */
extern const kal_uint32 rmmi_internal_cmd_table[RMMI_TOT_INTERNAL_CMD][2];
extern const RMMI_BASIC_CMD_FUNCTION rmmi_internal_validator_ft[RMMI_TOT_INTERNAL_CMD];

kal_bool rmmi_atrelay_hdlr(rmmi_string_struct *source_string_ptr, char *out, kal_uint32 *length);
kal_bool rmmi_ate_hdlr(rmmi_string_struct *source_string_ptr, char *out, kal_uint32 *length);
kal_bool rmmi_empty_hdlr(rmmi_string_struct *source_string_ptr, char *out, kal_uint32 *length);
kal_bool rmmi_atv_hdlr(rmmi_string_struct *source_string_ptr, char *out, kal_uint32 *length);

#ifdef __cplusplus
}
#endif

#endif /* KERV_INTERNAL_COMMANDS_H */
