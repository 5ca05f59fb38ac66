/*
 * The hermetic launcher of the end-to-end tests, the transcript runner and the soak run:
 * starts the real kervd in a setting of its own (its own store file, ports, control socket,
 * pid file, plug-in directory, optionally a pty as the serial device) next to the
 * modem-daemon stand-in (in-process, or modemd-sim), and talks to it over real sockets.
 *
 * The daemon is found by its pid file and ended by its pid; nothing here needs to be the
 * daemon's parent (it is a grandchild: its launcher forks and exits). Nothing here uses
 * GoogleTest: each program that links the harness defines report_fault.
 */
#ifndef KERV_HARNESS_H
#define KERV_HARNESS_H

#include "kerv_test_support.h"
#include "modemd_stub.h"
#include "request.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <netinet/in.h>
#include <string>
#include <sys/types.h>
#include <sys/un.h>
#include <vector>

namespace e2e {

using namespace std::chrono_literals;
using FakeModem = modemd_stub::Stub;
using Settings = std::map<std::string, std::string>;

/* Upper bound for anything the daemon should do promptly; only failures wait this long. */
constexpr auto kPatience = 10s;

using kerv_test::ScopedSetting;
using kerv_test::TempDir;

/* What the file holds; from a pipe, what it holds now (never waits for a writer). */
std::string read_file(const std::string &path);
/* How many times what occurs in text. */
size_t count_of(const std::string &text, const std::string &what);
void write_file(const std::string &path, const std::string &content);
/* Retries check until it holds or patience passed. */
bool eventually(const std::function<bool()> &check, std::chrono::milliseconds patience = kPatience);
/* A port that was free a moment ago, outside the range the kernel picks ports from, and
   that no other test process picks while this one runs. */
unsigned int free_port(int sock_type);

/* What the harness found wrong with a daemon it ended (one that had ended before its
   SIGTERM, or wrote on standard error). Defined by each program that links the harness: a
   test failure in the tests, a failed check in the soak. */
void report_fault(const std::string &fault);

/* Starts path with args, this process's environment plus settings, standard input from
   /dev/null (or closed) and its two outputs appended to out_path and err_path. */
pid_t spawn(const std::string &path, std::vector<std::string> args, const Settings &settings,
            const std::string &out_path, const std::string &err_path, bool stdin_closed = false);
/* Waits for a child; its exit status, or -1 when a signal ended it. */
int exit_status(pid_t child);

/* What a command-line tool did: exit status and its two outputs. */
struct ToolRun {
    int status;
    std::string out;
    std::string err;
};
ToolRun run_tool(const TempDir &dir, const std::string &path, std::vector<std::string> args,
                 const Settings &settings);

/* modemd-sim on a free port with args besides, its outputs in dir's modemd-sim.out and
   modemd-sim.err; its pid, and in *port the port it announced (0: none within patience). */
pid_t start_modemd_sim(const TempDir &dir, std::vector<std::string> args, unsigned short *port);

/* A pty standing in for the serial device; the test holds the host's (master) end. */
struct Pty {
    Pty();
    ~Pty();
    /* Waits until the daemon has opened the device and discarded its earlier input: what
       the host writes from then on is read. */
    bool wait_opened();
    int master = -1;
    int slave = -1; /* our own view of the device, to read its settings */
    std::string device;
};

struct DaemonOptions {
    Settings store;            /* KEY=VALUE lines; an empty value writes "KEY=" */
    std::string serial_device; /* KERVD_SERIAL_DEVICE, when set */
    std::string plugin_dir;    /* KERVD_PLUGIN_DIR; default: an empty directory */
    std::string socket_path;   /* control socket; default: in the temp dir */
    bool stdin_closed = false; /* started with standard input closed */
};

/* A running kervd. Its standard output goes to a file in the temp dir. */
class Daemon {
  public:
    Daemon(TempDir &dir, FakeModem &modem, DaemonOptions options)
        : Daemon(dir, modem.port(), std::move(options)) {}
    /* Next to a modem daemon of another process, on 127.0.0.1:modem_port. */
    Daemon(TempDir &dir, unsigned int modem_port, DaemonOptions options);
    ~Daemon();
    /* Starts kervd and waits for its pid file; false when the launcher did not exit 0 or
       no daemon wrote its pid. With something else than a regular file at the pid file's
       path (the daemon then runs without one), the daemon is found by its environment. */
    bool start();
    /* Ends the daemon by its pid (SIGTERM, then SIGKILL); a daemon that had already ended,
       or printed on standard error (sanitizer reports), is reported as a fault. True when
       the SIGTERM ended it within 5 s. */
    bool stop();
    pid_t pid() const { return pid_; }
    bool alive() const;
    /* Bytes the daemon has written to its TCP host that the host has not taken. */
    unsigned long unsent_to_host() const;
    /* True while the daemon still holds a host connection open. */
    bool holds_host() const;
    unsigned int tcp_port() const { return tcp_port_; }
    unsigned int urc_port() const { return urc_port_; }
    const std::string &socket_path() const { return socket_path_; }
    const std::string &pid_path() const { return pid_path_; }
    std::string store_path() const { return dir_.file("sncfg.conf"); }
    std::string output() const;
    /* The settings a local client needs to reach this daemon: store and control socket. */
    Settings client_settings() const;
    /* Waits until the daemon's output contains text. */
    bool wait_output(const std::string &text) const;
    int launcher_status() const { return launcher_status_; }

