/*
 * modemd-sim: stands in for the board's modem daemon on a development machine or in tests.
 *
 * A UDP server on 127.0.0.1 that receives request packets, answers each on the sender's
 * address with one response packet, and logs every request on one line of standard output.
 * AT requests (ids 998 and 999) are answered like a modem: from the rules file first, then
 * from a built-in table that gives the LTE modem (target 1) and the 2G/3G modem (any other
 * target) their own identities; anything else gets "\r\nERROR\r\n". General requests get a
 * short "ok". Flags bend the answers for tests (delay, silence, short datagrams, result
 * codes, a data_len that counts the terminating NUL).
 */
#include "kerv_md_request.h"

#include <arpa/inet.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <netinet/in.h>
#include <string>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr unsigned short kDefaultPort = 14343;

struct Options {
    unsigned short port = kDefaultPort;
    const char *rules_file = nullptr;
    long delay_ms = 0;
    bool no_answer = false;
    long short_len = -1; /* send only this many bytes of each response; -1: all */
    kal_uint32 result = MODEM_RET_OK;
    bool count_nul = false;
};

struct Rule {
    std::string command;
    std::string answer;
};

struct Identity {
    const char *model;
    const char *revision;
    const char *imei;
    const char *imsi;
    const char *act; /* access technology reported by +COPS */
};

constexpr Identity kLteIdentity = {"KL-L100", "KL-L100_R02.05", "356938035643809",
                                   "001010123456789", "7"};
constexpr Identity k23gIdentity = {"KL-G300", "KL-G300_R11.40", "352099001761481",
                                   "001010987654321", "2"};

struct TableRow {
    const char *command;
    const char *lte; /* answer of the LTE modem; null: same as the 2G/3G one */
    const char *md;
};

/* Answers of the built-in modems; identities are filled in by identity_answer. */
constexpr TableRow kTable[] = {
    {"AT", nullptr, "\r\nOK\r\n"},
    {"ATE0", nullptr, "\r\nOK\r\n"},
    {"ATE1", nullptr, "\r\nOK\r\n"},
    {"ATV0", nullptr, "0\r"},
    {"ATV1", nullptr, "\r\nOK\r\n"},
    {"ATZ", nullptr, "\r\nOK\r\n"},
    {"AT&F", nullptr, "\r\nOK\r\n"},
    {"AT+CMEE=0", nullptr, "\r\nOK\r\n"},
    {"AT+CMEE=1", nullptr, "\r\nOK\r\n"},
    {"AT+CMEE=2", nullptr, "\r\nOK\r\n"},
    {"AT+CMEE?", nullptr, "\r\n+CMEE: 1\r\n\r\nOK\r\n"},
    {"AT+CGMI", nullptr, "\r\nKERVLAB\r\n\r\nOK\r\n"},
    {"AT+GMI", nullptr, "\r\nKERVLAB\r\n\r\nOK\r\n"},
    {"AT+CSQ", "\r\n+CSQ: 23,99\r\n\r\nOK\r\n", "\r\n+CSQ: 18,99\r\n\r\nOK\r\n"},
    {"AT+CREG?", nullptr, "\r\n+CREG: 0,1\r\n\r\nOK\r\n"},
    {"AT+CGREG?", nullptr, "\r\n+CGREG: 0,1\r\n\r\nOK\r\n"},
    {"AT+CEREG?", "\r\n+CEREG: 0,1\r\n\r\nOK\r\n", "\r\nERROR\r\n"},
    {"AT+CPIN?", nullptr, "\r\n+CPIN: READY\r\n\r\nOK\r\n"},
    {"AT+CFUN?", nullptr, "\r\n+CFUN: 1\r\n\r\nOK\r\n"},
    {"AT+CFUN=0", nullptr, "\r\nOK\r\n"},
    {"AT+CFUN=1", nullptr, "\r\nOK\r\n"},
    {"AT+CGATT?", nullptr, "\r\n+CGATT: 1\r\n\r\nOK\r\n"},
    {"AT+CGDCONT?", "\r\n+CGDCONT: 1,\"IPV4V6\",\"internet\",\"0.0.0.0\",0,0\r\n\r\nOK\r\n",
     "\r\n+CGDCONT: 1,\"IP\",\"internet\",\"0.0.0.0\",0,0\r\n\r\nOK\r\n"},
    {"AT+CGDCONT=?", nullptr,
     "\r\n+CGDCONT: (1-15),\"IP\",,,(0-2),(0-4)\r\n+CGDCONT: (1-15),\"IPV6\",,,(0-2),(0-4)\r\n"
     "+CGDCONT: (1-15),\"IPV4V6\",,,(0-2),(0-4)\r\n\r\nOK\r\n"},
    {"AT+CSQ=?", nullptr, "\r\n+CSQ: (0-31,99),(0-7,99)\r\n\r\nOK\r\n"},
};

