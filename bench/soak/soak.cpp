/*
 * kerv_soak: the real kervd for minutes under host churn, a URC flood, garbage and silent
 * clients, a faulty modem daemon, stalled, departing, storming and slow hosts and forged
 * modem answers, in a setting of its own (store file, ports, control socket, pid file,
 * plug-in directory in one folder; modemd-sim as the modem daemon); then a STOP with lines
 * queued, serial hang-ups, and a SIGTERM with a full standard output. Every answer is
 * checked byte for byte at its place in the host's stream; the daemon's descriptors, memory
 * and idle CPU are taken before and after. The daemons start through the tests' harness; a
 * failed run keeps their folders and names them.
 *
 *   kerv_soak <seconds>     exit status 0: every check held
 */
#include "harness.h"
#include "kerv_md_request.h"
#include "request.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fstream>
#include <fcntl.h>
#include <iterator>
#include <netinet/in.h>
#include <poll.h>
#include <random>
#include <sstream>
#include <string>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

/* The daemon's development time limits, short so that every fault is over in a second. */
constexpr int kModemWaitMs = 20;  /* one of the relay's 60 waits for the modem */
constexpr int kHostStallMs = 500; /* a host that stops reading is let go after this */
constexpr int kControlTimeoutMs = 300;
using e2e::kPatience; /* for anything the daemon should do promptly */
constexpr char kError[] = "\r\nERROR\r\n";
constexpr char kUrcHead[] = "\r\n+URC: ";
constexpr int kNumbered = 64; /* AT+SOAK=<n> for n below this has an answer of its own */

std::mt19937 rng(20261123);
int failures = 0;
int failures_before_phase = 0;

void fail(const std::string &check, const std::string &detail) {
    ++failures;
    printf("FAIL %s: %s\n", check.c_str(), detail.c_str());
    fflush(stdout);
}

/* A phase goes on until its time is up or one of its checks failed. */
bool phase_goes_on(Clock::time_point until) {
    return Clock::now() < until && failures == failures_before_phase;
}

long long ms_since(Clock::time_point begun) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begun).count();
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

std::string soak_answer(int n) {
    return "\r\n+SOAK: " + std::to_string(n) + "\r\n\r\nOK\r\n";
}
const std::string kBigAnswer = "\r\n+BIG: " + std::string(960, 'x') + "\r\n\r\nOK\r\n";

/* ---- Sockets --------------------------------------------------------------------------- */

int tcp_connect(unsigned port, int rcvbuf = 0) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (rcvbuf > 0)
        setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof(rcvbuf));
    const sockaddr_in address = e2e::loopback(port);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0) {
        close(fd);
        return -1;
    }
    return fd;
}

/* Appends what arrives on fd before the deadline; false at the deadline or the stream's end. */
bool read_more(int fd, std::string *into, Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    pollfd watched = {fd, POLLIN, 0};
    if (left.count() <= 0 || poll(&watched, 1, static_cast<int>(left.count())) <= 0)
        return false;
    char buf[8192];
    const ssize_t n = read(fd, buf, sizeof(buf)); /* a socket or a pty's master */
    if (n > 0)
        into->append(buf, static_cast<size_t>(n));
    return n > 0;
}

/* ---- A faulty modem daemon ------------------------------------------------------------- */

/* Commands the modem daemon answers badly, and what the host must get for each (empty:
   any bytes, as long as the next answer then comes whole and in its place). */
struct ModemFault {
    const char *command;
    const char *rule; /* the answer in the rules file that makes the fault */
    const char *host_gets;
};

constexpr ModemFault kModemFaults[] = {
    {"AT+SLOW", "@delay=100 \\r\\n+SLOW\\r\\n\\r\\nOK\\r\\n", "\r\n+SLOW\r\n\r\nOK\r\n"},
    {"AT+LATE", "@delay=1500 \\r\\n+LATE\\r\\n\\r\\nOK\\r\\n", kError},
    {"AT+DROP", "@silent", kError},
    {"AT+TWICE", "@twice \\r\\n+TWICE\\r\\n\\r\\nOK\\r\\n", "\r\n+TWICE\r\n\r\nOK\r\n"},
    {"AT+HUGE", "@oversized", ""},
    {"AT+JUNK", "@raw \\x01\\x02\\x03", kError},
};

/* The rules file of modemd-sim: a numbered answer for each AT+SOAK=<n>, AT+BIG and the
   faults. */
void write_rules(const std::string &path) {
    std::string rules;
    for (int n = 0; n < kNumbered; ++n)
        rules +=
            "AT+SOAK=" + std::to_string(n) + " => " + modemd_stub::escape(soak_answer(n)) + "\n";
    rules += "AT+BIG => " + modemd_stub::escape(kBigAnswer) + "\n";
    for (const ModemFault &fault : kModemFaults)
        rules += std::string(fault.command) + " => " + fault.rule + "\n";
    e2e::write_file(path, rules);
}

