#include "harness.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <random>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>

extern char **environ;

namespace e2e {

sockaddr_in loopback(unsigned int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

namespace {

using Clock = std::chrono::steady_clock;

/* Runs op on a fresh socket of type and the address 127.0.0.1:port; op's result. */
template <typename Op> bool on_loopback(int type, unsigned int port, Op op) {
    const int fd = socket(AF_INET, type | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port);
    const bool result = op(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address));
    close(fd);
    return result;
}

/*
 * Every program a test starts ends with the test, however the test ends: CTest kills a test
 * that runs out of time outright, and kervd has forked away from its launcher by then. Each
 * program carries the test's mark as the first entry of its environment. A keeper, started
 * once, waits for the end of a pipe that only this process writes to, then kills every
 * process that carries the mark. It is forked twice, so that it is no child of this
 * process (CTest kills a test's children with the test), and runs as a script: the test
 * process it comes from has threads.
 */
constexpr char kKeeperScript[] =
    "trap '' INT TERM HUP QUIT; while read -r _; do :; done; exec 2>/dev/null;"
    "for d in /proc/[0-9]*; do IFS= read -r -d '' first < $d/environ &&"
    " [ \"$first\" = \"$0\" ] && kill -9 ${d#/proc/}; done";

/* The mark of this test's programs, "KERV_TEST_KEEPER=<test pid>"; the keeper starts with
   the first call. */
const std::string &keeper_mark() {
    static const std::string mark = [] {
        const std::string text = "KERV_TEST_KEEPER=" + std::to_string(getpid());
        int line[2];
        if (pipe2(line, O_CLOEXEC) != 0)
            return text;
        const pid_t forker = fork();
        if (forker == 0) {
            if (fork() == 0) {
                dup2(line[0], STDIN_FILENO);
                close_range(STDOUT_FILENO, ~0U, 0);
                execl("/bin/bash", "bash", "-c", kKeeperScript, text.c_str(), nullptr);
            }
            _exit(0);
        }
        exit_status(forker);
        close(line[0]); /* line[1] stays open, and the keeper waiting, until this process ends */
        return text;
    }();
    return mark;
}

/* This process's environment with the keeper's mark first and settings put in (replacing
   what it had for them). */
std::vector<std::string> environment_with(const Settings &settings) {
    std::vector<std::string> env_text = {keeper_mark()};
    for (char **entry = environ; *entry != nullptr; entry++) {
        const std::string line = *entry;
        if (settings.count(line.substr(0, line.find('='))) == 0)
            env_text.push_back(line);
    }
    for (const auto &[key, value] : settings)
        env_text.push_back(key + "=" + value);
    return env_text;
}

/* argv or envp for exec: pointers into texts, ended by null. */
std::vector<char *> pointers_to(std::vector<std::string> &texts) {
    std::vector<char *> pointers;
    for (std::string &text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

/* A socket of a /proc/net table: its local address, state and queues ("tx:rx", hex). */
struct SocketRow {
    std::string local, state, queues;
};

/* The sockets of table whose local port is port. */
std::vector<SocketRow> sockets_on(const char *table_path, unsigned int port) {
    char local_end[8];
    snprintf(local_end, sizeof(local_end), ":%04X", port);
    std::istringstream table(read_file(table_path));
    std::vector<SocketRow> rows;
    std::string sl, remote;
    for (std::string line; std::getline(table, line);) {
        SocketRow row;
        std::istringstream(line) >> sl >> row.local >> remote >> row.state >> row.queues;
        if (row.local.size() > 5 && row.local.compare(row.local.size() - 5, 5, local_end) == 0)
            rows.push_back(row);
    }
    return rows;
}

/* The main thread of a dying daemon is a zombie while its other threads still hold every
   descriptor (the control socket among them): running until the last thread has gone, or
   only waits to be reaped by its parent. */
bool process_running(pid_t pid) {
    std::error_code error;
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    for (const auto &task : std::filesystem::directory_iterator(tasks, error)) {
        const std::string stat = read_file(task.path().string() + "/stat");
        const size_t state_at = stat.rfind(')') + 2; /* npos wraps round to 1 */
        if (state_at > 1 && state_at < stat.size() && stat[state_at] != 'Z' &&
            stat[state_at] != 'X')
            return true;
    }
    return false;
}

/* The process other than this one whose environment holds entry (KEY=VALUE), or -1. */
pid_t process_with_setting(const std::string &entry) {
    std::error_code error;
    for (const auto &process : std::filesystem::directory_iterator("/proc", error)) {
        const pid_t pid = static_cast<pid_t>(atoi(process.path().filename().c_str()));
        const std::string environment = read_file(process.path().string() + "/environ");
        if (pid > 0 && pid != getpid() &&
            ('\0' + environment).find('\0' + entry + '\0') != std::string::npos)
            return pid;
    }
    return -1;
}

} // namespace

size_t count_of(const std::string &text, const std::string &what) {
    size_t count = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1))
        count++;
    return count;
}

std::string read_file(const std::string &path) {
    std::string content;
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    char buf[8192];
    for (ssize_t n; fd >= 0 && (n = read(fd, buf, sizeof(buf))) > 0;)
        content.append(buf, static_cast<size_t>(n));
    if (fd >= 0)
        close(fd);
    return content;
}

void write_file(const std::string &path, const std::string &content) {
    std::ofstream(path, std::ios::binary) << content;
}

bool eventually(const std::function<bool()> &check, std::chrono::milliseconds patience) {
    const auto deadline = Clock::now() + patience;
    while (Clock::now() < deadline) {
        if (check())
            return true;
        std::this_thread::sleep_for(10ms);
    }
    return check();
}

namespace {

/*
 * A port is this process's for its whole life once it holds the abstract socket name
 * "kerv-test-port-<port>": tests running side by side (each its own process) can never pick
 * the same one, whatever the timing of their daemons' binds.
 */
bool reserve_port(unsigned int port) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    const int name_len =
        snprintf(address.sun_path + 1, sizeof(address.sun_path) - 1, "kerv-test-port-%u", port);
    const auto address_len = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name_len);
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), address_len) == 0)
        return true; /* fd stays open until this process ends */
    close(fd);
    return false;
}

} // namespace

