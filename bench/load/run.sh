#!/usr/bin/env bash
# Daemon load benchmark: round trips through a running kervd (with modemd-sim behind it),
# side by side with two single-threaded baselines: a line-echo server that answers
# "\r\nOK\r\n", and a server that relays each line through the bare UDP exchange with
# modemd-sim (a fresh socket per request). Both channels are measured: TCP on loopback, and
# the serial channel on a pty (the daemon, or the baseline, on the slave end; the load client
# on the master, which kerv-load-pty holds for the run and hands to each client). Every case
# runs with all processes on CPU 0 and again unpinned. Prints p50/p99/max of the round trips,
# each server's CPU time per command, their ratios to the baselines, and the daemon's idle
# memory and wake-ups. Everything runs hermetically (see hermetic.sh); every process is
# stopped by its pid. See docs/benchmarks.md.
#
# Bytes through a pty are moved by the kernel's tty work, in a kernel worker that pinning
# cannot place: when it runs on the other CPU, a serial round trip gains cross-CPU wake-ups,
# for the daemon and its baseline alike, and its latency says more about where that worker
# ran than about the server. The CPU time per command is free of that.
#
# Environment: BUILD (build directory, default build/), LOAD_SECONDS (measured seconds per
# case and round, default 1), LOAD_ROUNDS (interleaved rounds, default 3), LOAD_MODES
# (default "pinned unpinned"), LOAD_CHANNELS (default "tcp serial"), LOAD_IDLE_SECONDS
# (window over which idle wake-ups are counted, default 3).
set -euo pipefail

seconds=${LOAD_SECONDS:-1}
rounds=${LOAD_ROUNDS:-3}
modes=${LOAD_MODES:-pinned unpinned}
channels=${LOAD_CHANNELS:-tcp serial}
idle_seconds=${LOAD_IDLE_SECONDS:-3}

source "$(dirname "$0")/hermetic.sh"

# The cases of each channel: name, server, line sent, baseline it is compared with.
declare -A channel_cases=(
  [tcp]="echo|echo|AT| internal|kervd-tcp|ATE1|echo relay|relay|AT+CSQ| relayed|kervd-tcp|AT+CSQ|relay"
  [serial]="ptyecho|ptyecho|AT| serial|kervd-serial|ATE1|ptyecho ptyrelay|ptyrelay|AT+CSQ|
            serialrelayed|kervd-serial|AT+CSQ|ptyrelay"
)
cases=()
for channel in $channels; do
  [ -n "${channel_cases[$channel]:-}" ] || die "unknown channel $channel"
  cases+=(${channel_cases[$channel]})
done
declare -A label=(
  [echo]="echo baseline, AT"
  [internal]="kervd ATE1 (internal)"
  [relay]="relay baseline, AT+CSQ"
  [relayed]="kervd AT+CSQ (relayed)"
  [ptyecho]="pty echo baseline, AT"
  [serial]="kervd serial ATE1 (internal)"
  [ptyrelay]="pty relay baseline, AT+CSQ"
  [serialrelayed]="kervd serial AT+CSQ (relayed)"
)
declare -A p50=() p99=() max=() rate=() cpu_ns=() cpu_answers=() memory=() wakeups=() failed=()

start_servers() {
  start_modemd
  for channel in $channels; do
    start_kervd "kervd-$channel" "$channel"
  done
  if [[ " $channels " == *" tcp "* ]]; then
    start_port_server echo "$echo_server" --port 0
    start_port_server relay "$relay_server" --port 0 --modemd-port "$modemd_port"
  fi
  if [[ " $channels " == *" serial "* ]]; then
    start_serial_server ptyecho "$echo_server"
    start_serial_server ptyrelay "$relay_server" --modemd-port "$modemd_port"
  fi
}

# idle_figures MODE WHEN: memory and wake-ups per second of each daemon, over the idle window.
idle_figures() {
  local mode=$1 when=$2 channel pid
  local -A before=()
  for channel in $channels; do
    before[$channel]=$(switches_of "${kervd_pid[kervd-$channel]}")
  done
  sleep "$idle_seconds"
  for channel in $channels; do
    pid=${kervd_pid[kervd-$channel]}
    wakeups[$mode,$channel,$when]=$(awk -v a="${before[$channel]}" -v b="$(switches_of "$pid")" \
      -v s="$idle_seconds" 'BEGIN { printf "%.1f", (b - a) / s }')
    memory[$mode,$channel,$when]=$(memory_of "$pid")
  done
}

