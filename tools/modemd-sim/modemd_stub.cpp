#include "modemd_stub.h"

#include <arpa/inet.h>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>

namespace modemd_stub {

namespace {

bool is_at_request(uint32_t request_id) {
    return request_id == MODEM_REQ_SIM_PROXY || request_id == MODEM_REQ_AT_CMD;
}

/* The AT text as a rule names it: without the termination character the engine appends. */
/* The command line: the text up to its carriage return (a message text may follow it). */
std::string command_of(const Request &request) {
    const std::string text = request.data.substr(0, request.data_len);
    return text.substr(0, text.find('\r'));
}

/* A message text after the line, ended with Ctrl-Z: a two-step command. */
bool has_message(const Request &request) {
    const size_t line_end = request.data.find('\r');
    return line_end != std::string::npos && line_end + 1 < request.data.size() &&
           request.data.back() == '\x1a';
}

/* What a modem answers a message it took: a reference (or, for +CMGW, the storage index)
   for the send, write and command forms, a plain OK for an acknowledgement. */
std::string message_answer(const std::string &command, unsigned int reference) {
    if (strncasecmp(command.c_str(), "AT+CNMA", 7) == 0)
        return "\r\nOK\r\n";
    std::string name = command.substr(2, 5);
    for (char &c : name)
        c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return "\r\n" + name + ": " + std::to_string(reference) + "\r\n\r\nOK\r\n";
}

std::string trim(const std::string &text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return "";
    return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

} // namespace

Stub::Stub(unsigned short port, bool publish) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t address_len = sizeof(address);
    if (fd < 0 || bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &address_len) != 0 ||
        pipe2(stop_, O_CLOEXEC) != 0) {
        fprintf(stderr, "modemd stand-in: can't bind 127.0.0.1:%u: %s\n", port, strerror(errno));
        if (fd >= 0)
            close(fd);
        return;
    }
    fd_ = fd;
    port_ = ntohs(address.sin_port);
    if (publish)
        setenv("KERVD_MODEMD_PORT", std::to_string(port_).c_str(), 1);
    thread_ = std::thread([this] { serve(); });
}

Stub::~Stub() {
    if (fd_ < 0)
        return;
    const char stop = 1;
    if (write(stop_[1], &stop, 1) == 1)
        thread_.join();
    else
        thread_.detach();
    close(stop_[0]);
    close(stop_[1]);
    close(fd_);
}

void Stub::add_rule(const Rule &rule) {
    std::lock_guard<std::mutex> lock(mutex_);
    rules_.push_back(rule);
}

void Stub::clear_rules() {
    std::lock_guard<std::mutex> lock(mutex_);
    rules_.clear();
}

void Stub::answer(Reply reply, const std::string &text, uint32_t result, int64_t data_len) {
    std::lock_guard<std::mutex> lock(mutex_);
    reply_ = reply;
    fallback_ = text;
    result_ = result;
    data_len_ = data_len;
}

void Stub::set_delay_ms(long delay_ms) {
    std::lock_guard<std::mutex> lock(mutex_);
    delay_ms_ = delay_ms;
}

std::vector<Request> Stub::take_requests() {
    std::lock_guard<std::mutex> lock(mutex_);
    return std::move(requests_);
}

std::vector<std::string> Stub::take_texts() {
    std::vector<std::string> texts;
    for (const Request &request : take_requests())
        texts.push_back(request.data);
    return texts;
}

bool Stub::wait_requests(size_t count, long wait_ms) {
    std::unique_lock<std::mutex> lock(mutex_);
    return arrived_.wait_for(lock, std::chrono::milliseconds(wait_ms),
                             [&] { return requests_.size() >= count; });
}

/* Called with the lock held. */
std::string Stub::answer_text(const Request &request) {
    if (!is_at_request(request.request_id))
        return "ok";
    const std::string command = command_of(request);
    for (auto rule = rules_.rbegin(); rule != rules_.rend(); ++rule)
        if ((rule->target == 0 || rule->target == request.target) &&
            strcasecmp(rule->command.c_str(), command.c_str()) == 0)
            return rule->answer;
    if (has_message(request))
        return message_answer(command, ++message_reference_ % 256);
    return fallback_;
}

std::string answer_datagram(const Request &request, uint32_t result, const std::string &text,
                            int64_t data_len) {
    Modem_Response_t header{};
    header.magic = MODEM_REQUEST_MAGIC;
    header.token = request.token;
    header.target = request.target;
    header.response_id = request.request_id;
    header.request_id = request.request_id;
    header.result = result;
    header.data_len = static_cast<uint32_t>(data_len < 0 ? text.size() : data_len);
    return std::string(reinterpret_cast<const char *>(&header), MODEM_RESPONSE_HEADER_SIZE) + text;
}

/* Called with the lock held. The answer for request, shaped by the settings and by the
   fault a rule's answer may start with (see Rule). */
