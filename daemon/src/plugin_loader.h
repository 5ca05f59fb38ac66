/*
 * Plug-in loader: fills the validator registry from the plug-in libraries at start-up.
 */
#ifndef KERV_PLUGIN_LOADER_H
#define KERV_PLUGIN_LOADER_H

#include <dirent.h>

#include "kal_common.h"

/*
 * Plug-in loader: changes the working directory to the plug-in directory
 * (KERVD_PLUGIN_DIR, default "/lib/kerv_plugin"), opens every library lib<name>.so found
 * there, registers its exported group "rmmi_validators" and builds the registry table.
 * KAL_FALSE when the directory is missing or cannot be read (no table is then built).
 */
kal_bool config_libdir(void);
/* Next directory entry containing ".so": its name from the fourth character up to ".so". */
kal_bool get_lib_name(DIR *dir, char *buf, int size);
/* Opens lib<lib_name>.so in the plug-in directory and registers its group. */
void plugin_httpd_lib(char *lib_name);

#endif /* KERV_PLUGIN_LOADER_H */
