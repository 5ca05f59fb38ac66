/*
 * kervd: the AT-command proxy daemon. No command-line options; settings come from the
 * configuration store (and, for development, a few paths from the environment).
 */
#include "kal_common.h"
#include "channel.h"
#include "startup.h"
#include "control_loop.h"
#include "plugin_loader.h"
#include "engine_context.h"
#include "host_output.h"
#include "footprint.h"
#include "start_barrier.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

int main(int, char **) {
    kerv_open_standard_fds();
    /* Line-buffered even into a file or pipe, so that every diagnostic line reaches a log at
       once; flushed before the fork, so that nothing is printed twice. */
    setvbuf(stdout, nullptr, _IOLBF, 0);
    printf("libkerv Build @ Date:%s, Time:%s\n\n", __DATE__, __TIME__);

    const int reqfd = request_init();
    if (reqfd < 0)
        exit(-1);
    const int pidfd = pidfile_acquire();

    fflush(stdout);
    const pid_t child = fork();
    if (child < 0) {
        KERV_PRINT("Can't fork to become a daemon : %s !!", strerror(errno));
        exit(-1);
    }
    if (child > 0)
        _exit(0);

    pidfile_write_release(pidfd);
    KERV_INFO("pidfd=%d", pidfd);
    config_signal();
    rmmi_init();
    rmmi_set_output_writer(kerv_host_write);
    if (!kerv_create()) {
        KERV_PRINT(" Can't initialize KERV engine.");
        exit(-1);
    }
    config_libdir();
    kerv_start_threads(reqfd);
    kerv_wait_for_settled(KERV_WORKER_THREADS);
    kerv_release_start_up_pages();
    kerv_control_loop(reqfd);
}
