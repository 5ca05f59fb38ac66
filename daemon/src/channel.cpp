#include "channel.h"

#include "csocket.h"
#include "daemon_config.h"
#include "mutex_guard.h"
#include "request_queue.h"
#include "two_step.h"
#include "engine_context.h"
#include "sncfg.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

namespace {

/* The one-slot registry: written by kerv_create before the threads start and by
   kerv_destory on the worker, once the channel server thread has ended. */
kervInfo_t *kervInfoPool = nullptr;
kal_uint32 kervInfoCnt = 0;

/* KERV_SERIAL_REOPEN: the serial device is opened again after it hung up. Set by
   kerv_info_init before the threads start. */
bool serial_reopen = false;

/* Stop line: [0] for kerv_deinit (main thread), [1] for the channel server thread. */
int stopLine[2] = {-1, -1};

/*
 * The channel server thread waits for a TCP host's next line in a blocking read, not in
 * poll, so that a line costs one system call to take in. A STOP wakes that read by shutting
 * down the connection's reading side, and the thread then sees stop_asked. The connection
 * is named in wakeable_host_fd while the server thread reads it; HostHandOver keeps the
 * number from being handed to the worker (which closes it, after which it may name another
 * descriptor) while a STOP is shutting it down.
 */
std::atomic<bool> stop_asked{false};
/* Set by the server thread when it has closed the channel for a STOP; taken by that STOP. */
std::atomic<bool> closed_for_stop{false};
pthread_mutex_t HostHandOver = PTHREAD_MUTEX_INITIALIZER;
int wakeable_host_fd = -1;

struct HandOverLock : MutexGuard {
    HandOverLock() : MutexGuard(&HostHandOver) {}
};

void wake_blocked_host_read() {
    HandOverLock lock;
    if (wakeable_host_fd > 0)
        shutdown(wakeable_host_fd, SHUT_RD);
}

void print_lookup(const char *key, unsigned long value) {
    KERV_DBG("%s is [%d]", key, static_cast<int>(value));
}

unsigned int channel_from_config() {
    unsigned long value = KERV_CHANNEL_SOCKET;
    const kerv_cfg_e found = kerv_cfg_number(KERV_KEY_LISTEN_TYPE, &value);
    const long channel = static_cast<long>(value);
    const unsigned int kind =
        (channel < 0 || channel > KERV_CHANNEL_UART) ? 0u : static_cast<unsigned int>(channel);
    if (found != KERV_CFG_MISSING)
        print_lookup("KERV_LISTEN_TYPE", kind);
    return kind;
}

/* Only the first three characters count, in the four spellings the board's tools use. */
unsigned int target_from_text(const char *text) {
    if (strncmp(text, "23g", 3) == 0 || strncmp(text, "23G", 3) == 0)
        return RMMI_MODEMD_23G;
    if (strncmp(text, "lte", 3) != 0 && strncmp(text, "LTE", 3) != 0)
        KERV_INFO("KERV_MODEMD_TARGET_TYPE is not set.");
    return RMMI_MODEMD_LTE;
}

unsigned int target_from_config() {
    char *text = nullptr;
    if (sncfg_get(KERV_KEY_MODEMD_TARGET_TYPE, &text) < 0)
        return RMMI_MODEMD_LTE;
    const unsigned int target =
        text != nullptr ? target_from_text(text) : static_cast<unsigned int>(RMMI_MODEMD_LTE);
    free(text);
    KERV_DBG("KERV_MODEMD_TARGET_TYPE is [%d]", target);
    return target;
}

/* The result code format is fixed to verbose; the key is looked up and has no effect. */
void look_up_result_format() {
    char *text = nullptr;
    if (sncfg_get(KERV_KEY_AT_RESULT_FORMAT, &text) >= 0)
        free(text);
}

kal_int32 open_tcp_channel(kervInfo_t *kerv) {
    KERV_PRINT(" Listen the port %d", kerv->port);
    KERV_DBG(" Listen the port %d", kerv->port);
    kerv_set_host_fd(kerv, 0);
    void *sock = SOCK_Listen(kerv->port, SOCKET_TYPE_TCP, 0);
    if (sock == nullptr) {
        KERV_WARN(" Fail to listen the port for KERV_CHANNEL_SOCKET [%d].", kerv->port);
        return 0;
    }
    /* The server thread accepts only after select reported a connection; non-blocking
       accept keeps a connection that vanished meanwhile from stalling the thread (and a
       STOP waiting for it). Accepted connections do not inherit the flag. */
    const int listen_fd = SOCK_GetFd(sock);
    fcntl(listen_fd, F_SETFL, fcntl(listen_fd, F_GETFL) | O_NONBLOCK);
    kerv->sock = sock;
    KERV_DBG(" get the socket");
    return 1;
}

void make_raw(struct termios *tio) {
    tio->c_cflag &= ~(CSIZE | CSTOPB | PARENB | PARODD | CRTSCTS);
    tio->c_cflag |= CS8 | CREAD | CLOCAL;
    tio->c_lflag &= ~(ISIG | ICANON | ECHO | ECHOE | ECHOK | ECHONL);
    tio->c_iflag &= ~(IXON | IXOFF | IXANY | ICRNL | ISTRIP | INPCK | IGNPAR | PARMRK);
    tio->c_oflag &= ~(OPOST | OCRNL);
    tio->c_cc[VMIN] = 1;
    tio->c_cc[VTIME] = 0;
    tio->c_cc[VINTR] = 0;
    tio->c_cc[VQUIT] = 0;
    tio->c_cc[VSTART] = 0;
    tio->c_cc[VSTOP] = 0;
    tio->c_cc[VSUSP] = 0;
    cfsetispeed(tio, B115200);
    cfsetospeed(tio, B115200);
}

/* Gives the device's current settings in a heap copy, or null (the device is then not
   used: without the copy its settings could not be restored when the channel closes). */
struct termios *save_serial_settings(int fd, const char *path) {
    struct termios current;
    if (tcgetattr(fd, &current) != 0) {
        KERV_WARN("Can't read the settings of %s : %s !!", path, strerror(errno));
        return nullptr;
    }
    auto *saved = static_cast<struct termios *>(get_ctrl_buffer(sizeof(struct termios)));
    if (saved == nullptr) {
        KERV_DBG("no old attribute of termios.");
        return nullptr;
    }
    *saved = current;
    KERV_DBG("get old attribute of termios.");
    return saved;
}

/* Puts the device in the channel's raw mode, raises its modem lines and discards what it
   received before; false when the mode cannot be set. */
bool make_channel_device(int fd, const struct termios *saved) {
    struct termios raw = *saved;
    make_raw(&raw);
    if (tcsetattr(fd, TCSANOW, &raw) != 0)
        return false;
    int lines = TIOCM_DTR | TIOCM_RTS;
    ioctl(fd, TIOCMBIS, &lines); /* a device without modem lines refuses; that is fine */
    tcflush(fd, TCIFLUSH);
    return true;
}

/* The device stays non-blocking: the channel server thread waits for input in poll, and
   the worker's writes must be able to give up on a device that takes nothing. */
int open_device(const char *path) {
    return open(path, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
}

kal_int32 open_serial_channel(kervInfo_t *kerv) {
    const char *path = kerv_serial_device_path();
    KERV_PRINT("kerv channel is KERV_CHANNEL_UART");
    KERV_DBG("kerv channel is KERV_CHANNEL_UART");
    const int fd = open_device(path);
    if (fd < 0) {
        KERV_WARN("cannot open %s", path);
        return 0;
    }
    KERV_DBG("Opened serial port");
    struct termios *saved = save_serial_settings(fd, path);
    if (saved == nullptr) {
        close(fd);
        return 0;
    }
    if (!make_channel_device(fd, saved)) {
        KERV_WARN("setting serial tc failed.");
        free_ctrl_buffer(saved);
        close(fd);
        return 0;
    }
    kerv->sock = saved;
    kerv_set_host_fd(kerv, fd);
    return 1;
}

/* One try at opening the device again in the channel's mode; the descriptor or -1. */
int reopen_device(const char *path, const struct termios *saved) {
    const int fd = open_device(path);
    if (fd >= 0 && !make_channel_device(fd, saved)) {
        close(fd);
        return -1;
    }
    return fd;
}

/* Waits ms or until a STOP comes; true when it came. */
bool stop_during(int ms) {
    struct pollfd stop = {stopLine[1], POLLIN, 0};
    return poll(&stop, 1, ms) > 0 || stop_asked.load();
}

void close_serial_channel(kervInfo_t *kerv) {
    KERV_PRINT("rollback UART settings.");
    KERV_DBG("rollback UART settings.");
    auto *saved = static_cast<struct termios *>(kerv->sock);
    const int fd = kerv_host_fd(kerv);
    tcsetattr(fd, TCSANOW, saved);
    free_ctrl_buffer(saved);
    tcflush(fd, TCIFLUSH);
    kerv_host_release(kerv, KERV_HOST_GONE);
}

} // namespace

kal_int32 kerv_create() {
    KERV_PRINT("kerv_create");
    kervInfo_t *kerv = kerv_info_create();
    if (kerv == nullptr) {
        KERV_PRINT("kerv_init: create kerv info instance fail");
        return 0;
    }
    const char *failure = nullptr;
    if (!kerv_info_init(kerv))
        failure = "kerv_init: init kerv info instance fail";
    else if (!kerv_info_reload(kerv))
        failure = "kerv_init: configuration reload";
    else if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, stopLine) != 0)
        failure = "kerv_init: can't create the channel's stop line";
    if (failure != nullptr) {
        KERV_PRINT("%s", failure);
        free_ctrl_buffer(kerv);
        return 0;
    }
    kervSet(kerv);
    kerv_reset_buffer(kerv);
    return 1;
}

