/*
 * The channel server thread: owns the command channel for the life of the daemon. It opens
 * the channel, accepts one TCP host at a time (or reads the serial device), cuts the host's
 * bytes into command lines and queues each line for the request worker. It never writes to
 * the host: answers, including the error for an over-long line, go through the worker.
 */
#ifndef KERV_CHANNEL_SERVER_H
#define KERV_CHANNEL_SERVER_H

#include "kal_common.h"
#include "channel.h"
#include "line_framing.h"

#include <cstddef>

void *kerv_srv_thread(void *arg);
/* Makes the host connection ready: accepts a TCP host, or uses the open serial device. */
kal_bool kerv_srvStartUp(kervInfo_t *kerv);
/* Queues one command line (line_len bytes, no terminator) for the current host. */
kal_bool srv_request_handle(kervInfo_t *kerv, const char *line, size_t line_len);

#endif /* KERV_CHANNEL_SERVER_H */