unsigned int free_port(int sock_type) {
    /* Below the ephemeral range: a port the kernel hands out for port 0 (to a stand-in or a
       client of a test running in parallel) could otherwise be the one picked here. */
    unsigned int ephemeral_low = 32768;
    sscanf(read_file("/proc/sys/net/ipv4/ip_local_port_range").c_str(), "%u", &ephemeral_low);
    static std::mt19937 pick(std::random_device{}());
    std::uniform_int_distribution<unsigned int> ports(10000, ephemeral_low - 1);
    for (;;) {
        const unsigned int port = ports(pick);
        if (reserve_port(port) &&
            on_loopback(sock_type, port, [](int fd, sockaddr *address, socklen_t len) {
                reinterpret_cast<sockaddr_in *>(address)->sin_addr.s_addr = htonl(INADDR_ANY);
                return bind(fd, address, len) == 0;
            }))
            return port;
    }
}

pid_t spawn(const std::string &path, std::vector<std::string> args, const Settings &settings,
            const std::string &out_path, const std::string &err_path, bool stdin_closed) {
    std::vector<std::string> env_text = environment_with(settings);
    std::vector<char *> envp = pointers_to(env_text);
    args.insert(args.begin(), path);
    std::vector<char *> argv = pointers_to(args);
    const pid_t child = fork();
    if (child == 0) {
        const int in = open("/dev/null", O_RDONLY);
        const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        const int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
        dup2(in, STDIN_FILENO);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        if (stdin_closed)
            close(STDIN_FILENO);
        execve(path.c_str(), argv.data(), envp.data());
        _exit(127);
    }
    return child;
}