kervInfo_t *kerv_info_create() {
    auto *kerv = static_cast<kervInfo_t *>(get_ctrl_buffer(sizeof(kervInfo_t)));
    if (kerv == nullptr)
        KERV_WARN("Can't create kerv info instance : %s ", strerror(errno));
    return kerv;
}

int kerv_info_init(kervInfo_t *kerv) {
    KERV_FUNC(" ENTER");
    if (kerv == nullptr) {
        KERV_WARN("kerv is NULL");
        return 0;
    }
    KERV_DBG("get configuration!!!!");
    unsigned long port = KERV_DEFAULT_LISTEN_PORT;
    if (kerv_cfg_number(KERV_KEY_LISTEN_PORT, &port) != KERV_CFG_MISSING)
        print_lookup("KERV_LISTEN_PORT", port);
    kerv->port = static_cast<unsigned int>(port);
    kerv->channel = channel_from_config();
    unsigned long reopen = 0;
    serial_reopen = kerv_cfg_number(KERV_KEY_SERIAL_REOPEN, &reopen) == KERV_CFG_SET && reopen != 0;
    unsigned long prompt_commands = 0;
    kerv_cfg_number(KERV_KEY_PROMPT_COMMANDS, &prompt_commands);
    kerv_two_step_configure(prompt_commands != 0 ? KAL_TRUE : KAL_FALSE);
    KERV_FUNC(" EXIT");
    return 1;
}

