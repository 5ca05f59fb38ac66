/*
 * kervctl: the local client of kervd for people and scripts. Sends control requests over
 * the control socket (stop, start, reload, hash), URC datagrams to the URC port, and AT
 * command lines to the TCP command channel, printing the answers as they come.
 */
#include "kal_io.h"
#include "kervctl_answer.h"
#include "kerv_settings.h"
#include "request.h"
#include "sncfg.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <csignal>
#include <cstring>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitNoConnect = 2;
constexpr int kExitUsage = 64;

/* The daemon keeps at most this much of one URC datagram. */
constexpr size_t kUrcTextMax = 1023;
/*
 * The daemon waits up to 60 s for the modem daemon's answer to a relayed command before it
 * answers ERROR; the default wait for each final result code outlasts that.
 */
constexpr double kDefaultTimeout_s = 65.0;
constexpr double kTimeoutMax = 2000000.0; /* keeps the wait within poll's int milliseconds */

constexpr const char kUsage[] =
    "Usage: kervctl [OPTION...] COMMAND [ARGUMENT...]\n"
    "Talks to kervd: control requests over its control socket, URCs over its URC port and\n"
    "AT command lines over its TCP command channel.\n"
    "\n"
    "Commands:\n"
    "  stop          close the daemon's command channel\n"
    "  start         handled by the daemon exactly like stop\n"
    "  reload        make the daemon re-read the channel configuration; prints its reply\n"
    "  hash NAME     print the two hash values of the AT command name NAME (e.g. +CSQ)\n"
    "  urc TEXT      send TEXT as it is (add any \\r\\n framing yourself) as one URC to\n"
    "                127.0.0.1 at the URC port\n"
    "  at LINE...    send each AT command line, followed by a carriage return, to the\n"
    "                command channel on 127.0.0.1 and print its whole answer: a final\n"
    "                result code for each command and, for a line of several commands,\n"
    "                the line's own; stops after the first line that failed\n"
    "\n"
    "Options:\n"
    "  --port N      port for urc and at (default: the store's KERV_URC_LISTEN_PORT,\n"
    "                12394 when unset, or KERV_LISTEN_PORT, 5556 when unset)\n"
    "  --timeout S   seconds to wait for the daemon's reply to a request, or for each\n"
    "                final result code of a line (default 65: the daemon itself waits\n"
    "                up to 60 s for the modem daemon)\n"
    "  -h, --help    show this help\n"
    "  --version     show the version\n"
    "\n"
    "The control socket is $KERVD_CONTROL_SOCKET (default /tmp/kerv.socket); the store is\n"
    "$SNCFG_FILE (default /etc/sncfg.conf).\n"
    "\n"
    "Exit status:\n"
    "  0   success; for at, every final result code of every line was OK (or numeric 0)\n"
    "  1   a command or line got ERROR, +CME ERROR, +CMS ERROR or another failing result\n"
    "      code, a line holds no AT command (the daemon answers nothing to it), no answer\n"
    "      came in time, the connection ended early, or the daemon answered ERROR or nothing\n"
    "  2   cannot connect to the daemon, or cannot send the URC\n"
    "  64  usage error\n";

struct Options {
    long port = -1; /* -1: take it from the store */
    double timeout_s = kDefaultTimeout_s;
    const char *command = nullptr;
    char **args = nullptr;
    int arg_count = 0;
};

