/*
 * The daemon's settings: the board's fixed paths (each of which the environment may
 * override so that the daemon can run unprivileged and many times side by side) and
 * numeric keys of the configuration store.
 */
#ifndef KERV_DAEMON_CONFIG_H
#define KERV_DAEMON_CONFIG_H

/* Pid file: KERVD_PID_FILE, default "/var/run/kerv.pid". */
const char *kerv_pidfile_path();
/* Serial command channel device: KERVD_SERIAL_DEVICE, default "/dev/ttyGS0". */
const char *kerv_serial_device_path();

/* How long a write to a host may make no progress before the host is given up (ms):
   KERVD_HOST_STALL_MS, default 3000. */
int kerv_host_stall_ms();
/* How long a control connection may stay silent before it is closed (ms):
   KERVD_CONTROL_TIMEOUT_MS, default 5000. */
int kerv_control_timeout_ms();

/* What a store lookup found. */
typedef enum {
    KERV_CFG_MISSING, /* the key cannot be read */
    KERV_CFG_EMPTY,   /* the key is present without a value */
    KERV_CFG_SET      /* the key has a value, converted into *value */
} kerv_cfg_e;

/*
 * Reads a decimal key from the store (strtoul, base 10: text that is not a number gives 0).
 * *value is written only for KERV_CFG_SET.
 */
kerv_cfg_e kerv_cfg_number(const char *key, unsigned long *value);

#endif /* KERV_DAEMON_CONFIG_H */
