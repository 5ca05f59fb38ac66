#!/usr/bin/env bash
# picocom as a scripted terminal: the lines it sends on start and the exact bytes it shows.
. "$(dirname "$0")/lib.sh"
need picocom socat
start_sim
start_kervd
picocom --quiet --baud 115200 --noreset --exit-after 1000 \
  --initstring "$(printf 'ATE1\rAT+CSQ\rAT+CMEE=1;+CFUN=1\r')" "$host_dev" \
  </dev/null >"$tmp/picocom.out" 2>"$tmp/picocom.log" || fail "picocom failed"
# Each command of a line of several is echoed and answered on its own; the line's own
# result comes last: three OKs for two commands.
printf '%b' 'ATE1\r\r\nOK\r\nAT+CSQ\r\r\n+CSQ: 23,99\r\n\r\nOK\r\n' \
  'AT+CMEE=1\r\r\nOK\r\nAT+CFUN=1\r\r\nOK\r\n\r\nOK\r\n' >"$tmp/expected"
cmp "$tmp/expected" "$tmp/picocom.out" || fail "picocom showed $(od -c "$tmp/picocom.out")"
