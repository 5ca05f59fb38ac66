/*
 * A validator plug-in built against a helper that no library provides: it loads with lazy
 * binding, and its validator would end the daemon when called.
 */
#include "rmmi_common.h"

int kerv_test_helper_nobody_provides(char *out);

static kal_bool answer_through_missing_helper(rmmi_string_struct *cmd, char *out, int *out_len) {
    (void)cmd;
    *out_len = kerv_test_helper_nobody_provides(out);
    return KAL_TRUE;
}

rmmi_validator_t rmmi_validators[] = {{"+broken", 0, 0, NULL, answer_through_missing_helper},
                                      {NULL, 0, 0, NULL, NULL}};