/* Commands whose answer is the modem's identity. */
enum class IdentityField { Model, Revision, Imei, Imsi, Info, Operator };

struct IdentityRow {
    const char *command;
    IdentityField field;
};

constexpr IdentityRow kIdentityRows[] = {
    {"ATI", IdentityField::Info},          {"AT+CGMM", IdentityField::Model},
    {"AT+GMM", IdentityField::Model},      {"AT+CGMR", IdentityField::Revision},
    {"AT+GMR", IdentityField::Revision},   {"AT+CGSN", IdentityField::Imei},
    {"AT+GSN", IdentityField::Imei},       {"AT+CIMI", IdentityField::Imsi},
    {"AT+COPS?", IdentityField::Operator},
};

volatile sig_atomic_t stop_requested = 0;

void on_stop_signal(int) {
    stop_requested = 1;
}

void print_help() {
    puts("usage: modemd-sim [options]\n"
         "Answers modem daemon requests on UDP 127.0.0.1 like a pair of modems.\n"
         "The first line printed is \"modemd-sim listening on 127.0.0.1:<port>\"; then one line\n"
         "per request: token, target, request id, data_len and the text (\\r \\n escaped).\n"
         "\n"
         "  --port N        UDP port (default 14343; 0 picks a free port)\n"
         "  --rules FILE    extra answers, one per line: COMMAND => ANSWER\n"
         "                  (\\r \\n \\t \\\\ escapes; blank lines and lines starting with #\n"
         "                  are ignored); they override the built-in answers\n"
         "  --delay-ms N    wait N milliseconds before each answer\n"
         "  --no-answer     receive and log requests, never answer\n"
         "  --short N       send only the first N bytes of each response datagram\n"
         "  --result N      put N in the result field of every response (default 0)\n"
         "  --count-nul     send the answer's terminating NUL and count it in data_len\n"
         "  --help          this text\n"
         "\n"
         "Commands are matched without their trailing carriage return, ignoring case.\n"
         "Target 1 is the LTE modem; any other target is the 2G/3G modem.");
}

bool parse_number(const char *text, long min, long max, long *value) {
    if (text == nullptr || *text == '\0')
        return false;
    char *end = nullptr;
    errno = 0;
    const long parsed = strtol(text, &end, 10);
    if (errno != 0 || *end != '\0' || parsed < min || parsed > max)
        return false;
    *value = parsed;
    return true;
}

/* Returns false (after saying why) when the command line cannot be used. */
bool parse_options(int argc, char **argv, Options *options, bool *help) {
    for (int i = 1; i < argc; ++i) {
        const std::string flag = argv[i];
        const char *value = i + 1 < argc ? argv[i + 1] : nullptr;
        long number = 0;
        if (flag == "--help") {
            *help = true;
        } else if (flag == "--no-answer") {
            options->no_answer = true;
        } else if (flag == "--count-nul") {
            options->count_nul = true;
        } else if (flag == "--rules" && value != nullptr) {
            options->rules_file = value;
            ++i;
        } else if (flag == "--port" && parse_number(value, 0, 65535, &number)) {
            options->port = static_cast<unsigned short>(number);
            ++i;
        } else if (flag == "--delay-ms" && parse_number(value, 0, 3600000, &number)) {
            options->delay_ms = number;
            ++i;
        } else if (flag == "--short" && parse_number(value, 0, sizeof(Modem_Response_t), &number)) {
            options->short_len = number;
            ++i;
        } else if (flag == "--result" && parse_number(value, 0, 0xFFFFFFFFL, &number)) {
            options->result = static_cast<kal_uint32>(number);
            ++i;
        } else {
            fprintf(stderr, "modemd-sim: bad option or value: %s (see --help)\n", argv[i]);
            return false;
        }
    }
    return true;
}

