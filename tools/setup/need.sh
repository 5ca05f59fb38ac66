#!/bin/sh
# usage: need.sh SET...
# Makes sure that the Debian packages the make targets of each SET need are installed
# (the sets and their packages: tools/setup/packages). Run as root it installs what is
# missing with apt-get (updating the package lists first unless that was done in the last
# hour); otherwise it names what is missing, prints the one apt-get line to run as root
# and fails. Nothing is printed when everything is there.
set -eu
list="$(dirname "$0")/packages"

missing=""
for set in "$@"; do
  grep -q "^$set " "$list" || { echo "need.sh: no set '$set' in $list" >&2; exit 2; }
  while read -r name package proof; do
    [ "$name" = "$set" ] || continue
    case $proof in
      /*) [ -e "$proof" ] && continue ;;
      *) command -v "$proof" >/dev/null 2>&1 && continue ;;
    esac
    case " $missing " in *" $package "*) ;; *) missing="$missing $package" ;; esac
  done < "$list"
done
[ -n "$missing" ] || exit 0

if [ "$(id -u)" != 0 ] || ! command -v apt-get >/dev/null 2>&1; then
  echo "Missing:$missing. Install them (as root) with:" >&2
  echo "  apt-get install$missing" >&2
  exit 1
fi
echo "Installing:$missing"
export DEBIAN_FRONTEND=noninteractive
if [ -z "$(find /var/lib/apt/lists -maxdepth 1 -name '*_Packages*' -mmin -60 2>/dev/null)" ]; then
  apt-get update -q
fi
# shellcheck disable=SC2086 # one word per package
apt-get install -y -q $missing < /dev/null