/* ---- The daemons ------------------------------------------------------------------------- */

struct Setup {
    e2e::TempDir &dir; /* modemd-sim's output in modemd-sim.out: one line per request */
    unsigned short modem_port;
    e2e::Daemon &daemon;
};

/* The store of a soak daemon: diagnostics at level 0 unless asked (at the default level a
   soak writes hundreds of megabytes), URCs on, optionally the serial channel, reopened. */
e2e::DaemonOptions soak_options(int debug_level, const std::string &serial_device = "") {
    e2e::DaemonOptions options;
    options.store = {{"KERV_DEBUG", std::to_string(debug_level)}, {"KERV_URC_LISTEN_ENABLE", "1"}};
    if (!serial_device.empty()) {
        options.store.insert({{"KERV_LISTEN_TYPE", "1"}, {"KERV_SERIAL_REOPEN", "1"}});
        options.serial_device = serial_device;
    }
    return options;
}

/* True when a TCP connection to 127.0.0.1:port is accepted (one try). */
bool tcp_accepts(unsigned int port) {
    const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = e2e::loopback(port);
    const bool accepted =
        connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0;
    close(fd);
    return accepted;
}

/* Starts daemon and waits until it takes URCs and, on TCP, hosts. */
bool start_kervd(e2e::Daemon &daemon, bool serial = false) {
    return daemon.start() && e2e::eventually([&] {
               return (serial || tcp_accepts(daemon.tcp_port())) &&
                      e2e::udp_bound(daemon.urc_port());
           });
}

/* Ends the daemon by its pid: it must end by this SIGTERM, not before (the harness reports
   that) and not otherwise (this process, their subreaper, reaps the daemons). */
void stop_kervd(e2e::Daemon &daemon) {
    const pid_t pid = daemon.pid();
    daemon.stop();
    int status = 0;
    if (pid > 0 && waitpid(pid, &status, 0) == pid &&
        !(WIFSIGNALED(status) && WTERMSIG(status) == SIGTERM))
        fail("crash", "kervd ended with status " + std::to_string(status));
}

/* A failed run keeps the folder (the daemon's and modemd-sim's output) and names it. */
void keep_if_failed(e2e::TempDir &dir, int failures_before) {
    if (failures == failures_before)
        return;
    printf("its folder is kept: %s\n", dir.path.c_str());
    dir.path.clear();
}

/* ---- What the daemon holds ------------------------------------------------------------- */

struct Usage {
    int fds = 0, threads = 0;
    long rss_kb = 0, cpu_ticks = 0;
};

Usage usage_of(pid_t pid) {
    Usage u;
    const std::string proc = "/proc/" + std::to_string(pid);
    if (DIR *fds = opendir((proc + "/fd").c_str())) {
        while (const dirent *entry = readdir(fds))
            u.fds += entry->d_name[0] != '.';
        closedir(fds);
    }
    std::istringstream status(e2e::read_file(proc + "/status"));
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmRSS:", 0) == 0)
            u.rss_kb = atol(line.c_str() + 6);
        if (line.rfind("Threads:", 0) == 0)
            u.threads = atoi(line.c_str() + 8);
    }
    /* utime and stime are fields 14 and 15; the name before them may hold blanks. */
    const std::string stat = e2e::read_file(proc + "/stat");
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::string field;
    for (int i = 3; i <= 15 && fields >> field; ++i)
        u.cpu_ticks += i >= 14 ? atol(field.c_str()) : 0;
    return u;
}

/* Usage once the descriptors hold still, and the CPU it takes over two idle seconds. */
Usage settled_usage(const Setup &s, const char *when) {
    Usage last = usage_of(s.daemon.pid());
    e2e::eventually([&] {
        std::this_thread::sleep_for(300ms);
        const int fds = last.fds;
        last = usage_of(s.daemon.pid());
        return last.fds == fds;
    });
    const auto begun = Clock::now();
    std::this_thread::sleep_for(2s);
    Usage now = usage_of(s.daemon.pid());
    const double ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
    const double idle = 100.0 * (now.cpu_ticks - last.cpu_ticks) / ticks / (ms_since(begun) / 1e3);
    printf("%-7s fds %3d  threads %2d  rss %6ld kB  cpu %7.2f s  idle cpu %5.2f %%\n", when,
           now.fds, now.threads, now.rss_kb, now.cpu_ticks / ticks, idle);
    now.cpu_ticks = static_cast<long>(idle * 100); /* from here on: idle CPU in 1/100 % */
    return now;
}

/* ---- Clients ----------------------------------------------------------------------------- */

/* The shorter of the two is the start of the longer: more bytes may still make a match. */
bool could_become(const std::string &pending, const std::string &whole) {
    const size_t n = std::min(pending.size(), whole.size());
    return pending.compare(0, n, whole, 0, n) == 0;
}

