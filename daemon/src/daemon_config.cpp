#include "daemon_config.h"

#include "sncfg.h"

#include <climits>
#include <cstdlib>

namespace {

const char *path_from_env(const char *name, const char *board_path) {
    const char *path = getenv(name);
    return (path != nullptr && path[0] != '\0') ? path : board_path;
}

/* A development setting in milliseconds; anything but a positive decimal number leaves
   the board's value. */
int ms_from_env(const char *name, int board_ms) {
    const char *text = getenv(name);
    if (text == nullptr)
        return board_ms;
    char *end = nullptr;
    const long ms = strtol(text, &end, 10);
    return (end != text && *end == '\0' && ms > 0 && ms <= INT_MAX) ? static_cast<int>(ms)
                                                                    : board_ms;
}

} // namespace

const char *kerv_pidfile_path() {
    return path_from_env("KERVD_PID_FILE", "/var/run/kerv.pid");
}

const char *kerv_serial_device_path() {
    return path_from_env("KERVD_SERIAL_DEVICE", "/dev/ttyGS0");
}

int kerv_host_stall_ms() {
    return ms_from_env("KERVD_HOST_STALL_MS", 3000);
}

int kerv_control_timeout_ms() {
    return ms_from_env("KERVD_CONTROL_TIMEOUT_MS", 5000);
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
