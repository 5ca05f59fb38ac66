#!/usr/bin/env bash
# gammu sendsms through kervd with KERV_PROMPT_COMMANDS on: the modem daemon gets the
# AT+CMGS line, the PDU and the Ctrl-Z as one request, and gammu reports the message sent.
. "$(dirname "$0")/lib.sh"
need gammu socat
start_sim
start_kervd KERV_PROMPT_COMMANDS=1
printf '[gammu]\ndevice = %s\nconnection = at115200\n' "$host_dev" >"$tmp/gammurc"
gammu -c "$tmp/gammurc" sendsms TEXT +4670123456 -text "hello from kervd" -smscnumber +4670000000 \
  >"$tmp/gammu.log" 2>&1 || fail "gammu sendsms failed"
grep -q 'OK, message reference=' "$tmp/gammu.log" || fail "gammu reports no message reference"
sim_requests | grep -q '^AT+CMGS=[0-9]*\\r[0-9A-F]*\\x1A$' ||
  fail "modemd-sim got no AT+CMGS with a PDU and Ctrl-Z"
