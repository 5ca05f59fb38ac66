#!/bin/sh
# Builds the Debian packages of a build, checks what they hold (architecture, dependencies,
# file modes, programs for the right machine, stripped binaries with their debug symbols in
# the -dbgsym packages, manual pages), runs lintian on them when it is installed (a /usr
# build only: that is what gets packaged), then unpacks the runtime and tools packages
# into a scratch root and starts the daemon from there, against the modem-daemon stand-in,
# with its own store, ports, control socket, pid file and plug-in directory. The daemon
# must load the example plug-in and answer AT+CSQ. Every process is ended by its pid.
# usage: check_package.sh BUILD_DIR [EMULATOR ARG...]   (the emulator runs target programs)
set -eu
build_dir=$1
shift
work=$(mktemp -d /tmp/kerv-pkg-XXXXXX)
sim_pid=""
kervd_pid=""
finish() {
  [ -z "$kervd_pid" ] || kill "$kervd_pid" 2>/dev/null || true
  [ -z "$sim_pid" ] || kill "$sim_pid" 2>/dev/null || true
  rm -rf "$work"
}
trap finish EXIT
fail() { echo "FAIL: $*"; exit 1; }

cpack -G DEB --config "$build_dir/CPackConfig.cmake" -B "$work/debs" >"$work/cpack.log" 2>&1 \
  || { cat "$work/cpack.log"; fail "cpack"; }
# CPack writes the debug-symbol packages as *.ddeb; Debian calls them *.deb.
for ddeb in "$work"/debs/*.ddeb; do
  [ -f "$ddeb" ] && mv "$ddeb" "${ddeb%.ddeb}.deb"
done
setting() { sed -n "s/^set($1 \"\\(.*\\)\")\$/\\1/p" "$build_dir/CPackConfig.cmake"; }
arch=$(setting CPACK_DEBIAN_PACKAGE_ARCHITECTURE)
version=$(setting CPACK_PACKAGE_VERSION)-$(setting CPACK_DEBIAN_PACKAGE_RELEASE)
prefix=$(setting CPACK_PACKAGING_INSTALL_PREFIX)
case $arch in
  amd64) machine="X86-64" ;;
  armhf) machine="ARM" ;;
  *) fail "no known machine for architecture '$arch'" ;;
esac

for name in kervd kervd-dev kervd-tools; do
  deb="$work/debs/${name}_${version}_$arch.deb"
  [ -f "$deb" ] || fail "$deb was not built"
  [ "$(dpkg-deb -f "$deb" Architecture)" = "$arch" ] || fail "$name: wrong architecture"
  dpkg-deb -c "$deb" > "$work/$name.list"
  # Nothing writable by group or others; programs 755, libraries and data 644.
  awk '$1 !~ /^l/ && $1 ~ /^.....w|^........w/ { print; bad = 1 } END { exit bad }' "$work/$name.list" \
    || fail "$name holds group- or world-writable entries"
  dpkg-deb -x "$deb" "$work/root"
done
dpkg-deb -f "$work/debs/kervd_${version}_$arch.deb" Depends | grep -q 'libc6' || fail "kervd: no libc6 dependency"
dpkg-deb -f "$work/debs/kervd-dev_${version}_$arch.deb" Depends | grep -qF "kervd (= $version)" \
  || fail "kervd-dev does not depend on this kervd"
grep -q 'modemd-sim$' "$work/kervd.list" && fail "the modem-daemon stand-in is in the runtime package"
grep -q '\.h$' "$work/kervd.list" && fail "headers are in the runtime package"
grep -q 'kervrequest\.pc$' "$work/kervd-dev.list" || fail "kervrequest.pc is not in kervd-dev"
for page in man8/kervd.8.gz man1/kervctl.1.gz; do
  grep -q "/$page\$" "$work/kervd.list" || fail "kervd: no manual page $page"
done
grep -q '/man1/modemd-sim\.1\.gz$' "$work/kervd-tools.list" || fail "kervd-tools: no manual page"

# Stripped programs and libraries; their debug information, by build id, in the -dbgsym
# packages (not unpacked: nothing runs from them).
for name in kervd kervd-tools; do
  dbgsym="$work/debs/${name}-dbgsym_${version}_$arch.deb"
  [ -f "$dbgsym" ] || fail "$dbgsym was not built"
  dpkg-deb -f "$dbgsym" Depends | grep -qF "$name (= $version)" \
    || fail "$name-dbgsym does not depend on this $name"
  dpkg-deb -c "$dbgsym" > "$work/$name-dbgsym.list"
  grep -q '/usr/lib/debug/\.build-id/../.*\.debug$' "$work/$name-dbgsym.list" \
    || fail "$name-dbgsym holds no debug files"
done

if [ "$prefix" != /usr ]; then
  echo "lintian: not run on packages of a $prefix build (make package-check checks a /usr one)"
elif ! command -v lintian >/dev/null; then
  echo "lintian is not installed: the packages are not checked by it"
else
  # Errors and warnings fail; what the packages override is explained where they do.
  lintian --fail-on error,warning "$work"/debs/*.deb > "$work/lintian.log" 2>&1 \
    || fail "lintian: $(cat "$work/lintian.log")"
  echo "lintian: no error or warning"
fi

root="$work/root"
kervd=$(find "$root" -path '*/sbin/kervd')
kervctl=$(find "$root" -path '*/bin/kervctl')
sim=$(find "$root" -path '*/bin/modemd-sim')
plugin=$(find "$root" -name libcgdcont.so)
for program in "$kervd" "$kervctl" "$sim"; do
  [ -n "$program" ] || fail "a program is missing from the packages"
  readelf -h "$program" | grep -q "Machine:.*$machine" || fail "$program is not built for $machine"
