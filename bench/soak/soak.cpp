/*
 * kerv_soak: the real kervd for minutes under churn, floods, stalls, garbage and a faulty
 * modem daemon, in a setting of its own (store file, ports, control socket, pid file,
 * plug-in directory under one temporary folder; modemd-sim as the modem daemon). Every
 * answer is checked byte for byte at its place in the host's stream; the daemon's
 * descriptors, memory and idle CPU are taken before and after and must not grow.
 *
 *   kerv_soak <kervd> <modemd-sim> <folder> <seconds>
 * Exit status 0 when every check held; the last lines of output give the figures.
 */
#include "request.h"

#include <arpa/inet.h>
#include <atomic>
#include <iterator>
#include <sys/stat.h>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fstream>
#include <functional>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <random>
#include <sstream>
#include <string>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

/* Development time limits of the daemon, short so that each fault is over in a second. */
constexpr int kModemWaitMs = 20;  /* one of the relay's 60 waits for the modem */
constexpr int kHostStallMs = 500; /* a host that stops reading is let go after this */
constexpr int kControlTimeoutMs = 300;
constexpr auto kPatience = 10s; /* anything the daemon should do promptly */
constexpr char kOk[] = "\r\nOK\r\n";
constexpr char kError[] = "\r\nERROR\r\n";
constexpr char kUrcHead[] = "\r\n+URC: ";

std::mt19937 rng(20261123);
int failures = 0;
int failures_before_phase = 0;

/* A phase goes on until its time is up or one of its checks failed. */
bool phase_goes_on(Clock::time_point until) {
    return Clock::now() < until && failures == failures_before_phase;
}

void fail(const std::string &check, const std::string &detail) {
    ++failures;
    printf("FAIL %s: %s\n", check.c_str(), detail.c_str());
    fflush(stdout);
}

std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string printable(const std::string &bytes) {
    std::string out;
    for (unsigned char c : bytes.substr(0, 160)) {
        char hex[8];
        snprintf(hex, sizeof(hex), c == '\r' ? "\\r" : c == '\n' ? "\\n" : "\\x%02x", c);
        out += (c >= 32 && c < 127) ? std::string(1, static_cast<char>(c)) : std::string(hex);
    }
    return out;
}

std::string random_bytes(size_t max_len) {
    std::string bytes(std::uniform_int_distribution<size_t>(0, max_len)(rng), '\0');
    for (char &c : bytes)
        c = static_cast<char>(rng());
    return bytes;
}

sockaddr_in loopback(unsigned port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/* A port of the given kind that was free a moment ago (the kernel's pick). */
unsigned free_port(int type) {
    const int fd = socket(AF_INET, type, 0);
    sockaddr_in address = loopback(0);
    socklen_t len = sizeof(address);
    bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address));
    getsockname(fd, reinterpret_cast<sockaddr *>(&address), &len);
    close(fd);
    return ntohs(address.sin_port);
}

bool udp_bound(unsigned port) {
    const int fd = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address = loopback(port);
    const bool taken = bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0;
    close(fd);
    return taken;
}

bool eventually(const std::function<bool()> &holds, Clock::duration patience = kPatience) {
    const auto deadline = Clock::now() + patience;
    while (!holds()) {
        if (Clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(10ms);
    }
    return true;
}

int tcp_connect(unsigned port, int rcvbuf = 0) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (rcvbuf > 0)
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof(rcvbuf));
    const sockaddr_in address = loopback(port);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

void send_all(int fd, const std::string &bytes) {
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t n = send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        sent += static_cast<size_t>(n);
    }
}

void send_datagram(unsigned port, const std::string &bytes) {
    static const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = loopback(port);
    sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr *>(&address),
           sizeof(address));
}

/* ---- The daemon and the modem daemon, as processes of this run ---------------------- */

struct Setup {
    std::string kervd, modemd_sim, dir;
    unsigned tcp_port = 0, urc_port = 0, modem_port = 0;
    pid_t sim = -1, daemon = -1;
    std::string socket_path() const { return dir + "/kerv.socket"; }
};