int kerv_info_reload(kervInfo_t *kerv) {
    KERV_FUNC(" ENTER");
    if (kerv == nullptr) {
        KERV_WARN("kerv is NULL");
        return 0;
    }
    KERV_DBG("get configuration!!!!");
    switch (kerv->channel) {
    case KERV_CHANNEL_SOCKET:
        kerv->cmd_source_type = RMMI_PROCESS_CMD_FROM_SOCKET_PORT;
        break;
    case KERV_CHANNEL_UART:
        kerv->cmd_source_type = RMMI_PROCESS_CMD_FROM_UART_PORT;
        break;
    default:
        KERV_WARN("kerv->channel is unknown.");
        kerv->cmd_source_type = RMMI_PROCESS_CMD_FROM_SOCKET_PORT;
        break;
    }
    kerv->modemd_target_type = target_from_config();
    look_up_result_format();
    rmmi_read_custom_default_setting(
        static_cast<rmmi_process_multi_cmd_type>(kerv->cmd_source_type),
        static_cast<rmmi_modemd_target_type>(kerv->modemd_target_type),
        RMMI_VERBOSE_FULL_HEAD_TAIL);
    KERV_FUNC(" EXIT");
    return 1;
}

kal_bool kerv_reset_buffer(kervInfo_t *kerv) {
    if (kerv == nullptr) {
        KERV_WARN("kerv is NULL");
        return KAL_FALSE;
    }
    kerv->cmd_buf_offset = 0;
    memset(kerv->cmd_buf, 0, sizeof(kerv->cmd_buf));
    memset(kerv->response, 0, sizeof(kerv->response));
    return KAL_TRUE;
}

