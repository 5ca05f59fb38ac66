#!/usr/bin/env bash
# ModemManager probes the port, reads the identity, enables the modem, follows a +CREG URC
# and sends an SMS (KERV_PROMPT_COMMANDS on) through kervd. It runs on a private bus with
# its udev-less test options and only the generic plug-in, in a private mount namespace
# whose /dev holds the host's pty as ttyUSB0 and whose /sys describes it as a USB modem's
# serial port, which is all ModemManager knows of a device without udev.
. "$(dirname "$0")/lib.sh"
need ModemManager mmcli dbus-daemon dbus-send socat unshare
unshare -m true 2>/dev/null || skip "no private mount namespace here (needs root)"
plugin=$(compgen -G '/usr/lib/*/ModemManager/libmm-plugin-generic.so' | head -n1) ||
  skip "ModemManager has no generic plug-in"
polkitd=$(compgen -G '/usr/lib*/polkit*/polkitd' | head -n1) || skip "polkitd is not installed"
# What the stand-in lacks for ModemManager's enable sequence: registration URCs switched on,
# the operator format, and the messaging settings' ranges.
cat >"$tmp/rules" <<'RULES'
AT+CREG=2 => \r\nOK\r\n
AT+CGREG=2 => \r\nOK\r\n
AT+COPS=3,2 => \r\nOK\r\n
AT+COPS=3,0 => \r\nOK\r\n
AT+CNMI=? => \r\n+CNMI: (0-2),(0-3),(0,2),(0-2),(0,1)\r\n\r\nOK\r\n
AT+CPMS=? => \r\n+CPMS: ("ME","SM"),("ME","SM"),("ME","SM")\r\n\r\nOK\r\n
AT+CMGF=? => \r\n+CMGF: (0,1)\r\n\r\nOK\r\n
RULES
start_sim "$tmp/rules"
start_kervd KERV_URC_LISTEN_ENABLE=1 KERV_PROMPT_COMMANDS=1
mkdir "$tmp/plugins-mm" "$tmp/dev"
ln -s "$plugin" "$tmp/plugins-mm/"
# A USB device with one vendor-specific interface served by a modem driver, and its tty.
usb=devices/pci0000:00/0000:00:14.0/usb1/1-1
port=$usb/1-1:1.0/ttyUSB0
mkdir -p "$tmp/sys/$port/tty/ttyUSB0" "$tmp/sys/class/tty" "$tmp/sys/bus/usb/drivers/option" \
  "$tmp/sys/bus/usb-serial/drivers/option1"
printf '1209\n' >"$tmp/sys/$usb/idVendor"
printf '0001\n' >"$tmp/sys/$usb/idProduct"
printf 'ff\n' >"$tmp/sys/$usb/1-1:1.0/bInterfaceClass"
printf '00\n' >"$tmp/sys/$usb/1-1:1.0/bInterfaceNumber"
ln -s /sys/bus/usb/drivers/option "$tmp/sys/$usb/1-1:1.0/driver"
ln -s /sys/bus/usb-serial/drivers/option1 "$tmp/sys/$port/driver"
ln -s "/sys/$port" "$tmp/sys/$port/tty/ttyUSB0/device"
ln -s /sys/class/tty "$tmp/sys/$port/tty/ttyUSB0/subsystem"
ln -s /sys/bus/usb-serial "$tmp/sys/$port/subsystem"
ln -s /sys/bus/usb "$tmp/sys/$usb/1-1:1.0/subsystem"
ln -s /sys/bus/usb "$tmp/sys/$usb/subsystem"
ln -s "/sys/$port/tty/ttyUSB0" "$tmp/sys/class/tty/ttyUSB0"
# One private bus serves as both of ModemManager's buses, so that polkitd, which answers its
# authorization checks (root is always authorized), sees the callers ModemManager sees.
# polkitd runs as its own user: the temp dir must let it reach the bus's socket.
chmod 711 "$tmp"
cat >"$tmp/bus.conf" <<CONF
<busconfig>
  <type>session</type>
  <listen>unix:dir=$tmp</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/> <allow own="*"/> <allow send_destination="*"/> <allow receive_sender="*"/>
  </policy>
</busconfig>
CONF
dbus-daemon --config-file="$tmp/bus.conf" --nofork --print-address=5 5>"$tmp/bus" \
  >"$tmp/dbus.log" 2>&1 &
pids+=($!)
wait_for test -s "$tmp/bus" || fail "dbus-daemon did not start"
DBUS_SESSION_BUS_ADDRESS=$(head -n1 "$tmp/bus")
export DBUS_SESSION_BUS_ADDRESS DBUS_SYSTEM_BUS_ADDRESS=$DBUS_SESSION_BUS_ADDRESS
"$polkitd" --no-debug >"$tmp/polkitd.log" 2>&1 &
pids+=($!)
wait_for dbus-send --print-reply --dest=org.freedesktop.PolicyKit1 \
  /org/freedesktop/PolicyKit1/Authority org.freedesktop.DBus.Peer.Ping >/dev/null 2>&1 ||
  fail "polkitd did not start"
unshare -m sh -ec '
  mount --make-rprivate /
  mount -t tmpfs tmpfs "$1/dev"
  for node in null zero tty urandom random ttyUSB0; do touch "$1/dev/$node"; done
  for node in null zero tty urandom random; do mount --bind "/dev/$node" "$1/dev/$node"; done
  mount --bind "$(readlink -f "$2")" "$1/dev/ttyUSB0"
  mount --move "$1/dev" /dev
  mount --bind "$1/sys" /sys
  exec ModemManager --test-session --test-no-udev --no-auto-scan \
    --test-plugin-dir="$1/plugins-mm" --debug --log-level=DEBUG
' sh "$tmp" "$host_dev" >"$tmp/mm.log" 2>&1 &
pids+=($!)
mm() { mmcli --test-session "$@"; }
# mm_has KEY VALUE: the modem's key-value listing holds KEY with VALUE.
mm_has() { mm -m 0 -K 2>/dev/null | grep -q "^$1 *: $2\$"; }
wait_for mm -L >/dev/null 2>&1 || fail "ModemManager did not start"
mm --report-kernel-event="action=add,name=ttyUSB0,subsystem=tty" >/dev/null ||
  fail "ModemManager took no kernel event"
wait_for mm_has modem.generic.state disabled || fail "ModemManager made no modem of the port"
mm_has modem.generic.manufacturer KERVLAB || fail "ModemManager read no manufacturer"
mm_has modem.generic.model KL-L100 || fail "ModemManager read no model"
mm -m 0 -e >/dev/null || fail "ModemManager did not enable the modem"
wait_for mm_has modem.generic.state registered || fail "the modem did not register"
mm_has modem.3gpp.registration-state home || fail "the modem is not registered at home"
# A registration URC through the URC port: the modem now roams.
SNCFG_FILE="$tmp/sncfg.conf" "$KERVCTL" urc $'\r\n+CREG: 5\r\n' >/dev/null ||
  fail "kervctl sent no URC"
wait_for mm_has modem.3gpp.registration-state roaming || fail "ModemManager missed the +CREG URC"
# An SMS through ModemManager's messaging: command, PDU and Ctrl-Z reach the modem daemon.
mm -m 0 --messaging-create-sms="text='hello from kervd',number='+4670123456'" >/dev/null ||
  fail "ModemManager made no SMS"
mm -s 0 --send >/dev/null || fail "ModemManager did not send the SMS"
sim_requests | grep -q '^AT+CMGS=[0-9]*\\r[0-9A-F]*\\x1A$' ||
  fail "modemd-sim got no AT+CMGS with a PDU and Ctrl-Z"