std::string unescape(const std::string &text) {
    std::string plain;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            plain += text[i];
            continue;
        }
        switch (text[++i]) {
        case 'r':
            plain += '\r';
            break;
        case 'n':
            plain += '\n';
            break;
        case 't':
            plain += '\t';
            break;
        default:
            plain += text[i];
            break;
        }
    }
    return plain;
}

std::string escape(const char *text, size_t len) {
    std::string shown;
    for (size_t i = 0; i < len; ++i) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c == '\r') {
            shown += "\\r";
        } else if (c == '\n') {
            shown += "\\n";
        } else if (c == '\\') {
            shown += "\\\\";
        } else if (c < 0x20 || c >= 0x7F) {
            char hex[5];
            snprintf(hex, sizeof(hex), "\\x%02X", c);
            shown += hex;
        } else {
            shown += static_cast<char>(c);
        }
    }
    return shown;
}

std::string trim(const std::string &text) {
    const size_t first = text.find_first_not_of(" \t");
    if (first == std::string::npos)
        return "";
    const size_t last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
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
            {unescape(trim(text.substr(0, arrow))), unescape(trim(text.substr(arrow + 2)))});
    }
    fclose(file);
    return ok;
}

bool same_command(const std::string &command, const char *name) {
    return strcasecmp(command.c_str(), name) == 0;
}

std::string identity_answer(IdentityField field, const Identity &identity) {
    std::string body;
    switch (field) {
    case IdentityField::Model:
        body = identity.model;
        break;
    case IdentityField::Revision:
        body = identity.revision;
        break;
    case IdentityField::Imei:
        body = identity.imei;
        break;
    case IdentityField::Imsi:
        body = identity.imsi;
        break;
    case IdentityField::Info:
        body = std::string("KERVLAB\r\n") + identity.model + "\r\nRevision: " + identity.revision;
        break;
    case IdentityField::Operator:
        body = std::string("+COPS: 0,0,\"KERV NET\",") + identity.act;
        break;
    }
    return "\r\n" + body + "\r\n\r\nOK\r\n";
}

std::string modem_answer(const std::string &command, kal_uint32 target,
                         const std::vector<Rule> &rules) {
    for (auto rule = rules.rbegin(); rule != rules.rend(); ++rule)
        if (same_command(command, rule->command.c_str()))
            return rule->answer;
    const bool lte = target == MODEM_TARGET_LTE;
    for (const IdentityRow &row : kIdentityRows)
        if (same_command(command, row.command))
            return identity_answer(row.field, lte ? kLteIdentity : k23gIdentity);
    for (const TableRow &row : kTable)
        if (same_command(command, row.command))
            return lte && row.lte != nullptr ? row.lte : row.md;
    return "\r\nERROR\r\n";
}

bool is_at_request(kal_uint32 request_id) {
    return request_id == MODEM_REQ_SIM_PROXY || request_id == MODEM_REQ_AT_CMD;
}

void sleep_ms(long delay_ms) {
    timespec pause{delay_ms / 1000, (delay_ms % 1000) * 1000000L};
    while (nanosleep(&pause, &pause) != 0 && errno == EINTR && !stop_requested) {
    }
}

