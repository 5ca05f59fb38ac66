/*
 * Socket wrapper: an IPv4 TCP or UDP socket behind an untyped handle (void *), and the
 * signal-safe read and write used on every host connection.
 *
 * All sockets are blocking. A handle lives from SOCK_Listen, SOCK_Connect or SOCK_Copy
 * until SOCK_Close, which closes the descriptor and releases the record; a copy shares
 * the descriptor, so closing either closes both.
 *
 * Writes never raise the broken-pipe signal: SOCK_Send and kerv_safe_write suppress it
 * per call, so a peer that went away shows up as an EPIPE result in every program that
 * uses this library, not as the end of the process.
 */
#ifndef KERV_CSOCKET_H
#define KERV_CSOCKET_H

#include <netinet/in.h>
#include <pthread.h>
#include <stddef.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

enum {
    SOCKET_TYPE_TCP = 0,
    SOCKET_TYPE_UDP = 1,
    SOCKET_FLAG_LOCAL_ONLY = 1 /* bit 0 of SOCK_Listen's flag: bind 127.0.0.1 only */
};

/*
 * The record behind a handle, from get_ctrl_buffer, released by SOCK_Close. fd, type and
 * is_serv never change after construction; the address fields are network byte order
 * and are only read or written under mutex, so one thread may receive on a UDP handle
 * while another replies through it.
 */
typedef struct csocket {
    int fd;
    short type;                      /* SOCKET_TYPE_TCP or SOCKET_TYPE_UDP */
    short is_serv;                   /* 1: made by SOCK_Listen; 0: by SOCK_Connect */
    struct sockaddr_in local_addr;   /* bound address of a listening handle */
    struct sockaddr_in remote_addr;  /* peer given to SOCK_Connect */
    struct sockaddr_in receive_addr; /* sender of the last datagram taken in */
    pthread_mutex_t mutex;
} csocket_t;

/* A listening endpoint on port (all interfaces, or 127.0.0.1 with the local-only flag). */
void *SOCK_Listen(unsigned int port, int type, int flag);
/* A client endpoint; TCP connects at once, UDP only remembers ip:port as destination. */
void *SOCK_Connect(const char *ip, unsigned int port, int type);
/* Sends all len bytes (a listening UDP handle replies to the last sender). len, bytes
 * sent before a failure, or -1. */
int SOCK_Send(void *sock, const void *buf, int len);
/* One receive: bytes received, 0, or -1. */
int SOCK_Recv(void *sock, void *buf, int len);
/* Receives until len bytes came: len, bytes so far when the peer ended or a receive
 * failed, or -1. */
int SOCK_FRecv(void *sock, void *buf, int len);
/* Copies the handle into *new_sock (allocated when null). 0, or -1. */
int SOCK_Copy(void *sock, void **new_sock);
int SOCK_GetFd(void *sock);
int SOCK_Close(void *sock);

/* One read or write, repeated only while a signal interrupts it. */
ssize_t kerv_safe_read(int fd, void *buf, size_t count);
ssize_t kerv_safe_write(int fd, const void *buf, size_t count);

#ifdef __cplusplus
}
#endif

#endif /* KERV_CSOCKET_H */
