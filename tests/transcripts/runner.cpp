/*
 * Plays one transcript (the format is described in README.md) one of three ways: in-process against
 * the engine, fed through the channel's line framing into a socket pair; against the real kervd
 * over TCP; and against kervd with a pty as its serial device. The modem-daemon stand-in answers
 * and records in all three.
 */
#include "harness.h"

#include "engine_context.h"
#include "engine_entry.h"
#include "line_framing.h"
#include "plugin_loader.h"
#include "validator_registry.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <libgen.h>
#include <memory>
#include <optional>
#include <sstream>
#include <string_view>
#include <sys/socket.h>
#include <thread>

namespace {

using modemd_stub::escape;
using modemd_stub::unescape;
using namespace std::chrono_literals;

enum class Mode { engine, tcp, pty };
constexpr const char *kModeNames[] = {"engine", "tcp", "pty"};

struct Line {
    int number;
    std::string keyword;
    std::string rest;
};

std::vector<Line> read_transcript(const std::string &path) {
    std::vector<Line> lines;
    std::istringstream text(e2e::read_file(path));
    std::string line;
    for (int number = 1; std::getline(text, line); ++number) {
        if (line.empty() || line[0] == '#')
            continue;
        const size_t space = line.find(' ');
        lines.push_back({number, line.substr(0, space),
                         space == std::string::npos ? "" : line.substr(space + 1)});
    }
    return lines;
}

/* The bytes of a line's text: escapes, and \{N*BYTES} for N times BYTES. */
std::string bytes_of(const std::string &text) {
    std::string expanded;
    size_t done = 0;
    for (size_t at = text.find("\\{"); at != std::string::npos; at = text.find("\\{", done)) {
        const size_t star = text.find('*', at), end = text.find('}', star);
        if (star == std::string::npos || end == std::string::npos)
            break;
        expanded += unescape(text.substr(done, at - done));
        const std::string unit = unescape(text.substr(star + 1, end - star - 1));
        for (unsigned long n = std::stoul(text.substr(at + 2, star - at - 2)); n > 0; n--)
            expanded += unit;
        done = end + 1;
    }
    return expanded + unescape(text.substr(done));
}

/* What follows " =>" and one blank. */
std::string after_arrow(const std::string &text, size_t arrow) {
    const std::string answer = text.substr(arrow + 3);
    return bytes_of(answer.empty() || answer[0] != ' ' ? answer : answer.substr(1));
}

/* The target the daemon derives from the store: 23G when the value starts so, else LTE. */
rmmi_modemd_target_type target_in(const e2e::Settings &store) {
    const auto found = store.find("KERV_MODEMD_TARGET_TYPE");
    const std::string value = found == store.end() ? "" : found->second.substr(0, 3);
    return value == "23G" || value == "23g" ? RMMI_MODEMD_23G : RMMI_MODEMD_LTE;
}

/* One transcript being played in one mode. */
class Player {
  public:
    Player(const std::string &path, Mode mode)
        : file_(std::filesystem::path(path).filename()), mode_(mode) {}
    ~Player() {
        if (host_pair_[0] >= 0)
            close(host_pair_[0]); /* the host's end belongs to host_ */
    }

    /* Settings that hold for the whole transcript; false when this mode is not played. */
    bool prepare(const std::vector<Line> &lines) {
        for (const Line &line : lines) {
            if (line.keyword == "only" &&
                line.rest.find(kModeNames[static_cast<int>(mode_)]) == std::string::npos)
                return false;
            if (line.keyword == "plugin")
                plugin_ = line.rest == "unresolved" ? KERV_TEST_UNRESOLVED_PLUGIN_PATH
                                                    : KERV_TEST_CGDCONT_PATH;
            if (line.keyword == ">")
                break;
            if (line.keyword == "store")
                put_store(line.rest);
        }
        return true;
    }

    void play(const std::vector<Line> &lines) {
        start();
        for (const Line &line : lines) {
            SCOPED_TRACE(file_ + ":" + std::to_string(line.number));
            step(line);
            if (testing::Test::HasFatalFailure())
                return;
        }
        check_pending();
        EXPECT_EQ(escape(host_->read_for(mode_ == Mode::engine ? 0ms : 150ms)), "")
            << file_ << ": bytes after the last expected ones";
        EXPECT_TRUE(modem_.take_requests().empty()) << file_ << ": requests not in the transcript";
    }