void complain(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
void complain(const char *fmt, ...) {
    fflush(stdout); /* what was printed so far comes before the complaint */
    va_list args;
    va_start(args, fmt);
    fputs("kervctl: ", stderr);
    vfprintf(stderr, fmt, args);
    fputc('\n', stderr);
    va_end(args);
}

int usage_error(const char *fmt, const char *detail) {
    fputs("kervctl: ", stderr);
    fprintf(stderr, fmt, detail);
    fputs("\nTry 'kervctl --help'.\n", stderr);
    return kExitUsage;
}

bool parse_port(const char *text, long *port) {
    char *end = nullptr;
    errno = 0;
    const unsigned long value = strtoul(text, &end, 10);
    if (text[0] < '0' || text[0] > '9' || *end != '\0' || errno != 0 || value == 0 || value > 65535)
        return false;
    *port = static_cast<long>(value);
    return true;
}

bool parse_timeout(const char *text, double *seconds) {
    char *end = nullptr;
    const double value = strtod(text, &end);
    if (end == text || *end != '\0' || !std::isfinite(value) || value <= 0.0 || value > kTimeoutMax)
        return false;
    *seconds = value;
    return true;
}

/* The option's value: "--name=value" or the next argument. Null when missing. */
const char *option_value(const char *arg, size_t name_len, int argc, char **argv, int *i) {
    if (arg[name_len] == '=')
        return arg + name_len + 1;
    if (arg[name_len] != '\0' || *i + 1 >= argc)
        return nullptr;
    return argv[++*i];
}

/*
 * Options may stand anywhere; "--" ends them. The other arguments are gathered, in
 * order, at the front of argv. Returns -1 to go on, else the exit status.
 */
int parse_arguments(int argc, char **argv, Options *opts) {
    int count = 0;
    bool options_done = false;
    for (int i = 1; i < argc; i++) {
        const char *arg = argv[i];
        if (!options_done && strcmp(arg, "--") == 0) {
            options_done = true;
            continue;
        }
        if (options_done || (strncmp(arg, "--", 2) != 0 && strcmp(arg, "-h") != 0)) {
            argv[1 + count++] = argv[i];
            continue;
        }
        if (strcmp(arg, "--help") == 0 || strcmp(arg, "-h") == 0) {
            fputs(kUsage, stdout);
            return kExitOk;
        }
        if (strcmp(arg, "--version") == 0) {
            printf("kervctl %s\n", KERV_VERSION);
            return kExitOk;
        }
        const bool is_port = strncmp(arg, "--port", 6) == 0 && (arg[6] == '\0' || arg[6] == '=');
        const bool is_timeout =
            strncmp(arg, "--timeout", 9) == 0 && (arg[9] == '\0' || arg[9] == '=');
        if (!is_port && !is_timeout)
            return usage_error("unknown option %s", arg);
        const char *value = option_value(arg, is_port ? 6 : 9, argc, argv, &i);
        if (value == nullptr)
            return usage_error("%s needs a value", is_port ? "--port" : "--timeout");
        if (is_port && !parse_port(value, &opts->port))
            return usage_error("--port wants a port number from 1 to 65535, not '%s'", value);
        if (is_timeout && !parse_timeout(value, &opts->timeout_s))
            return usage_error("--timeout wants a number of seconds above 0, not '%s'", value);
    }
    if (count == 0)
        return usage_error("%s", "no command given");
    opts->command = argv[1];
    opts->args = argv + 2;
    opts->arg_count = count - 1;
    return -1;
}

/* A port from the store read as the daemon reads it: decimal, the default when absent. */
unsigned int store_port(const char *key, unsigned int default_port) {
    unsigned long port = default_port;
    kerv_store_number(sncfg_get, key, &port);
    return static_cast<unsigned int>(port) & 0xFFFFu;
}

unsigned int port_for(const Options &opts, const char *key, unsigned int default_port) {
    return opts.port > 0 ? static_cast<unsigned int>(opts.port) : store_port(key, default_port);
}

/* The monotonic time, in ms, timeout_s seconds from now. */
long long deadline_after(double timeout_s) {
    return kal_now_ms() + static_cast<long long>(std::ceil(timeout_s * 1000.0));
}

/* Waits until fd can be read or the deadline (kal_now_ms) has passed. */
bool wait_readable(int fd, long long deadline) {
    for (;;) {
        const long long left = deadline - kal_now_ms();
        if (left <= 0)
            return false;
        struct pollfd pfd = {fd, POLLIN, 0};
        const int ready = poll(&pfd, 1, static_cast<int>(left));
        if (ready > 0)
            return true;
        if (ready < 0 && errno != EINTR)
            return false;
    }
}

struct sockaddr_in loopback(unsigned int port) {
    struct sockaddr_in addr;
    memset(&addr, 0, sizeof(addr));
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<unsigned short>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

/*
 * Reads the daemon's reply until it closes the connection. Returns the bytes read into
 * reply, or -1 after reporting a time-out or a read error.
 */
int read_reply(int fd, kervRequest_t *reply, double timeout_s) {
    char *into = reinterpret_cast<char *>(reply);
    const long long deadline = deadline_after(timeout_s);
    int got = 0;
    while (got < KERV_REQUEST_WIRE_MAX) {
        if (!wait_readable(fd, deadline)) {
            complain("no answer from the daemon within %g s", timeout_s);
            return -1;
        }
        const ssize_t n = read(fd, into + got, static_cast<size_t>(KERV_REQUEST_WIRE_MAX - got));
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            complain("cannot read the daemon's reply: %s", strerror(errno));
            return -1;
        }
        if (n == 0)
            break;
        got += static_cast<int>(n);
    }
    return got;
}

/* Whatever listens at the control path is obeyed only when it runs as root or as the user
   running kervctl: a socket of another user there (a world-writable /tmp) would otherwise
   answer for the daemon. */
bool trusted_daemon(int fd) {
    struct ucred peer = {};
    socklen_t peer_len = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &peer_len) != 0) {
        complain("cannot tell who serves the control socket %s: %s", kerv_control_socket_path(),
                 strerror(errno));
        return false;
    }
    if (peer.uid == 0 || peer.uid == geteuid())
        return true;
    complain("the control socket %s is served by user %u, neither root nor you: not used",
             kerv_control_socket_path(), static_cast<unsigned int>(peer.uid));
    return false;
}

