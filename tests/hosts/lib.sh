# Shared set-up for the host-program tests: the modem-daemon stand-in and the real kervd in
# a temp dir of their own, and a terminal device for the host program, on the serial channel
# (two ptys joined by socat: kervd opens one end as its serial device, the host program the
# other) or on the TCP channel (socat's pty connected to the daemon's port). kervd and
# modemd-sim start through tools/run/kerv-hermetic.sh; everything a test starts (put its pid
# in pids) is ended by its pid when the script exits.
#
# Sourced by each test with the paths of kervd and modemd-sim in KERVD and MODEMD_SIM and
# the channel (serial or tcp) as the script's first argument.
set -euo pipefail

skip() { echo "SKIP: $*"; exit 77; }
fail() { echo "FAIL: $*"; exit 1; }
need() { for program; do command -v "$program" >/dev/null || skip "$program is not installed"; done; }

: "${KERVD:?path of kervd}" "${MODEMD_SIM:?path of modemd-sim}"
channel=${1:-serial}
kerv_kervd=$KERVD
kerv_modemd_sim=$MODEMD_SIM
source "$(dirname "${BASH_SOURCE[0]}")/../../tools/run/kerv-hermetic.sh"
kerv_run_dir
tmp=$kerv_dir
declare -n pids=kerv_pids

cleanup() {
  local status=$?
  kerv_stop_all
  if [ "$status" -ne 0 ] && [ "$status" -ne 77 ]; then
    for log in "$tmp"/*.log; do [ -f "$log" ] && { echo "--- $log"; tail -n 40 "$log"; }; done
  fi
  kerv_cleanup
  exit "$status"
}
trap cleanup EXIT

# A port no socket on this machine holds at the moment, outside the kernel's own range.
free_port() {
  local port
  while :; do
    port=$((20000 + RANDOM % 12000))
    grep -qi ":$(printf '%04X' "$port") " /proc/net/tcp /proc/net/tcp6 /proc/net/udp \
      /proc/net/udp6 2>/dev/null || { echo "$port"; return; }
  done
}

# start_sim [RULES_FILE]: modemd-sim on a free port, every request logged to
# modemd-sim.log.
start_sim() {
  kerv_start_modemd_sim ${1:+--rules "$1"} || fail "modemd-sim did not start"
}

# start_kervd [STORE_LINE...]: kervd on the chosen channel; host_dev is then the device the
# host program opens.
start_kervd() {
  local port
  port=$(free_port)
  host_dev="$tmp/ttyHOST"
  kerv_store "$tmp" "KERV_LISTEN_TYPE=$([ "$channel" = serial ] && echo 1 || echo 0)" \
    "KERV_LISTEN_PORT=$port" "KERV_URC_LISTEN_PORT=$(free_port)" "$@"
  if [ "$channel" = serial ]; then
    socat PTY,link="$tmp/ttyGS0",raw,echo=0 PTY,link="$host_dev",raw,echo=0 2>"$tmp/socat.log" &
    pids+=($!)
    wait_for test -e "$tmp/ttyGS0" -a -e "$host_dev" || fail "socat made no ptys"
  fi
  kerv_start_kervd "$tmp" || fail "kervd did not start"
  if [ "$channel" = tcp ]; then
    socat PTY,link="$host_dev",raw,echo=0 TCP:127.0.0.1:"$port",retry=100,interval=0.05 \
      2>"$tmp/socat.log" &
    pids+=($!)
    wait_for test -e "$host_dev" || fail "socat made no pty"
  fi
  # Held open for the whole test: when the last opener of a pty closes it, socat reads an
  # end of file and ends, where a real port stays for the next program that opens it.
  exec 4<>"$host_dev"
  wait_for answers_at || fail "kervd does not answer on $host_dev"
}

# True once an AT written to the host's device is answered: until the daemon has opened
# its serial device (and discarded what came before), or socat has connected, nothing is.
answers_at() {
  local reply
  exec 3<>"$host_dev"
  printf 'AT\r' >&3
  reply=$(timeout 0.3 cat <&3 || true)
  exec 3>&-
  [[ $reply == *OK* ]]
}

# sim_requests: the AT texts modemd-sim received, one per line, in order.
sim_requests() { sed -n 's/^token=.* text="\(.*\)"$/\1/p' "$tmp/modemd-sim.log"; }