  private:
    void put_store(const std::string &setting) {
        const size_t equals = setting.find('=');
        store_[setting.substr(0, equals)] = setting.substr(equals + 1);
    }

    void start() {
        modem_.answer(modemd_stub::Reply::text);
        if (mode_ == Mode::engine)
            return start_engine();
        e2e::DaemonOptions options;
        options.store = store_;
        if (!plugin_.empty()) {
            options.plugin_dir = dir_.file("plugins");
            std::filesystem::create_directory(options.plugin_dir);
            std::filesystem::copy_file(plugin_,
                                       options.plugin_dir + "/" +
                                           std::filesystem::path(plugin_).filename().string());
        }
        if (mode_ == Mode::pty) {
            pty_ = std::make_unique<e2e::Pty>();
            options.store["KERV_LISTEN_TYPE"] = "1";
            options.serial_device = pty_->device;
        }
        daemon_ = std::make_unique<e2e::Daemon>(dir_, modem_, options);
        ASSERT_TRUE(daemon_->start()) << daemon_->output();
        if (mode_ == Mode::pty) {
            ASSERT_TRUE(pty_->wait_opened()) << daemon_->output();
            host_.emplace(e2e::Host::on(pty_->master));
        } else {
            host_.emplace(daemon_->tcp_port());
            ASSERT_TRUE(host_->connected());
        }
    }

