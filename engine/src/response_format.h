/*
 * The engine's output stage: every byte the engine sends to a host passes through here.
 * Responses are written with the echo of their command when echo is on; final result
 * codes in the form the context selects (verbose or numeric, error report mode). All
 * writes go to the context's fd, each in one write.
 */
#ifndef KERV_RESPONSE_FORMAT_H
#define KERV_RESPONSE_FORMAT_H

#include "rmmi_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Result code identifiers (rsp_type). */
enum {
    RMMI_RCODE_OK = 0,
    RMMI_RCODE_CONNECT = 1,
    RMMI_RCODE_NO_CARRIER = 2,
    RMMI_RCODE_ERROR = 3,
    RMMI_RCODE_BUSY = 7
};

enum { RMMI_SUPPRESS_OFF = 0, RMMI_SUPRESS_ON = 1 };

/* The verbose final result codes as they go on the wire. */
#define RMMI_OK_RESULT "\r\nOK\r\n"
#define RMMI_ERROR_RESULT "\r\nERROR\r\n"

/* The cause that goes with a successful result. */
#define RMMI_SUCCESS_CAUSE 1000

void rmmi_result_code_fmttr(kal_uint8 rsp_type, kal_uint16 cause);
void rmmi_final_rsp_generator(kal_bool ret_val, const kal_uint8 *buffer, kal_uint16 string_length);
/* Writes buffer, preceded by the command text string_ptr when echo is on. */
void rmmi_rsp_generator(const kal_uint8 *string_ptr, const kal_uint8 *buffer,
                        kal_uint16 string_length);
void rmmi_sms_result_code_fmttr(kal_uint8 rsp_type, kal_uint16 cause, kal_bool cause_present);
void rmmi_sms_final_rsp_generator(kal_bool ret_val, const kal_uint8 *buffer,
                                  kal_uint16 string_length);

/*
 * Expands the template fmt into buff_ptr (no bound: the caller gives room) and returns the
 * count of bytes written before the terminating zero. Directives take the next entry of
 * arg_list: %a %d unsigned 8-bit, %u unsigned 16-bit, %l signed 16-bit, %g signed 32-bit,
 * %e unsigned 32-bit, %c a character (entries point at the value); %s a text (the entry
 * is the text). With nos_arg 0 the template is copied as it stands.
 */
kal_uint16 rmmi_fast_string_print(kal_uint8 *buff_ptr, const kal_uint8 *fmt, void **arg_list,
                                  kal_uint8 nos_arg);
/* Decimal digits of digit and a zero byte, at most 11 bytes. */
void rmmi_int_to_ascii_converter(kal_uint32 digit, kal_uint8 *buff_ptr);

#ifdef __cplusplus
}
#endif

#endif /* KERV_RESPONSE_FORMAT_H */
