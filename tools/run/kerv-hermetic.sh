# The one way the scripts start kervd and modemd-sim (make run, the load benchmark, the
# host-program tests): everything in a run directory, the modem-daemon stand-in on a fresh
# port, the daemon with development paths, and every process started ended by its pid.
# Sourced, after setting kerv_build (the build directory) or the programs' paths themselves
# (kerv_kervd, kerv_modemd_sim).
#
# An instance directory DIR holds one daemon's store (sncfg.conf), control socket
# (kerv.socket), pid file (kerv.pid), plug-in directory (plugins/), serial device (ttyGS0)
# and output (kervd.log). The functions return non-zero on failure; the caller says why.

: "${kerv_kervd:=$kerv_build/daemon/kervd}"
: "${kerv_modemd_sim:=$kerv_build/tools/modemd-sim/modemd-sim}"
kerv_pids=()   # every process started, in order; kervd is not this shell's child
kerv_temp_dir= # removed by kerv_cleanup
[ -v pin ] || pin=() # a prefix for every program started, e.g. (taskset -c 0)

# kerv_run_dir [DIR]: kerv_dir is DIR (made when missing) or a fresh temp dir, removed with
# everything started when the script exits.
kerv_run_dir() {
  if [ $# -gt 0 ]; then
    kerv_dir=$1
    mkdir -p "$kerv_dir"
  else
    kerv_dir=$(mktemp -d /tmp/kerv-run.XXXXXX)
    kerv_temp_dir=$kerv_dir
  fi
  trap kerv_cleanup EXIT
}

# wait_for COMMAND...: retries the command for up to ten seconds.
wait_for() {
  local try
  for try in $(seq 200); do "$@" && return 0; sleep 0.05; done
  return 1
}

# kerv_store DIR LINE...: the store of the daemon in DIR, one KEY=VALUE per line.
kerv_store() {
  local dir=$1
  shift
  mkdir -p "$dir/plugins"
  printf '%s\n' "$@" >"$dir/sncfg.conf"
}

# kerv_start_modemd_sim [ARG...]: modemd-sim on a fresh port, one line per request in
# $kerv_dir/modemd-sim.log; modemd_port is its port, modemd_pid its pid.
kerv_start_modemd_sim() {
  "${pin[@]}" stdbuf -oL "$kerv_modemd_sim" --port 0 "$@" >"$kerv_dir/modemd-sim.log" 2>&1 &
  modemd_pid=$!
  kerv_pids+=("$modemd_pid")
  wait_for grep -qs 'listening on' "$kerv_dir/modemd-sim.log" || return 1
  modemd_port=$(sed -n 's/.*listening on 127\.0\.0\.1:\([0-9]*\).*/\1/p' "$kerv_dir/modemd-sim.log")
}

# kerv_start_kervd DIR [PROGRAM]: kervd (or a copy of it) with the development paths of DIR,
# next to modemd-sim; waits for its pid file. kervd_started is its pid.
kerv_start_kervd() {
  local dir=$1 program=${2:-$kerv_kervd}
  rm -f "$dir/kerv.pid"
  SNCFG_FILE=$dir/sncfg.conf KERVD_CONTROL_SOCKET=$dir/kerv.socket KERVD_PID_FILE=$dir/kerv.pid \
    KERVD_PLUGIN_DIR=$dir/plugins KERVD_SERIAL_DEVICE=$dir/ttyGS0 KERVD_MODEMD_PORT=$modemd_port \
    "${pin[@]}" "$program" >"$dir/kervd.log" 2>&1 || return 1
  wait_for test -s "$dir/kerv.pid" || return 1
  kervd_started=$(head -n 1 "$dir/kerv.pid")
  kerv_pids+=("$kervd_started")
}

# kerv_stop_all: ends every process started, the last first (a daemon before its pty and
# its modem daemon): SIGTERM, and SIGKILL after five seconds.
kerv_stop_all() {
  local i pid
  for ((i = ${#kerv_pids[@]} - 1; i >= 0; i--)); do
    pid=${kerv_pids[i]}
    kill "$pid" 2>/dev/null || continue
    for _ in $(seq 100); do
      grep -qs '^State:[[:space:]]*[^Z]' "/proc/$pid/status" || break # gone, or only a zombie
      sleep 0.05
    done
    kill -KILL "$pid" 2>/dev/null || true
  done
  kerv_pids=()
}

kerv_cleanup() {
  kerv_stop_all
  [ -z "$kerv_temp_dir" ] || rm -rf "$kerv_temp_dir"
}