/* A TCP host that reads its stream strictly in order: whole URCs may come between answers;
   anything else at the front that is not the answer awaited is misplaced or broken. */
struct Host {
    int fd;
    std::string pending;
    long urcs = 0;

    explicit Host(unsigned port, int rcvbuf = 0) : fd(tcp_connect(port, rcvbuf)) {}
    ~Host() { close(fd); }
    Host(const Host &) = delete;
    Host &operator=(const Host &) = delete;

    void send(const std::string &bytes) { e2e::Host::on(fd).send(bytes); }
    void take_urcs() {
        size_t end;
        while (pending.rfind(kUrcHead, 0) == 0 &&
               (end = pending.find("\r\n", strlen(kUrcHead))) != std::string::npos) {
            pending.erase(0, end + 2);
            ++urcs;
        }
    }
    bool expect(const std::string &answer, std::string *why) {
        const auto deadline = Clock::now() + kPatience;
        for (;;) {
            take_urcs();
            if (pending.rfind(answer, 0) == 0) {
                pending.erase(0, answer.size());
                return true;
            }
            const bool fits = could_become(pending, answer) || could_become(pending, kUrcHead);
            if (!fits || !read_more(fd, &pending, deadline)) {
                *why = std::string(fits ? "missing [" : "misplaced: expected [") +
                       printable(answer) + "], got [" + printable(pending) + "]";
                return false;
            }
        }
    }
    /* Reads through answer, whatever comes before it. */
    bool skip_through(const std::string &answer) {
        const auto deadline = Clock::now() + kPatience;
        while (pending.find(answer) == std::string::npos)
            if (!read_more(fd, &pending, deadline))
                return false;
        pending.erase(0, pending.find(answer) + answer.size());
        return true;
    }
    /* Echo off and verbose codes, whatever an earlier host (or its garbage) left set. A
       strict sync also checks that nothing comes before the answers to these lines. */
    bool sync(bool strict = false) {
        const int n = static_cast<int>(rng() % kNumbered);
        send("\r\nATE0\rATV1\rAT+SOAK=" + std::to_string(n) + "\r");
        if (!strict)
            return skip_through(soak_answer(n));
        std::string why;
        if (expect("\r\nOK\r\n\r\nOK\r\n" + soak_answer(n), &why))
            return true;
        fail("host's stream starts clean", why);
        return false;
    }
    /* A few numbered commands at once; their answers must come in order. */
    bool run_commands(const std::string &check, int count) {
        std::vector<int> numbers;
        std::string lines;
        for (int i = 0; i < count; ++i) {
            numbers.push_back(static_cast<int>(rng() % kNumbered));
            lines += "AT+SOAK=" + std::to_string(numbers.back()) + "\r";
        }
        send(lines);
        std::string why;
        for (int n : numbers)
            if (!expect(soak_answer(n), &why)) {
                fail(check, why);
                return false;
            }
        return true;
    }
};

/* A new host must be served: connected, synced, a command answered. */
bool served(const Setup &s, const std::string &check) {
    Host host(s.daemon.tcp_port());
    if (host.fd < 0 || !host.sync()) {
        fail(check, "a new host was not served; it got [" + printable(host.pending) + "]");
        return false;
    }
    return host.run_commands(check, 1);
}

/* GEN_HASH of +CSQ on the control socket: the daemon's reply. */
std::string gen_hash(const Setup &s) {
    return e2e::control_exchange(
        s.daemon.socket_path(),
        e2e::packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_GEN_HASH, "+CSQ"));
}

/* Garbage on a control connection that stays open: the daemon must end it itself (on a bad
   record, or by its control time-out). */
void control_garbage(const std::string &bytes) {
    const int fd = kerv_connect_request();
    e2e::Host::on(fd).send(bytes);
    e2e::Host::on(fd).read_for(kPatience);
    close(fd);
}

/* ---- The phases ---------------------------------------------------------------------------- */

/* Hosts come and go: most read their answers, some leave before reading any. */
void host_churn(Setup &s, Clock::time_point until) {
    int hosts = 0, left_early = 0;
    for (; phase_goes_on(until); ++hosts) {
        Host host(s.daemon.tcp_port());
        if (host.fd < 0 || !host.sync(true))
            return;
        if (rng() % 4 == 0 && ++left_early)
            host.send("AT+SOAK=1\rAT+SOAK=2\rAT+SOAK=3\r"); /* and leave */
        else
            host.run_commands("host churn", 1 + static_cast<int>(rng() % 8));
    }
    printf("  %d hosts, %d of them left before reading\n", hosts, left_early);
}

/* URCs as fast as they can be sent while a host runs commands: each must arrive whole and
   between answers. UDP may drop some under the flood; the count is reported. */