done
[ -n "$plugin" ] || fail "the example plug-in is not in the runtime package"
[ "$(stat -c %a "$kervd")" = 755 ] && [ "$(stat -c %a "$plugin")" = 644 ] || fail "file modes"
for binary in "$kervd" "$plugin" "$(find "$root" -name 'libkervutil.so.*.*')"; do
  readelf -S "$binary" | grep -q '\.debug_info' && fail "$binary is not stripped"
done

# The unit, with its programs taken from the unpacked root: clean for systemd, and its
# sandbox exposes little (systemd-analyze's exposure score at most 5.0).
unit=$(find "$root" -name kervd.service)
[ -n "$unit" ] || fail "the systemd unit is not in the runtime package"
if command -v systemd-analyze >/dev/null; then
  mkdir "$work/unit"
  sed -e "s|^\(Exec[A-Za-z]*=-*\)\(/usr/[^ ]*\)|\1$root\2|" "$unit" > "$work/unit/kervd.service"
  # Its Documentation= names kervd(8): the unpacked manual page must be there.
  man_dir=$(dirname "$(dirname "$(find "$root" -name kervd.8.gz)")")
  verdict=$(MANPATH="$man_dir" systemd-analyze verify "$work/unit/kervd.service" 2>&1) \
    && [ -z "$verdict" ] || fail "systemd-analyze verify: $verdict"
  exposure=$(systemd-analyze security --offline=true "$work/unit/kervd.service" 2>&1 |
             sed -n 's/.*Overall exposure level for kervd.service: \([0-9.]*\).*/\1/p')
  awk -v e="$exposure" 'BEGIN { exit !(e != "" && e <= 5.0) }' \
    || fail "the unit's exposure is '$exposure', above 5.0"
else
  echo "systemd-analyze is not installed: the unit is not checked"
fi

"$@" "$sim" --port 0 > "$work/sim.log" 2>&1 &
sim_pid=$!
for _ in $(seq 100); do
  sim_port=$(sed -n 's/.*listening on 127\.0\.0\.1:\([0-9]*\).*/\1/p' "$work/sim.log" 2>/dev/null || true)
  [ -n "$sim_port" ] && break
  sleep 0.1
done
[ -n "$sim_port" ] || fail "modemd-sim did not start: $(cat "$work/sim.log")"

# Ports of our own, below the kernel's ephemeral range, from the sample store.
port=$((20000 + $$ % 6000 * 2))
sed -e "s/^KERV_LISTEN_PORT=.*/KERV_LISTEN_PORT=$port/" \
    -e "s/^KERV_URC_LISTEN_PORT=.*/KERV_URC_LISTEN_PORT=$((port + 1))/" \
    -e "s/^KERV_DEBUG=.*/KERV_DEBUG=1/" \
    "$(find "$root" -name sncfg.conf.sample)" > "$work/sncfg.conf"
export SNCFG_FILE="$work/sncfg.conf"
export KERVD_CONTROL_SOCKET="$work/kerv.socket"
export KERVD_PID_FILE="$work/kerv.pid"
export KERVD_PLUGIN_DIR="$(dirname "$plugin")"
export KERVD_MODEMD_PORT="$sim_port"
export KERVD_SERIAL_DEVICE="$work/ttyGS0"
# No library path is set: the unpacked programs must find their libraries themselves.
unset LD_LIBRARY_PATH
"$@" "$kervd" > "$work/kervd.log" 2>&1 || fail "kervd did not start: $(cat "$work/kervd.log")"
for _ in $(seq 100); do
  [ -s "$KERVD_PID_FILE" ] && break
  sleep 0.1
done
kervd_pid=$(head -n1 "$KERVD_PID_FILE" 2>/dev/null || true)
[ -n "$kervd_pid" ] || fail "kervd wrote no pid: $(cat "$work/kervd.log")"

# The pid file comes before the channel listens: retry while kervctl cannot connect (2).
# kervctl prints each line's whole answer: a multi-command line's two relayed answers and
# its own OK, the plug-in's answer, and the last line's ERROR, which fails the run (1).
for _ in $(seq 100); do
  status=0
  "$@" "$kervctl" --port "$port" at 'AT+CSQ;+CREG?' 'AT+CGDCONT=?' 'AT+KNEWB?' \
    > "$work/answer" 2>&1 || status=$?
  [ "$status" = 2 ] || break
  sleep 0.1
done
answer() { fail "$1: $(cat "$work/answer" "$work/kervd.log")"; }
[ "$status" = 1 ] || answer "kervctl at ended with $status"
grep -q '^+CSQ: ' "$work/answer" || answer "AT+CSQ not answered"
grep -q '^+CGDCONT: (1-15)' "$work/answer" || answer "the example plug-in did not answer"
[ "$(grep -c "^OK$(printf '\r')\$" "$work/answer")" = 4 ] || answer "not every OK came"
[ "$(tail -c 19 "$work/answer")" = "$(printf 'AT+KNEWB?\r\r\nERROR\r\n')" ] \
  || answer "the last line's answer is not the last thing printed"
echo "$arch packages: contents checked; the unpacked kervd loads its plug-in and answers AT+CSQ"