kal_bool kervSet(kervInfo_t *kerv) {
    if (kerv == nullptr) {
        KERV_WARN("kerv is NULL");
        return KAL_FALSE;
    }
    kervInfoPool = kerv;
    kervInfoCnt++;
    return KAL_TRUE;
}

kervInfo_t *kervGet() {
    if (kervInfoCnt == 0)
        return nullptr;
    if (kervInfoPool == nullptr)
        KERV_WARN("kervInfoPool is NULL");
    return kervInfoPool;
}

int kervDel(kervInfo_t *kerv) {
    if (kerv == nullptr) {
        KERV_WARN("kerv is NULL");
    } else if (kervInfoCnt == 0) {
        KERV_WARN("not set kerv instance before");
    } else {
        kervInfoPool = nullptr;
        kervInfoCnt--;
    }
    return 0;
}

kal_int32 kerv_init() {
    KERV_FUNC(" ENTER");
    kervInfo_t *kerv = kervGet();
    if (kerv == nullptr) {
        KERV_WARN("kerv is NULL");
        return 0;
    }
    KERV_PRINT("kerv_init");
    switch (kerv->channel) {
    case KERV_CHANNEL_SOCKET:
        return open_tcp_channel(kerv);
    case KERV_CHANNEL_UART:
        return open_serial_channel(kerv);
    default:
        KERV_WARN("kerv channel is unknown.");
        return 0;
    }
}

/*
 * "kerv_deinit" is printed here, on the calling thread, whatever the channel's state; the
 * server thread closes the channel and prints the rest. When it has not closed the channel
 * for this call (it had ended already: the port was taken, an earlier STOP or the serial
 * device's departure closed the channel), the instance is no longer the channel's: it is
 * released, or about to be, by the worker.
 */
void kerv_deinit() {
    KERV_PRINT("kerv_deinit");
    stop_asked.store(true);
    wake_blocked_host_read();
    /* Fails once the server thread has ended: then the channel is already closed. */
    const char stop = 1;
    send(stopLine[0], &stop, sizeof(stop), MSG_NOSIGNAL);
    /* The server thread never writes on the line; its end closes when it has closed the
       channel and ended, and this read then returns 0. */
    char ack;
    kerv_safe_read(stopLine[0], &ack, sizeof(ack));
    if (!closed_for_stop.exchange(false))
        KERV_WARN("kerv is NULL");
}