/* Sends one control request; prints argument 0 of the reply when one is expected. */
int run_control(const Options &opts, u_int16_t cmd, const char *arg0, bool has_reply) {
    kervRequest_t request;
    memset(&request, 0, sizeof(request));
    request.magic = KERV_REQUEST_MAGIC;
    request.type = KERV_REQUEST_TYPE_APP;
    request.cmd = cmd;
    request.arg[0] = const_cast<char *>(arg0);
    const int size = kerv_pack_request(&request);
    if (size < 0)
        return usage_error("%s", "the command name is too long (at most 2047 bytes)");

    const int fd = kerv_connect_request();
    if (fd < 0) {
        complain("cannot connect to the control socket %s: %s", kerv_control_socket_path(),
                 strerror(errno));
        return kExitNoConnect;
    }
    if (!trusted_daemon(fd)) {
        close(fd);
        return kExitNoConnect;
    }
    int status = kExitOk;
    kervRequest_t reply;
    if (!kal_write_all(fd, &request, static_cast<size_t>(size))) {
        complain("cannot send the request: %s", strerror(errno));
        status = kExitFailed;
    } else {
        /* Without a reply, the end of the connection says the daemon has acted. */
        const int got = read_reply(fd, &reply, opts.timeout_s);
        if (got < 0) {
            status = kExitFailed;
        } else if (has_reply) {
            const int code = got > 0 ? kerv_unpack_request(&reply, got) : 0;
            if (got == 0 || code != 0 || reply.arg[0] == nullptr) {
                complain("the daemon closed the connection without a usable reply");
                status = kExitFailed;
            } else {
                printf("%s\n", reply.arg[0]);
                if (strcmp(reply.arg[0], "ERROR") == 0)
                    status = kExitFailed;
            }
        }
    }
    close(fd);
    return status;
}

int run_urc(const Options &opts, const char *text) {
    const unsigned int port =
        port_for(opts, KERV_KEY_URC_LISTEN_PORT, KERV_DEFAULT_URC_LISTEN_PORT);
    const size_t len = strlen(text);
    if (len > kUrcTextMax)
        complain("warning: the daemon passes on only the first %zu bytes of a URC", kUrcTextMax);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const struct sockaddr_in addr = loopback(port);
    const ssize_t sent =
        fd < 0 ? -1
               : sendto(fd, text, len, 0, reinterpret_cast<const struct sockaddr *>(&addr),
                        sizeof(addr));
    const int err = errno;
    if (fd >= 0)
        close(fd);
    if (sent != static_cast<ssize_t>(len)) {
        complain("cannot send the URC to 127.0.0.1:%u: %s", port, strerror(err));
        return kExitNoConnect;
    }
    return kExitOk;
}

