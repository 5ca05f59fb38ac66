/*
 * End-to-end harness: starts the real kervd in a hermetic setting (its own store file,
 * ports, control socket, pid file, plug-in directory, optionally a pty as the serial
 * device) next to a fake modem daemon that records every request, and talks to it over
 * real sockets.
 */
#ifndef KERV_E2E_HARNESS_H
#define KERV_E2E_HARNESS_H

#include "request.h"

#include <chrono>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <sys/types.h>
#include <thread>
#include <vector>

namespace e2e {

using namespace std::chrono_literals;

/* Upper bound for anything the daemon should do promptly; only failures wait this long. */
constexpr auto kPatience = 10s;

/* A fresh directory under /tmp (short paths: a Unix socket path is limited), removed at
   the end. */
struct TempDir {
    TempDir();
    ~TempDir();
    std::string path;
    std::string file(const std::string &name) const { return path + "/" + name; }
};

/* A port that was free a moment ago, outside the range the kernel picks ports from. */
unsigned int free_port(int sock_type);

/* One request as the fake modem daemon received it. */
struct ModemRequest {
    unsigned int token;
    unsigned int target;
    unsigned int request_id;
    std::string text;
};

/* What the fake modem answers to a command text (after an optional delay). */
struct ModemAnswer {
    std::string text;
    std::chrono::milliseconds delay{0};
};

/* UDP fake of the modem daemon on 127.0.0.1: records each request, answers from a script. */
class FakeModem {
  public:
    FakeModem();
    ~FakeModem();
    unsigned int port() const { return port_; }
    /* The answer for every command text beginning with prefix (default: "\r\nOK\r\n"). */
    void answer(const std::string &prefix, ModemAnswer answer);
    std::vector<ModemRequest> requests();
    /* Waits until at least count requests have arrived. */
    bool wait_requests(size_t count);

  private:
    void serve();
    int fd_ = -1;
    int stop_[2] = {-1, -1};
    unsigned int port_ = 0;
    std::mutex mutex_;
    std::vector<ModemRequest> requests_;
    std::vector<std::pair<std::string, ModemAnswer>> script_;
    std::thread thread_;
};

struct DaemonOptions {
    std::map<std::string, std::string> store; /* KEY=VALUE lines; empty value writes "KEY=" */
    std::string serial_device;                /* KERVD_SERIAL_DEVICE, when set */
    std::string plugin_dir;                   /* KERVD_PLUGIN_DIR; default: an empty dir */
    std::string socket_path;                  /* control socket; default: in the temp dir */
    bool wait_for_channel = true;             /* wait until the TCP channel accepts */
};

/* A running kervd. Its standard output goes to a file in the temp dir. */
class Daemon {
  public:
    Daemon(TempDir &dir, FakeModem &modem, DaemonOptions options);
    ~Daemon();
    /* Starts kervd; false when the launcher did not exit 0 or no pid appeared. */
    bool start();
    /* Ends the daemon by its pid: SIGTERM, then SIGKILL. */
    void stop();
    pid_t pid() const { return pid_; }
    bool alive() const;
    /* True when one of the daemon's threads is in a write or send system call (it waits for
       room in a connection). */
    bool thread_blocked_writing() const;
    unsigned int tcp_port() const { return tcp_port_; }
    unsigned int urc_port() const { return urc_port_; }
    const std::string &socket_path() const { return socket_path_; }
    const std::string &pid_path() const { return pid_path_; }
    std::string output() const;
    /* The settings a local client needs to reach this daemon: store and control socket. */
    std::map<std::string, std::string> client_settings() const;
    /* Waits until the daemon's output contains text. */
    bool wait_output(const std::string &text) const;
    int launcher_status() const { return launcher_status_; }

  private:
    TempDir &dir_;
    DaemonOptions options_;
    unsigned int tcp_port_;
    unsigned int urc_port_;
    std::string socket_path_;
    std::string pid_path_;
    std::string output_path_;
    std::string errors_path_; /* standard error: only sanitizer reports go there */
    pid_t pid_ = -1;
    int launcher_status_ = -1;
    unsigned int modem_port_;
};

/* A TCP host connected to the command channel. */
class Host {
  public:
    explicit Host(unsigned int port);
    ~Host();
    bool connected() const { return fd_ >= 0; }
    void send(const std::string &bytes);
    /* Reads until exactly count bytes have come (or kPatience passed). */
    std::string read_exactly(size_t count);
    /* Reads as many bytes as expected holds, to compare them with it. */
    std::string read_like(const std::string &expected) { return read_exactly(expected.size()); }
    /* Reads what arrives within quiet of the last byte (nothing more expected). */
    std::string read_for(std::chrono::milliseconds quiet);
    void close();
    int fd() const { return fd_; }

  private:
    int fd_ = -1;
};

/* True when a TCP connection to 127.0.0.1:port is accepted by someone. */
bool tcp_accepts(unsigned int port);
/* True when something holds the UDP port on 127.0.0.1. */
bool udp_bound(unsigned int port);
/* Retries check until it holds or kPatience passed. */
bool eventually(const std::function<bool()> &check);

/* Sends a URC datagram to 127.0.0.1:port. */
void send_urc(unsigned int port, const std::string &bytes);

/* One control exchange: sends the raw bytes, returns everything the daemon wrote back
   before closing. */
std::string control_exchange(const std::string &socket_path, const std::string &bytes);
/* Packs a request of type and cmd with argument 0 (none when null). */
std::string packed_request(u_int16_t type, u_int16_t cmd, const char *arg0);
/* Unpacks a reply; false when it does not unpack. */
bool unpack_reply(const std::string &bytes, kervRequest_t *reply);

/* What a command-line tool did: exit status and its two outputs. */
struct ToolRun {
    int status;
    std::string out;
    std::string err;
};
/* Runs path with args and this process's environment plus settings, to its end. */
ToolRun run_tool(const TempDir &dir, const char *path, std::vector<std::string> args,
                 const std::map<std::string, std::string> &settings);

std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &content);

} // namespace e2e

#endif /* KERV_E2E_HARNESS_H */
