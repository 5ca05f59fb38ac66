#include "startup.h"

#include "kal_common.h"
#include "kal_gather.h"
#include "kal_io.h"
#include "channel.h"
#include "daemon_config.h"
#include "request_queue.h"
#include "request_worker.h"
#include "channel_server.h"
#include "urc_receiver.h"
#include "request.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kControlBacklog = 5;
constexpr mode_t kControlSocketMode = 0660;

pthread_t KervSrvThread;
pthread_t AppReqThread;
pthread_t KervUrcThread;

/* Closes fd after a failed step of request_init; gives -1. */
int refuse_listener(int fd, const char *what, const char *path) {
    KERV_PRINT("Can't %s on %s : %s !!", what, path, strerror(errno));
    close(fd);
    return -1;
}

/* The signals the daemon handles are taken on the main thread only: the other threads block
   them, so none of their blocking calls is ever cut short by one. */
void block_handled_signals(int how) {
    sigset_t handled;
    sigemptyset(&handled);
    sigaddset(&handled, SIGUSR1);
    sigaddset(&handled, SIGCHLD);
    pthread_sigmask(how, &handled, nullptr);
}

/* Binds with no access for anyone but the owner, so that the socket is never open wider
   than intended before its mode is set. Start-up is single-threaded: the umask is the
   process's own for these few lines. */
int bind_private(int fd, const struct sockaddr_un *address, socklen_t address_len) {
    const mode_t umask_before = umask(0177);
    const int bound = bind(fd, reinterpret_cast<const struct sockaddr *>(address), address_len);
    umask(umask_before);
    return bound;
}

/* Signals whose default action ends the process. */
constexpr int kEndingSignals[] = {SIGHUP,  SIGINT,  SIGQUIT, SIGILL,  SIGTRAP,
                                  SIGABRT, SIGBUS,  SIGFPE,  SIGSEGV, SIGALRM,
                                  SIGTERM, SIGUSR2, SIGSYS,  SIGXCPU, SIGXFSZ};

/* Signal context. The lines of the request being run are written before the process ends,
   so the log shows what the daemon was doing; then the signal, back at its default action,
   ends the process exactly as it would have. */
void write_last_lines(int sig) {
    kal_gather_write_on_signal();
    raise(sig);
}

void keep_last_lines_on_ending_signals() {
    struct sigaction ending = {};
    ending.sa_handler = write_last_lines;
    ending.sa_flags = SA_RESETHAND | SA_NODEFER;
    sigemptyset(&ending.sa_mask);
    for (const int sig : kEndingSignals)
        sigaction(sig, &ending, nullptr);
}

[[noreturn]] void abandon_start(const char *failure, int error, int reqfd) {
    KERV_PRINT("%s : %s !!", failure, strerror(error));
    kerv_deinit();
    close(reqfd);
    exit(-1);
}

} // namespace

int request_init() {
    const char *path = kerv_control_socket_path();
    unlink(path);
    const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    if (fd < 0) {
        KERV_PRINT("Can't create socket on %s : %s !!", path, strerror(errno));
        return -1;
    }
    if (fcntl(fd, F_SETFD, FD_CLOEXEC) < 0)
        return refuse_listener(fd, "fcntl set FD_CLOEXEC", path);
    const int on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) < 0)
        return refuse_listener(fd, "setsockopt SO_REUSEADDR", path);
    struct sockaddr_un address;
    const socklen_t address_len = kerv_control_socket_addr(&address);
    if (address_len == 0) {
        errno = ENAMETOOLONG;
        return refuse_listener(fd, "bind", path);
    }
    if (bind_private(fd, &address, address_len) < 0)
        return refuse_listener(fd, "bind", path);
    /* Local applications of the socket's group may ask; nobody else, whatever the umask. */
    if (chmod(path, kControlSocketMode) < 0)
        return refuse_listener(fd, "chmod", path);
    if (listen(fd, kControlBacklog) < 0)
        return refuse_listener(fd, "listen", path);
    if (!kerv_queue_init())
        return refuse_listener(fd, "create the request queue", path);
    return fd;
}

