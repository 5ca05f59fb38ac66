#include "harness.h"

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <netinet/in.h>
#include <poll.h>
#include <random>
#include <sstream>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

namespace e2e {

namespace {

constexpr unsigned int kModemMagic = 0x5498ACDE;
constexpr size_t kModemRequestHeader = 20;
constexpr size_t kModemResponseHeader = 28;

using Clock = std::chrono::steady_clock;

sockaddr_in loopback(unsigned int port) {
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

unsigned int read_u32(const char *bytes) {
    unsigned int value;
    memcpy(&value, bytes, sizeof(value));
    return value;
}

void put_u32(std::string &bytes, unsigned int value) {
    bytes.append(reinterpret_cast<const char *>(&value), sizeof(value));
}

/* The daemon is a grandchild (its launcher forks and exits): becoming the subreaper makes it
   our child once the launcher has gone, so that it can be waited for by its pid. */
void become_subreaper() {
    static const bool done = prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
    (void)done;
}

/* Waits for pid to end; its wait status, or -1 when it did not end within limit. */
int reaped_within(pid_t pid, std::chrono::milliseconds limit) {
    const auto deadline = Clock::now() + limit;
    while (Clock::now() < deadline) {
        int status = 0;
        const pid_t got = waitpid(pid, &status, WNOHANG);
        if (got == pid)
            return status;
        if (got < 0)
            return 0;
        std::this_thread::sleep_for(10ms);
    }
    return -1;
}

/* This process's environment with settings put in (replacing what it had for them). */
std::vector<std::string> environment_with(const std::map<std::string, std::string> &settings) {
    std::vector<std::string> env_text;
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

} // namespace

ToolRun run_tool(const TempDir &dir, const char *path, std::vector<std::string> args,
                 const std::map<std::string, std::string> &settings) {
    std::vector<std::string> env_text = environment_with(settings);
    std::vector<char *> envp = pointers_to(env_text);
    args.insert(args.begin(), path);
    std::vector<char *> argv = pointers_to(args);
    const std::string out_path = dir.file("tool.out");
    const std::string err_path = dir.file("tool.err");
    const pid_t tool = fork();
    if (tool == 0) {
        const int out = open(out_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int err = open(err_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        execve(path, argv.data(), envp.data());
        _exit(127);
    }
    int status = -1;
    waitpid(tool, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(out_path), read_file(err_path)};
}

TempDir::TempDir() {
    char pattern[] = "/tmp/kerv-e2e-XXXXXX";
    path = mkdtemp(pattern);
}

TempDir::~TempDir() {
    const std::string command = "rm -rf '" + path + "'";
    if (system(command.c_str()) != 0)
        fprintf(stderr, "could not remove %s\n", path.c_str());
}

unsigned int free_port(int sock_type) {
    /* Below the ephemeral range: a port the kernel hands out for port 0 (to a fake modem or a
       client of a test running in parallel) could otherwise be the one picked here. */
    unsigned int ephemeral_low = 32768;
    sscanf(read_file("/proc/sys/net/ipv4/ip_local_port_range").c_str(), "%u", &ephemeral_low);
    static std::mt19937 pick(std::random_device{}());
    std::uniform_int_distribution<unsigned int> ports(10000, ephemeral_low - 1);
    for (;;) {
        const unsigned int port = ports(pick);
        const int fd = socket(AF_INET, sock_type | SOCK_CLOEXEC, 0);
        sockaddr_in address = loopback(port);
        address.sin_addr.s_addr = htonl(INADDR_ANY);
        const bool free = bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0;
        close(fd);
        if (free)
            return port;
    }
}

bool eventually(const std::function<bool()> &check) {
    const auto deadline = Clock::now() + kPatience;
    while (Clock::now() < deadline) {
        if (check())
            return true;
        std::this_thread::sleep_for(10ms);
    }
    return check();
}

FakeModem::FakeModem() {
    fd_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(0);
    socklen_t len = sizeof(address);
    bind(fd_, reinterpret_cast<sockaddr *>(&address), sizeof(address));
    getsockname(fd_, reinterpret_cast<sockaddr *>(&address), &len);
    port_ = ntohs(address.sin_port);
    if (pipe2(stop_, O_CLOEXEC) != 0)
        abort();
    thread_ = std::thread([this] { serve(); });
}

FakeModem::~FakeModem() {
    const char stop = 1;
    if (write(stop_[1], &stop, 1) != 1)
        abort();
    thread_.join();
    close(fd_);
    close(stop_[0]);
    close(stop_[1]);
}

void FakeModem::answer(const std::string &prefix, ModemAnswer answer) {
    std::lock_guard<std::mutex> lock(mutex_);
    script_.insert(script_.begin(), {prefix, answer});
}

std::vector<ModemRequest> FakeModem::requests() {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
}

bool FakeModem::wait_requests(size_t count) {
    return eventually([&] { return requests().size() >= count; });
}

void FakeModem::serve() {
    for (;;) {
        pollfd watched[2] = {{fd_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
        poll(watched, 2, -1);
        if (watched[1].revents != 0)
            return;
        char packet[2048];
        sockaddr_in sender;
        socklen_t sender_len = sizeof(sender);
        const ssize_t got = recvfrom(fd_, packet, sizeof(packet), 0,
                                     reinterpret_cast<sockaddr *>(&sender), &sender_len);
        if (got < static_cast<ssize_t>(kModemRequestHeader))
            continue;
        ModemRequest request{read_u32(packet + 4), read_u32(packet + 8), read_u32(packet + 12),
                             std::string(packet + kModemRequestHeader,
                                         got - static_cast<ssize_t>(kModemRequestHeader))};
        ModemAnswer answer{"\r\nOK\r\n"};
        {
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.push_back(request);
            for (const auto &[prefix, scripted] : script_)
                if (request.text.compare(0, prefix.size(), prefix) == 0) {
                    answer = scripted;
                    break;
                }
        }
        std::this_thread::sleep_for(answer.delay);
        std::string response;
        put_u32(response, kModemMagic);
        put_u32(response, request.token);
        put_u32(response, request.target);
        put_u32(response, request.request_id);
        put_u32(response, 0); /* result: OK */
        put_u32(response, request.request_id);
        put_u32(response, static_cast<unsigned int>(answer.text.size()));
        response += answer.text;
        sendto(fd_, response.data(), response.size(), 0, reinterpret_cast<sockaddr *>(&sender),
               sender_len);
    }
}

Daemon::Daemon(TempDir &dir, FakeModem &modem, DaemonOptions options)
    : dir_(dir), options_(std::move(options)), tcp_port_(free_port(SOCK_STREAM)),
      urc_port_(free_port(SOCK_DGRAM)),
      socket_path_(options_.socket_path.empty() ? dir.file("kerv.socket") : options_.socket_path),
      pid_path_(dir.file("kerv.pid")), output_path_(dir.file("kervd.out")),
      errors_path_(dir.file("kervd.err")), modem_port_(modem.port()) {
    become_subreaper();
    auto &store = options_.store;
    store.try_emplace("KERV_LISTEN_PORT", std::to_string(tcp_port_));
    store.try_emplace("KERV_URC_LISTEN_PORT", std::to_string(urc_port_));
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
    const std::string store_path = dir_.file("sncfg.conf");
    write_file(store_path, store_text);

    const std::map<std::string, std::string> settings = {
        {"SNCFG_FILE", store_path},
        {"KERVD_CONTROL_SOCKET", socket_path_},
        {"KERVD_PID_FILE", pid_path_},
        {"KERVD_PLUGIN_DIR", options_.plugin_dir},
        {"KERVD_MODEMD_PORT", std::to_string(modem_port_)},
        {"KERVD_SERIAL_DEVICE",
         options_.serial_device.empty() ? dir_.file("no-serial") : options_.serial_device},
    };
    std::vector<std::string> env_text = environment_with(settings);
    std::vector<char *> envp = pointers_to(env_text);

    const int out = open(output_path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const int errors = open(errors_path_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    const pid_t launcher = fork();
    if (launcher == 0) {
        dup2(out, STDOUT_FILENO);
        dup2(errors, STDERR_FILENO);
        const int devnull = open("/dev/null", O_RDONLY);
        dup2(devnull, STDIN_FILENO);
        char *argv[] = {const_cast<char *>(KERV_TEST_KERVD_PATH), nullptr};
        execve(KERV_TEST_KERVD_PATH, argv, envp.data());
        _exit(127);
    }
    close(out);
    close(errors);
    int status = -1;
    waitpid(launcher, &status, 0);
    launcher_status_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (launcher_status_ != 0)
        return false;
    /* The file may still hold an earlier pid: only our own (reparented) daemon counts. */
    const bool found = eventually([&] {
        const pid_t pid = static_cast<pid_t>(strtol(read_file(pid_path_).c_str(), nullptr, 10));
        siginfo_t info = {};
        if (pid <= 0 ||
            waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
            return false;
        pid_ = pid;
        return true;
    });
    if (!found)
        return false;
    if (options_.wait_for_channel && options_.serial_device.empty())
        return eventually([&] { return tcp_accepts(tcp_port_); });
    return true;
}

void Daemon::stop() {
    if (pid_ <= 0)
        return;
    kill(pid_, SIGTERM);
    int status = reaped_within(pid_, 5s);
    if (status == -1) {
        kill(pid_, SIGKILL);
        status = reaped_within(pid_, 5s);
    }
    pid_ = -1;
    /* Anything but our SIGTERM (a crash, a sanitizer's abort) is a failure of the test. */
    if (!WIFSIGNALED(status) || WTERMSIG(status) != SIGTERM)
        ADD_FAILURE() << "kervd ended with status " << status << "\n"
                      << read_file(errors_path_) << output();
}

bool Daemon::alive() const {
    if (pid_ <= 0)
        return false;
    /* A zombie is not alive: it would be ours to reap. */
    siginfo_t info = {};
    return waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == 0;
}

bool Daemon::thread_blocked_writing() const {
    const std::string tasks = "/proc/" + std::to_string(pid_) + "/task";
    for (const auto &task : std::filesystem::directory_iterator(tasks)) {
        const std::string call = read_file(task.path().string() + "/syscall");
        const long number = call.empty() ? -1 : strtol(call.c_str(), nullptr, 10);
        if (number == SYS_write || number == SYS_sendto)
            return true;
    }
    return false;
}

std::string Daemon::output() const {
    return read_file(output_path_);
}

std::map<std::string, std::string> Daemon::client_settings() const {
    return {{"SNCFG_FILE", dir_.file("sncfg.conf")}, {"KERVD_CONTROL_SOCKET", socket_path_}};
}

bool Daemon::wait_output(const std::string &text) const {
    return eventually([&] { return output().find(text) != std::string::npos; });
}

Host::Host(unsigned int port) {
    fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port);
    if (connect(fd_, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

Host::~Host() {
    close();
}

void Host::send(const std::string &bytes) {
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(fd_, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return;
        sent += static_cast<size_t>(n);
    }
}

std::string Host::read_exactly(size_t count) {
    std::string got;
    const auto deadline = Clock::now() + kPatience;
    while (got.size() < count && Clock::now() < deadline) {
        pollfd watched = {fd_, POLLIN, 0};
        if (poll(&watched, 1, 50) <= 0)
            continue;
        char buf[4096];
        const ssize_t n = recv(fd_, buf, std::min(sizeof(buf), count - got.size()), 0);
        if (n <= 0)
            break;
        got.append(buf, static_cast<size_t>(n));
    }
    return got;
}

std::string Host::read_for(std::chrono::milliseconds quiet) {
    std::string got;
    for (;;) {
        pollfd watched = {fd_, POLLIN, 0};
        if (poll(&watched, 1, static_cast<int>(quiet.count())) <= 0)
            return got;
        char buf[4096];
        const ssize_t n = recv(fd_, buf, sizeof(buf), 0);
        if (n <= 0)
            return got;
        got.append(buf, static_cast<size_t>(n));
    }
}

void Host::close() {
    if (fd_ >= 0)
        ::close(fd_);
    fd_ = -1;
}

bool tcp_accepts(unsigned int port) {
    Host probe(port);
    return probe.connected();
}

bool udp_bound(unsigned int port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port);
    const bool taken = bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 &&
                       errno == EADDRINUSE;
    close(fd);
    return taken;
}

void send_urc(unsigned int port, const std::string &bytes) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = loopback(port);
    sendto(fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr *>(&address),
           sizeof(address));
    close(fd);
}

std::string control_exchange(const std::string &socket_path, const std::string &bytes) {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    strncpy(address.sun_path, socket_path.c_str(), sizeof(address.sun_path) - 1);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        close(fd);
        return "<no connection>";
    }
    if (!bytes.empty() && write(fd, bytes.data(), bytes.size()) < 0) {
        close(fd);
        return "<write failed>";
    }
    shutdown(fd, SHUT_WR); /* all of the request is sent */
    std::string reply;
    const auto deadline = Clock::now() + kPatience;
    while (Clock::now() < deadline) {
        pollfd watched = {fd, POLLIN, 0};
        if (poll(&watched, 1, 50) <= 0)
            continue;
        char buf[4096];
        const ssize_t n = read(fd, buf, sizeof(buf));
        if (n <= 0)
            break;
        reply.append(buf, static_cast<size_t>(n));
    }
    close(fd);
    return reply;
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

std::string read_file(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

void write_file(const std::string &path, const std::string &content) {
    std::ofstream(path, std::ios::binary) << content;
}

} // namespace e2e