pid_t spawn(const std::vector<std::string> &args, const std::vector<std::string> &env,
            const std::string &out_path) {
    const pid_t pid = fork();
    if (pid != 0)
        return pid;
    const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    dup2(out, STDOUT_FILENO);
    dup2(out, STDERR_FILENO);
    for (const std::string &setting : env)
        putenv(strdup(setting.c_str()));
    std::vector<char *> argv;
    for (const std::string &arg : args)
        argv.push_back(const_cast<char *>(arg.c_str()));
    argv.push_back(nullptr);
    execv(argv[0], argv.data());
    _exit(127);
}

/* A rules-file answer: line ends and backslashes written as escapes. */
std::string rules_escape(const std::string &bytes) {
    std::string out;
    for (char c : bytes)
        out += c == '\r' ? "\\r" : c == '\n' ? "\\n" : c == '\\' ? "\\\\" : std::string(1, c);
    return out;
}

/* The answers the modem daemon gives: one per numbered command, and one big one. */
std::string soak_answer(int n) {
    return "\r\n+SOAK: " + std::to_string(n) + "\r\n\r\nOK\r\n";
}
const std::string kBigAnswer = "\r\n+BIG: " + std::string(960, 'x') + "\r\n\r\nOK\r\n";
constexpr int kNumbered = 64;

/* ---- A faulty modem daemon --------------------------------------------------------------- */

/* Commands the modem daemon answers badly, and what the host must get for each (empty:
   any bytes, as long as the next answer is whole and in its place). */
struct ModemFault {
    const char *command;
    const char *rule; /* the rules-file answer that makes the fault */
    std::string host_gets;
};

const ModemFault kModemFaults[] = {
    {"AT+SLOW", "@delay=100 \\r\\n+SLOW\\r\\n\\r\\nOK\\r\\n", "\r\n+SLOW\r\n\r\nOK\r\n"},
    {"AT+LATE", "@delay=1500 \\r\\n+LATE\\r\\n\\r\\nOK\\r\\n", kError},
    {"AT+DROP", "@silent", kError},
    {"AT+TWICE", "@twice \\r\\n+TWICE\\r\\n\\r\\nOK\\r\\n", "\r\n+TWICE\r\n\r\nOK\r\n"},
    {"AT+HUGE", "@oversized", ""},
    {"AT+JUNK", "@raw \\x01\\x02\\x03", ""},
};

std::string modem_fault_rules() {
    std::string rules;
    for (const ModemFault &fault : kModemFaults)
        rules += std::string(fault.command) + " => " + fault.rule + "\n";
    return rules;
}

bool start_modemd_sim(Setup &s) {
    std::string rules;
    for (int n = 0; n < kNumbered; ++n)
        rules += "AT+SOAK=" + std::to_string(n) + " => " + rules_escape(soak_answer(n)) + "\n";
    rules += "AT+BIG => " + rules_escape(kBigAnswer) + "\n";
    rules += modem_fault_rules();
    std::ofstream(s.dir + "/rules") << rules;
    const std::string log = s.dir + "/modemd-sim.out";
    s.sim = spawn({s.modemd_sim, "--port", "0", "--rules", s.dir + "/rules"}, {}, log);
    return eventually([&] {
        const std::string text = read_file(log);
        const size_t at = text.find("listening on 127.0.0.1:");
        if (at == std::string::npos)
            return false;
        s.modem_port = static_cast<unsigned>(atoi(text.c_str() + at + 23));
        return s.modem_port != 0;
    });
}

bool start_kervd(Setup &s) {
    s.tcp_port = free_port(SOCK_STREAM);
    s.urc_port = free_port(SOCK_DGRAM);
    /* Quiet diagnostics: at the default level a soak writes hundreds of megabytes. */
    std::ofstream(s.dir + "/sncfg.conf")
        << "KERV_DEBUG=0\nKERV_LISTEN_PORT=" << s.tcp_port << "\nKERV_URC_LISTEN_ENABLE=1\n"
        << "KERV_URC_LISTEN_PORT=" << s.urc_port << "\n";
    mkdir((s.dir + "/plugins").c_str(), 0755);
    const std::vector<std::string> env = {"SNCFG_FILE=" + s.dir + "/sncfg.conf",
                                          "KERVD_CONTROL_SOCKET=" + s.socket_path(),
                                          "KERVD_PID_FILE=" + s.dir + "/kerv.pid",
                                          "KERVD_PLUGIN_DIR=" + s.dir + "/plugins",
                                          "KERVD_SERIAL_DEVICE=" + s.dir + "/no-serial",
                                          "KERVD_MODEMD_PORT=" + std::to_string(s.modem_port),
                                          "KERVD_MODEMD_WAIT_MS=" + std::to_string(kModemWaitMs),
                                          "KERVD_HOST_STALL_MS=" + std::to_string(kHostStallMs),
                                          "KERVD_CONTROL_TIMEOUT_MS=" +
                                              std::to_string(kControlTimeoutMs)};
    const pid_t launcher = spawn({s.kervd}, env, s.dir + "/kervd.out");
    int status = 0;
    waitpid(launcher, &status, 0);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        return false;
    /* The daemon forked away from its launcher; as subreaper this process is its parent. */
    return eventually([&] {
               s.daemon = static_cast<pid_t>(atoi(read_file(s.dir + "/kerv.pid").c_str()));
               return s.daemon > 0 && kill(s.daemon, 0) == 0;
           }) &&
           eventually([&] {
               const int fd = tcp_connect(s.tcp_port);
               close(fd);
               return fd >= 0 && udp_bound(s.urc_port);
           });
}

