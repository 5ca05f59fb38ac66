/*
 * +CGDCONT: define PDP contexts (packet data connections) by context id.
 *
 *   AT+CGDCONT=<cid>[,<PDP_type>[,<APN>[,<PDP_addr>[,<d_comp>[,<h_comp>]]]]]
 *       cid 1-15; PDP_type "IP", "IPV6" or "IPV4V6"; APN up to 99 characters (letters,
 *       digits, '.', '-'); PDP_addr up to 63 characters; d_comp 0-2; h_comp 0-4.
 *       AT+CGDCONT=<cid> alone removes that context.
 *   AT+CGDCONT?   lists the defined contexts:  +CGDCONT: 1,"IP","internet"
 *   AT+CGDCONT=?  lists the supported values (the record's test-mode text).
 *   AT+CGDCONT    is accepted and changes nothing.
 *
 * Every parameter is read and checked before anything is stored, so a command that fails
 * leaves the contexts as they were. A change is then handed to the modem daemon (a
 * MODEM_REQ_CREATE_APN request "<cid>,<PDP_type>,<APN>", or MODEM_REQ_DELETE_APN "<cid>"
 * for a defined context); only when it confirms is the context stored and OK answered.
 * The contexts live in this library's memory for the life of the daemon.
 */
#include <kerv_plugin.h>

#include <stdio.h>
#include <string.h>
#include <strings.h>

#define CGDCONT_MAX_CID 15
#define CGDCONT_TYPE_SIZE 8  /* longest type "IPV4V6" and a NUL, one spare */
#define CGDCONT_APN_SIZE 100 /* 99 characters and a NUL */
#define CGDCONT_ADDR_SIZE 64
#define CGDCONT_MAX_D_COMP 2
#define CGDCONT_MAX_H_COMP 4

static const char OK_TEXT[] = "\r\nOK\r\n";
static const char ERROR_TEXT[] = "\r\nERROR\r\n";

typedef struct {
    kal_bool defined;
    char pdp_type[CGDCONT_TYPE_SIZE];
    char apn[CGDCONT_APN_SIZE];
} pdp_context_t;

/* Indexed by cid; entry 0 is never used. Only the request worker calls validators. */
static pdp_context_t contexts[CGDCONT_MAX_CID + 1];

static const char *const PDP_TYPES[] = {"IP", "IPV6", "IPV4V6"};

/* Sets the answer and its length; the engine writes out up to its NUL. */
static kal_bool answer(char *out, int *out_len, const char *text, kal_bool result) {
    snprintf(out, (size_t)*out_len + 1, "%s", text);
    *out_len = (int)strlen(out);
    return result;
}

/* The command ends with the line's termination character, whatever S3 is set to. */
static kal_uint8 line_end(const rmmi_string_struct *cmd) {
    const size_t len = strlen((const char *)cmd->string_ptr);
    return len > 0 ? cmd->string_ptr[len - 1] : '\r';
}

static const char *known_pdp_type(const char *text) {
    for (size_t i = 0; i < sizeof(PDP_TYPES) / sizeof(PDP_TYPES[0]); ++i)
        if (strcasecmp(text, PDP_TYPES[i]) == 0)
            return PDP_TYPES[i];
    return NULL;
}

/* An APN network identifier: labels of letters, digits and '-', separated by '.'. */
static kal_bool apn_is_valid(const char *apn) {
    for (const char *c = apn; *c != '\0'; ++c) {
        const kal_bool allowed = (*c >= 'a' && *c <= 'z') || (*c >= 'A' && *c <= 'Z') ||
                                 (*c >= '0' && *c <= '9') || *c == '.' || *c == '-';
        if (!allowed)
            return KAL_FALSE;
    }
    return KAL_TRUE;
}

/* An optional quoted text: present and read whole, or omitted (text left empty). */
static kal_bool read_optional_text(rmmi_string_struct *cmd, kal_uint8 end, char *text,
                                   kal_uint16 size) {
    kal_uint8 cause = RMMI_PARSE_OK;
    rmmi_string_validator_ext(&cause, cmd, ',', end, size, (kal_uint8 *)text);
    return cause == RMMI_PARSE_OK || cause == RMMI_PARSE_NOT_FOUND;
}

