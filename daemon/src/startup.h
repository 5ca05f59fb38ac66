/*
 * Start-up of the daemon: the control socket listener, the pid file, the fork, signals and
 * the debug level and the three threads. The main thread then runs the control loop
 * (control_loop.h).
 */
#ifndef KERV_STARTUP_H
#define KERV_STARTUP_H

/* Descriptors 0 to 2 are open (on /dev/null where they were closed), so that no socket or
   file the daemon opens later takes one of their numbers; before anything else is opened. */
void kerv_open_standard_fds();
/* The listening control socket (the queue head is also set empty), or -1. */
int request_init();
/* The open, locked pid file, or a negative value. */
int pidfile_acquire();
/* Writes the caller's pid and closes the file; nothing for a negative descriptor. */
void pidfile_write_release(int pidfd);
/* Installs the signal handlers and applies the configured debug level. */
void config_signal();
void handle_debug(int sig);
void reapchild(int sig);
/* Starts the KERV_WORKER_THREADS threads: the channel server thread, the request worker and
   the URC receiver; on failure closes the channel and the control socket and ends the
   process. */
enum { KERV_WORKER_THREADS = 3 };
void kerv_start_threads(int reqfd);

#endif /* KERV_STARTUP_H */