    void start_engine() {
        ASSERT_EQ(rmmi_init(), KAL_TRUE);
        reset_validators();
        if (!plugin_.empty()) {
            std::string path = plugin_;
            setenv("KERVD_PLUGIN_DIR", dirname(path.data()), 1);
            ASSERT_EQ(config_libdir(), KAL_TRUE);
        }
        rmmi_read_custom_default_setting(RMMI_PROCESS_CMD_FROM_SOCKET_PORT, target_in(store_),
                                         RMMI_VERBOSE_FULL_HEAD_TAIL);
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, host_pair_), 0);
        host_.emplace(e2e::Host::on(host_pair_[1], true));
        kerv_framing_reset(&framing_);
    }

    void step(const Line &line) {
        const std::string bytes = bytes_of(line.rest);
        /* Whatever acts on the daemon or the modem comes after the answers before it. */
        if (line.keyword != "<" && line.keyword != "=" && line.keyword != "pause" &&
            line.keyword != "eof")
            check_pending();
        if (line.keyword == "<") {
            expected_bytes_ += bytes;
        } else if (line.keyword == "=") {
            /* TARGET REQUEST_ID TEXT, compared in escaped form */
            const size_t text_at = line.rest.find(' ', line.rest.find(' ') + 1);
            expected_requests_.push_back(line.rest.substr(0, text_at + 1) +
                                         escape(bytes_of(line.rest.substr(text_at + 1))));
        } else if (line.keyword == ">") {
            send(bytes);
        } else if (line.keyword == "modem") {
            set_modem(line.rest);
        } else if (kDaemonSteps.find(" " + line.keyword + " ") != std::string::npos) {
            ASSERT_NE(mode_, Mode::engine) << line.keyword << " needs the daemon: 'only tcp pty'";
            daemon_step(line.keyword, line.rest);
        } else if (line.keyword == "pause") {
            std::this_thread::sleep_for(std::chrono::milliseconds(std::stol(line.rest)));
        } else if (line.keyword == "hangup" || line.keyword == "reconnect") {
            host_.reset();
            /* What follows finds the daemon without a host. */
            EXPECT_TRUE(line.keyword != "hangup" || !daemon_ ||
                        e2e::eventually([&] { return !daemon_->holds_host(); }));
            if (line.keyword == "reconnect")
                host_.emplace(daemon_->tcp_port());
        } else if (line.keyword == "eof") {
            shutdown(host_->fd(), SHUT_WR);
        } else if (line.keyword == "store" && started_sending_) {
            put_store(line.rest);
            if (daemon_ != nullptr)
                write_file_line(line.rest);
        } else if (line.keyword == "reload") {
            reload();
        } else if (line.keyword == "hash") {
            const size_t arrow = line.rest.find(" =>");
            ASSERT_NE(arrow, std::string::npos) << "hash NAME => REPLY";
            EXPECT_EQ(hash(bytes_of(line.rest.substr(0, arrow))), after_arrow(line.rest, arrow));
        } else if (line.keyword != "store" && line.keyword != "plugin" && line.keyword != "only") {
            ADD_FAILURE() << "unknown transcript line: " << line.keyword;
        }
    }

    /* The steps that talk to kervd from outside the host's channel. */
    static constexpr std::string_view kDaemonSteps = " urc kervctl control log signal end ";

    void daemon_step(const std::string &keyword, const std::string &rest) {
        const size_t arrow = rest.find(" =>");
        const std::string before = bytes_of(rest.substr(0, arrow));
        if (keyword == "urc") {
            ASSERT_TRUE(e2e::eventually([&] { return e2e::udp_bound(daemon_->urc_port()); }));
            char loopback[32]; /* the receiver is bound to 127.0.0.1 only */
            snprintf(loopback, sizeof(loopback), "0100007F:%04X", daemon_->urc_port());
            EXPECT_NE(e2e::read_file("/proc/net/udp").find(loopback), std::string::npos);
            e2e::send_urc(daemon_->urc_port(), before);
        } else if (keyword == "kervctl") {
            /* kervctl ARGS... => STATUS [STDOUT] */
            ASSERT_NE(arrow, std::string::npos) << "kervctl ARGS => STATUS [STDOUT]";
            std::vector<std::string> args;
            std::istringstream words(rest.substr(0, arrow));
            for (std::string word; words >> word;)
                args.push_back(bytes_of(word));
            const std::string expected = after_arrow(rest, arrow);
            const size_t blank = expected.find(' ');
            const e2e::ToolRun run =
                e2e::run_tool(dir_, KERV_TEST_KERVCTL_PATH, args, daemon_->client_settings());
            EXPECT_EQ(std::to_string(run.status), expected.substr(0, blank)) << run.err;
            EXPECT_EQ(escape(run.out),
                      escape(blank == std::string::npos ? "" : expected.substr(blank + 1)));
        } else if (keyword == "control") {
            ASSERT_NE(arrow, std::string::npos) << "control BYTES => REPLY";
            EXPECT_EQ(escape(e2e::control_exchange(daemon_->socket_path(), before)),
                      escape(after_arrow(rest, arrow)));
        } else if (keyword == "log") {
            /* log N TEXT: the daemon's output holds TEXT N times */
            const size_t blank = rest.find(' ');
            const size_t times = std::stoul(rest.substr(0, blank));
            const std::string text = bytes_of(rest.substr(blank + 1));
            e2e::eventually([&] { return e2e::count_of(daemon_->output(), text) == times; });
            EXPECT_EQ(e2e::count_of(daemon_->output(), text), times) << daemon_->output();
        } else if (keyword == "signal") {
            ASSERT_EQ(rest, "USR1");
            kill(daemon_->pid(), SIGUSR1);
        } else {
            daemon_->stop();
        }
    }

    void write_file_line(const std::string &setting) {
        e2e::write_file(daemon_->store_path(),
                        e2e::read_file(daemon_->store_path()) + setting + "\n");
    }

    void send(const std::string &bytes) {
        started_sending_ = true;
        if (mode_ != Mode::engine)
            return host_->send(bytes);
        /* As the channel server does: each read's bytes through the framing, each line it
           hands on through the engine. */
        static const kerv_framing_sink_t sink = {
            [](void *ctx, const char *line, size_t line_len) {
                rmmi_process_multi_cmd(*static_cast<int *>(ctx),
                                       std::string(line, line_len).c_str());
                return KAL_TRUE;
            },
            [](void *ctx) {
                const ssize_t written = write(*static_cast<int *>(ctx), "\r\nERROR\r\n", 9);
                (void)written;
            }};
        for (size_t fed = 0; fed < bytes.size();) {
            const size_t chunk = std::min(kerv_framing_room(&framing_), bytes.size() - fed);
            memcpy(framing_.cmd_buf + framing_.cmd_buf_offset, bytes.data() + fed, chunk);
            kerv_framing_feed(&framing_, chunk, &sink, &host_pair_[0]);
            fed += chunk;
        }
    }

    /* The host bytes and the modem requests expected since the last check. */
    void check_pending() {
        if (!expected_bytes_.empty()) {
            const std::string got =
                mode_ == Mode::engine ? host_->read_for(0ms) : host_->read_like(expected_bytes_);
            EXPECT_EQ(escape(got), escape(expected_bytes_));
        }
        if (mode_ != Mode::engine)
            modem_.wait_requests(expected_requests_.size(), 2000);
        std::vector<std::string> seen;
        for (const modemd_stub::Request &request : modem_.take_requests())
            seen.push_back(std::to_string(request.target) + " " +
                           std::to_string(request.request_id) + " " + escape(request.data));
        EXPECT_EQ(seen, expected_requests_) << "requests the modem daemon saw";
        expected_bytes_.clear();
        expected_requests_.clear();
    }

    /* modem COMMAND => ANSWER | * => ANSWER | silent | short | answer | result N |
       data_len N | delay MS */
    void set_modem(const std::string &setting) {
        const size_t arrow = setting.find(" =>");
        const std::string answer = arrow == std::string::npos ? "" : after_arrow(setting, arrow);
        std::istringstream words(setting);
        std::string word;
        long number = 0;
        words >> word >> number;
        if (arrow != std::string::npos && setting.substr(0, arrow) != "*")
            modem_.add_rule({setting.substr(0, arrow), 0, answer});
        else if (arrow != std::string::npos)
            fallback_ = answer;
        else if (word == "silent" || word == "short" || word == "answer")
            reply_ = word == "silent"  ? modemd_stub::Reply::silent
                     : word == "short" ? modemd_stub::Reply::short27
                                       : modemd_stub::Reply::text;
        else if (word == "result")
            result_ = static_cast<uint32_t>(number);
        else if (word == "data_len")
            data_len_ = number;
        else if (word == "delay")
            return modem_.set_delay_ms(number);
        else
            ADD_FAILURE() << "unknown modem setting: " << setting;
        modem_.answer(reply_, fallback_, result_, data_len_);
    }

    void reload() {
        if (mode_ == Mode::engine)
            return rmmi_read_custom_default_setting(RMMI_PROCESS_CMD_FROM_SOCKET_PORT,
                                                    target_in(store_), RMMI_VERBOSE_FULL_HEAD_TAIL);
        EXPECT_EQ(e2e::app_request(daemon_->socket_path(), KERV_REQUEST_CMD_RELOAD), "RELOAD...");
    }

    std::string hash(const std::string &name) {
        if (mode_ != Mode::engine)
            return e2e::app_request(daemon_->socket_path(), KERV_REQUEST_CMD_GEN_HASH,
                                    name == "-" ? nullptr : name.c_str());
        char reply[2048];
        return name != "-" && rmmi_process_calcuate_cmd(-1, name.c_str(), reply, 2047) == KAL_TRUE
                   ? reply
                   : "ERROR";
    }

    std::string file_;
    Mode mode_;
    e2e::Settings store_;
    std::string plugin_; /* the plug-in to load, if any */
    bool started_sending_ = false;
    modemd_stub::Stub modem_;
    modemd_stub::Reply reply_ = modemd_stub::Reply::text;
    std::string fallback_ = "\r\nOK\r\n";
    uint32_t result_ = 0;
    int64_t data_len_ = -1;
    std::string expected_bytes_;
    std::vector<std::string> expected_requests_;
    /* engine mode */
    int host_pair_[2] = {-1, -1};
    kerv_framing_t framing_ = {};
    /* daemon modes */
    e2e::TempDir dir_;
    std::unique_ptr<e2e::Pty> pty_;
    std::unique_ptr<e2e::Daemon> daemon_;
    std::optional<e2e::Host> host_;
};

/* The transcript and the way to play it, from the command line. */
std::string transcript_path;
Mode mode = Mode::engine;

TEST(Transcript, Plays) {
    const std::vector<Line> lines = read_transcript(transcript_path);
    Player player(transcript_path, mode);
    if (!player.prepare(lines))
        GTEST_SKIP() << "not played this way";
    player.play(lines);
}

} // namespace

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    const auto named = std::find(std::begin(kModeNames), std::end(kModeNames),
                                 std::string(argc == 3 ? argv[2] : ""));
    if (named == std::end(kModeNames)) {
        fprintf(stderr, "usage: transcripts FILE.t engine|tcp|pty\n");
        return 2;
    }
    transcript_path = argv[1];
    mode = static_cast<Mode>(named - std::begin(kModeNames));
    setenv("KERVD_MODEMD_WAIT_MS", "10", 1);
    g_dbg_print = 0;
    return RUN_ALL_TESTS();
}
