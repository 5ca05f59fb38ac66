/*
 * Types shared by the AT engine, the parameter toolkit and validator plug-ins: the
 * command cursor, command classes and modes, parse outcomes, error causes and the
 * validator record a plug-in exports. Plain C: plug-ins written in C include it.
 */
#ifndef RMMI_COMMON_H
#define RMMI_COMMON_H

#include "kal_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Hash contribution of a command name's prefix symbol (38^5 steps). */
typedef enum {
    RMMI_EXTEND_HASH_PLUS = 0,
    RMMI_EXTEND_HASH_HAT = 79235168,
    RMMI_EXTEND_HASH_PERCENT = 158470336,
    RMMI_EXTEND_HASH_MONEY = 237705504
} rmmi_extend_symbol_hash_enum;

typedef enum {
    RMMI_WRONG_MODE = 0,
    RMMI_SET_OR_EXECUTE_MODE = 1,
    RMMI_READ_MODE = 2,
    RMMI_TEST_MODE = 3,
    RMMI_ACTIVE_MODE = 4
} rmmi_cmd_mode_enum;

typedef enum {
    RMMI_INVALID_CMD_TYPE = 0,
    RMMI_PREV_CMD = 1,
    RMMI_BASIC_CMD = 2,
    RMMI_EXTENDED_CMD = 3,
    RMMI_EXTENDED_CUSTOM_CMD = 4,
    RMMI_CUSTOMER_CMD = 5,
    RMMI_INTERNAL_CMD = 6
} rmmi_cmd_class_enum;

/* Character sets of the texts a command carries (file names come as IRA or UCS2). */
typedef enum {
    RMMI_CHSET_IRA = 0,
    RMMI_CHSET_HEX = 1,
    RMMI_CHSET_GSM = 2,
    RMMI_CHSET_PCCP437 = 3,
    RMMI_CHSET_PCDN = 4,
    RMMI_CHSET_88591 = 5,
    RMMI_CHSET_UCS2 = 6,
    RMMI_CHSET_TOTAL_NUM = 7
} rmmi_chset_enum;

/* The cursor over one command string. */
typedef struct {
    kal_uint16 index;      /* current position in string_ptr */
    kal_uint8 *string_ptr; /* the text, zero-terminated */
    kal_uint8 *ip_string;  /* while a validator runs: its test-mode text, or null */
    kal_uint8 cmd_mode;    /* rmmi_cmd_mode_enum */
    kal_uint8 cmd_class;   /* rmmi_cmd_class_enum */
    kal_uint16 cmd_index;  /* internal command: its row in the internal table; else 0 */
    kal_uint16 cmd_row_index;
    rmmi_extend_symbol_hash_enum symbol_hash;
} rmmi_string_struct;

/* Outcome of reading one command parameter. */
typedef enum {
    RMMI_PARSE_OK = 0,
    RMMI_PARSE_ERROR = 1,
    RMMI_PARSE_NOT_FOUND = 2,
    RMMI_PARSE_TEXT_TOO_LONG = 3
} rmmi_validator_cause_enum;