/* Bytes from the channel that are not yet printed: what followed the last final code. */
struct ChannelInput {
    char bytes[4096];
    size_t start = 0;
    size_t end = 0;
};

/*
 * Makes unread bytes available in input, waiting until wait_until. 1 when there are some,
 * 0 on time-out, -1 when the connection ended or failed (errno set, or 0 for its end).
 */
int fill_input(int fd, ChannelInput *input, long long wait_until) {
    while (input->start == input->end) {
        if (!wait_readable(fd, wait_until))
            return 0;
        const ssize_t n = read(fd, input->bytes, sizeof(input->bytes));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0) {
            if (n == 0)
                errno = 0;
            return -1;
        }
        input->start = 0;
        input->end = static_cast<size_t>(n);
    }
    return 1;
}

/*
 * A command the daemon answers itself, with OK and without any effect: sent after a line
 * whose own final result code may or may not follow, its answer shows which it was.
 */
constexpr const char kProbeLine[] = "AT+RELAY?\r";

/*
 * Reads the channel's bytes up to and including the next final result code, waiting at
 * most timeout_s for it, and prints them, or keeps them in held when that is given; what
 * follows stays in input. KERVCTL_ANSWER_PENDING after reporting a time-out or the end of
 * the connection.
 */
kervctl_answer_e read_to_final(int fd, ChannelInput *input, const char *line, double timeout_s,
                               std::string *held) {
    kervctl_answer_scan_t scan;
    kervctl_answer_reset(&scan);
    const long long deadline = deadline_after(timeout_s);
    for (;;) {
        const int filled = fill_input(fd, input, deadline);
        if (filled == 0) {
            complain("no final result code for '%s' within %g s", line, timeout_s);
            return KERVCTL_ANSWER_PENDING;
        }
        if (filled < 0) {
            complain("the connection ended before the final result code for '%s'%s%s", line,
                     errno != 0 ? ": " : "", errno != 0 ? strerror(errno) : "");
            return KERVCTL_ANSWER_PENDING;
        }
        size_t used = 0;
        const char *bytes = input->bytes + input->start;
        const kervctl_answer_e result =
            kervctl_answer_feed(&scan, bytes, input->end - input->start, &used);
        if (held != nullptr)
            held->append(bytes, used);
        else
            fwrite(bytes, 1, used, stdout);
        input->start += used;
        if (result != KERVCTL_ANSWER_PENDING)
            return result;
    }
}

/*
 * After a line that an error stopped: either the line's own (failed) result follows, then
 * the probe's OK, or the probe's OK alone. Only the line's result is printed.
 */
kervctl_answer_e read_stopped_line_result(int fd, ChannelInput *input, const char *line,
                                          double timeout_s) {
    if (!kal_write_all(fd, kProbeLine, strlen(kProbeLine))) {
        complain("cannot send to the daemon: %s", strerror(errno));
        return KERVCTL_ANSWER_PENDING;
    }
    std::string held;
    const kervctl_answer_e next = read_to_final(fd, input, line, timeout_s, &held);
    if (next != KERVCTL_ANSWER_FAILED)
        return next == KERVCTL_ANSWER_OK ? KERVCTL_ANSWER_FAILED : next;
    fwrite(held.data(), 1, held.size(), stdout);
    held.clear();
    return read_to_final(fd, input, line, timeout_s, &held) == KERVCTL_ANSWER_PENDING
               ? KERVCTL_ANSWER_PENDING
               : KERVCTL_ANSWER_FAILED;
}

/*
 * Prints the whole answer to the line just sent: one final code per command that runs
 * (the modem's own for a relayed command), then the line's own where one follows, and
 * nothing beyond. The line failed when any of its final codes did.
 */
