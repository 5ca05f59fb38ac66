/*
 * Load client of the daemon benchmark: keeps a fixed number of command lines in flight on
 * one TCP connection to an AT command server on loopback, or on the host's end of a pty
 * whose other end the server has open as its serial device, and times each round trip from
 * the write of its line to the end of its answer (its final result code). Answers come
 * back in the order of their lines, so the oldest line in flight is the one answered;
 * answers are counted in the byte stream, never assumed to match reads.
 *
 *   kerv-load-client --port N|--pty SOCKPATH --line TEXT [--inflight K] [--seconds S]
 *                    [--warmup S] [--samples FILE]
 *       one case; prints "answers=.. warmup_answers=.. errors=.. rate=.. p50_us=..
 *       p99_us=.. max_us=.." (answers: those measured, after the warm-up), appends their
 *       round trips (ns) to FILE when given; --pty takes the pty from kerv-load-pty
 *   kerv-load-client --report FILE     p50/p99/max over every sample stored in FILE
 *   kerv-load-client --pick-port tcp|udp    prints a loopback port that is free now
 */
#include "answer_count.h"
#include "latency.h"
#include "pty_handoff.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <termios.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

enum {
    MAX_IN_FLIGHT = 64,
    MAX_LINE = 1022,            /* the longest command line the daemon runs */
    CONNECT_PATIENCE_MS = 5000, /* the daemon may still be starting */
    ANSWER_PATIENCE_S = 5,      /* a round trip this long means an answer was lost */
};

struct load_options_t {
    unsigned int port;
    const char *pty_socket;
    const char *line;
    int in_flight;
    double seconds;
    double warmup;
    const char *samples_path;
};

/* Send times of the lines in flight, oldest first. */
struct flight_ring_t {
    uint64_t sent_at[MAX_IN_FLIGHT];
    int oldest;
    int count;
};

static uint64_t now_ns() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (uint64_t)ts.tv_sec * 1000000000u + (uint64_t)ts.tv_nsec;
}

static sockaddr_in loopback(unsigned int port) {
    sockaddr_in addr = {};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(port);
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return addr;
}

static int connect_host(unsigned int port) {
    sockaddr_in addr = loopback(port);
    for (int waited_ms = 0;; waited_ms += 20) {
        int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (fd < 0)
            return -1;
        if (connect(fd, (sockaddr *)&addr, sizeof(addr)) == 0)
            return fd;
        close(fd);
        if (waited_ms >= CONNECT_PATIENCE_MS)
            return -1;
        usleep(20 * 1000);
    }
}

/* The host's descriptor for one case: a TCP connection, or the pty's master. Bytes an
   earlier client left unread on the pty (it failed midway) are dropped first. */
static int open_host(const load_options_t *opt) {
    if (opt->pty_socket != nullptr) {
        int fd = pty_handoff_take(opt->pty_socket);
        if (fd < 0)
            fprintf(stderr, "load client: no pty from %s: %s\n", opt->pty_socket, strerror(errno));
        else
            tcflush(fd, TCIFLUSH);
        return fd;
    }
    int fd = connect_host(opt->port);
    if (fd < 0) {
        fprintf(stderr, "load client: cannot connect to port %u: %s\n", opt->port, strerror(errno));
        return -1;
    }
    int nodelay = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &nodelay, sizeof(nodelay));
    return fd;
}

/* Reads that brought bytes, looked at by the watchdog. */
static std::atomic<unsigned> reads_done;

/* Runs every ANSWER_PATIENCE_S: a client that read nothing since the last look has lost an
   answer (or the server hangs), and ends. A time-out on each read would cost a system call
   per round trip on the pty. */
static void watch_progress(int) {
    static unsigned reads_seen = 0;
    unsigned reads_now = reads_done.load(std::memory_order_relaxed);
    if (reads_now == reads_seen) {
        static const char lost[] = "load client: no answer within 5 s\n";
        if (write(STDERR_FILENO, lost, sizeof(lost) - 1) < 0) {
        }
        _exit(1);
    }
    reads_seen = reads_now;
    alarm(ANSWER_PATIENCE_S);
}

static void start_watchdog() {
    struct sigaction action = {};
    action.sa_handler = watch_progress;
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    alarm(ANSWER_PATIENCE_S);
}

static bool send_line(int fd, const char *line_cr, size_t len, flight_ring_t *ring) {
    int slot = (ring->oldest + ring->count) % MAX_IN_FLIGHT;
    ring->sent_at[slot] = now_ns();
    ring->count++;
    return write(fd, line_cr, len) == (ssize_t)len;
}

static uint64_t take_oldest(flight_ring_t *ring) {
    uint64_t sent_at = ring->sent_at[ring->oldest];
    ring->oldest = (ring->oldest + 1) % MAX_IN_FLIGHT;
    ring->count--;
    return sent_at;
}

static int print_case(const std::vector<uint32_t> &recorded, long warmup_answers, int errors,
                      double measured_s) {
    latency_figures_t figures = latency_figures(recorded);
    printf("answers=%zu warmup_answers=%ld errors=%d rate=%.0f p50_us=%.1f p99_us=%.1f "
           "max_us=%.1f\n",
           recorded.size(), warmup_answers, errors,
           measured_s > 0 ? (double)recorded.size() / measured_s : 0.0, figures.p50_us,
           figures.p99_us, figures.max_us);
    return 0;
}

