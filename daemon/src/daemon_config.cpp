#include "daemon_config.h"

#include "sncfg.h"

kerv_cfg_e kerv_cfg_number(const char *key, unsigned long *value) {
    return kerv_store_number(sncfg_get, key, value);
}
