#!/usr/bin/env bash
# gammu identify through kervd: maker, model, revision, IMEI and IMSI of the LTE modem.
. "$(dirname "$0")/lib.sh"
need gammu socat
start_sim
start_kervd
printf '[gammu]\ndevice = %s\nconnection = at115200\n' "$host_dev" >"$tmp/gammurc"
gammu -c "$tmp/gammurc" identify >"$tmp/gammu.log" 2>&1 || fail "gammu identify failed"
for expected in 'Manufacturer *: *Kervlab' 'Model *: .*KL-L100' 'Firmware *: *KL-L100_R02.05' \
  'IMEI *: *356938035643809' 'SIM IMSI *: *001010123456789'; do
  grep -qi "$expected" "$tmp/gammu.log" || fail "gammu printed no '$expected'"
done
