#!/usr/bin/env bash
# Soak run of the real kervd for SOAK_SECONDS (default 180) in a folder of its own under
# /tmp, kept when a check fails so that kervd.out and modemd-sim.out can be read.
# Usage: bench/soak/run.sh <build folder>
set -euo pipefail
build=$(cd "${1:-build}" && pwd)
seconds=${SOAK_SECONDS:-180}
dir=$(mktemp -d /tmp/kerv-soak-XXXXXX)
status=0
"$build/bench/soak/kerv_soak" "$build/daemon/kervd" "$build/tools/modemd-sim/modemd-sim" \
    "$dir" "$seconds" || status=$?
if [ "$status" -eq 0 ]; then
    rm -rf "$dir"
else
    echo "soak failed; its folder is kept: $dir" >&2
fi
exit "$status"