bool daemon_alive(const Setup &s) {
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(s.daemon), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

/* ---- What the daemon holds ----------------------------------------------------------- */

struct Usage {
    int fds = 0;
    long rss_kb = 0;
    long cpu_ticks = 0;
    int threads = 0;
};

Usage usage_of(pid_t pid) {
    Usage u;
    const std::string proc = "/proc/" + std::to_string(pid);
    if (DIR *fds = opendir((proc + "/fd").c_str())) {
        while (const dirent *entry = readdir(fds))
            u.fds += entry->d_name[0] != '.';
        closedir(fds);
    }
    std::istringstream status(read_file(proc + "/status"));
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0)
            u.rss_kb = atol(line.c_str() + 6);
        if (line.rfind("Threads:", 0) == 0)
            u.threads = atoi(line.c_str() + 8);
    }
    /* utime and stime are fields 14 and 15; the command name before them may hold blanks. */
    const std::string stat = read_file(proc + "/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    for (int i = 3; i <= 15 && fields >> field; ++i)
        if (i >= 14)
            u.cpu_ticks += atol(field.c_str());
    return u;
}

/* Usage once the daemon has settled (no host, descriptors steady), with its idle CPU. */
Usage settled_usage(const Setup &s, double *idle_cpu_percent) {
    Usage last = usage_of(s.daemon);
    eventually([&] {
        std::this_thread::sleep_for(300ms);
        const Usage now = usage_of(s.daemon);
        const bool steady = now.fds == last.fds;
        last = now;
        return steady;
    });
    const auto begun = Clock::now();
    std::this_thread::sleep_for(2s);
    const Usage after = usage_of(s.daemon);
    const double seconds = std::chrono::duration<double>(Clock::now() - begun).count();
    *idle_cpu_percent = 100.0 * static_cast<double>(after.cpu_ticks - last.cpu_ticks) /
                        sysconf(_SC_CLK_TCK) / seconds;
    return after;
}

/* ---- A host on the command channel ----------------------------------------------------- */

/* The shorter of the two is the start of the longer: more bytes may still make a match. */
bool could_become(const std::string &pending, const std::string &whole) {
    const size_t n = std::min(pending.size(), whole.size());
    return pending.compare(0, n, whole, 0, n) == 0;
}

/*
 * A TCP host that reads its stream strictly in order: URCs may come between answers,
 * each whole; anything else at the front that is not the answer awaited is a misplaced or
 * broken answer.
 */
struct Host {
    int fd = -1;
    std::string pending;
    long urcs = 0;