void kerv_open_standard_fds() {
    for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; fd++) {
        if (fcntl(fd, F_GETFD) >= 0 || errno != EBADF)
            continue;
        /* The lowest free number is fd itself. */
        if (open("/dev/null", O_RDWR) < 0)
            exit(-1);
    }
}

/* Whatever stands at the pid file's path is not followed (a link in a directory others may
   write could point anywhere) nor waited for (a FIFO with no reader): only a regular file is
   taken. */
int pidfile_acquire() {
    const char *path = kerv_pidfile_path();
    int fd = open(path, O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, 0644);
    struct stat opened;
    if (fd >= 0 && (fstat(fd, &opened) != 0 || !S_ISREG(opened.st_mode))) {
        close(fd);
        fd = -1;
        errno = EINVAL;
    }
    if (fd < 0) {
        KERV_PRINT("Can't open pidfile %s : %s !!", path, strerror(errno));
        return fd;
    }
    lockf(fd, F_LOCK, 0);
    return fd;
}

void pidfile_write_release(int pidfd) {
    if (pidfd < 0)
        return;
    FILE *pidfile = fdopen(pidfd, "w");
    if (pidfile == nullptr) {
        close(pidfd);
        return;
    }
    fprintf(pidfile, "%d\n", getpid());
    fclose(pidfile);
}

void config_signal() {
    signal(SIGUSR1, handle_debug);
    struct sigaction child = {};
    child.sa_handler = reapchild;
    child.sa_flags = SA_NOCLDSTOP;
    sigemptyset(&child.sa_mask);
    sigaction(SIGCHLD, &child, nullptr);
    /* A host or control client that leaves while it is answered must not end the daemon;
       the failed write is simply ignored. */
    signal(SIGPIPE, SIG_IGN);
    keep_last_lines_on_ending_signals();

    unsigned long level = KAL_DBG_WARNING;
    if (kerv_cfg_number(KERV_KEY_DEBUG, &level) == KERV_CFG_SET)
        KERV_DBG("KERV_DEBUG is [%x]", static_cast<unsigned int>(level));
    kal_init(static_cast<unsigned int>(level));
}

/* Signal context: only async-signal-safe calls, so the line is built by hand; a standard
   output that takes nothing more loses the line rather than hold the control loop. */
void handle_debug(int sig) {
    char line[48] = "handle_debug: signal [";
    size_t len = strlen(line);
    len += kal_put_decimal(line + len, static_cast<unsigned int>(sig));
    line[len++] = ']';
    line[len++] = '\n';
    const int saved_errno = errno;
    kal_write_without_blocking(STDOUT_FILENO, line, len);
    errno = saved_errno;
}

void reapchild(int) {
    const int saved_errno = errno;
    int status;
    while (waitpid(-1, &status, WNOHANG) > 0) {
    }
    errno = saved_errno;
}

void kerv_start_threads(int reqfd) {
    block_handled_signals(SIG_BLOCK);
    int error = pthread_create(&KervSrvThread, nullptr, kerv_srv_thread, nullptr);
    if (error != 0) {
        /* Without its thread the channel was never opened: nothing to wait for. */
        kerv_stop_line_release();
        abandon_start("Can't create thread for receiving request", error, reqfd);
    }
    error = pthread_create(&AppReqThread, nullptr, kerv_request_thread, nullptr);
    if (error != 0)
        abandon_start("Can't create thread for processing request", error, reqfd);
    error = pthread_create(&KervUrcThread, nullptr, kerv_urc_thread, nullptr);
    if (error != 0)
        abandon_start("Can't create thread for processing URC request", error, reqfd);
    block_handled_signals(SIG_UNBLOCK);
}
