/*
 * Validator plug-ins for the loader tests, one per TEST_PLUGIN_* variant: alpha, beta and
 * gamma share one command and have one of their own; nosym exports its validators under
 * another name, which the loader must refuse.
 */
#include "rmmi_common.h"

static kal_bool accept_all(rmmi_string_struct *cmd, char *out, int *out_len) {
    (void)cmd;
    out[0] = '\0';
    *out_len = 0;
    return KAL_TRUE;
}

#if defined(TEST_PLUGIN_NOSYM)
rmmi_validator_t validators[] = {{"+nosym", 0, 0, NULL, accept_all}, {NULL, 0, 0, NULL, NULL}};
#else
rmmi_validator_t rmmi_validators[] = {{"+cgdcont", 0, 0, NULL, accept_all},
                                      {"+" PLUGIN_NAME, 0, 0, "(0-1)", accept_all},
                                      {NULL, 0, 0, NULL, NULL}};
#endif