run_mode() {
  local mode=$1 round in_flight entry name server line base key out
  pin=()
  [ "$mode" = pinned ] && pin=(taskset -c 0)
  start_servers
  sleep 0.5
  idle_figures "$mode" start
  # Rounds interleave the cases so that a noisy moment on a shared machine hits every case.
  for round in $(seq "$rounds"); do
    for in_flight in 1 8; do
      for entry in "${cases[@]}"; do
        IFS='|' read -r name server line base <<<"$entry"
        key=$mode,$in_flight,$name
        cpu_before=$(cpu_ns_of "${server_pid[$server]}")
        if out=$("${pin[@]}" "$client" ${target[$server]} --line "$line" --inflight "$in_flight" \
          --seconds "$seconds" --warmup 0.1 --samples "$work/$mode-$in_flight-$name.bin" 2>&1); then
          cpu_ns[$key]=$((${cpu_ns[$key]:-0} + $(cpu_ns_of "${server_pid[$server]}") - cpu_before))
          read -r answers warmup_answers _ answers_per_s _ <<<"$(sed 's/[a-z_0-9]*=//g' <<<"$out")"
          cpu_answers[$key]=$((${cpu_answers[$key]:-0} + answers + warmup_answers))
          rate[$key]="${rate[$key]:-} $answers_per_s"
          case $out in *"errors=0 "*) ;; *) failed[$key]="answered with errors: $out" ;; esac
        else
          failed[$key]=$out
        fi
      done
    done
  done
  idle_figures "$mode" after
  stop_all
}

load_before=$(cut -d ' ' -f 1-3 /proc/loadavg)
for mode in $modes; do
  run_mode "$mode"
done

# figures MODE IN_FLIGHT NAME: fills p50/p99/max from every sample of the case.
figures() {
  local key=$1,$2,$3 out
  out=$("$client" --report "$work/$1-$2-$3.bin" 2>/dev/null || echo "p50_us=- p99_us=- max_us=-")
  read -r p50[$key] p99[$key] max[$key] <<<"$(sed 's/[a-z0-9]*_us=//g; s/^samples=[0-9]* //' <<<"$out")"
}

ratio() {
  awk -v a="$1" -v b="$2" 'BEGIN { if (a == "-" || b == "-" || b == 0) print "-"; else printf "%.2f", a / b }'
}

# cpu_us KEY: the server's CPU time per command of the case (all its threads; the kernel's
# work for the pty is in no process's figure).
cpu_us() {
  awk -v ns="${cpu_ns[$1]:-0}" -v n="${cpu_answers[$1]:-0}" 'BEGIN { if (n) printf "%.1f", ns / n / 1000; else print "-" }'
}

mean_rate() {
  awk '{ for (i = 1; i <= NF; i++) { sum += $i; n++ } } END { if (n) printf "%.0f", sum / n; else print "-" }' <<<"$1"
}

echo
echo "kervd load benchmark, $(date -u '+%Y-%m-%d %H:%M UTC'), $(grep -m 1 'model name' /proc/cpuinfo | sed 's/.*: //'), $(nproc) CPUs"
echo "load average before the run: $load_before (other work on this machine shows up in p99)"
echo "$rounds rounds x $seconds s per case; round trip = write of the line to the end of its final result code;"
echo "cpu_us = CPU time of the server (all threads) per command"
printf '\n%-9s %-9s %-30s %9s %9s %9s %10s %7s %8s %8s %8s\n' mode in-flight case p50_us p99_us \
  max_us answers/s cpu_us p50_ratio p99_ratio cpu_ratio
