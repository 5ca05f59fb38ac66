/*
 * Everything a validator plug-in includes: the kal types and diagnostic macros, the
 * command cursor and validator record, the parameter toolkit, and the general request to
 * the modem daemon.
 *
 * A plug-in is a shared library named lib<name>.so, placed in the daemon's plug-in
 * directory, that exports with C linkage
 *
 *     rmmi_validator_t rmmi_validators[] = { {...}, ..., {NULL, 0, 0, NULL, NULL} };
 *
 * Build it with: cc -shared -fPIC my_cmd.c -o libmy_cmd.so $(pkg-config --cflags --libs kervutil)
 */
#ifndef KERV_PLUGIN_H
#define KERV_PLUGIN_H

#include "kal_common.h"
#include "rmmi_common.h"
#include "rmmi_utility.h"
#include "kerv_md_request.h"

#endif /* KERV_PLUGIN_H */