int print_answer(int fd, ChannelInput *input, const char *line, double timeout_s) {
    kervctl_line_plan_t plan;
    kervctl_plan_line(line, &plan);
    if (plan.answered == 0) {
        complain("'%s' holds no AT command: the daemon answers nothing to it", line);
        return kExitFailed;
    }
    const int finals = plan.finals + (plan.line_result == KERVCTL_LINE_RESULT_FOLLOWS ? 1 : 0);
    bool failed = false;
    kervctl_answer_e result = KERVCTL_ANSWER_OK;
    for (int i = 0; i < finals && result != KERVCTL_ANSWER_PENDING; i++) {
        result = read_to_final(fd, input, line, timeout_s, nullptr);
        failed = failed || result != KERVCTL_ANSWER_OK;
    }
    if (result != KERVCTL_ANSWER_PENDING && plan.line_result == KERVCTL_LINE_RESULT_MAYBE)
        result = read_stopped_line_result(fd, input, line, timeout_s);
    fflush(stdout);
    return failed || result != KERVCTL_ANSWER_OK ? kExitFailed : kExitOk;
}

int run_at(const Options &opts) {
    for (int i = 0; i < opts.arg_count; i++) {
        if (opts.args[i][0] == '\0' || strpbrk(opts.args[i], "\r\n") != nullptr)
            return usage_error("an AT line must be non-empty and without line ends: '%s'",
                               opts.args[i]);
    }
    const unsigned int port = port_for(opts, KERV_KEY_LISTEN_PORT, KERV_DEFAULT_LISTEN_PORT);
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const struct sockaddr_in addr = loopback(port);
    if (fd < 0 ||
        connect(fd, reinterpret_cast<const struct sockaddr *>(&addr), sizeof(addr)) != 0) {
        complain("cannot connect to 127.0.0.1:%u: %s", port, strerror(errno));
        if (fd >= 0)
            close(fd);
        return kExitNoConnect;
    }

    static ChannelInput input;
    int status = kExitOk;
    for (int i = 0; i < opts.arg_count && status == kExitOk; i++) {
        const char *line = opts.args[i];
        if (!kal_write_all(fd, line, strlen(line)) || !kal_write_all(fd, "\r", 1)) {
            complain("cannot send '%s' to 127.0.0.1:%u: %s", line, port, strerror(errno));
            status = kExitFailed;
            break;
        }
        status = print_answer(fd, &input, line, opts.timeout_s);
    }
    close(fd);
    return status;
}

int run_stop(const Options &opts) {
    return run_control(opts, KERV_REQUEST_CMD_STOP, nullptr, false);
}

int run_start(const Options &opts) {
    return run_control(opts, KERV_REQUEST_CMD_START, nullptr, false);
}

int run_reload(const Options &opts) {
    return run_control(opts, KERV_REQUEST_CMD_RELOAD, nullptr, true);
}

int run_hash(const Options &opts) {
    return run_control(opts, KERV_REQUEST_CMD_GEN_HASH, opts.args[0], true);
}

int run_urc_text(const Options &opts) {
    return run_urc(opts, opts.args[0]);
}

struct CommandRow {
    const char *name;
    int arg_min;
    int arg_max;
    bool takes_port;
    int (*run)(const Options &opts);
};

constexpr CommandRow kCommands[] = {
    {"stop", 0, 0, false, run_stop},     {"start", 0, 0, false, run_start},
    {"reload", 0, 0, false, run_reload}, {"hash", 1, 1, false, run_hash},
    {"urc", 1, 1, true, run_urc_text},   {"at", 1, INT32_MAX, true, run_at},
};

int run_command(const Options &opts) {
    for (const CommandRow &row : kCommands) {
        if (strcmp(row.name, opts.command) != 0)
            continue;
        if (opts.arg_count < row.arg_min || opts.arg_count > row.arg_max)
            return usage_error("wrong number of arguments for '%s'", row.name);
        if (opts.port > 0 && !row.takes_port)
            return usage_error("--port applies to urc and at, not to '%s'", row.name);
        return row.run(opts);
    }
    return usage_error("unknown command '%s'", opts.command);
}

} // namespace

int main(int argc, char **argv) {
    /* A daemon that closes the connection while kervctl writes makes the write fail. */
    signal(SIGPIPE, SIG_IGN);
    Options opts;
    const int parsed = parse_arguments(argc, argv, &opts);
    if (parsed >= 0)
        return parsed;
    return run_command(opts);
}