    explicit Host(unsigned port, int rcvbuf = 0) : fd(tcp_connect(port, rcvbuf)) {}
    ~Host() {
        if (fd >= 0)
            close(fd);
    }
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    void take_urcs() {
        while (pending.compare(0, strlen(kUrcHead), kUrcHead) == 0) {
            const size_t end = pending.find("\r\n", strlen(kUrcHead));
            if (end == std::string::npos)
                return;
            pending.erase(0, end + 2);
            ++urcs;
        }
    }
    /* Reads more within the deadline; false at its end or when the daemon closed. */
    bool read_more(Clock::time_point deadline) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
        pollfd watched = {fd, POLLIN, 0};
        if (left.count() <= 0 || poll(&watched, 1, static_cast<int>(left.count())) <= 0)
            return false;
        char buf[8192];
        const ssize_t n = recv(fd, buf, sizeof(buf), 0);
        if (n <= 0)
            return false;
        pending.append(buf, static_cast<size_t>(n));
        return true;
    }
    /* The next thing after any URCs must be answer; why it was not goes to *why. */
    bool expect(const std::string &answer, std::string *why) {
        const auto deadline = Clock::now() + kPatience;
        for (;;) {
            take_urcs();
            if (pending.compare(0, answer.size(), answer) == 0) {
                pending.erase(0, answer.size());
                return true;
            }
            if (!could_become(pending, answer) && !could_become(pending, kUrcHead)) {
                *why = "expected [" + printable(answer) + "], got [" + printable(pending) + "]";
                return false;
            }
            if (!read_more(deadline)) {
                *why = "missing [" + printable(answer) + "], have [" + printable(pending) + "]";
                return false;
            }
        }
    }
    /* Reads up to and past answer, whatever comes before it; false when it never comes. */
    bool skip_through(const std::string &answer) {
        const auto deadline = Clock::now() + kPatience;
        while (pending.find(answer) == std::string::npos)
            if (!read_more(deadline))
                return false;
        pending.erase(0, pending.find(answer) + answer.size());
        return true;
    }
    /* Echo off and verbose codes, whatever an earlier host (or its garbage) left set. */
    bool sync() {
        const int n = static_cast<int>(rng() % kNumbered);
        send_all(fd, "\r\nATE0\rATV1\rAT+SOAK=" + std::to_string(n) + "\r");
        return skip_through(soak_answer(n));
    }
};

/* Sends a few numbered commands at once and checks their answers, in order. */
bool run_commands(Host &host, const std::string &check, int count) {
    std::vector<int> numbers;
    std::string lines;
    for (int i = 0; i < count; ++i) {
        numbers.push_back(static_cast<int>(rng() % kNumbered));
        lines += "AT+SOAK=" + std::to_string(numbers.back()) + "\r";
    }
    send_all(host.fd, lines);
    for (int n : numbers) {
        std::string why;
        if (!host.expect(soak_answer(n), &why)) {
            fail(check, why);
            return false;
        }
    }
    return true;
}

/* A fresh host that must be served: connected, synced, one command answered. */
bool served(const Setup &s, const std::string &check) {
    Host host(s.tcp_port);
    if (host.fd < 0 || !host.sync()) {
        fail(check, "a new host was not served; it got [" + printable(host.pending) + "]");
        return false;
    }
    return run_commands(host, check, 1);
}

/* ---- The control socket ---------------------------------------------------------------- */

int control_connect(const Setup &s) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s", s.socket_path().c_str());
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

/* Sends bytes, returns all the daemon wrote back before it closed (or the patience ran out). */
std::string control_exchange(const Setup &s, const std::string &bytes) {
    const int fd = control_connect(s);
    if (fd < 0)
        return "<no connection>";
    send_all(fd, bytes);
    Host reply(0); /* only its reader is used */
    close(reply.fd);
    reply.fd = fd;
    const auto deadline = Clock::now() + kPatience;
    while (reply.read_more(deadline)) {
    }
    return reply.pending;
}

std::string gen_hash_request(const char *name) {
    kervRequest_t request{};
    request.magic = KERV_REQUEST_MAGIC;
    request.type = KERV_REQUEST_TYPE_APP;
    request.cmd = KERV_REQUEST_CMD_GEN_HASH;
    request.arg[0] = const_cast<char *>(name);
    const int size = kerv_pack_request(&request);
    return std::string(reinterpret_cast<const char *>(&request), static_cast<size_t>(size));
}

/* ---- The phases ---------------------------------------------------------------------- */

struct Phase {
    const char *name;
    double share; /* of the run's seconds */
    void (*run)(Setup &s, Clock::time_point until);
};

/* Hosts come and go: some read all their answers, some leave before reading any. */
void host_churn(Setup &s, Clock::time_point until) {
    while (phase_goes_on(until)) {
        Host host(s.tcp_port);
        if (host.fd < 0 || !host.sync()) {
            fail("host churn", "host not served");
            return;
        }
        if (rng() % 4 == 0)
            send_all(host.fd, "AT+SOAK=1\rAT+SOAK=2\rAT+SOAK=3\r"); /* and leave */
        else
            run_commands(host, "host churn", 1 + static_cast<int>(rng() % 8));
    }
}