void urc_flood(Setup &s, Clock::time_point until) {
    Host host(s.daemon.tcp_port());
    if (!host.sync())
        return fail("urc flood", "host not served");
    std::atomic<bool> done{false};
    long sent = 0;
    std::thread sender([&] {
        for (; !done; ++sent) {
            e2e::send_urc(s.daemon.urc_port(), kUrcHead + std::to_string(sent) + "\r\n");
            if (sent % 64 == 0)
                std::this_thread::sleep_for(1ms);
        }
    });
    while (Clock::now() < until && host.run_commands("urc flood", 4)) {
    }
    done = true;
    sender.join();
    std::this_thread::sleep_for(200ms);
    host.run_commands("urc flood", 1);
    printf("  urcs sent %ld, received whole between answers %ld\n", sent, host.urcs);
}

/* Random bytes on the host port, the URC port and the control socket, and clients that
   connect and say nothing: the next host and control client get their exact answers, and
   a silent control client holds the others back no longer than the control time-out. */
void garbage_and_silence(Setup &s, Clock::time_point until) {
    const std::string hash_reply = gen_hash(s);
    int rounds = 0;
    for (; phase_goes_on(until); ++rounds) {
        {
            Host noisy(s.daemon.tcp_port());
            noisy.send(random_bytes(rng() % 3 == 0 ? 5000 : 300) + (rng() % 2 ? "\r" : ""));
            std::this_thread::sleep_for(std::chrono::milliseconds(rng() % 300));
        }
        /* With no host connected these are dropped; a host would get them as URCs. */
        for (int i = 0; i < 8; ++i)
            e2e::send_urc(s.daemon.urc_port(), random_bytes(rng() % 8 == 0 ? 60000 : 1500));
        std::this_thread::sleep_for(100ms);
        const std::string record =
            e2e::packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_GEN_HASH, "+CSQ");
        control_garbage(rng() % 2 ? record.substr(0, rng() % record.size()) + random_bytes(200)
                                  : random_bytes(3000));
        const int silent = kerv_connect_request();
        const auto begun = Clock::now();
        const bool same = gen_hash(s) == hash_reply;
        if (!same || ms_since(begun) > kControlTimeoutMs + 1000)
            fail("control client behind a silent one [hardening]",
                 (same ? "answered after " : "answered wrongly after ") +
                     std::to_string(ms_since(begun)) + " ms");
        close(silent);
        served(s, "host after garbage");
    }
    printf("  %d rounds of garbage on every socket and a silent control client\n", rounds);
}

/* Each fault is followed by a numbered command whose answer must come whole, right after
   the fault's own: a late or second datagram never becomes the next command's answer. */
void modem_faults(Setup &s, Clock::time_point until) {
    Host host(s.daemon.tcp_port());
    if (!host.sync())
        return fail("modem faults", "host not served");
    int faults = 0;
    for (; phase_goes_on(until); ++faults) {
        const ModemFault &fault = kModemFaults[rng() % std::size(kModemFaults)];
        const int n = static_cast<int>(rng() % kNumbered);
        host.send(std::string(fault.command) + "\rAT+SOAK=" + std::to_string(n) + "\r");
        std::string why = "no answer";
        if (*fault.host_gets != '\0'
                ? !host.expect(fault.host_gets, &why) || !host.expect(soak_answer(n), &why)
                : !host.skip_through(soak_answer(n)))
            return fail(std::string("modem fault ") + fault.command, why);
    }
    printf("  %d faulty answers, each followed by a whole answer in its place\n", faults);
}

/* A host that stops reading while big answers pile up: after the stall time the daemon
   lets it go and serves the next host; its queued lines must not grow the daemon. */
void stalled_host(Setup &s, Clock::time_point until) {
    int stalls = 0;
    long long longest_ms = 0;
    for (; phase_goes_on(until); ++stalls) {
        Host stalled(s.daemon.tcp_port(), 4096);
        if (!stalled.sync())
            return fail("stalled host", "host not served");
        fcntl(stalled.fd, F_SETFL, O_NONBLOCK);
        for (int queued = 0; queued < 6000; ++queued)
            if (send(stalled.fd, "AT+BIG\r", 7, MSG_NOSIGNAL) != 7)
                break;
        const auto begun = Clock::now();
        served(s, "next host served while one stalls [hardening]");
        longest_ms = std::max(longest_ms, ms_since(begun));
    }
    printf("  %d stalled hosts; the next host was served after at most %lld ms\n", stalls,
           longest_ms);
}

/* ---- Availability: hosts that leave, storm or stall, strangers on loopback ---------------- */

/* What the modem daemon logged from byte from on (one line per request it received). */
std::string modem_log_since(const Setup &s, size_t from) {
    std::ifstream log(s.dir.file("modemd-sim.out"), std::ios::binary);
    log.seekg(static_cast<std::streamoff>(from));
    return std::string(std::istreambuf_iterator<char>(log), std::istreambuf_iterator<char>());
}

size_t modem_log_size(const Setup &s) {
    struct stat log {};
    stat((s.dir.file("modemd-sim.out")).c_str(), &log);
    return static_cast<size_t>(log.st_size);
}