  private:
    TempDir &dir_;
    DaemonOptions options_;
    unsigned int tcp_port_;
    unsigned int urc_port_;
    unsigned int modem_port_;
    std::string socket_path_;
    std::string pid_path_;
    std::string output_path_;
    std::string errors_path_; /* standard error: only sanitizer reports go there */
    pid_t pid_ = -1;
    int launcher_status_ = -1;
};

/* The host's end of the command channel: a TCP connection, or a pty's master. */
class Host {
  public:
    /* Connects to 127.0.0.1:port, retrying while the daemon is not listening yet. */
    explicit Host(unsigned int port);
    /* Uses an open descriptor (not owned), or takes it over (owning). */
    static Host on(int fd, bool owned = false);
    ~Host();
    Host(Host &&other) noexcept : fd_(other.fd_), owned_(other.owned_) { other.fd_ = -1; }
    bool connected() const { return fd_ >= 0; }
    void send(const std::string &bytes);
    /* Reads until count bytes have come, the connection ends or quiet passes without a
       byte. */
    std::string read_until(size_t count, std::chrono::milliseconds quiet);
    std::string read_like(const std::string &expected) {
        return read_until(expected.size(), kPatience);
    }
    std::string read_for(std::chrono::milliseconds quiet) { return read_until(SIZE_MAX, quiet); }
    void close();
    int fd() const { return fd_; }

  private:
    Host() = default;
    int fd_ = -1;
    bool owned_ = true;
};

sockaddr_in loopback(unsigned int port);
/* True when a UDP socket holds the port. */
bool udp_bound(unsigned int port);
void send_urc(unsigned int port, const std::string &bytes);

sockaddr_un control_address(const std::string &socket_path);
/* A control client that has connected and sent nothing yet; -1 when none connects. */
int connect_control(const std::string &socket_path);
/* One control exchange: sends the raw bytes, returns everything the daemon wrote back
   before closing. */
std::string control_exchange(const std::string &socket_path, const std::string &bytes);
/* Packs a request of type and cmd with argument 0 (none when null). */
std::string packed_request(u_int16_t type, u_int16_t cmd, const char *arg0);
/* Unpacks a reply; false when it does not unpack. */
bool unpack_reply(const std::string &bytes, kervRequest_t *reply);
/* An application request; the reply's argument 0, "" for no reply, "<bad reply>". */
std::string app_request(const std::string &socket_path, u_int16_t cmd, const char *arg0 = nullptr);

} // namespace e2e

#endif /* KERV_HARNESS_H */