void answer(int fd, const sockaddr_in &sender, const Modem_Request_t &req, size_t text_len,
            const Options &options, const std::vector<Rule> &rules) {
    std::string command(req.data, text_len);
    if (!command.empty() && command.back() == '\r')
        command.pop_back();
    const std::string text =
        is_at_request(req.request_id) ? modem_answer(command, req.target, rules) : "ok";

    Modem_Response_t resp;
    memset(&resp, 0, sizeof(resp));
    resp.magic = MODEM_REQUEST_MAGIC;
    resp.token = req.token;
    resp.target = req.target;
    resp.response_id = req.request_id;
    resp.request_id = req.request_id;
    resp.result = options.result;
    const size_t copied = text.size() < sizeof(resp.data) - 1 ? text.size() : sizeof(resp.data) - 1;
    memcpy(resp.data, text.data(), copied);
    resp.data_len = static_cast<kal_uint32>(copied + (options.count_nul ? 1 : 0));

    size_t datagram_len = MODEM_RESPONSE_HEADER_SIZE + resp.data_len;
    if (options.short_len >= 0 && static_cast<size_t>(options.short_len) < datagram_len)
        datagram_len = static_cast<size_t>(options.short_len);
    if (options.delay_ms > 0)
        sleep_ms(options.delay_ms);
    if (sendto(fd, &resp, datagram_len, 0, reinterpret_cast<const sockaddr *>(&sender),
               sizeof(sender)) < 0)
        fprintf(stderr, "modemd-sim: can't answer token %u: %s\n", req.token, strerror(errno));
}

void serve(int fd, const Options &options, const std::vector<Rule> &rules) {
    while (!stop_requested) {
        Modem_Request_t req;
        memset(&req, 0, sizeof(req));
        sockaddr_in sender{};
        socklen_t sender_len = sizeof(sender);
        const ssize_t received =
            recvfrom(fd, &req, sizeof(req), 0, reinterpret_cast<sockaddr *>(&sender), &sender_len);
        if (received < 0) {
            if (errno != EINTR)
                fprintf(stderr, "modemd-sim: receive failed: %s\n", strerror(errno));
            continue;
        }
        if (received < MODEM_REQUEST_HEADER_SIZE || req.magic != MODEM_REQUEST_MAGIC) {
            printf("ignored datagram of %zd bytes: not a request\n", received);
            fflush(stdout);
            continue;
        }
        /* The text is what arrived, whatever data_len claims. */
        const size_t arrived = static_cast<size_t>(received) - MODEM_REQUEST_HEADER_SIZE;
        const size_t text_len = req.data_len < arrived ? req.data_len : arrived;
        printf("token=%u target=%u request_id=%u data_len=%u text=\"%s\"\n", req.token, req.target,
               req.request_id, req.data_len, escape(req.data, text_len).c_str());
        fflush(stdout);
        if (!options.no_answer)
            answer(fd, sender, req, text_len, options, rules);
    }
}

int open_server(unsigned short port) {
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        fprintf(stderr, "modemd-sim: can't create the socket: %s\n", strerror(errno));
        return -1;
    }
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t address_len = sizeof(address);
    if (bind(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0 ||
        getsockname(fd, reinterpret_cast<sockaddr *>(&address), &address_len) != 0) {
        fprintf(stderr, "modemd-sim: can't bind 127.0.0.1:%u: %s\n", port, strerror(errno));
        close(fd);
        return -1;
    }
    printf("modemd-sim listening on 127.0.0.1:%u\n", ntohs(address.sin_port));
    fflush(stdout);
    return fd;
}

/* No SA_RESTART: a stop signal must interrupt the blocking receive. */
void install_stop_handlers() {
    struct sigaction action {};
    action.sa_handler = on_stop_signal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
}

} // namespace

int main(int argc, char **argv) {
    Options options;
    bool help = false;
    if (!parse_options(argc, argv, &options, &help))
        return 2;
    if (help) {
        print_help();
        return 0;
    }
    std::vector<Rule> rules;
    if (options.rules_file != nullptr && !load_rules(options.rules_file, &rules))
        return 2;
    install_stop_handlers();
    const int fd = open_server(options.port);
    if (fd < 0)
        return 1;
    serve(fd, options, rules);
    close(fd);
    return 0;
}
