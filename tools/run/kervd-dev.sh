#!/usr/bin/env bash
# Starts kervd for development: a development store (TCP channel on 5556, URCs on, debug
# level INFO), the example plug-in and the modem-daemon stand-in, all under a run directory
# in the build tree, with no root needed. Ctrl-C stops both programs by their pids.
#
#   tools/run/kervd-dev.sh BUILD_DIR
set -euo pipefail

build=$(cd "${1:-build}" && pwd)
run="$build/run"
kervd="$build/daemon/kervd"
modemd_sim="$build/tools/modemd-sim/modemd-sim"
kervctl="$build/tools/kervctl/kervctl"

mkdir -p "$run/plugins"
rm -f "$run"/*.log "$run/kerv.pid"

cat > "$run/sncfg.conf" <<STORE
# Development configuration store written by make run.
KERV_DEBUG=3
KERV_LISTEN_TYPE=0
KERV_LISTEN_PORT=5556
KERV_MODEMD_TARGET_TYPE=LTE
KERV_URC_LISTEN_ENABLE=1
KERV_URC_LISTEN_PORT=12394
STORE

plugin=$(find "$build/plugins" -name 'libcgdcont.so' -print -quit 2>/dev/null || true)
if [ -n "$plugin" ]; then
  cp "$plugin" "$run/plugins/"
fi

sim_pid=""
kervd_pid=""
stop_all() {
  trap - INT TERM EXIT
  [ -n "$kervd_pid" ] && kill "$kervd_pid" 2>/dev/null || true
  [ -n "$sim_pid" ] && kill "$sim_pid" 2>/dev/null || true
  [ -n "${tail_pid:-}" ] && kill "$tail_pid" 2>/dev/null || true
  echo
  echo "stopped kervd (pid ${kervd_pid:-none}) and modemd-sim (pid ${sim_pid:-none})"
}
trap stop_all INT TERM EXIT

stdbuf -oL "$modemd_sim" --port 0 > "$run/modemd-sim.log" 2>&1 &
sim_pid=$!
for _ in $(seq 100); do
  grep -q 'listening on' "$run/modemd-sim.log" 2>/dev/null && break
  sleep 0.05
done
sim_port=$(sed -n 's/.*listening on 127\.0\.0\.1:\([0-9]*\).*/\1/p' "$run/modemd-sim.log" | head -n1)
if [ -z "$sim_port" ]; then
  echo "modemd-sim did not start:"; cat "$run/modemd-sim.log"; exit 1
fi

export SNCFG_FILE="$run/sncfg.conf"
export KERVD_CONTROL_SOCKET="$run/kerv.socket"
export KERVD_PID_FILE="$run/kerv.pid"
export KERVD_PLUGIN_DIR="$run/plugins"
export KERVD_MODEMD_PORT="$sim_port"
export KERVD_SERIAL_DEVICE="$run/ttyGS0"
"$kervd" > "$run/kervd.log" 2>&1
for _ in $(seq 100); do
  [ -s "$KERVD_PID_FILE" ] && break
  sleep 0.05
done
kervd_pid=$(head -n1 "$KERVD_PID_FILE" 2>/dev/null || true)
if [ -z "$kervd_pid" ]; then
  echo "kervd did not start:"; cat "$run/kervd.log"; exit 1
fi

cat <<HELP
kervd is running (pid $kervd_pid), modemd-sim answers on 127.0.0.1:$sim_port (pid $sim_pid).
Run directory: $run (store, plug-ins, logs)

Talk to it:
  export KERVD_CONTROL_SOCKET=$run/kerv.socket
  $kervctl at ATI AT+CSQ
  socat - TCP:127.0.0.1:5556,crlf
Send a URC to the connected host:
  $kervctl urc \$'\\r\\n+CREG: 1\\r\\n'

Ctrl-C stops both. The daemon's output follows.
HELP
tail -n +1 -f "$run/kervd.log" &
tail_pid=$!
wait "$tail_pid" || true