Stub::Plan Stub::plan(const Request &request) {
    Plan plan{{}, reply_ == Reply::silent ? 0 : 1, delay_ms_};
    if (!raw_next_.empty()) {
        plan.datagram = raw_next_.front();
        raw_next_.erase(raw_next_.begin());
        return plan;
    }
    std::string text = answer_text(request);
    std::string fault;
    if (!text.empty() && text[0] == '@') {
        const size_t end = text.find(' ');
        fault = text.substr(1, end == std::string::npos ? std::string::npos : end - 1);
        text = end == std::string::npos ? "" : text.substr(end + 1);
    }
    if (fault == "raw") {
        plan.datagram = text;
        return plan;
    }
    if (fault == "silent")
        plan.copies = 0;
    else if (fault == "twice")
        plan.copies = 2;
    else if (fault.rfind("delay=", 0) == 0)
        plan.delay_ms = strtol(fault.c_str() + 6, nullptr, 10);
    else if (fault == "oversized")
        text.assign(2 * sizeof(Modem_Response_t), 'x');
    plan.datagram = answer_datagram(request, result_, text, data_len_);
    if (reply_ == Reply::short27)
        plan.datagram.resize(MODEM_RESPONSE_HEADER_SIZE - 1);
    return plan;
}

void Stub::log(const Request &request) const {
    printf("token=%u target=%u request_id=%u data_len=%u text=\"%s\"\n", request.token,
           request.target, request.request_id, request.data_len, escape(request.data).c_str());
    fflush(stdout);
}

void Stub::serve() {
    for (;;) {
        pollfd watched[2] = {{fd_, POLLIN, 0}, {stop_[0], POLLIN, 0}};
        if (poll(watched, 2, -1) < 0 && errno != EINTR)
            return;
        if (watched[1].revents != 0)
            return;
        if (watched[0].revents == 0)
            continue;
        Modem_Request_t packet{};
        sockaddr_in sender{};
        socklen_t sender_len = sizeof(sender);
        const ssize_t got = recvfrom(fd_, &packet, sizeof(packet), 0,
                                     reinterpret_cast<sockaddr *>(&sender), &sender_len);
        if (got < MODEM_REQUEST_HEADER_SIZE)
            continue;
        const Request request = {packet.magic,
                                 packet.token,
                                 packet.target,
                                 packet.request_id,
                                 packet.data_len,
                                 std::string(packet.data, got - MODEM_REQUEST_HEADER_SIZE),
                                 static_cast<size_t>(got),
                                 ntohs(sender.sin_port)};
        if (logging_)
            log(request);
        Plan answer;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.push_back(request);
            arrived_.notify_all();
            answer = plan(request);
        }
        /* A late answer holds up the ones after it, as one busy modem daemon would. */
        if (answer.copies > 0 && answer.delay_ms > 0) {
            pollfd stop = {stop_[0], POLLIN, 0};
            if (poll(&stop, 1, static_cast<int>(answer.delay_ms)) > 0)
                return;
        }
        for (int copy = 0; copy < answer.copies; ++copy)
            sendto(fd_, answer.datagram.data(), answer.datagram.size(), 0,
                   reinterpret_cast<sockaddr *>(&sender), sender_len);
    }
}

void Stub::answer_next_raw(const std::string &datagram) {
    std::lock_guard<std::mutex> lock(mutex_);
    raw_next_.push_back(datagram);
}

bool load_rules(const char *path, std::vector<Rule> *rules) {
    FILE *file = fopen(path, "r");
    if (file == nullptr) {
        fprintf(stderr, "modemd-sim: can't read rules file %s: %s\n", path, strerror(errno));
        return false;
    }
    char line[4096];
    int line_no = 0;
    bool ok = true;
    while (fgets(line, sizeof(line), file) != nullptr) {
        ++line_no;
        const std::string text = trim(line);
        if (text.empty() || text[0] == '#')
            continue;
        const size_t arrow = text.find("=>");
        if (arrow == std::string::npos) {
            fprintf(stderr, "modemd-sim: %s:%d: expected COMMAND => ANSWER\n", path, line_no);
            ok = false;
            continue;
        }
        rules->push_back(
            {unescape(trim(text.substr(0, arrow))), 0, unescape(trim(text.substr(arrow + 2)))});
    }
    fclose(file);
    return ok;
}

std::string unescape(const std::string &text) {
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            plain += text[i];
            continue;
        }
        const char code = text[++i];
        if (code == 'x' && i + 2 < text.size() && isxdigit(text[i + 1]) && isxdigit(text[i + 2])) {
            plain += static_cast<char>(strtol(text.substr(i + 1, 2).c_str(), nullptr, 16));
            i += 2;
            continue;
        }
        constexpr char codes[] = "rnt0";
        constexpr char bytes[] = {'\r', '\n', '\t', '\0'};
        const char *at = code != '\0' ? strchr(codes, code) : nullptr;
        plain += at != nullptr ? bytes[at - codes] : code;
    }
    return plain;
}

std::string escape(const std::string &bytes) {
    std::string shown;
    for (const char c : bytes) {
        const unsigned char byte = static_cast<unsigned char>(c);
        char hex[5];
        if (c == '\r' || c == '\n' || c == '\t' || c == '\\') {
            shown += '\\';
            shown += c == '\r' ? 'r' : c == '\n' ? 'n' : c == '\t' ? 't' : '\\';
        } else if (byte < 0x20 || byte >= 0x7F) {
            snprintf(hex, sizeof(hex), "\\x%02X", byte);
            shown += hex;
        } else {
            shown += c;
        }
    }
    return shown;
}

} // namespace modemd_stub
