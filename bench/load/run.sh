#!/usr/bin/env bash
# Daemon load benchmark: round trips through a running kervd (with modemd-sim behind it),
# side by side with two single-threaded baselines on loopback: a line-echo server that
# answers "\r\nOK\r\n", and a server that relays each line through the bare UDP exchange
# with modemd-sim (a fresh socket per request). Every case runs with all processes on CPU 0
# and again unpinned. Prints p50/p99 and their ratios to the baselines, and the daemon's
# idle memory. Everything runs hermetically: own temp dir, store, ports, control socket and
# pid file; every process is stopped by its pid. See docs/benchmarks.md.
#
# Environment: BUILD (build directory, default build/), LOAD_SECONDS (measured seconds per
# case and round, default 1), LOAD_ROUNDS (interleaved rounds, default 3), LOAD_MODES
# (default "pinned unpinned").
set -euo pipefail

root=$(cd "$(dirname "$0")/../.." && pwd)
build=${BUILD:-$root/build}
seconds=${LOAD_SECONDS:-1}
rounds=${LOAD_ROUNDS:-3}
modes=${LOAD_MODES:-pinned unpinned}

if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j2 --target kervd modemd-sim kerv-load-client kerv-load-echo \
  kerv-load-relay >/dev/null
cmake --build "$build" -j2 --target cgdcont >/dev/null 2>&1 || true

client=$build/bench/load/kerv-load-client
echo_server=$build/bench/load/kerv-load-echo
relay_server=$build/bench/load/kerv-load-relay
kervd=$build/daemon/kervd
modemd_sim=$build/tools/modemd-sim/modemd-sim
example_plugin=$build/plugins/libcgdcont.so

work=$(mktemp -d /tmp/kerv-load.XXXXXX)
child_pids=()
kervd_pid=

stop_all() {
  local pid
  for pid in "${child_pids[@]}"; do
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
  done
  child_pids=()
  # kervd forked away from this shell: stop it by the pid it wrote, and wait until it is gone.
  if [ -n "$kervd_pid" ]; then
    kill "$kervd_pid" 2>/dev/null || true
    for _ in $(seq 100); do
      [ -d "/proc/$kervd_pid" ] || break
      sleep 0.05
    done
    kill -KILL "$kervd_pid" 2>/dev/null || true
    kervd_pid=
  fi
}
trap 'stop_all; rm -rf "$work"' EXIT
trap 'exit 130' INT TERM

die() {
  echo "bench-load: $*" >&2
  exit 1
}

# Waits for the first line a started process writes to file and prints the port that ends it.
port_from() {
  local file=$1 port=
  for _ in $(seq 100); do
    port=$(head -n 1 "$file" 2>/dev/null | grep -o '[0-9]\+$' || true)
    [ -n "$port" ] && break
    sleep 0.05
  done
  [ -n "$port" ] || die "no port announced in $file"
  echo "$port"
}

# start_port_server NAME PROGRAM ARGS...: starts a server that announces its port; sets port_NAME.
start_port_server() {
  local name=$1
  shift
  "${pin[@]}" "$@" >"$work/$name.log" 2>&1 &
  child_pids+=($!)
  printf -v "port_$name" '%s' "$(port_from "$work/$name.log")"
}