void kerv_channel_close(kervInfo_t *kerv) {
    /* After a STOP, kerv_deinit has printed it; the serial device's departure has not. */
    const bool for_stop = stop_asked.load();
    if (!for_stop)
        KERV_PRINT("kerv_deinit");
    if (kerv == nullptr) {
        KERV_WARN("kerv is NULL");
        return;
    }
    if (kerv->sock == nullptr)
        return;
    if (kerv->channel == KERV_CHANNEL_UART) {
        close_serial_channel(kerv);
    } else {
        /* The host is cut off now: answers still queued for it are dropped, and a write
           the worker may be blocked in (a host that stopped reading) fails at once. */
        const int host_fd = kerv_host_fd(kerv);
        if (host_fd > 0)
            shutdown(host_fd, SHUT_RDWR);
        kerv_host_release(kerv, KERV_HOST_GONE);
        SOCK_Close(kerv->sock);
    }
    kerv->sock = nullptr;
    KERV_PRINT("close new_fd.");
    closed_for_stop.store(for_stop);
}

kal_bool kerv_serial_reopen(kervInfo_t *kerv) {
    if (!serial_reopen || kerv->channel != KERV_CHANNEL_UART || kerv->sock == nullptr)
        return KAL_FALSE;
    const char *path = kerv_serial_device_path();
    const auto *saved = static_cast<const struct termios *>(kerv->sock);
    /* The old descriptor is dead: the worker closes it once the request it may be running
       ends; what the host had queued goes with it. */
    kerv_host_release(kerv, KERV_HOST_GONE);
    KERV_WARN("serial device %s hung up: opening it again", path);
    /* A device that is back at once (the gadget port stays) is opened after the first
       pause; one that is gone (cable out) is tried less often, up to twice a second. */
    constexpr int kFirstPauseMs = 100, kLongestPauseMs = 500;
    bool failure_told = false;
    for (int pause_ms = kFirstPauseMs;; pause_ms = std::min(2 * pause_ms, kLongestPauseMs)) {
        if (stop_during(pause_ms)) {
            kerv_channel_close(kerv);
            return KAL_FALSE;
        }
        const int fd = reopen_device(path, saved);
        if (fd >= 0) {
            kerv_set_host_fd(kerv, fd);
            KERV_WARN("serial device %s open again", path);
            return KAL_TRUE;
        }
        if (!failure_told)
            KERV_WARN("cannot open %s : %s !! (trying again)", path, strerror(errno));
        failure_told = true;
    }
}

void kerv_destory() {
    KERV_PRINT("kerv_destory");
    kervInfo_t *kerv = kervGet();
    if (kerv == nullptr) {
        KERV_WARN("kerv is NULL");
        return;
    }
    kervDel(kerv);
    free_ctrl_buffer(kerv);
}

int kerv_host_fd(kervInfo_t *kerv) {
    return std::atomic_ref<int>(kerv->new_fd).load();
}

void kerv_set_host_fd(kervInfo_t *kerv, int fd) {
    std::atomic_ref<int>(kerv->new_fd).store(fd);
    if (kerv->channel == KERV_CHANNEL_SOCKET) {
        HandOverLock lock;
        wakeable_host_fd = fd;
    }
}

kal_bool kerv_stop_asked() {
    return stop_asked.load() ? KAL_TRUE : KAL_FALSE;
}

void kerv_host_release(kervInfo_t *kerv, kerv_host_end_e end) {
    const int host_fd = kerv_host_fd(kerv);
    kerv_set_host_fd(kerv, -1); /* no longer wakeable: the worker may close it from now on */
    if (host_fd <= 0)
        return;
    struct req *closed_notice = kerv_req_create(KERV_WORK_HOST_CLOSED, host_fd, nullptr, 0);
    const kal_uint32 dropped = kerv_queue_host_gone(host_fd, end, closed_notice);
    if (dropped > 0)
        KERV_WARN("host fd %d has gone: %u queued lines dropped", host_fd, dropped);
    if (closed_notice != nullptr)
        return;
    /* Out of memory: end the connection for the host but keep the descriptor, whose number
       must not pass to another connection while an answer for this one may be running. */
    KERV_WARN("Can't hand over host fd %d : %s !!", host_fd, strerror(errno));
    shutdown(host_fd, SHUT_RDWR);
}

int kerv_stop_line_fd() {
    return stopLine[1];
}

void kerv_stop_line_release() {
    close(stopLine[1]);
    stopLine[1] = -1;
}