/* URCs as fast as they can be sent while a host runs commands: every URC arrives whole and
   between answers, never inside one. */
void urc_flood(Setup &s, Clock::time_point until) {
    Host host(s.tcp_port);
    if (!host.sync())
        return fail("urc flood", "host not served");
    std::atomic<bool> done{false};
    long sent = 0;
    std::thread sender([&] {
        while (!done) {
            send_datagram(s.urc_port, kUrcHead + std::to_string(sent++) + "\r\n");
            if (sent % 64 == 0)
                std::this_thread::sleep_for(1ms);
        }
    });
    while (Clock::now() < until && run_commands(host, "urc flood", 4)) {
    }
    done = true;
    sender.join();
    std::this_thread::sleep_for(200ms);
    run_commands(host, "urc flood", 1);
    printf("  urcs sent %ld, received whole between answers %ld\n", sent, host.urcs);
}

/* Random bytes on the host port, control socket and URC port; silent and half-sent
   clients. Served hosts and control requests must keep their exact answers throughout. */
void garbage(Setup &s, Clock::time_point until) {
    const std::string hash_reply = control_exchange(s, gen_hash_request("+CSQ"));
    while (phase_goes_on(until)) {
        {
            Host noisy(s.tcp_port);
            send_all(noisy.fd, random_bytes(rng() % 3 == 0 ? 5000 : 300));
            if (rng() % 2 == 0)
                send_all(noisy.fd, "\r");
            std::this_thread::sleep_for(std::chrono::milliseconds(rng() % 50));
        }
        /* With no host connected these are dropped; a host would get them as URCs. */
        for (int i = 0; i < 8; ++i)
            send_datagram(s.urc_port, random_bytes(rng() % 8 == 0 ? 60000 : 1500));
        std::this_thread::sleep_for(100ms);
        std::string record = gen_hash_request("+CSQ");
        record = record.substr(0, rng() % record.size()) + random_bytes(200);
        control_exchange(s, rng() % 2 == 0 ? record : random_bytes(3000));
        if (control_exchange(s, gen_hash_request("+CSQ")) != hash_reply)
            fail("control garbage", "GEN_HASH answered differently after garbage");
        served(s, "host garbage");
    }
}

/* A control client that connects and says nothing must not hold others back for longer
   than the control time-out; a TCP host that stays silent is simply served later. */
void silent_clients(Setup &s, Clock::time_point until) {
    const std::string hash_reply = control_exchange(s, gen_hash_request("+CSQ"));
    while (phase_goes_on(until)) {
        const int silent = control_connect(s);
        const auto begun = Clock::now();
        const std::string reply = control_exchange(s, gen_hash_request("+CSQ"));
        const auto waited = Clock::now() - begun;
        if (reply != hash_reply || waited > std::chrono::milliseconds(kControlTimeoutMs) + 1s)
            fail("silent control client [hardening]",
                 "GEN_HASH waited " +
                     std::to_string(
                         std::chrono::duration_cast<std::chrono::milliseconds>(waited).count()) +
                     " ms behind a silent client");
        close(silent);
        {
            Host quiet(s.tcp_port);
            std::this_thread::sleep_for(300ms);
        }
        served(s, "silent host");
    }
}

/* A host that stops reading while its answers pile up: the daemon must let it go after the
   stall time and serve the next host; its queued lines must not grow the daemon's memory. */
void stalled_host(Setup &s, Clock::time_point until) {
    while (phase_goes_on(until)) {
        Host stalled(s.tcp_port, 4096);
        if (!stalled.sync())
            return fail("stalled host", "host not served");
        fcntl(stalled.fd, F_SETFL, O_NONBLOCK);
        int queued = 0;
        while (queued < 6000 && send(stalled.fd, "AT+BIG\r", 7, MSG_NOSIGNAL) == 7)
            ++queued;
        const auto begun = Clock::now();
        const bool next_served = served(s, "stalled host released [hardening]");
        printf("  stalled host: %d lines queued, next host %s after %lld ms\n", queued,
               next_served ? "served" : "NOT served",
               static_cast<long long>(
                   std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun)
                       .count()));
    }
}

/* Each fault is followed by a numbered command: its answer must come whole, right after
   the fault's own (a late or second datagram never becomes the next command's answer). */