start_kervd() {
  local kerv_port urc_port
  kerv_port=$("$client" --pick-port tcp)
  urc_port=$("$client" --pick-port udp)
  mkdir -p "$work/plugins"
  [ -f "$example_plugin" ] && cp "$example_plugin" "$work/plugins/"
  cat >"$work/sncfg.conf" <<EOF
KERV_LISTEN_PORT=$kerv_port
KERV_LISTEN_TYPE=0
KERV_DEBUG=1
KERV_URC_LISTEN_ENABLE=1
KERV_URC_LISTEN_PORT=$urc_port
KERV_MODEMD_TARGET_TYPE=LTE
KERV_AT_RESULT_FORMAT=1
EOF
  rm -f "$work/kerv.pid"
  SNCFG_FILE=$work/sncfg.conf KERVD_CONTROL_SOCKET=$work/kerv.socket \
    KERVD_PID_FILE=$work/kerv.pid KERVD_PLUGIN_DIR=$work/plugins \
    KERVD_SERIAL_DEVICE=$work/ttyGS0 KERVD_MODEMD_PORT=$port_modemd \
    "${pin[@]}" "$kervd" >"$work/kervd.log" 2>&1 || die "kervd did not start (see $work/kervd.log)"
  for _ in $(seq 100); do
    kervd_pid=$(cat "$work/kerv.pid" 2>/dev/null || true)
    [ -n "$kervd_pid" ] && break
    sleep 0.05
  done
  [ -n "$kervd_pid" ] || die "kervd wrote no pid file"
  # Idle means every thread has started (main, channel server, worker, URC receiver).
  for _ in $(seq 100); do
    [ "$(ls "/proc/$kervd_pid/task" 2>/dev/null | wc -l)" -ge 4 ] && break
    sleep 0.05
  done
  port_kervd=$kerv_port
}

# Prints "RSS PSS" of a process in KiB.
memory_of() {
  awk '/^Rss:/ { rss = $2 } /^Pss:/ { pss = $2 } END { print rss, pss }' "/proc/$1/smaps_rollup"
}

# The cases of one mode: name, server, line sent, baseline it is compared with.
cases=(
  "echo|echo|AT|"
  "internal|kervd|ATE1|echo"
  "relay|relay|AT+CSQ|"
  "relayed|kervd|AT+CSQ|relay"
)
declare -A label=(
  [echo]="echo baseline, AT"
  [internal]="kervd ATE1 (internal)"
  [relay]="relay baseline, AT+CSQ"
  [relayed]="kervd AT+CSQ (relayed)"
)
declare -A p50=() p99=() rate=() memory=() failed=()

run_mode() {
  local mode=$1 round in_flight entry name server line base key port out
  pin=()
  [ "$mode" = pinned ] && pin=(taskset -c 0)
  start_port_server modemd "$modemd_sim" --port 0
  start_kervd
  sleep 0.5
  memory[$mode,start]=$(memory_of "$kervd_pid")
  start_port_server echo "$echo_server" --port 0
  start_port_server relay "$relay_server" --port 0 --modemd-port "$port_modemd"
  # Rounds interleave the cases so that a noisy moment on a shared machine hits every case.
  for round in $(seq "$rounds"); do
    for in_flight in 1 8; do
      for entry in "${cases[@]}"; do
        IFS='|' read -r name server line base <<<"$entry"
        key=$mode,$in_flight,$name
        port_var=port_$server
        port=${!port_var}
        if out=$("${pin[@]}" "$client" --port "$port" --line "$line" --inflight "$in_flight" \
          --seconds "$seconds" --warmup 0.2 --samples "$work/$mode-$in_flight-$name.bin" 2>&1); then
          answers_per_s=${out##*rate=}
          rate[$key]="${rate[$key]:-} ${answers_per_s%% *}"
          case $out in *"errors=0 "*) ;; *) failed[$key]="answered with errors: $out" ;; esac
        else
          failed[$key]=$out
        fi
      done
    done
  done
  memory[$mode,after]=$(memory_of "$kervd_pid")
  stop_all
}

load_before=$(cut -d ' ' -f 1-3 /proc/loadavg)
for mode in $modes; do
  run_mode "$mode"
done