/* A host whose 300 lines wait in the daemon while the first runs on the slow modem daemon;
   the modem log's size when that first line had arrived. */
size_t queue_slow_lines(const Setup &s, Host &host) {
    const size_t from = modem_log_size(s);
    std::string lines;
    for (int i = 0; i < 300; ++i)
        lines += "AT+SLOW\r";
    host.send(lines);
    e2e::eventually([&] { return modem_log_since(s, from).find("AT+SLOW") != std::string::npos; });
    return modem_log_size(s);
}

void reset_connection(Host &host) {
    const linger reset = {1, 0};
    setsockopt(host.fd, SOL_SOCKET, SO_LINGER, &reset, sizeof(reset));
    close(host.fd);
    host.fd = -1;
}

/* The daemon's socket inodes, to tell its UDP sockets in /proc/net/udp. */
std::vector<std::string> socket_inodes(pid_t pid) {
    std::vector<std::string> inodes;
    const std::string fds = "/proc/" + std::to_string(pid) + "/fd/";
    if (DIR *dir = opendir(fds.c_str())) {
        char target[64];
        while (const dirent *entry = readdir(dir)) {
            const ssize_t n = readlink((fds + entry->d_name).c_str(), target, sizeof(target) - 1);
            if (n > 8 && strncmp(target, "socket:[", 8) == 0)
                inodes.emplace_back(target + 8, static_cast<size_t>(n) - 9);
        }
        closedir(dir);
    }
    return inodes;
}

/* Local ports of the daemon's UDP sockets other than the URC port: its exchange sockets. */
std::vector<unsigned> exchange_ports(const Setup &s) {
    const std::vector<std::string> inodes = socket_inodes(s.daemon.pid());
    std::vector<unsigned> ports;
    std::istringstream table(e2e::read_file("/proc/net/udp"));
    std::string line, sl, local, remote, state, queues, timers, retransmits, uid, timeout, inode;
    std::getline(table, line);
    while (std::getline(table, line)) {
        std::istringstream(line) >> sl >> local >> remote >> state >> queues >> timers >>
            retransmits >> uid >> timeout >> inode;
        const unsigned port = static_cast<unsigned>(strtoul(local.c_str() + 9, nullptr, 16));
        if (port != s.daemon.urc_port() &&
            std::find(inodes.begin(), inodes.end(), inode) != inodes.end())
            ports.push_back(port);
    }
    return ports;
}

/* While a relayed command waits on the modem daemon (AT+DROP: silent, 60 waits), 3,000
   connect-and-close cycles: the departed connections must not pile up in the daemon, and a
   control application must still be answered at once. */
void reconnect_storm(Setup &s, Clock::time_point until) {
    int rounds = 0, most_fds = 0, idle_fds = 0;
    long long slowest_hash_us = 0;
    const std::string hash_reply = gen_hash(s);
    for (; phase_goes_on(until); ++rounds) {
        idle_fds = usage_of(s.daemon.pid()).fds;
        const size_t from = modem_log_size(s);
        {
            Host leaving(s.daemon.tcp_port());
            leaving.send("AT+DROP\r");
            e2e::eventually(
                [&] { return modem_log_since(s, from).find("AT+DROP") != std::string::npos; });
        }
        const auto wait_began = Clock::now();
        std::atomic<bool> storming{true};
        std::thread watcher([&] {
            while (storming || ms_since(wait_began) < 60 * kModemWaitMs) {
                most_fds = std::max(most_fds, usage_of(s.daemon.pid()).fds - idle_fds);
                const auto asked = Clock::now();
                if (gen_hash(s) != hash_reply)
                    fail("GEN_HASH during a reconnect storm", "wrong or no reply");
                slowest_hash_us = std::max<long long>(
                    slowest_hash_us,
                    std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - asked)
                        .count());
            }
        });
        const sockaddr_in address = e2e::loopback(s.daemon.tcp_port());
        for (int i = 0; i < 3000; ++i) {
            const int fd = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address));
            close(fd);
        }
        storming = false;
        watcher.join();
        if (most_fds > 16)
            fail("descriptors during a reconnect storm", "idle + " + std::to_string(most_fds));
        served(s, "host after a reconnect storm");
    }
    printf("  %d storms of 3000 connect-and-close cycles during a silent modem wait of %d ms:"
           " descriptors at most idle (%d) + %d; GEN_HASH answered within %.1f ms\n",
           rounds, 60 * kModemWaitMs, idle_fds, most_fds, slowest_hash_us / 1e3);
}

/* A host queues 300 lines behind a slow command and resets: nothing more of it may reach
   the modem daemon, and the next host's first (internal) command is answered as soon as the
   running command ends. */