int exit_status(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

ToolRun run_tool(const TempDir &dir, const std::string &path, std::vector<std::string> args,
                 const Settings &settings) {
    const std::string out_path = dir.file("tool.out");
    const std::string err_path = dir.file("tool.err");
    unlink(out_path.c_str());
    unlink(err_path.c_str());
    const int status = exit_status(spawn(path, std::move(args), settings, out_path, err_path));
    return {status, read_file(out_path), read_file(err_path)};
}

pid_t start_modemd_sim(const TempDir &dir, std::vector<std::string> args, unsigned short *port) {
    args.insert(args.begin(), {"--port", "0"});
    const std::string out_path = dir.file("modemd-sim.out");
    const pid_t pid =
        spawn(KERV_TEST_MODEMD_SIM_PATH, args, {}, out_path, dir.file("modemd-sim.err"));
    *port = 0;
    eventually([&] {
        return sscanf(read_file(out_path).c_str(), "modemd-sim listening on 127.0.0.1:%hu", port) ==
               1;
    });
    return pid;
}

Pty::Pty() {
    master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
        return;
    device = ptsname(master);
    slave = open(device.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    /* Packet mode reports the daemon's flush of the device's input (see wait_opened). */
    int on = 1;
    ioctl(master, TIOCPKT, &on);
}

Pty::~Pty() {
    if (slave >= 0)
        close(slave);
    if (master >= 0)
        close(master);
}

bool Pty::wait_opened() {
    const auto deadline = Clock::now() + kPatience;
    bool flushed = false;
    while (!flushed && Clock::now() < deadline) {
        pollfd watched = {master, POLLIN, 0};
        unsigned char packet[256];
        if (poll(&watched, 1, 50) == 1 && read(master, packet, sizeof(packet)) > 0)
            flushed = (packet[0] & TIOCPKT_FLUSHREAD) != 0;
    }
    int off = 0;
    ioctl(master, TIOCPKT, &off);
    return flushed;
}

Daemon::Daemon(TempDir &dir, unsigned int modem_port, DaemonOptions options)
    : dir_(dir), options_(std::move(options)), tcp_port_(free_port(SOCK_STREAM)),
      urc_port_(free_port(SOCK_DGRAM)), modem_port_(modem_port),
      socket_path_(options_.socket_path.empty() ? dir.file("kerv.socket") : options_.socket_path),
      pid_path_(dir.file("kerv.pid")), output_path_(dir.file("kervd.out")),
      errors_path_(dir.file("kervd.err")) {
    options_.store.try_emplace("KERV_LISTEN_PORT", std::to_string(tcp_port_));
    options_.store.try_emplace("KERV_URC_LISTEN_PORT", std::to_string(urc_port_));
    if (options_.plugin_dir.empty()) {
        options_.plugin_dir = dir.file("plugins");
        mkdir(options_.plugin_dir.c_str(), 0755);
    }
}

Daemon::~Daemon() {
    stop();
}

bool Daemon::start() {
    std::string store_text = "# written by the end-to-end test\n";
    for (const auto &[key, value] : options_.store)
        store_text += key + "=" + value + "\n";
    write_file(store_path(), store_text);
    const Settings settings = {
        {"SNCFG_FILE", store_path()},
        {"KERVD_CONTROL_SOCKET", socket_path_},
        {"KERVD_PID_FILE", pid_path_},
        {"KERVD_PLUGIN_DIR", options_.plugin_dir},
        {"KERVD_MODEMD_PORT", std::to_string(modem_port_)},
        {"KERVD_SERIAL_DEVICE",
         options_.serial_device.empty() ? dir_.file("no-serial") : options_.serial_device},
    };
    /* The file may hold an earlier pid: only a new text names our daemon. */
    std::error_code error;
    const auto pid_path_type = std::filesystem::symlink_status(pid_path_, error).type();
    const bool pid_file = pid_path_type == std::filesystem::file_type::regular ||
                          pid_path_type == std::filesystem::file_type::not_found;
    const std::string earlier = pid_file ? read_file(pid_path_) : "";
    const pid_t launcher = spawn(KERV_TEST_KERVD_PATH, {}, settings, output_path_, errors_path_,
                                 options_.stdin_closed);
    /* A launcher that hangs (on whatever stands at a path it opens) fails the start. */
    int status = 0;
    if (!eventually([&] { return waitpid(launcher, &status, WNOHANG) == launcher; })) {
        kill(launcher, SIGKILL);
        exit_status(launcher);
        return false;
    }
    launcher_status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (launcher_status_ != 0)
        return false;
    return eventually([&] {
        const std::string text = pid_file ? read_file(pid_path_) : "";
        const pid_t pid = pid_file ? static_cast<pid_t>(strtol(text.c_str(), nullptr, 10))
                                   : process_with_setting("KERVD_PID_FILE=" + pid_path_);
        if ((pid_file && text == earlier) || pid <= 0 || !process_running(pid))
            return false;
        pid_ = pid;
        return true;
    });
}

bool Daemon::stop() {
    if (pid_ <= 0)
        return false;
    const bool was_running = process_running(pid_);
    kill(pid_, SIGTERM);
    const pid_t pid = pid_;
    const bool ended = eventually([&] { return !process_running(pid); }, 5s);
    if (!ended) {
        kill(pid, SIGKILL);
        eventually([&] { return !process_running(pid); }, 5s);
    }
    pid_ = -1;
    const std::string errors = read_file(errors_path_);
    if (!was_running || !errors.empty())
        report_fault("kervd ended before its SIGTERM or reported errors\n" + errors + output());
    return ended;
}

bool Daemon::alive() const {
    return pid_ > 0 && process_running(pid_);
}

unsigned long Daemon::unsent_to_host() const {
    /* The daemon's end of the connection: state 01 (established). */
    for (const SocketRow &row : sockets_on("/proc/net/tcp", tcp_port_))
        if (row.state == "01")
            return strtoul(row.queues.c_str(), nullptr, 16);
    return 0;
}

bool Daemon::holds_host() const {
    /* The daemon's end of a host connection it has not closed: established or close-wait. */
    for (const SocketRow &row : sockets_on("/proc/net/tcp", tcp_port_))
        if (row.state == "01" || row.state == "08")
            return true;
    return false;
}

std::string Daemon::output() const {
    return read_file(output_path_);
}

Settings Daemon::client_settings() const {
    return {{"SNCFG_FILE", store_path()}, {"KERVD_CONTROL_SOCKET", socket_path_}};
}

bool Daemon::wait_output(const std::string &text) const {
    return eventually([&] { return output().find(text) != std::string::npos; });
}

Host::Host(unsigned int port) {
    const auto deadline = Clock::now() + kPatience;
    bool refused = true;
    while (refused && Clock::now() < deadline) {
        fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address = loopback(port);
        if (connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0)
            return;
        refused = errno == ECONNREFUSED;
        ::close(fd_);
        fd_ = -1;
        std::this_thread::sleep_for(10ms);
    }
}

Host Host::on(int fd, bool owned) {
    Host host;
    host.fd_ = fd;
    host.owned_ = owned;
    return host;
}

Host::~Host() {
    close();
}

void Host::send(const std::string &bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        /* A connection the daemon has closed gives EPIPE, not the end of the test. */
        ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == ENOTSOCK) /* a pty */
            n = write(fd_, bytes.data() + sent, bytes.size() - sent);
        if (n <= 0)
            return;
        sent += static_cast<size_t>(n);
    }
}

