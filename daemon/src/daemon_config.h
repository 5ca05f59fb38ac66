/*
 * The daemon's settings (kerv_settings.h) and its reader of numeric store keys.
 */
#ifndef KERV_DAEMON_CONFIG_H
#define KERV_DAEMON_CONFIG_H

#include "kerv_settings.h"

/* Reads a decimal key from the configuration store (kerv_store_number with sncfg_get);
 *value is written only for KERV_CFG_SET. */
kerv_cfg_e kerv_cfg_number(const char *key, unsigned long *value);

#endif /* KERV_DAEMON_CONFIG_H */