void departing_host(Setup &s, Clock::time_point until) {
    int rounds = 0;
    size_t most_after = 0;
    long long slowest_ms = 0;
    for (; phase_goes_on(until); ++rounds) {
        Host host(s.daemon.tcp_port());
        if (!host.sync())
            return fail("departing host", "host not served");
        queue_slow_lines(s, host);
        reset_connection(host);
        const auto reset_at = Clock::now();
        const size_t at_reset = modem_log_size(s);
        Host next(s.daemon.tcp_port());
        next.send("ATE0\r");
        std::string why;
        if (!next.expect("\r\nOK\r\n", &why))
            return fail("next host after a departed one", why);
        slowest_ms = std::max(slowest_ms, ms_since(reset_at));
        const size_t after = e2e::count_of(modem_log_since(s, at_reset), "AT+SLOW");
        most_after = std::max(most_after, after);
        if (after > 1)
            fail("departed host's lines", std::to_string(after) + " reached the modem daemon");
        next.sync();
    }
    printf("  %d hosts reset with 300 lines queued: at most %zu line(s) reached the modem daemon"
           " after the reset; the next host's ATE0 answered at most %lld ms after it (the running"
           " command takes 100 ms)\n",
           rounds, most_after, slowest_ms);
}

/* A host that sends ten lines a second with 1 KB answers and reads nothing is cut off within
   twice the stall time of its output backing up (more than 4 KB unacknowledged). */
void slow_sender(Setup &s, Clock::time_point until) {
    int rounds = 0;
    long long most_backed_ms = 0, most_first_ms = 0;
    for (; phase_goes_on(until); ++rounds) {
        Host host(s.daemon.tcp_port(), 16384);
        if (!host.sync())
            return fail("slow sender", "host not served");
        const auto first_line = Clock::now();
        auto backed_up = Clock::time_point::max();
        bool ended = false;
        while (!ended && ms_since(first_line) < 60000) {
            pollfd watched = {host.fd, POLLRDHUP, 0};
            ended = send(host.fd, "AT+BIG\r", 7, MSG_NOSIGNAL) < 0 || poll(&watched, 1, 100) > 0;
            if (backed_up == Clock::time_point::max() && s.daemon.unsent_to_host() > 4096)
                backed_up = Clock::now();
        }
        const long long backed_ms =
            backed_up == Clock::time_point::max() ? -1 : ms_since(backed_up);
        if (!ended || backed_ms > 2 * kHostStallMs)
            fail("slow sender cut off",
                 ended ? std::to_string(backed_ms) + " ms after backing up" : "not within 60 s");
        most_backed_ms = std::max(most_backed_ms, backed_ms);
        most_first_ms = std::max(most_first_ms, ms_since(first_line));
        served(s, "host after a slow sender");
    }
    printf("  %d slow senders cut off at most %lld ms after their output backed up (stall time"
           " %d ms), %lld ms after their first line\n",
           rounds, most_backed_ms, kHostStallMs, most_first_ms);
}

/* Forged answers, with the token of the request the modem daemon last logged, sent from a
   socket of our own to every exchange socket the daemon has open, while a host runs slow
   relayed commands: every command gets the modem daemon's own answer. */
void foreign_datagrams(Setup &s, Clock::time_point until) {
    Host host(s.daemon.tcp_port());
    if (!host.sync())
        return fail("foreign datagrams", "host not served");
    const size_t from = modem_log_size(s);
    const std::string forged_text = "\r\n+SLOW: forged\r\n\r\nOK\r\n";
    std::atomic<bool> done{false};
    long sent = 0, aimed = 0;
    std::thread stranger([&] {
        const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        while (!done) {
            const std::string log = modem_log_since(s, from);
            const size_t at = log.rfind("token=");
            Modem_Response_t forged{};
            forged.magic = MODEM_REQUEST_MAGIC;
            sscanf(log.c_str() + (at == std::string::npos ? 0 : at),
                   "token=%u target=%u request_id=%u", &forged.token, &forged.target,
                   &forged.request_id);
            forged.response_id = forged.request_id;
            forged.data_len = static_cast<kal_uint32>(forged_text.size());
            memcpy(forged.data, forged_text.data(), forged_text.size());
            const std::vector<unsigned> ports = exchange_ports(s);
            for (int i = 0; i < 50; ++i, ++sent) {
                const unsigned port =
                    ports.empty() ? 40000 + rng() % 20000 : ports[i % ports.size()];
                aimed += !ports.empty();
                const sockaddr_in to = e2e::loopback(port);
                sendto(fd, &forged, MODEM_RESPONSE_HEADER_SIZE + forged_text.size(), 0,
                       reinterpret_cast<const sockaddr *>(&to), sizeof(to));
            }
            std::this_thread::sleep_for(5ms);
        }
        close(fd);
    });
    int commands = 0;
    std::string why;
    for (; (commands < 100 || sent < 10000) && Clock::now() < until + 30s; ++commands) {
        host.send("AT+SLOW\r");
        if (!host.expect("\r\n+SLOW\r\n\r\nOK\r\n", &why)) {
            fail("forged answer taken", why);
            break;
        }
    }
    done = true;
    stranger.join();
    printf("  %d relayed commands, each answered by the modem daemon itself; %ld forged datagrams"
           " sent, %ld of them to an exchange socket the daemon had open\n",
           commands, sent, aimed);
}