std::string Host::read_until(size_t count, std::chrono::milliseconds quiet) {
    std::string got;
    char buf[4096];
    ssize_t n = 0;
    for (pollfd watched = {fd_, POLLIN, 0};
         got.size() < count && poll(&watched, 1, static_cast<int>(quiet.count())) > 0 &&
         (n = read(fd_, buf, std::min(sizeof(buf), count - got.size()))) > 0;)
        got.append(buf, static_cast<size_t>(n));
    return got;
}

void Host::close() {
    if (fd_ >= 0 && owned_)
        ::close(fd_);
    fd_ = -1;
}

/* Read from the kernel's table: a probe that bound the port, even for a moment, would make
   a daemon's bind fail if it came just then, and the daemon would never take the port. */
bool udp_bound(unsigned int port) {
    return !sockets_on("/proc/net/udp", port).empty();
}

void send_urc(unsigned int port, const std::string &bytes) {
    on_loopback(SOCK_DGRAM, port, [&](int fd, sockaddr *address, socklen_t len) {
        return sendto(fd, bytes.data(), bytes.size(), 0, address, len) >= 0;
    });
}

sockaddr_un control_address(const std::string &socket_path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, socket_path.c_str(), sizeof(address.sun_path) - 1);
    return address;
}

int connect_control(const std::string &socket_path) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_un address = control_address(socket_path);
    if (connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0)
        return fd;
    close(fd);
    return -1;
}

std::string control_exchange(const std::string &socket_path, const std::string &bytes) {
    Host client = Host::on(connect_control(socket_path), true);
    if (!client.connected() ||
        (!bytes.empty() && write(client.fd(), bytes.data(), bytes.size()) < 0))
        return "<no connection>";
    shutdown(client.fd(), SHUT_WR); /* all of the request is sent */
    return client.read_for(kPatience);
}

std::string packed_request(u_int16_t type, u_int16_t cmd, const char *arg0) {
    kervRequest_t request = {};
    request.magic = KERV_REQUEST_MAGIC;
    request.type = type;
    request.cmd = cmd;
    request.arg[0] = const_cast<char *>(arg0);
    const int size = kerv_pack_request(&request);
    return size > 0 ? std::string(reinterpret_cast<const char *>(&request), size) : "";
}

bool unpack_reply(const std::string &bytes, kervRequest_t *reply) {
    *reply = {};
    if (bytes.size() > KERV_REQUEST_WIRE_MAX)
        return false;
    memcpy(reply, bytes.data(), bytes.size());
    return kerv_unpack_request(reply, static_cast<int>(bytes.size())) == 0;
}

std::string app_request(const std::string &socket_path, u_int16_t cmd, const char *arg0) {
    const std::string bytes =
        control_exchange(socket_path, packed_request(KERV_REQUEST_TYPE_APP, cmd, arg0));
    kervRequest_t reply;
    if (bytes.empty())
        return "";
    if (!unpack_reply(bytes, &reply) || reply.arg[0] == nullptr)
        return "<bad reply>";
    return reply.arg[0];
}

} // namespace e2e
