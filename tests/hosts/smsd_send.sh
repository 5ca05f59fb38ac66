#!/usr/bin/env bash
# smsd (smstools) sends a message from its outgoing directory through kervd with
# KERV_PROMPT_COMMANDS on: the modem daemon gets the AT+CMGS line, the PDU and the Ctrl-Z
# as one request, and smsd files the message as sent.
. "$(dirname "$0")/lib.sh"
need smsd socat
start_sim
start_kervd KERV_PROMPT_COMMANDS=1
mkdir -p "$tmp"/{outgoing,checked,failed,sent,incoming}
cat >"$tmp/smsd.conf" <<CONF
devices = GSM1
outgoing = $tmp/outgoing
checked = $tmp/checked
failed = $tmp/failed
sent = $tmp/sent
incoming = $tmp/incoming
logfile = $tmp/smsd.log
loglevel = 7
infofile = $tmp/smsd.running
pidfile = $tmp/smsd.pid
user = $(id -un)

[GSM1]
device = $host_dev
baudrate = 115200
incoming = no
CONF
printf 'To: 4670123456\n\nhello from kervd\n' >"$tmp/outgoing/message"

# smsd in the foreground until it has filed the message as sent or failed.
send_with_smsd() {
  smsd -c"$tmp/smsd.conf" -t >"$tmp/smsd-out.log" 2>&1 &
  pids+=($!)
  for _ in $(seq 600); do
    [ -n "$(ls -A "$tmp/sent")" ] || [ -n "$(ls -A "$tmp/failed")" ] && break
    sleep 0.1
  done
}
send_with_smsd
# Now and then, on a loaded machine, smsd gives up on the modem before it has written a
# single command to the port ("Failed to initialize modem" and no "-> " line in its log):
# nothing has reached kervd then, so smsd is given one more start with the message put back.
if grep -q 'Failed to initialize modem' "$tmp/smsd.log" && ! grep -q -- '-> ' "$tmp/smsd.log"; then
  wait "${pids[-1]}" || true # it ends on its own after such a start
  mv "$tmp/smsd.log" "$tmp/smsd-first-start.log"
  mv "$tmp"/failed/* "$tmp"/checked/* "$tmp/outgoing/" 2>/dev/null || true
  send_with_smsd
fi
[ -n "$(ls -A "$tmp/sent")" ] || fail "smsd did not send the message"
sim_requests | grep -q '^AT+CMGS=[0-9]*\\r[0-9A-F]*\\x1A$' ||
  fail "modemd-sim got no AT+CMGS with a PDU and Ctrl-Z"