for mode in $modes; do
  for in_flight in 1 8; do
    for entry in "${cases[@]}"; do
      IFS='|' read -r name server line base <<<"$entry"
      figures "$mode" "$in_flight" "$name"
    done
    for entry in "${cases[@]}"; do
      IFS='|' read -r name server line base <<<"$entry"
      key=$mode,$in_flight,$name
      r50="" r99="" rcpu=""
      if [ -n "$base" ]; then
        r50=$(ratio "${p50[$key]}" "${p50[$mode,$in_flight,$base]}")
        r99=$(ratio "${p99[$key]}" "${p99[$mode,$in_flight,$base]}")
        rcpu=$(ratio "$(cpu_us "$key")" "$(cpu_us "$mode,$in_flight,$base")")
      fi
      printf '%-9s %-9s %-30s %9s %9s %9s %10s %7s %8s %8s %8s\n' "$mode" "$in_flight" \
        "${label[$name]}" "${p50[$key]}" "${p99[$key]}" "${max[$key]}" \
        "$(mean_rate "${rate[$key]:-}")" "$(cpu_us "$key")" "$r50" "$r99" "$rcpu"
    done
  done
done

mib() {
  awk -v k="$1" 'BEGIN { printf "%.2f", k / 1024 }'
}

echo
echo "kervd idle, over $idle_seconds s (private = Private_Clean + Private_Dirty; wake-ups = context switches of all threads):"
printf '%-9s %-8s %-15s %8s %8s %12s %8s %8s %12s %11s\n' mode channel idle RSS_KiB PSS_KiB \
  private_KiB RSS_MiB PSS_MiB private_MiB wake-ups/s
for mode in $modes; do
  for channel in $channels; do
    for when in start after; do
      read -r rss pss private <<<"${memory[$mode,$channel,$when]}"
      printf '%-9s %-8s %-15s %8d %8d %12d %8s %8s %12s %11s\n' "$mode" "$channel" \
        "$([ "$when" = start ] && echo "after start" || echo "after the load")" \
        "$rss" "$pss" "$private" "$(mib "$rss")" "$(mib "$pss")" "$(mib "$private")" \
        "${wakeups[$mode,$channel,$when]}"
    done
  done
done

# Targets hold for the pinned runs, where no wake-up crosses CPUs.
verdict() {
  awk -v v="$1" -v limit="$2" 'BEGIN { if (v == "-") print "not measured"; else if (v <= limit) print "met"; else print "MISSED" }'
}
# case|baseline|limit|what: p50 of the case at most limit times the baseline's.
ratio_targets=(
  "internal|echo|1.3|internal p50 <= 1.3x echo"
  "relayed|relay|1.1|relayed p50 <= 1.1x relay"
  "serial|ptyecho|1.3|serial internal p50 <= 1.3x pty echo"
)
if [[ " $modes " == *" pinned "* ]]; then
  echo
  echo "targets (pinned):"
  for in_flight in 1 8; do
    for entry in "${ratio_targets[@]}"; do
      IFS='|' read -r name base limit what <<<"$entry"
      r=$(ratio "${p50[pinned,$in_flight,$name]:--}" "${p50[pinned,$in_flight,$base]:--}")
      shown=$r
      [ "$r" = - ] || shown=${r}x
      printf '  %-38s %s in flight: %s %s\n' "$what," "$in_flight" "$shown" "$(verdict "$r" "$limit")"
    done
  done
  for channel in $channels; do
    read -r rss _ <<<"${memory[pinned,$channel,start]}"
    printf '  %-38s %s MiB %s\n' "idle RSS <= 1.8 MiB, $channel:" "$(mib "$rss")" \
      "$(verdict "$(mib "$rss")" 1.8)"
  done
  for channel in $channels; do
    start=${wakeups[pinned,$channel,start]} after=${wakeups[pinned,$channel,after]}
    printf '  %-38s %s after start, %s after the load %s\n' "idle wake-ups 0 per s, $channel:" \
      "$start" "$after" "$(verdict "$(awk -v a="$start" -v b="$after" 'BEGIN { print (a > b ? a : b) }')" 0)"
  done
fi

if [ ${#failed[@]} -gt 0 ]; then
  echo
  for key in "${!failed[@]}"; do
    echo "FAILED $key: ${failed[$key]}"
  done
  exit 1
fi