/* Last on the channel, which a STOP closes for good: a STOP while a host has 300 lines
   queued; no line may reach the modem daemon after the STOP has returned. */
void stop_with_lines_queued(Setup &s) {
    Host host(s.daemon.tcp_port());
    host.sync();
    queue_slow_lines(s, host);
    const auto asked = Clock::now();
    e2e::control_exchange(
        s.daemon.socket_path(),
        e2e::packed_request(KERV_REQUEST_TYPE_APP, KERV_REQUEST_CMD_STOP, nullptr));
    const long long stop_ms = ms_since(asked);
    const size_t at_stop = modem_log_size(s);
    std::this_thread::sleep_for(1s); /* ten of the slow command's answers */
    const size_t after = e2e::count_of(modem_log_since(s, at_stop), "AT+SLOW");
    if (after > 0)
        fail("lines after a STOP", std::to_string(after) + " reached the modem daemon");
    printf("STOP with 300 lines queued: returned after %lld ms; %zu lines reached the modem daemon"
           " in the second after it\n",
           stop_ms, after);
}

/* A second daemon, its standard output a pipe that nobody reads, filled by its diagnostics
   (debug level 5) until its worker waits on the pipe: a SIGTERM must still end it at once. */
void sigterm_with_full_output(const Setup &s) {
    const int failures_before = failures;
    e2e::TempDir dir;
    e2e::Daemon piped(dir, s.modem_port, soak_options(5));
    mkfifo(dir.file("kervd.out").c_str(), 0644);
    const int reader = open(dir.file("kervd.out").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (!start_kervd(piped)) {
        close(reader);
        fail("SIGTERM with a full standard output", "second kervd did not start");
        return keep_if_failed(dir, failures_before);
    }
    Host host(piped.tcp_port());
    int answered = 0;
    for (std::string answer; answered < 10000; ++answered, answer.clear()) {
        host.send("ATE0\r");
        while (answer.size() < 6 && read_more(host.fd, &answer, Clock::now() + 500ms)) {
        }
        if (answer.size() < 6)
            break; /* the worker waits for room in the pipe */
    }
    int pipe_bytes = 0;
    ioctl(reader, FIONREAD, &pipe_bytes);
    const pid_t pid = piped.pid();
    const auto signalled = Clock::now();
    const bool ended = piped.stop(); /* SIGTERM, and SIGKILL after 5 s */
    const long long gone_ms = ms_since(signalled);
    if (!ended)
        fail("SIGTERM with a full standard output", "kervd still running after 5 s");
    else if (gone_ms > 1000)
        fail("SIGTERM with a full standard output",
             "gone after " + std::to_string(gone_ms) + " ms");
    waitpid(pid, nullptr, 0);
    close(reader);
    keep_if_failed(dir, failures_before);
    printf("SIGTERM with a full standard output (%d bytes unread in the pipe after %d commands):"
           " the daemon was gone after %lld ms\n",
           pipe_bytes, answered, gone_ms);
}

/* A pty standing in for the serial device, put at link as a gadget port's node comes back;
   its master, the host's end. */
int new_serial_device(const std::string &link) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    grantpt(master);
    unlockpt(master);
    const std::string next = link + ".next";
    symlink(ptsname(master), next.c_str());
    rename(next.c_str(), link.c_str());
    return master;
}

/* How long until the channel on the pty answers AT (-1: not within 10 s). Lines written
   before the daemon opened the device are discarded by it, so AT goes again and again. */
long long answered_after(int master) {
    const auto begun = Clock::now();
    std::string got;
    while (ms_since(begun) < 10000) {
        if (write(master, "AT\r", 3) != 3)
            break;
        read_more(master, &got, Clock::now() + 20ms);
        if (got.find("OK\r\n") != std::string::npos)
            return ms_since(begun);
    }
    return -1;
}

/* A third daemon, on a serial device with KERV_SERIAL_REOPEN=1: the device hangs up (its
   pty is closed), is away for 300 ms and comes back as a new pty; the channel must answer
   again within 2 s of its return. */
