#!/usr/bin/env bash
# Runs fuzz targets of the libFuzzer build one after another, FUZZ_SECONDS each (default
# 60), each on a working corpus under <build>/fuzz-corpus/<target> that starts from the
# seeds in fuzz/corpus/<target>, with fuzz/<target>.dict when there is one. Prints one line
# of figures per target; a fault stops the run, with the input that caused it under
# <build>/fuzz-artifacts/<target>/.
# Usage: fuzz/run.sh <build-fuzz folder> <target>...
set -euo pipefail
build=$(cd "$1" && pwd)
shift
seconds=${FUZZ_SECONDS:-60}
seeds=$(cd "$(dirname "$0")" && pwd)/corpus

# Longest input per target: room for an over-long host line, a full control record, a
# full modem datagram.
max_len() {
    case $1 in
    fuzz_line_framing) echo 8192 ;;
    fuzz_at_engine | fuzz_control_record) echo 2200 ;;
    fuzz_modem_answer) echo 1600 ;;
    *) echo 1100 ;;
    esac
}

printf '%-22s %12s %9s %7s %7s %7s %6s\n' target execs exec/s edges features corpus secs
for target in "$@"; do
    work=$build/fuzz-corpus/$target
    artifacts=$build/fuzz-artifacts/$target/
    log=$build/fuzz-logs/$target.log
    mkdir -p "$work" "$artifacts" "$(dirname "$log")"
    dict=()
    [ -f "$seeds/../$target.dict" ] && dict=(-dict="$seeds/../$target.dict")
    status=0
    "$build/fuzz/$target" -max_total_time="$seconds" -max_len="$(max_len "$target")" \
        -print_final_stats=1 -close_fd_mask=1 -artifact_prefix="$artifacts" "${dict[@]}" \
        "$work" "$seeds/$target" >"$log" 2>&1 || status=$?
    execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")
    rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log")
    last=$(grep -E '^#[0-9]+' "$log" | tail -n 1)
    edges=$(sed -n 's/.* cov: \([0-9]*\).*/\1/p' <<<"$last")
    features=$(sed -n 's/.* ft: \([0-9]*\).*/\1/p' <<<"$last")
    corpus=$(find "$work" -type f | wc -l)
    took=$(sed -n 's/^Done [0-9]* runs in \([0-9]*\) second.*/\1/p' "$log")
    printf '%-22s %12s %9s %7s %7s %7s %6s\n' "$target" "${execs:-?}" "${rate:-?}" \
        "${edges:-?}" "${features:-?}" "$corpus" "${took:-?}"
    if [ "$status" -ne 0 ]; then
        echo "$target found a fault (exit $status): see $log and $artifacts" >&2
        exit 1
    fi
done