void modem_faults(Setup &s, Clock::time_point until) {
    Host host(s.tcp_port);
    if (!host.sync())
        return fail("modem faults", "host not served");
    while (phase_goes_on(until)) {
        const ModemFault &fault = kModemFaults[rng() % std::size(kModemFaults)];
        const int n = static_cast<int>(rng() % kNumbered);
        send_all(host.fd, std::string(fault.command) + "\rAT+SOAK=" + std::to_string(n) + "\r");
        std::string why;
        if (!fault.host_gets.empty() && !host.expect(fault.host_gets, &why))
            return fail(std::string("modem fault ") + fault.command, why);
        if (fault.host_gets.empty() ? !host.skip_through(soak_answer(n))
                                    : !host.expect(soak_answer(n), &why))
            return fail(std::string("answer after modem fault ") + fault.command, why);
    }
}

constexpr Phase kPhases[] = {
    {"host churn", 0.2, host_churn},     {"urc flood", 0.2, urc_flood},
    {"garbage", 0.15, garbage},          {"silent clients", 0.1, silent_clients},
    {"modem faults", 0.2, modem_faults}, {"stalled host", 0.15, stalled_host},
};

void report(const char *when, const Usage &u, double idle_cpu) {
    printf("%-7s fds %3d  rss %6ld kB  threads %2d  cpu %6.2f s  idle cpu %5.2f %%\n", when, u.fds,
           u.rss_kb, u.threads, static_cast<double>(u.cpu_ticks) / sysconf(_SC_CLK_TCK), idle_cpu);
}

/* Ends both programs by their pids; the daemon must end by this SIGTERM, not before. */
void stop_all(Setup &s) {
    if (s.daemon > 0) {
        const bool was_alive = daemon_alive(s);
        kill(s.daemon, SIGTERM);
        int status = 0;
        waitpid(s.daemon, &status, 0);
        if (!was_alive || !WIFSIGNALED(status) || WTERMSIG(status) != SIGTERM)
            fail("crash", "kervd ended with status " + std::to_string(status) + "; see " + s.dir +
                              "/kervd.out");
    }
    if (s.sim > 0) {
        kill(s.sim, SIGTERM);
        waitpid(s.sim, nullptr, 0);
    }
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 5) {
        fprintf(stderr, "usage: kerv_soak <kervd> <modemd-sim> <folder> <seconds>\n");
        return 2;
    }
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    signal(SIGPIPE, SIG_IGN);
    Setup s{argv[1], argv[2], argv[3]};
    const double seconds = atof(argv[4]);
    if (!start_modemd_sim(s) || !start_kervd(s)) {
        fail("start", "kervd or modemd-sim did not start; see " + s.dir);
        stop_all(s);
        return 1;
    }
    /* One of everything first, so that what is set up once is not counted as growth. */
    served(s, "warm-up");
    send_datagram(s.urc_port, "\r\n+URC: warm-up\r\n");
    control_exchange(s, gen_hash_request("+CSQ"));
    double idle_before = 0;
    const Usage before = settled_usage(s, &idle_before);
    report("before", before, idle_before);

    for (const Phase &phase : kPhases) {
        const auto length = std::chrono::duration<double>(seconds * phase.share);
        printf("phase %s (%.0f s)\n", phase.name, length.count());
        fflush(stdout);
        failures_before_phase = failures;
        phase.run(s, Clock::now() + std::chrono::duration_cast<Clock::duration>(length));
        if (!daemon_alive(s)) {
            fail("crash", std::string("kervd died during ") + phase.name);
            break;
        }
    }
    double idle_after = 0;
    const Usage after = settled_usage(s, &idle_after);
    report("after", after, idle_after);
    if (after.fds > before.fds)
        fail("descriptors", std::to_string(before.fds) + " -> " + std::to_string(after.fds));
    if (after.rss_kb > before.rss_kb + 1024 + before.rss_kb / 10)
        fail("memory", std::to_string(before.rss_kb) + " kB -> " + std::to_string(after.rss_kb));
    if (idle_after > idle_before + 2.0)
        fail("idle cpu", "the daemon keeps working when nothing happens");
    stop_all(s);
    printf("%s: %d failed checks\n", failures == 0 ? "PASS" : "FAIL", failures);
    return failures == 0 ? 0 : 1;
}