static kal_bool read_optional_number(rmmi_string_struct *cmd, kal_uint8 end, kal_uint32 max) {
    kal_uint8 cause = RMMI_PARSE_OK;
    rmmi_int_validator_range_check(&cause, cmd, ',', end, max);
    return cause == RMMI_PARSE_OK || cause == RMMI_PARSE_NOT_FOUND;
}

/* A list such as 1,"IP", ends in a separator with nothing after it. */
static kal_bool ends_in_separator(const rmmi_string_struct *cmd) {
    size_t at = strlen((const char *)cmd->string_ptr);
    if (at < 2)
        return KAL_FALSE;
    for (at -= 2; at > cmd->index && cmd->string_ptr[at] == ' '; --at) {
    }
    return cmd->string_ptr[at] == ',' ? KAL_TRUE : KAL_FALSE;
}

/* Reads the whole parameter list into *parsed and *cid; nothing is stored here. */
static kal_bool parse_definition(rmmi_string_struct *cmd, kal_uint32 *cid, pdp_context_t *parsed) {
    const kal_uint8 end = line_end(cmd);
    if (ends_in_separator(cmd))
        return KAL_FALSE;
    kal_uint8 cause = RMMI_PARSE_OK;
    *cid = rmmi_int_validator_range_check(&cause, cmd, ',', end, CGDCONT_MAX_CID);
    if (cause != RMMI_PARSE_OK || *cid == 0)
        return KAL_FALSE;

    char type[CGDCONT_TYPE_SIZE] = "";
    char addr[CGDCONT_ADDR_SIZE] = "";
    memset(parsed, 0, sizeof(*parsed));
    if (!read_optional_text(cmd, end, type, sizeof(type)) ||
        !read_optional_text(cmd, end, parsed->apn, sizeof(parsed->apn)) ||
        !read_optional_text(cmd, end, addr, sizeof(addr)) ||
        !read_optional_number(cmd, end, CGDCONT_MAX_D_COMP) ||
        !read_optional_number(cmd, end, CGDCONT_MAX_H_COMP))
        return KAL_FALSE;
    /* Readers step past the end of the text when parameters are omitted there. */
    if (cmd->index < strlen((const char *)cmd->string_ptr)) {
        KERV_WARN("+cgdcont: unexpected text after the parameters");
        return KAL_FALSE;
    }
    if (type[0] == '\0') {
        /* AT+CGDCONT=<cid> alone: the context is to be removed. */
        parsed->defined = parsed->apn[0] == '\0' && addr[0] == '\0' ? KAL_FALSE : KAL_TRUE;
        return parsed->defined ? KAL_FALSE : KAL_TRUE;
    }
    const char *known = known_pdp_type(type);
    if (known == NULL || !apn_is_valid(parsed->apn))
        return KAL_FALSE;
    strcpy(parsed->pdp_type, known);
    parsed->defined = KAL_TRUE;
    return KAL_TRUE;
}

/*
 * Hands the change to the modem daemon, which sets the context up on the modems. Blocks
 * until it answers (at most 30 seconds); KAL_FALSE unless it confirmed the change.
 */
static kal_bool tell_modem_daemon(kal_uint32 cid, const pdp_context_t *parsed) {
    kerv_md_request_t req;
    memset(&req, 0, sizeof(req));
    req.target = MODEM_TARGET_DAEMON;
    if (parsed->defined) {
        req.request_id = MODEM_REQ_CREATE_APN;
        snprintf(req.data, sizeof(req.data), "%u,%s,%s", cid, parsed->pdp_type, parsed->apn);
    } else {
        req.request_id = MODEM_REQ_DELETE_APN;
        snprintf(req.data, sizeof(req.data), "%u", cid);
    }
    char status[64];
    if (kerv_md_request(&req, status, sizeof(status)) == 0)
        return KAL_TRUE;
    KERV_WARN("+cgdcont: modem daemon did not take context %u: %s", cid, status);
    return KAL_FALSE;
}

/*
 * Hosts often repeat a definition (a script run at every connection): one that leaves the
 * context as it is, or removes a context that was never defined, needs nobody's consent.
 */
