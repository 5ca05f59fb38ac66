# Sourced by the scripts of the load benchmark (run.sh, syscalls.sh): builds what they need,
# and starts kervd and modemd-sim (through tools/run/kerv-hermetic.sh), the baseline servers
# and the ptys of the serial channel hermetically: one temp dir per run holding every store
# file, control socket, pid file, plug-in directory, pty link and log; fresh ports. Every
# process started is stopped by its pid when the script exits, also on Ctrl-C.
#
# Environment: BUILD (build directory, default build/).

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
build=${BUILD:-$root/build}
kerv_build=$build
source "$root/tools/run/kerv-hermetic.sh"

if [ ! -f "$build/CMakeCache.txt" ]; then
  cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j2 --target kervd modemd-sim kerv-load-client kerv-load-echo \
  kerv-load-relay kerv-load-pty >/dev/null
cmake --build "$build" -j2 --target cgdcont >/dev/null 2>&1 || true

client=$build/bench/load/kerv-load-client
echo_server=$build/bench/load/kerv-load-echo
relay_server=$build/bench/load/kerv-load-relay
pty_holder=$build/bench/load/kerv-load-pty
example_plugin=$build/plugins/libcgdcont.so

kerv_run_dir
work=$kerv_dir
declare -A kervd_pid=() # kervd instance name -> pid (kervd forks away from this shell)
declare -A server_pid=() # every server (kervd, baselines, modemd-sim) by name
# How the load client reaches each server: "--port N" or "--pty SOCKPATH".
declare -A target=()
pin=() # command prefix of every process started: (taskset -c 0) for the pinned runs

stop_all() {
  kerv_stop_all
  kervd_pid=()
  server_pid=()
  target=()
}
trap 'exit 130' INT TERM

die() {
  echo "$(basename "$0"): $*" >&2
  exit 1
}

# first_line_of FILE: waits for the first line a started process writes to FILE.
first_line_of() {
  local line=
  for _ in $(seq 100); do
    line=$(head -n 1 "$1" 2>/dev/null || true)
    [ -n "$line" ] && break
    sleep 0.05
  done
  [ -n "$line" ] || die "nothing announced in $1"
  echo "$line"
}

# start_port_server NAME PROGRAM ARGS...: starts a TCP server that prints its port.
start_port_server() {
  local name=$1 port
  shift
  "${pin[@]}" "$@" >"$work/$name.log" 2>&1 &
  kerv_pids+=($!)
  server_pid[$name]=$!
  port=$(first_line_of "$work/$name.log")
  target[$name]="--port ${port##*[!0-9]}"
}

# start_pty NAME: a pty held for the run; the server side opens $work/NAME.tty, the load
# client gets the host's end through $work/NAME.sock.
start_pty() {
  local name=$1
  "${pin[@]}" "$pty_holder" "$work/$name.tty" "$work/$name.sock" >"$work/$name-pty.log" 2>&1 &
  kerv_pids+=($!)
  first_line_of "$work/$name-pty.log" >/dev/null
  [ -L "$work/$name.tty" ] || die "no pty link $work/$name.tty"
  target[$name]="--pty $work/$name.sock"
}

# start_serial_server NAME PROGRAM ARGS...: a baseline server on a pty of its own.
start_serial_server() {
  local name=$1
  shift
  start_pty "$name"
  "${pin[@]}" "$@" --serial "$work/$name.tty" >"$work/$name.log" 2>&1 &
  kerv_pids+=($!)
  server_pid[$name]=$!
}

start_modemd() {
  kerv_start_modemd_sim || die "modemd-sim did not start (see $work/modemd-sim.log)"
}

# has_open PID PATH: whether the process holds PATH open.
has_open() {
  local fd
  for fd in "/proc/$1/fd/"*; do
    [ "$(readlink "$fd" 2>/dev/null)" = "$2" ] && return 0
  done
  return 1
}

# start_kervd NAME tcp|serial: a kervd with its own store, control socket and pid file, on a
# fresh TCP port or on a pty of its own; the example plug-in is in its plug-in directory.
# Each instance runs its own copy of the program and the plug-in, as the one daemon on a
# board does: pages of a file that two instances map would count as shared, not private.
start_kervd() {
  local name=$1 channel=$2 kerv_port urc_port listen_type=0 pid device dir=$work/$1
  kerv_port=$("$client" --pick-port tcp)
  urc_port=$("$client" --pick-port udp)
  if [ "$channel" = serial ]; then
    listen_type=1
    start_pty "$name"
  fi
  kerv_store "$dir" KERV_LISTEN_PORT="$kerv_port" KERV_LISTEN_TYPE=$listen_type KERV_DEBUG=1 \
    KERV_URC_LISTEN_ENABLE=1 KERV_URC_LISTEN_PORT="$urc_port" KERV_MODEMD_TARGET_TYPE=LTE \
    KERV_AT_RESULT_FORMAT=1
  ln -sf "$work/$name.tty" "$dir/ttyGS0"
  cp "$kerv_kervd" "$dir/kervd"
  [ -f "$example_plugin" ] && cp "$example_plugin" "$dir/plugins/"
  kerv_start_kervd "$dir" "$dir/kervd" || die "kervd did not start (see $dir/kervd.log)"
  pid=$kervd_started
  kervd_pid[$name]=$pid
  server_pid[$name]=$pid
  # Idle means every thread has started (main, channel server, worker, URC receiver), and
  # on the serial channel the device is open: lines written before would be flushed.
  for _ in $(seq 100); do
    [ "$(ls "/proc/$pid/task" 2>/dev/null | wc -l)" -ge 4 ] && break
    sleep 0.05
  done
  if [ "$channel" = serial ]; then
    device=$(readlink "$work/$name.tty")
    for _ in $(seq 100); do
      has_open "$pid" "$device" && break
      sleep 0.05
    done
    has_open "$pid" "$device" || die "kervd did not open $device (see $dir/kervd.log)"
  else
    target[$name]="--port $kerv_port"
  fi
}

# memory_of PID: "RSS PSS PRIVATE" in KiB; private = Private_Clean + Private_Dirty.
memory_of() {
  awk '/^Rss:/ { rss = $2 } /^Pss:/ { pss = $2 } /^Private_(Clean|Dirty):/ { private += $2 }
       END { print rss, pss, private }' "/proc/$1/smaps_rollup"
}

# switches_of PID: context switches of all its threads so far (each one a wake-up or a
# preemption).
switches_of() {
  cat "/proc/$1/task/"*/status 2>/dev/null |
    awk '/^(voluntary|nonvoluntary)_ctxt_switches:/ { n += $2 } END { print n + 0 }'
}

# cpu_ns_of PID: CPU time of all its threads so far, in ns.
cpu_ns_of() {
  cat "/proc/$1/task/"*/schedstat 2>/dev/null | awk '{ n += $1 } END { printf "%.0f\n", n }'
}
