#include "daemon_config.h"

#include "sncfg.h"

#include <cstdlib>

namespace {

const char *path_from_env(const char *name, const char *board_path) {
    const char *path = getenv(name);
    return (path != nullptr && path[0] != '\0') ? path : board_path;
}

} // namespace

const char *kerv_pidfile_path() {
    return path_from_env("KERVD_PID_FILE", "/var/run/kerv.pid");
}

const char *kerv_serial_device_path() {
    return path_from_env("KERVD_SERIAL_DEVICE", "/dev/ttyGS0");
}

kerv_cfg_e kerv_cfg_number(const char *key, unsigned long *value) {
    char *text = nullptr;
    if (sncfg_get(key, &text) < 0)
        return KERV_CFG_MISSING;
    if (text == nullptr)
        return KERV_CFG_EMPTY;
    *value = strtoul(text, nullptr, 10);
    free(text);
    return KERV_CFG_SET;
}