static kal_bool changes_anything(const pdp_context_t *now, const pdp_context_t *parsed) {
    if (!now->defined || !parsed->defined)
        return now->defined != parsed->defined ? KAL_TRUE : KAL_FALSE;
    return strcmp(now->pdp_type, parsed->pdp_type) != 0 || strcmp(now->apn, parsed->apn) != 0
               ? KAL_TRUE
               : KAL_FALSE;
}

static kal_bool cgdcont_set(rmmi_string_struct *cmd, char *out, int *out_len) {
    kal_uint32 cid = 0;
    pdp_context_t parsed;
    if (!parse_definition(cmd, &cid, &parsed)) {
        KERV_DBG("+cgdcont: bad parameters [%s]", (const char *)cmd->string_ptr);
        return answer(out, out_len, ERROR_TEXT, KAL_FALSE);
    }
    if (!changes_anything(&contexts[cid], &parsed))
        return answer(out, out_len, OK_TEXT, KAL_TRUE);
    if (!tell_modem_daemon(cid, &parsed))
        return answer(out, out_len, ERROR_TEXT, KAL_FALSE);
    contexts[cid] = parsed;
    KERV_INFO("+cgdcont: context %u %s", cid, parsed.defined ? parsed.apn : "removed");
    return answer(out, out_len, OK_TEXT, KAL_TRUE);
}

/* "\r\n+CGDCONT: <cid>,"<type>","<apn>"\r\n..." then "\r\nOK\r\n", within *out_len. */
static kal_bool cgdcont_read(char *out, int *out_len) {
    const size_t room = (size_t)*out_len + 1;
    size_t used = 0;
    for (kal_uint32 cid = 1; cid <= CGDCONT_MAX_CID; ++cid) {
        const pdp_context_t *context = &contexts[cid];
        if (!context->defined)
            continue;
        const int written = snprintf(out + used, room - used, "%s+CGDCONT: %u,\"%s\",\"%s\"\r\n",
                                     used == 0 ? "\r\n" : "", cid, context->pdp_type, context->apn);
        if (written < 0 || (size_t)written >= room - used) {
            KERV_WARN("+cgdcont: the context list does not fit in an answer");
            return answer(out, out_len, ERROR_TEXT, KAL_FALSE);
        }
        used += (size_t)written;
    }
    if (used + sizeof(OK_TEXT) > room)
        return answer(out, out_len, ERROR_TEXT, KAL_FALSE);
    strcpy(out + used, OK_TEXT);
    *out_len = (int)strlen(out);
    return KAL_TRUE;
}

static kal_bool cgdcont_test(rmmi_string_struct *cmd, char *out, int *out_len) {
    if (cmd->ip_string == NULL)
        return answer(out, out_len, OK_TEXT, KAL_TRUE);
    const int written =
        snprintf(out, (size_t)*out_len + 1, "\r\n%s\r\n%s", (const char *)cmd->ip_string, OK_TEXT);
    if (written < 0 || written > *out_len)
        return answer(out, out_len, ERROR_TEXT, KAL_FALSE);
    *out_len = written;
    return KAL_TRUE;
}

static kal_bool cgdcont_validator(rmmi_string_struct *cmd, char *out, int *out_len) {
    switch (cmd->cmd_mode) {
    case RMMI_SET_OR_EXECUTE_MODE:
        return cgdcont_set(cmd, out, out_len);
    case RMMI_READ_MODE:
        return cgdcont_read(out, out_len);
    case RMMI_TEST_MODE:
        return cgdcont_test(cmd, out, out_len);
    case RMMI_ACTIVE_MODE:
        return answer(out, out_len, OK_TEXT, KAL_TRUE);
    default:
        return answer(out, out_len, ERROR_TEXT, KAL_FALSE);
    }
}

/* hash1 and hash2 as the daemon's GEN_HASH request computes them for "+cgdcont". */
rmmi_validator_t rmmi_validators[] = {{"+cgdcont", 6645417, 552,
                                       "+CGDCONT: (1-15),\"IP\",,,(0-2),(0-4)\r\n"
                                       "+CGDCONT: (1-15),\"IPV6\",,,(0-2),(0-4)\r\n"
                                       "+CGDCONT: (1-15),\"IPV4V6\",,,(0-2),(0-4)",
                                       cgdcont_validator},
                                      {NULL, 0, 0, NULL, NULL}};
