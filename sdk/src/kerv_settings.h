/*
 * The daemon's settings, each named and given its default once: the keys of the
 * configuration store, and the development settings from the environment with which the
 * daemon runs unprivileged and many times side by side. The daemon, its libraries and
 * kervctl all read them here, so a setting means the same to each of them.
 *
 * One rule for the environment: a setting that is unset or empty keeps the board's value;
 * a number must be a whole decimal from 1 to its maximum, anything else keeps the board's
 * value too. Store keys are converted as the store's users always did (strtoul, base 10:
 * text that is not a number gives 0), and a key present without a value keeps the default.
 * (The control socket's path is the client library's own: request.h.)
 */
#ifndef KERV_SETTINGS_H
#define KERV_SETTINGS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Keys of the configuration store. */
#define KERV_KEY_DEBUG "KERV_DEBUG"
#define KERV_KEY_LISTEN_TYPE "KERV_LISTEN_TYPE"
#define KERV_KEY_LISTEN_PORT "KERV_LISTEN_PORT"
#define KERV_KEY_MODEMD_TARGET_TYPE "KERV_MODEMD_TARGET_TYPE"
#define KERV_KEY_AT_RESULT_FORMAT "KERV_AT_RESULT_FORMAT"
#define KERV_KEY_URC_LISTEN_ENABLE "KERV_URC_LISTEN_ENABLE"
#define KERV_KEY_URC_LISTEN_PORT "KERV_URC_LISTEN_PORT"
#define KERV_KEY_SERIAL_REOPEN "KERV_SERIAL_REOPEN"
#define KERV_KEY_PROMPT_COMMANDS "KERV_PROMPT_COMMANDS"

/* Defaults of the store's ports. */
enum { KERV_DEFAULT_LISTEN_PORT = 5556, KERV_DEFAULT_URC_LISTEN_PORT = 12394 };

/* What a store lookup found. */
typedef enum {
    KERV_CFG_MISSING, /* the key cannot be read */
    KERV_CFG_EMPTY,   /* the key is present without a value */
    KERV_CFG_SET      /* the key has a value, converted into *value */
} kerv_cfg_e;

/* The store's reader (sncfg_get: the board's library, or its stand-in). */
typedef int (*kerv_store_get_t)(const char *key, char **value);
/* Reads a decimal key with get; *value is written only for KERV_CFG_SET. */
kerv_cfg_e kerv_store_number(kerv_store_get_t get, const char *key, unsigned long *value);

/* A path from the environment variable name, or board_path. */
const char *kerv_env_path(const char *name, const char *board_path);
/* A number from the environment variable name (1 to max), or board_value. */
unsigned long kerv_env_number(const char *name, unsigned long board_value, unsigned long max);

/* Pid file: KERVD_PID_FILE, default "/var/run/kerv.pid". */
const char *kerv_pidfile_path(void);
/* Serial command channel device: KERVD_SERIAL_DEVICE, default "/dev/ttyGS0". */
const char *kerv_serial_device_path(void);
/* Plug-in directory: KERVD_PLUGIN_DIR, default the build setting KERV_PLUGIN_DIR. */
const char *kerv_plugin_dir_path(void);
/* UDP port of the modem daemon on 127.0.0.1: KERVD_MODEMD_PORT, default 14343. */
unsigned short kerv_modemd_port(void);
/* One of the waits for the modem daemon's answer (ms): KERVD_MODEMD_WAIT_MS, default 1000. */
int kerv_modemd_wait_ms(void);
/* How long a write to a host may make no progress before the host is given up (ms):
   KERVD_HOST_STALL_MS, default 3000. */
int kerv_host_stall_ms(void);
/* How long a control connection may stay silent before it is closed (ms):
   KERVD_CONTROL_TIMEOUT_MS, default 5000. */
int kerv_control_timeout_ms(void);

#ifdef __cplusplus
}
#endif

#endif /* KERV_SETTINGS_H */