void serial_hang_ups(const Setup &s) {
    const int failures_before = failures;
    e2e::TempDir dir;
    e2e::Daemon serial(dir, s.modem_port, soak_options(0, dir.file("ttyGS0")));
    int master = new_serial_device(dir.file("ttyGS0"));
    if (!start_kervd(serial, true) || answered_after(master) < 0) {
        close(master);
        fail("serial hang-up", "the serial channel did not answer at first");
        return keep_if_failed(dir, failures_before);
    }
    long long slowest_ms = 0;
    constexpr int kHangUps = 5;
    for (int i = 0; i < kHangUps; ++i) {
        close(master);
        std::this_thread::sleep_for(300ms);
        master = new_serial_device(dir.file("ttyGS0"));
        const long long ms = answered_after(master);
        if (ms < 0 || ms > 2000)
            fail("serial channel after a hang-up", "answered after " + std::to_string(ms) + " ms");
        slowest_ms = std::max(slowest_ms, ms < 0 ? 10000 : ms);
    }
    close(master);
    stop_kervd(serial);
    keep_if_failed(dir, failures_before);
    printf("serial hang-ups with KERV_SERIAL_REOPEN=1: after each of %d, the device away for"
           " 300 ms, the channel answered at most %lld ms after the device was back\n",
           kHangUps, slowest_ms);
}

struct Phase {
    const char *name;
    double share; /* of the run's seconds */
    void (*run)(Setup &s, Clock::time_point until);
};

constexpr Phase kPhases[] = {
    {"host churn", 0.15, host_churn},
    {"urc flood", 0.15, urc_flood},
    {"garbage and silent clients", 0.2, garbage_and_silence},
    {"modem faults", 0.15, modem_faults},
    {"stalled host", 0.1, stalled_host},
    {"reconnect storm", 0.05, reconnect_storm},
    {"departing host", 0.05, departing_host},
    {"slow sender", 0.1, slow_sender},
    {"foreign datagrams", 0.05, foreign_datagrams},
};

/* The phases, the figures before and after them, and the checks that end what they test. */
void soak(Setup &s, double seconds) {
    /* One of everything first, so that what is set up once does not count as growth. */
    served(s, "warm-up");
    e2e::send_urc(s.daemon.urc_port(), "\r\n+URC: warm-up\r\n");
    gen_hash(s);
    const Usage before = settled_usage(s, "before");

    for (const Phase &phase : kPhases) {
        const std::chrono::duration<double> length(seconds * phase.share);
        printf("phase %s (%.0f s)\n", phase.name, length.count());
        fflush(stdout);
        failures_before_phase = failures;
        phase.run(s, Clock::now() + std::chrono::duration_cast<Clock::duration>(length));
        if (!s.daemon.alive()) {
            fail("crash", std::string("kervd died during ") + phase.name);
            break;
        }
        const Usage now = usage_of(s.daemon.pid());
        printf("  now: fds %d, rss %ld kB\n", now.fds, now.rss_kb);
    }
    const Usage after = settled_usage(s, "after");
    if (after.fds > before.fds)
        fail("descriptors", std::to_string(before.fds) + " -> " + std::to_string(after.fds));
    if (after.rss_kb > before.rss_kb + 1024 + before.rss_kb / 10)
        fail("memory", std::to_string(before.rss_kb) + " kB -> " + std::to_string(after.rss_kb));
    if (after.cpu_ticks > before.cpu_ticks + 200)
        fail("idle cpu", "the daemon keeps working when nothing happens");
    stop_with_lines_queued(s);
    serial_hang_ups(s);
    sigterm_with_full_output(s);
}

} // namespace

/* Each program that links the harness says what a fault of a daemon it ended is. */
void e2e::report_fault(const std::string &fault) {
    fail("crash", fault);
}

int main(int argc, char **argv) {
    if (argc != 2) {
        fprintf(stderr, "usage: kerv_soak <seconds>\n");
        return 2;
    }
    /* Parent of the daemons, which fork away from their launchers: their exit status. */
    prctl(PR_SET_CHILD_SUBREAPER, 1);
    signal(SIGPIPE, SIG_IGN);
    setenv("KERVD_MODEMD_WAIT_MS", std::to_string(kModemWaitMs).c_str(), 1);
    setenv("KERVD_HOST_STALL_MS", std::to_string(kHostStallMs).c_str(), 1);
    setenv("KERVD_CONTROL_TIMEOUT_MS", std::to_string(kControlTimeoutMs).c_str(), 1);
    e2e::TempDir dir;
    write_rules(dir.file("rules"));
    unsigned short modem_port = 0;
    const pid_t sim = e2e::start_modemd_sim(dir, {"--rules", dir.file("rules")}, &modem_port);
    e2e::Daemon daemon(dir, modem_port, soak_options(0));
    Setup s{dir, modem_port, daemon};
    setenv(KERV_CONTROL_SOCKET_ENV, daemon.socket_path().c_str(), 1);
    if (modem_port != 0 && start_kervd(daemon))
        soak(s, atof(argv[1]));
    else
        fail("start", "kervd or modemd-sim did not start");
    stop_kervd(daemon);
    kill(sim, SIGTERM);
    e2e::exit_status(sim);
    keep_if_failed(dir, 0);
    printf("%s: %d failed checks\n", failures == 0 ? "PASS" : "FAIL", failures);
    return failures == 0 ? 0 : 1;
}
