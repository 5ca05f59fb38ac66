/*
 * Holder of the pty on which the serial cases of the load benchmark run. It creates the
 * pty, makes its slave end raw and keeps it open (so the settings stay and the master never
 * sees the slave end closed between servers), links LINK to the slave device for the server
 * under test (the daemon's serial device, or a baseline's --serial), and hands the master
 * to each load client that connects to SOCKPATH (kerv-load-client --pty SOCKPATH). LINK is
 * made last: once it exists, everything is ready. Runs until killed.
 *
 *   kerv-load-pty LINK SOCKPATH      (prints the slave device's path)
 */
#include "line_server.h"
#include "pty_handoff.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

int main(int argc, char **argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: %s LINK SOCKPATH\n", argv[0]);
        return 2;
    }
    const char *link_path = argv[1];
    int master_fd = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master_fd < 0 || grantpt(master_fd) != 0 || unlockpt(master_fd) != 0) {
        fprintf(stderr, "pty: %s\n", strerror(errno));
        return 1;
    }
    const char *slave_path = ptsname(master_fd);
    int listen_fd = pty_handoff_listen(argv[2]);
    if (listen_fd < 0 || line_server_open_serial(slave_path) < 0)
        return 1;
    unlink(link_path);
    if (symlink(slave_path, link_path) != 0) {
        fprintf(stderr, "link %s: %s\n", link_path, strerror(errno));
        return 1;
    }
    printf("%s\n", slave_path);
    fflush(stdout);
    pty_handoff_serve(listen_fd, master_fd);
}