/* Error causes (0-302, as "+CME ERROR" carries them) and the engine's own codes (600-). */
typedef enum {
    RMMI_ERR_PHONE_FAILURE = 0,
    OPERATION_NOT_ALLOWED_ERR = 3,
    RMMI_ERR_OPERATION_NOT_SUPPORTED = 4,
    PH_SIM_PIN_REQUIRED = 5,
    PH_FSIM_PIN_REQUIRED = 6,
    PH_FSIM_PUK_REQUIRED = 7,
    SIM_NOT_INSERTED = 10,
    SIM_PIN_REQUIRED = 11,
    SIM_PUK_REQUIRED = 12,
    SIM_FAILURE = 13,
    SIM_BUSY = 14,
    SIM_WRONG = 15,
    INCORRECT_PASSWD = 16,
    SIM_PIN2_REQUIRED = 17,
    SIM_PUK2_REQUIRED = 18,
    RMMI_ERR_MEM_FULL = 20,
    RMMI_ERR_INVALID_INDEX = 21,
    RMMI_ERR_NO_FOUND = 22,
    TEXT_ERRSTRING_TOO_LONG_ERR = 24,
    INVALID_CHARACTERS_IN_TEXT_ERRSTRING_ERR = 25,
    DIAL_ERRSTRING_TOO_LONG_ERR = 26,
    INVALID_CHARACTERS_IN_DIAL_ERRSTRING_ERR = 27,
    NO_NW_SERVICE = 30,
    RMMI_ERR_NETWORK_TIMEOUT = 31,
    RMMI_ERR_NETWORK_NOT_ALLOWED = 32,
    RMMI_ERR_NW_PERSON_PIN_REQUIRED = 40,
    RMMI_ERR_NW_PERSON_PUK_REQUIRED = 41,
    RMMI_ERR_NW_SUB_PERSON_PIN_REQUIRED = 42,
    RMMI_ERR_NW_SUB_PERSON_PUK_REQUIRED = 43,
    RMMI_ERR_SP_PERSON_PIN_REQUIRED = 44,
    RMMI_ERR_SP_PERSON_PUK_REQUIRED = 45,
    RMMI_ERR_CORP_PERSON_PIN_REQUIRED = 46,
    RMMI_ERR_CORP_PERSON_PUK_REQUIRED = 47,
    RMMI_ERR_UNKNOWN = 100,
    RMMI_ERR_ILLEGAL_MS = 103,
    RMMI_ERR_ILLEGAL_ME = 106,
    RMMI_ERR_GPRS_NOT_ALLOWED = 107,
    RMMI_ERR_PLMN_NOT_ALLOWED = 111,
    RMMI_ERR_LA_NOT_ALLOWED = 112,
    RMMI_ERR_ROAMING_AREA_NOT_ALLOWED = 113,
    RMMI_ERR_SERV_OPTION_NOT_SUPPORTED = 132,
    RMMI_ERR_REQ_SERV_OPTION_NOT_SUBSCRIBED = 133,
    RMMI_ERR_SERV_OPTION_TEMP_OUT_OF_ORDER = 134,
    RMMI_ERR_GPRS_UNSPECIFIED_ERROR = 148,
    RMMI_ERR_PDP_AUTH_FAIL = 149,
    RMMI_ERR_INVALID_MOBILE_CLASS = 150,
    RMMI_ERR_LINK_NS_SP_PERSON_PIN_REQUIRED = 151,
    RMMI_ERR_LINK_NS_SP_PERSON_PUK_REQUIRED = 152,
    RMMI_ERR_LINK_SIM_C_PERSON_PIN_REQUIRED = 153,
    RMMI_ERR_LINK_SIM_C_PERSON_PUK_REQUIRED = 154,
    RMMI_ERR_COMMAND_CONFLICT = 302,
    RMMI_NO_ERR = 600,
    RMMI_ERR_UNRECOGNIZED_CMD = 601,
    RMMI_ERR_RETURN_ERROR = 602,
    RMMI_ERR_SYNTEX_ERROR = 603,
    RMMI_ERR_UNSPECIFIED = 604,
    RMMI_ERR_DATA_TRANSFER_ALREADY = 605,
    RMMI_ERR_ACTION_ALREADY = 606,
    RMMI_ERR_NOT_AT_CMD = 607,
    RMMI_ERR_MULTI_CMD_TOO_LONG = 608,
    RMMI_ERR_ABORT_COPS = 609,
    RMMI_ERR_NO_CALL_DISC = 610,
    RMMI_ERR_BT_SAP_UNDEFINED = 611,
    RMMI_ERR_BT_SAP_NOT_ACCESSIBLE = 612,
    RMMI_ERR_BT_SAP_CARD_REMOVED = 613,
    RMMI_ERR_AT_NOT_ALLOWED_BY_CUSTOMER = 614
} rmmi_err_id_enum;

/*
 * A validator: reads the command at the cursor, places its whole answer (final result
 * code included) zero-terminated in out (1008 bytes, zero-filled; *out_len is 1007 on
 * entry and the text's length on return). KAL_FALSE fails the command line.
 */
typedef kal_bool (*RMMI_EXT_CMD_FUNCTION)(rmmi_string_struct *cmd, char *out, int *out_len);

/* One extended command of a plug-in; a group ends with a record whose at_name is null. */
typedef struct rmmi_validator_s {
    char *at_name; /* lookup key: prefix symbol as written, letters lower case ("+cgdcont") */
    kal_uint32 hash1;
    kal_uint32 hash2;
    char *test_mode; /* answer text for the test mode, or null */
    RMMI_EXT_CMD_FUNCTION func;
} rmmi_validator_t;

#ifdef __cplusplus
}
#endif

#endif /* RMMI_COMMON_H */
