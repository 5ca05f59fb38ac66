/*
 * The request worker: the single thread that takes the queue's elements in order and runs
 * each to completion. It is the only thread that runs the AT engine and the only one that
 * writes to a host, so a URC never lands inside an answer and answers keep their order.
 */
#ifndef KERV_REQUEST_WORKER_H
#define KERV_REQUEST_WORKER_H

void *kerv_request_thread(void *arg);

#endif /* KERV_REQUEST_WORKER_H */
