/*
 * Hands the host's end of a pty to the load client, once per case. A pty master can be
 * opened only once, yet the benchmark runs a fresh client for every case and round while
 * the server on the slave end (the daemon, or a baseline) keeps the device open for the
 * whole run. So one small process holds the master and passes a copy of its descriptor to
 * every client that connects to its Unix socket. It never touches the bytes measured.
 */
#ifndef LOAD_PTY_HANDOFF_H
#define LOAD_PTY_HANDOFF_H

/* Listens on a Unix stream socket at socket_path (replacing a stale one). Returns the
 * listening descriptor, or -1 with a message on stderr. */
int pty_handoff_listen(const char *socket_path);

/* Passes master_fd to every client that connects, one after the other, for ever. */
void pty_handoff_serve(int listen_fd, int master_fd);

/* Connects to the holder at socket_path and returns the master it passes (close-on-exec),
 * or -1 with errno set. */
int pty_handoff_take(const char *socket_path);

#endif /* LOAD_PTY_HANDOFF_H */
