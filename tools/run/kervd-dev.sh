#!/usr/bin/env bash
# Starts kervd for development: a development store (TCP channel on 5556, URCs on, debug
# level INFO), the example plug-in and the modem-daemon stand-in, all under a run directory
# in the build tree, with no root needed. Ctrl-C stops both programs by their pids.
#
#   tools/run/kervd-dev.sh BUILD_DIR
set -euo pipefail

kerv_build=$(cd "${1:-build}" && pwd)
source "$(dirname "$0")/kerv-hermetic.sh"
run="$kerv_build/run"
kervctl="$kerv_build/tools/kervctl/kervctl"

kerv_run_dir "$run"
rm -f "$run"/*.log
kerv_store "$run" "# Development configuration store written by make run." KERV_DEBUG=3 \
  KERV_LISTEN_TYPE=0 KERV_LISTEN_PORT=5556 KERV_MODEMD_TARGET_TYPE=LTE KERV_URC_LISTEN_ENABLE=1 \
  KERV_URC_LISTEN_PORT=12394

plugin=$(find "$kerv_build/plugins" -name 'libcgdcont.so' -print -quit 2>/dev/null || true)
if [ -n "$plugin" ]; then
  cp "$plugin" "$run/plugins/"
fi

stop_dev() {
  trap - INT TERM EXIT
  kerv_cleanup
  echo
  echo "stopped kervd (pid ${kervd_started:-none}) and modemd-sim (pid ${modemd_pid:-none})"
}
trap stop_dev INT TERM EXIT

if ! kerv_start_modemd_sim; then
  echo "modemd-sim did not start:"; cat "$run/modemd-sim.log"; exit 1
fi
if ! kerv_start_kervd "$run"; then
  echo "kervd did not start:"; cat "$run/kervd.log"; exit 1
fi

cat <<HELP
kervd is running (pid $kervd_started), modemd-sim answers on 127.0.0.1:$modemd_port (pid $modemd_pid).
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
kerv_pids+=($!)
wait "${kerv_pids[-1]}" || true
