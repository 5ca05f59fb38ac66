/*
 * The engine's relay to the modem daemon: one AT command to one modem, the modem's answer
 * text back. Runs on the request worker only.
 */
#ifndef KERV_MODEM_RELAY_H
#define KERV_MODEM_RELAY_H

#include "kal_common.h"
#include "kerv_md_request.h"

/*
 * Sends the NUL-terminated AT command text `in` (at most 510 characters are sent) to the
 * modem `target` (MODEM_TARGET_MD or MODEM_TARGET_LTE) and waits up to 60 seconds.
 * *length is the size of out on entry. Returns RMMI_NO_ERR (600) when the modem daemon
 * answered with text: out then holds that text and *length its data_len plus one. Every
 * failure returns NO_NW_SERVICE (30); out then holds a status text or is left untouched.
 * Requests are numbered from 1000 by an atomic counter, so that no two requests share a
 * token even if another thread ever relays too.
 */
kal_uint32 send_cmd_to_md(kal_uint32 target, kal_uint8 *in, char *out, kal_uint32 *length);

#endif /* KERV_MODEM_RELAY_H */
