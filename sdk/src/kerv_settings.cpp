#include "kerv_settings.h"

#include <climits>
#include <cstdlib>

namespace {

constexpr unsigned long kMaxMs = INT_MAX;

int ms_setting(const char *name, int board_ms) {
    return static_cast<int>(kerv_env_number(name, static_cast<unsigned long>(board_ms), kMaxMs));
}

} // namespace

extern "C" {

kerv_cfg_e kerv_store_number(kerv_store_get_t get, const char *key, unsigned long *value) {
    char *text = nullptr;
    if (get(key, &text) < 0)
        return KERV_CFG_MISSING;
    if (text == nullptr)
        return KERV_CFG_EMPTY;
    *value = strtoul(text, nullptr, 10);
    free(text);
    return KERV_CFG_SET;
}

const char *kerv_env_path(const char *name, const char *board_path) {
    const char *path = getenv(name);
    return (path != nullptr && path[0] != '\0') ? path : board_path;
}

unsigned long kerv_env_number(const char *name, unsigned long board_value, unsigned long max) {
    const char *text = getenv(name);
    if (text == nullptr || text[0] < '0' || text[0] > '9')
        return board_value;
    char *end = nullptr;
    const unsigned long value = strtoul(text, &end, 10);
    return (*end == '\0' && value > 0 && value <= max) ? value : board_value;
}

const char *kerv_pidfile_path(void) {
    return kerv_env_path("KERVD_PID_FILE", "/var/run/kerv.pid");
}

const char *kerv_serial_device_path(void) {
    return kerv_env_path("KERVD_SERIAL_DEVICE", "/dev/ttyGS0");
}

const char *kerv_plugin_dir_path(void) {
    return kerv_env_path("KERVD_PLUGIN_DIR", KERV_PLUGIN_DIR);
}

unsigned short kerv_modemd_port(void) {
    return static_cast<unsigned short>(kerv_env_number("KERVD_MODEMD_PORT", 14343, 65535));
}

int kerv_modemd_wait_ms(void) {
    return static_cast<int>(kerv_env_number("KERVD_MODEMD_WAIT_MS", 1000, 60000));
}

int kerv_host_stall_ms(void) {
    return ms_setting("KERVD_HOST_STALL_MS", 3000);
}

int kerv_control_timeout_ms(void) {
    return ms_setting("KERVD_CONTROL_TIMEOUT_MS", 5000);
}

} // extern "C"
