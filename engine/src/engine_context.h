/*
 * The AT engine's context: the one process-wide record that holds the S-registers, the
 * response mode, the output descriptor of the line in progress, the target modem and the
 * flags with which the line processor and the result code formatter coordinate
 * multi-command lines.
 *
 * Ownership: rmmi_init creates the context once; it is never released. The main thread
 * writes it during start-up, before the worker threads exist; afterwards only the request
 * worker reads and writes it, one request at a time, so it carries no lock.
 */
#ifndef KERV_ENGINE_CONTEXT_H
#define KERV_ENGINE_CONTEXT_H

#include "kal_common.h"
#include "rmmi_common.h"

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef enum {
    RMMI_NUM_PARTIAL_HEAD_TAIL = 0, /* numeric result codes */
    RMMI_VERBOSE_FULL_HEAD_TAIL = 1 /* verbose result codes */
} rmmi_result_code_format;

/* Same numbers as the modem daemon's targets. */
typedef enum { RMMI_MODEMD_LTE = 1, RMMI_MODEMD_23G = 16 } rmmi_modemd_target_type;

typedef enum {
    RMMI_PROCESS_CMD_FROM_SOCKET_PORT = 0,
    RMMI_PROCESS_CMD_FROM_APP = 1,
    RMMI_PROCESS_CMD_FROM_UART_PORT = 2
} rmmi_process_multi_cmd_type;

enum { RMMI_FIRST_CHANNEL = 0, RMMI_MAX_CHANNEL_NUMBER = 1 };

enum { RMMI_ECHO_OFF = 0, RMMI_ECHO_ON = 1 };

enum { RMMI_SIMPLE_ERROR = 0, RMMI_NUMERIC_ERROR = 1, RMMI_TEXT_ERROR = 2 };

typedef struct {
    kal_uint8 s0;
    kal_uint8 s2;
    kal_uint8 s3; /* command line termination character: ends each single command */
    kal_uint8 s4; /* response formatting character: also ends a name and a command list */
    kal_uint8 s5;
    kal_uint8 s6;
    kal_uint8 s7;
    kal_uint8 s8;
    kal_uint8 s10;
    kal_uint8 s32;
    kal_uint8 s33;
    kal_uint8 s95;
} rmmi_s_register_struct;

typedef struct {
    kal_uint8 echo_flag;       /* non-zero: each response is preceded by its command text */
    kal_uint8 suppress_flag;   /* read only by the message-service result code formatter */
    kal_uint8 format;          /* rmmi_result_code_format; any non-zero value is verbose */
    kal_uint8 ext_result_code; /* success flag of the line in progress */
} rmmi_rsp_mode_struct;

typedef struct {
    kal_uint8 gsm_state;
    kal_uint8 gprs_state;
    kal_uint8 act;
    kal_uint8 reserved;
    kal_uint16 cell_id;
    kal_uint16 lac_value;
} rmmi_reg_state_struct;

/* Only bit 0 of is_multi_cmd, multi_cmd_error and isAtdAction_flag is ever touched. */
typedef struct {
    kal_uint8 uart_stop_send_flag;
    kal_uint8 char_set;  /* rmmi_chset_enum */
    kal_uint16 cmee_err; /* cause of the last error result code */
    kal_bool uart_in_data_mode;
    kal_uint8 is_multi_cmd;    /* set while a command that is not its line's last runs */
    kal_uint8 multi_cmd_error; /* an error result inside a multi-command line: stop it */
    kal_uint16 cmd_error_cause;
    kal_bool command_allow;
    kal_uint32 cmd_number; /* commands taken from the line in progress */
    kal_uint8 is_sms_cmd;
    kal_uint8 isAtdAction_flag;
    kal_uint8 isAtdAbort_flag;
    kal_uint8 response_type;
    kal_bool cmd_from_tst; /* swallow the next result code */
    rmmi_s_register_struct s_reg;
    void *arg_list[16];   /* arguments of the result code formatter */
    kal_int32 fd;         /* where the answers of the line in progress go */
    kal_uint32 fd_type;   /* rmmi_process_multi_cmd_type, as last configured */
    kal_uint32 chip_type; /* rmmi_modemd_target_type of relayed commands; 0 = not configured */
    rmmi_rsp_mode_struct rsp_mode;
    rmmi_reg_state_struct register_status;
    kal_uint8 source[RMMI_MAX_CHANNEL_NUMBER];
    kal_uint8 port[RMMI_MAX_CHANNEL_NUMBER];
    kal_uint8 error_report_mode;
    kal_uint8 cmd_mode;
} rmmi_context_struct;

/* Null until rmmi_init succeeds; reach it through rmmi_get_context_ptr. */
extern rmmi_context_struct *RMMI_PTR;

/* Creates (or, called again, re-initialises) the context; KAL_FALSE when out of memory. */
kal_bool rmmi_init(void);
kal_bool rmmi_init_context(void);
/* Hook for product-specific defaults. */
void rmmi_custom_init_context(void);
/* Applies the channel configuration: command source, target modem, result code format. */
void rmmi_read_custom_default_setting(rmmi_process_multi_cmd_type type,
                                      rmmi_modemd_target_type ctype,
                                      rmmi_result_code_format format);
rmmi_context_struct *rmmi_get_context_ptr(void);
/* The modem that receives relayed commands: LTE when chosen, otherwise the 2G/3G modem. */
kal_uint32 rmmi_relay_target(const rmmi_context_struct *context);
/* Puts the user-settable part of the context back to its reset values. */
void rmmi_reset(void);

/*
 * The engine's one way out: every response and result code is handed to the output writer
 * with the descriptor of the line in progress. The program that runs the engine installs
 * its writer before the worker starts (the daemon's gives up on a host that stops
 * reading); until then the bytes go out with plain writes. A writer reports nothing: a
 * receiver that has gone simply loses the output.
 */
typedef void (*rmmi_output_writer_t)(int fd, const void *buf, size_t len);
void rmmi_set_output_writer(rmmi_output_writer_t writer);
void rmmi_write_output(int fd, const void *buf, size_t len);

#ifdef __cplusplus
}
#endif

#endif /* KERV_ENGINE_CONTEXT_H */