/* One case: lines kept in flight until the measured time is over, then every answer drained. */
static int run_case(const load_options_t *opt) {
    int fd = open_host(opt);
    if (fd < 0)
        return 1;
    start_watchdog();

    char line_cr[MAX_LINE + 2];
    size_t line_len = (size_t)snprintf(line_cr, sizeof(line_cr), "%s\r", opt->line);
    flight_ring_t ring = {};
    kervctl_answer_scan_t scan;
    kervctl_answer_reset(&scan);
    std::vector<uint32_t> recorded;
    recorded.reserve(1 << 18);
    long warmup_answers = 0;
    int errors = 0;
    uint64_t measure_from = now_ns() + (uint64_t)(opt->warmup * 1e9);
    uint64_t measure_until = measure_from + (uint64_t)(opt->seconds * 1e9);
    uint64_t last_answer = measure_from;
    bool sent = true;
    for (int i = 0; i < opt->in_flight && sent; i++)
        sent = send_line(fd, line_cr, line_len, &ring);
    while (sent && ring.count > 0) {
        char bytes[4096];
        ssize_t got = read(fd, bytes, sizeof(bytes));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0) {
            fprintf(stderr, "load client: %s with %d lines unanswered\n",
                    got == 0 ? "connection closed" : strerror(errno), ring.count);
            close(fd);
            return 1;
        }
        reads_done.fetch_add(1, std::memory_order_relaxed);
        uint64_t arrived = now_ns();
        answer_count_t count = answer_count_feed(&scan, bytes, (size_t)got);
        if (count.answers > ring.count) {
            fprintf(stderr, "load client: %d answers for %d lines in flight\n", count.answers,
                    ring.count);
            close(fd);
            return 1;
        }
        for (int i = 0; i < count.answers; i++) {
            uint64_t sent_at = take_oldest(&ring);
            if (sent_at >= measure_from) {
                recorded.push_back((uint32_t)(arrived - sent_at));
                last_answer = arrived;
            } else {
                warmup_answers++;
            }
            if (arrived < measure_until)
                sent = send_line(fd, line_cr, line_len, &ring);
        }
        errors += count.errors;
    }
    close(fd);
    if (!sent) {
        fprintf(stderr, "load client: write failed: %s\n", strerror(errno));
        return 1;
    }
    if (opt->samples_path != nullptr && !latency_append(opt->samples_path, recorded)) {
        fprintf(stderr, "load client: cannot write %s\n", opt->samples_path);
        return 1;
    }
    return print_case(recorded, warmup_answers, errors, (double)(last_answer - measure_from) / 1e9);
}

static int report(const char *path) {
    std::vector<uint32_t> samples;
    if (!latency_load(path, &samples)) {
        fprintf(stderr, "load client: cannot read %s\n", path);
        return 1;
    }
    latency_figures_t figures = latency_figures(samples);
    printf("samples=%zu p50_us=%.1f p99_us=%.1f max_us=%.1f\n", samples.size(), figures.p50_us,
           figures.p99_us, figures.max_us);
    return 0;
}

/* A port the kernel hands out as free now; the caller takes it soon after. */
static int pick_port(const char *kind) {
    bool udp = strcmp(kind, "udp") == 0;
    int fd = socket(AF_INET, udp ? SOCK_DGRAM : SOCK_STREAM, 0);
    sockaddr_in addr = loopback(0);
    socklen_t addr_len = sizeof(addr);
    if (fd < 0 || bind(fd, (sockaddr *)&addr, sizeof(addr)) != 0 ||
        getsockname(fd, (sockaddr *)&addr, &addr_len) != 0) {
        fprintf(stderr, "load client: no free port: %s\n", strerror(errno));
        return 1;
    }
    printf("%u\n", ntohs(addr.sin_port));
    close(fd);
    return 0;
}

static int usage(const char *program) {
    fprintf(
        stderr,
        "usage: %s --port N|--pty SOCKPATH --line TEXT [--inflight K] [--seconds S] [--warmup S] "
        "[--samples FILE]\n       %s --report FILE\n       %s --pick-port tcp|udp\n",
        program, program, program);
    return 2;
}

int main(int argc, char **argv) {
    load_options_t opt = {0, nullptr, nullptr, 1, 3.0, 0.3, nullptr};
    for (int i = 1; i + 1 < argc; i += 2) {
        const char *name = argv[i];
        const char *value = argv[i + 1];
        if (strcmp(name, "--report") == 0)
            return report(value);
        if (strcmp(name, "--pick-port") == 0)
            return pick_port(value);
        if (strcmp(name, "--port") == 0)
            opt.port = (unsigned int)strtoul(value, nullptr, 10);
        else if (strcmp(name, "--pty") == 0)
            opt.pty_socket = value;
        else if (strcmp(name, "--line") == 0)
            opt.line = value;
        else if (strcmp(name, "--inflight") == 0)
            opt.in_flight = atoi(value);
        else if (strcmp(name, "--seconds") == 0)
            opt.seconds = atof(value);
        else if (strcmp(name, "--warmup") == 0)
            opt.warmup = atof(value);
        else if (strcmp(name, "--samples") == 0)
            opt.samples_path = value;
        else
            return usage(argv[0]);
    }
    if (argc % 2 == 0 || (opt.port == 0) == (opt.pty_socket == nullptr) || opt.line == nullptr ||
        strlen(opt.line) > MAX_LINE || opt.in_flight < 1 || opt.in_flight > MAX_IN_FLIGHT ||
        opt.seconds <= 0 || opt.warmup < 0)
        return usage(argv[0]);
    return run_case(&opt);
}