# figures MODE IN_FLIGHT NAME: fills p50/p99 from every sample of the case.
figures() {
  local key=$1,$2,$3 out
  out=$("$client" --report "$work/$1-$2-$3.bin" 2>/dev/null || echo "p50_us=- p99_us=-")
  out=${out#*p50_us=}
  p50[$key]=${out%% *}
  p99[$key]=${out##*p99_us=}
}

ratio() {
  awk -v a="$1" -v b="$2" 'BEGIN { if (a == "-" || b == "-" || b == 0) print "-"; else printf "%.2f", a / b }'
}

mean_rate() {
  awk '{ for (i = 1; i <= NF; i++) { sum += $i; n++ } } END { if (n) printf "%.0f", sum / n; else print "-" }' <<<"$1"
}

echo
echo "kervd load benchmark, $(date -u '+%Y-%m-%d %H:%M UTC'), $(grep -m 1 'model name' /proc/cpuinfo | sed 's/.*: //'), $(nproc) CPUs"
echo "load average before the run: $load_before (other work on this machine shows up in p99)"
echo "$rounds rounds x $seconds s per case; round trip = write of the line to the end of its final result code"
printf '\n%-9s %-9s %-26s %9s %9s %10s %8s %8s\n' mode in-flight case p50_us p99_us answers/s p50_ratio p99_ratio
for mode in $modes; do
  for in_flight in 1 8; do
    for entry in "${cases[@]}"; do
      IFS='|' read -r name server line base <<<"$entry"
      figures "$mode" "$in_flight" "$name"
    done
    for entry in "${cases[@]}"; do
      IFS='|' read -r name server line base <<<"$entry"
      key=$mode,$in_flight,$name
      r50="" r99=""
      if [ -n "$base" ]; then
        r50=$(ratio "${p50[$key]}" "${p50[$mode,$in_flight,$base]}")
        r99=$(ratio "${p99[$key]}" "${p99[$mode,$in_flight,$base]}")
      fi
      printf '%-9s %-9s %-26s %9s %9s %10s %8s %8s\n' "$mode" "$in_flight" "${label[$name]}" \
        "${p50[$key]}" "${p99[$key]}" "$(mean_rate "${rate[$key]:-}")" "$r50" "$r99"
    done
  done
done

echo
for mode in $modes; do
  for when in start after; do
    read -r rss pss <<<"${memory[$mode,$when]}"
    printf 'kervd memory (%s, idle %s): RSS %d KiB (%.2f MiB), PSS %d KiB (%.2f MiB)\n' "$mode" \
      "$([ "$when" = start ] && echo "after start" || echo "after the load")" \
      "$rss" "$(awk -v k="$rss" 'BEGIN { print k / 1024 }')" \
      "$pss" "$(awk -v k="$pss" 'BEGIN { print k / 1024 }')"
  done
done

# Targets hold for the pinned runs, where no wake-up crosses CPUs.
verdict() {
  awk -v v="$1" -v limit="$2" 'BEGIN { if (v == "-") print "not measured"; else if (v <= limit) print "met"; else print "MISSED" }'
}
if [[ " $modes " == *" pinned "* ]]; then
  echo
  echo "targets (pinned):"
  for in_flight in 1 8; do
    r=$(ratio "${p50[pinned,$in_flight,internal]}" "${p50[pinned,$in_flight,echo]}")
    printf '  internal p50 <= 1.5x echo,  %s in flight: %sx %s\n' "$in_flight" "$r" "$(verdict "$r" 1.5)"
    r=$(ratio "${p50[pinned,$in_flight,relayed]}" "${p50[pinned,$in_flight,relay]}")
    printf '  relayed p50 <= 1.3x relay,  %s in flight: %sx %s\n' "$in_flight" "$r" "$(verdict "$r" 1.3)"
  done
  read -r rss _ <<<"${memory[pinned,start]}"
  mib=$(awk -v k="$rss" 'BEGIN { printf "%.2f", k / 1024 }')
  printf '  idle RSS <= 2.5 MiB: %s MiB %s\n' "$mib" "$(verdict "$mib" 2.5)"
fi

if [ ${#failed[@]} -gt 0 ]; then
  echo
  for key in "${!failed[@]}"; do
    echo "FAILED $key: ${failed[$key]}"
  done
  exit 1
fi
