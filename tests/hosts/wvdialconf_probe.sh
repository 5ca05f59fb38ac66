#!/usr/bin/env bash
# wvdialconf finds the modem on a serial port and writes its init strings. It only scans
# the usual device names, so it runs in a private mount namespace whose /dev holds the
# host's pty as ttyUSB0 and nothing else it could probe, and whose lock directory is its own.
. "$(dirname "$0")/lib.sh"
need wvdialconf socat unshare
unshare -m true 2>/dev/null || skip "no private mount namespace here (needs root)"
# The stand-in knows no V.250 settings lines; a modem accepts the ones wvdialconf tries.
cat >"$tmp/rules" <<'RULES'
ATQ0 V1 E1 => \r\nOK\r\n
ATQ0 V1 E1 S0=0 => \r\nOK\r\n
ATQ0 V1 E1 S0=0 &C1 => \r\nOK\r\n
ATQ0 V1 E1 S0=0 &C1 &D2 => \r\nOK\r\n
ATQ0 V1 E1 S0=0 &C1 &D2 +FCLASS=0 => \r\nOK\r\n
RULES
start_sim "$tmp/rules"
start_kervd
mkdir "$tmp/dev"
unshare -m sh -ec '
  mount --make-rprivate /
  mount -t tmpfs tmpfs "$1/dev"
  for node in null zero tty ttyUSB0; do touch "$1/dev/$node"; done
  for node in null zero tty; do mount --bind "/dev/$node" "$1/dev/$node"; done
  mount --bind "$(readlink -f "$2")" "$1/dev/ttyUSB0"
  mount --move "$1/dev" /dev
  mount -t tmpfs tmpfs "$(readlink -f /var/lock)"
  wvdialconf "$1/wvdial.conf"
' sh "$tmp" "$host_dev" >"$tmp/wvdialconf.log" 2>&1 || fail "wvdialconf failed"
grep -q '^Modem = /dev/ttyUSB0$' "$tmp/wvdial.conf" || fail "wvdialconf found no modem"
grep -q '^Init1 = ATZ$' "$tmp/wvdial.conf" || fail "wvdialconf wrote no init string"
