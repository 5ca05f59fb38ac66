/*
 * The command channel instance: configuration and state of the one connection over which
 * a host sends AT command lines, a TCP port (one host at a time) or the serial device.
 *
 * Ownership and threads:
 * - main creates, configures and registers the instance (kerv_create) before any thread
 *   starts;
 * - the channel server thread opens and closes the channel and is the only writer of
 *   sock and new_fd; closing happens on that thread only, so nothing is released twice;
 * - the request worker is the only thread that writes to the host connection, reloads the
 *   configuration part and clears the buffers; it also closes every host connection once
 *   the requests queued for it have run, and finally releases the instance
 *   (kerv_destory) when the channel server thread reports that it has ended.
 * new_fd is read by the worker while the server thread may change it: both go through
 * kerv_host_fd / kerv_set_host_fd.
 */
#ifndef KERV_CHANNEL_H
#define KERV_CHANNEL_H

#include "kal_common.h"
#include "request_queue.h"

typedef enum { KERV_CHANNEL_SOCKET = 0, KERV_CHANNEL_UART = 1 } KERV_CHANNEL_e;

enum { KERV_CMD_BUF_SIZE = 1024 };

typedef struct kervInfo_s {
    unsigned int channel;            /* KERV_CHANNEL_e */
    unsigned int modemd_target_type; /* RMMI_MODEMD_LTE or RMMI_MODEMD_23G */
    unsigned int cmd_source_type;    /* RMMI_PROCESS_CMD_FROM_SOCKET_PORT or _UART_PORT */
    unsigned int port;               /* TCP port */
    int new_fd;                      /* host connection or serial device; <= 0: no host */
    char cmd_buf[KERV_CMD_BUF_SIZE];
    int cmd_buf_offset;
    char response[KERV_CMD_BUF_SIZE];
    /* TCP: the listening socket wrapper. Serial: heap copy of the device's settings from
       before the channel was opened. Null while the channel is not open. */
    void *sock;
} kervInfo_t;

kal_int32 kerv_create();
kal_int32 kerv_init();
/* Closes the channel from any thread but the channel server thread, and returns once it is
   closed: the server thread is asked to close it and end, and this call waits for that. */
void kerv_deinit();
/* The closing itself, on the channel server thread. A second call releases nothing. */
void kerv_channel_close(kervInfo_t *kerv);
void kerv_destory();
/*
 * Channel server thread, after the serial device ended or hung up (a pulled cable, the
 * host side gone). With KERV_SERIAL_REOPEN set, the dead descriptor goes to the worker and
 * the device is opened again, after a short pause that grows while it cannot be opened, in
 * the same raw mode and with its earlier input discarded: KAL_TRUE once it is open again.
 * KAL_FALSE without the setting (nothing is done), or when a STOP came meanwhile (the
 * channel is then closed).
 */
kal_bool kerv_serial_reopen(kervInfo_t *kerv);

kervInfo_t *kerv_info_create();
int kerv_info_init(kervInfo_t *kerv);
int kerv_info_reload(kervInfo_t *kerv);
kal_bool kerv_reset_buffer(kervInfo_t *kerv);

kal_bool kervSet(kervInfo_t *kerv);
kervInfo_t *kervGet();
int kervDel(kervInfo_t *kerv);

int kerv_host_fd(kervInfo_t *kerv);
void kerv_set_host_fd(kervInfo_t *kerv, int fd);
/* Ends the current host connection on the channel server thread: new_fd becomes -1, the
   descriptor passes to the worker, which closes it once nothing of the host is queued or
   running, and the host's queued lines are dropped or, after an end of stream, kept while
   it still takes answers (request_queue.h). */
void kerv_host_release(kervInfo_t *kerv, kerv_host_end_e end);

/* True once a STOP has asked the channel to close (kerv_deinit); a TCP host's blocked read
   is woken then, and the server thread checks this before and after every read. */
kal_bool kerv_stop_asked();

/* The channel server thread's end of the stop line: readable when kerv_deinit asks the
   channel to close. kerv_stop_line_release closes it when the thread ends, which also
   tells every later kerv_deinit that there is nothing left to close. */
int kerv_stop_line_fd();
void kerv_stop_line_release();

#endif /* KERV_CHANNEL_H */
