/*
 * The modem-daemon stand-in: a UDP server on 127.0.0.1 that records every request datagram
 * and answers each on the sender's address, run on a thread of its own. modemd-sim is this
 * server behind a command line; tests, benchmarks and the fuzz target run it in-process.
 *
 * An AT request (ids 998 and 999) is answered from the rules, the last matching rule first;
 * a general request gets "ok". A request that carries a message text after its line (the
 * line, its carriage return, the text and Ctrl-Z) is matched by its line; when no rule
 * answers it, it gets a message reference and OK as from a modem. The answer's shape (silence, a
 * short datagram, a result code, a claimed data_len, a delay) is set for all requests at once.
 */
#ifndef MODEMD_STUB_H
#define MODEMD_STUB_H

#include "kerv_md_request.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace modemd_stub {

/* A request datagram as it arrived; data is what arrived after the header. */
struct Request {
    uint32_t magic, token, target, request_id, data_len;
    std::string data;
    size_t datagram_size;
    unsigned short sender_port; /* where the answer goes: the requester's exchange socket */
};

enum class Reply {
    text,    /* a well-formed answer */
    short27, /* 27 bytes: one less than a response header, so no answer */
    silent   /* nothing at all */
};

/*
 * command: the AT text without its carriage return, matched ignoring case; target 0 matches
 * any target. An answer may start with a fault for this command alone: "@silent" (no
 * answer), "@twice TEXT" (sent twice), "@delay=MS TEXT" (sent late), "@oversized" (a
 * datagram of twice the response record, data_len counting all of it), "@raw BYTES" (the
 * bytes are the whole datagram).
 */
struct Rule {
    std::string command;
    uint32_t target;
    std::string answer;
};

class Stub {
  public:
    /* Binds 127.0.0.1:port (0: a free port) and serves until destroyed. With publish, the
       port is also put in KERVD_MODEMD_PORT for this process's modem-daemon clients. */
    explicit Stub(unsigned short port = 0, bool publish = true);
    ~Stub();
    Stub(const Stub &) = delete;
    Stub &operator=(const Stub &) = delete;

    bool bound() const { return fd_ >= 0; }
    unsigned short port() const { return port_; }

    void add_rule(const Rule &rule);
    void clear_rules();
    /* Shape of every later answer, and text for AT requests that no rule matches; data_len
       < 0 counts the text. */
    void answer(Reply reply, const std::string &text = "\r\nOK\r\n", uint32_t result = 0,
                int64_t data_len = -1);
    void set_delay_ms(long delay_ms);
    /* The next request, whatever it is, gets datagram as its whole answer. */
    void answer_next_raw(const std::string &datagram);
    /* Prints one line per request on standard output (the program's log). */
    void set_logging(bool on) { logging_ = on; }

    std::vector<Request> take_requests();
    std::vector<std::string> take_texts();
    /* Waits up to wait_ms until at least count requests are held. */
    bool wait_requests(size_t count, long wait_ms = 10000);

  private:
    struct Plan {
        std::string datagram;
        int copies;
        long delay_ms;
    };
    void serve();
    std::string answer_text(const Request &request);
    Plan plan(const Request &request);
    void log(const Request &request) const;

    int fd_ = -1;
    int stop_[2] = {-1, -1};
    unsigned short port_ = 0;
    std::atomic<bool> logging_{false}; /* set while the server thread runs */
    std::mutex mutex_;
    std::condition_variable arrived_;
    std::vector<Request> requests_;
    std::vector<Rule> rules_;
    std::vector<std::string> raw_next_;
    Reply reply_ = Reply::text;
    uint32_t result_ = MODEM_RET_OK;
    int64_t data_len_ = -1;
    std::string fallback_ = "\r\nOK\r\n";
    long delay_ms_ = 0;
    unsigned int message_reference_ = 0; /* the last message reference given */
    std::thread thread_;
};

/* Reads rules from a file, one per line: COMMAND => ANSWER with \r \n \t \\ \xHH escapes;
   blank lines and lines starting with # are skipped. False (after saying why on standard
   error) when the file cannot be read or a line has no arrow. */
bool load_rules(const char *path, std::vector<Rule> *rules);

/* The answer a modem daemon gives request: its header (data_len < 0 counts the text), then
   the text. */
std::string answer_datagram(const Request &request, uint32_t result, const std::string &text,
                            int64_t data_len = -1);

/* Byte escapes shared with the transcript runner: \r \n \t \0 \\ \xHH. */
std::string unescape(const std::string &text);
std::string escape(const std::string &bytes);

} // namespace modemd_stub

#endif /* MODEMD_STUB_H */
