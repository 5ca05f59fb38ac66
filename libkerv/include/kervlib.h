/*
 * Validator registry and plug-in loader.
 *
 * The registry holds at most two validator groups (arrays of rmmi_validator_t ended by a
 * record whose at_name is null) and a hash table from a command name ("+cgdcont": the
 * prefix symbol as written, letters in lower case) to its record. The records stay in the
 * plug-ins' memory; the registry only points at them. Built by the main thread at start-up
 * by config_libdir, read afterwards by the request worker alone; no lock.
 */
#ifndef KERVLIB_H
#define KERVLIB_H

#include <dirent.h>

#include "kal_common.h"
#include "rmmi_common.h"

/* Registry. */
void init_validator_group(void);
/* Takes the first free of the two slots; a null group, or a third group, is ignored. */
void set_validator_group(rmmi_validator_t *_validator_group);
/* (Re)builds the hash table from the registered groups; a later record wins a name. */
void init_validators(void);
kal_bool set_validator(char *name, rmmi_validator_t *data);
kal_bool get_validator(char *name, rmmi_validator_t **data);

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

#endif /* KERVLIB_H */
