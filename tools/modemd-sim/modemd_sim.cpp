/*
 * modemd-sim: stands in for the board's modem daemon on a development machine.
 *
 * The stand-in server (modemd_stub) on 127.0.0.1, logging every request on one line of
 * standard output. AT requests are answered from the rules file first, then from a built-in
 * table that gives the LTE modem (target 1) and the 2G/3G modem (any other target) their
 * own identities; anything else gets "\r\nERROR\r\n". General requests get "ok".
 */
#include "modemd_stub.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Options {
    unsigned short port = 14343;
    const char *rules_file = nullptr;
    kal_uint32 result = MODEM_RET_OK;
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
    {"AT+CMGF=0", nullptr, "\r\nOK\r\n"},
    {"AT+CMGF=1", nullptr, "\r\nOK\r\n"},
    {"AT+CMGF?", nullptr, "\r\n+CMGF: 0\r\n\r\nOK\r\n"},
    {"AT+CSCA?", nullptr, "\r\n+CSCA: \"+4670000000\",145\r\n\r\nOK\r\n"},
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

void print_help() {
    puts("usage: modemd-sim [options]\n"
         "Answers modem daemon requests on UDP 127.0.0.1 like a pair of modems.\n"
         "The first line printed is \"modemd-sim listening on 127.0.0.1:<port>\"; then one line\n"
         "per request: token, target, request id, data_len and the text (\\r \\n escaped).\n"
         "\n"
         "  --port N        UDP port (default 14343; 0 picks a free port)\n"
         "  --rules FILE    extra answers, one per line: COMMAND => ANSWER\n"
         "                  (\\r \\n \\t \\\\ \\xHH escapes; blank lines and lines starting\n"
         "                  with # are ignored); they override the built-in answers.\n"
         "                  An answer may start with a fault: @silent, @twice TEXT,\n"
         "                  @delay=MS TEXT, @oversized, or @raw BYTES (the whole datagram)\n"
         "  --result N      put N in the result field of every response (default 0)\n"
         "  --help          this text\n"
         "\n"
         "Commands are matched without their trailing carriage return, ignoring case.\n"
         "Target 1 is the LTE modem; any other target is the 2G/3G modem.");
}

/* Unsigned and 64-bit wide, so a bound of 2^32 - 1 holds where long has 32 bits. */
bool parse_number(const char *text, unsigned long long max, unsigned long long *value) {
    if (text == nullptr || *text < '0' || *text > '9')
        return false;
    char *end = nullptr;
    errno = 0;
    const unsigned long long parsed = strtoull(text, &end, 10);
    if (errno != 0 || *end != '\0' || parsed > max)
        return false;
    *value = parsed;
    return true;
}

/* Returns false (after saying why) when the command line cannot be used. */
bool parse_options(int argc, char **argv, Options *options, bool *help) {
    for (int i = 1; i < argc; ++i) {
        const std::string flag = argv[i];
        const char *value = i + 1 < argc ? argv[i + 1] : nullptr;
        unsigned long long number = 0;
        if (flag == "--help") {
            *help = true;
        } else if (flag == "--rules" && value != nullptr) {
            options->rules_file = value;
            ++i;
        } else if (flag == "--port" && parse_number(value, 65535, &number)) {
            options->port = static_cast<unsigned short>(number);
            ++i;
        } else if (flag == "--result" && parse_number(value, 0xFFFFFFFFull, &number)) {
            options->result = static_cast<kal_uint32>(number);
            ++i;
        } else {
            fprintf(stderr, "modemd-sim: bad option or value: %s (see --help)\n", argv[i]);
            return false;
        }
    }
    return true;
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

/* The built-in modems as rules: the 2G/3G answers for any target, the LTE modem's own
   answers for target 1 after them (later rules win). */
void add_builtin_rules(modemd_stub::Stub &stub) {
    for (const TableRow &row : kTable)
        stub.add_rule({row.command, 0, row.md});
    for (const IdentityRow &row : kIdentityRows)
        stub.add_rule({row.command, 0, identity_answer(row.field, k23gIdentity)});
    for (const TableRow &row : kTable)
        if (row.lte != nullptr)
            stub.add_rule({row.command, MODEM_TARGET_LTE, row.lte});
    for (const IdentityRow &row : kIdentityRows)
        stub.add_rule({row.command, MODEM_TARGET_LTE, identity_answer(row.field, kLteIdentity)});
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
    std::vector<modemd_stub::Rule> rules;
    if (options.rules_file != nullptr && !modemd_stub::load_rules(options.rules_file, &rules))
        return 2;

    /* Stop signals are taken by sigwait below, not by any thread the server starts. */
    sigset_t stop_signals;
    sigemptyset(&stop_signals);
    sigaddset(&stop_signals, SIGTERM);
    sigaddset(&stop_signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &stop_signals, nullptr);

    modemd_stub::Stub stub(options.port, false);
    if (!stub.bound())
        return 1;
    add_builtin_rules(stub);
    for (const modemd_stub::Rule &rule : rules)
        stub.add_rule(rule);
    stub.answer(modemd_stub::Reply::text, "\r\nERROR\r\n", options.result);
    stub.set_logging(true);
    printf("modemd-sim listening on 127.0.0.1:%u\n", stub.port());
    fflush(stdout);
    int sig = 0;
    sigwait(&stop_signals, &sig);
    return 0;
}
