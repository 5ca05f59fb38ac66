/*
 * Validator plug-ins for the loader tests, one per TEST_PLUGIN_* variant. Each validator
 * answers with its plug-in's name.
 */
#include "rmmi_common.h"

#include <string.h>

static kal_bool answer_with_name(rmmi_string_struct *cmd, char *out, int *out_len) {
    (void)cmd;
    strcpy(out, PLUGIN_NAME);
    *out_len = (int)strlen(out);
    return KAL_TRUE;
}

#if defined(TEST_PLUGIN_NOSYM)
/* Exports validators under another name: the loader must report the missing symbol. */
rmmi_validator_t validators[] = {{"+nosym", 0, 0, NULL, answer_with_name},
                                 {NULL, 0, 0, NULL, NULL}};
#else
/* alpha, beta and gamma: a shared command and one of their own. */
rmmi_validator_t rmmi_validators[] = {{"+cgdcont", 0, 0, NULL, answer_with_name},
                                      {"+" PLUGIN_NAME, 0, 0, "(0-1)", answer_with_name},
                                      {NULL, 0, 0, NULL, NULL}};
#endif
