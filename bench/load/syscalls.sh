#!/usr/bin/env bash
# System calls per command of kervd. Starts modemd-sim and kervd hermetically, as run.sh
# does (see hermetic.sh; the example plug-in in the plug-in directory), once on TCP and once
# on the serial channel (a pty). For each command kind it attaches `strace -c -f` to all of
# the daemon's threads, runs the load client for a while, and prints per command the count
# of each system call and their total: the counts over the answers the client reports.
# Kinds: internal (ATE1), relayed to modemd-sim (AT+CSQ), answered by the plug-in
# (AT+CGDCONT=?).
#
# Run it from anywhere, no make needed (it builds what it needs in BUILD):
#   bench/load/syscalls.sh
#   SYSCALL_SECONDS=2 SYSCALL_IN_FLIGHT=8 SYSCALL_CHANNELS=serial bench/load/syscalls.sh
#
# Environment: BUILD (build directory, default build/), SYSCALL_SECONDS (client run per
# case, default 1), SYSCALL_IN_FLIGHT (lines in flight, default 1), SYSCALL_CHANNELS
# (default "tcp serial").
set -euo pipefail

seconds=${SYSCALL_SECONDS:-1}
in_flight=${SYSCALL_IN_FLIGHT:-1}
channels=${SYSCALL_CHANNELS:-tcp serial}

source "$(dirname "$0")/hermetic.sh"

command -v strace >/dev/null || die "strace is not installed"
[ -f "$example_plugin" ] || die "the example plug-in was not built ($example_plugin)"

# kind|line
kinds=("internal|ATE1" "relayed|AT+CSQ" "plug-in|AT+CGDCONT=?")

# traced_by PID TRACER: whether every thread of PID is traced by TRACER.
traced_by() {
  local status
  for status in "/proc/$1/task/"*/status; do
    grep -q "^TracerPid:[[:space:]]*$2\$" "$status" || return 1
  done
}

# count_case CHANNEL KIND LINE: appends "CHANNEL KIND<tab>SYSCALL<tab>PER_COMMAND" lines to
# per-command.tsv ("SYSCALL failed" for the calls of those that failed), and the answers
# counted to answers.txt.
count_case() {
  local channel=$1 kind=$2 line=$3 pid=${kervd_pid[kervd-$1]} tracer out answers
  local counts=$work/strace-$channel-$kind.txt
  strace -c -f -qq -o "$counts" -p "$pid" &
  tracer=$!
  kerv_pids+=($tracer)
  for _ in $(seq 100); do
    traced_by "$pid" "$tracer" && break
    sleep 0.05
  done
  traced_by "$pid" "$tracer" || die "strace did not attach to every thread of kervd"
  out=$("$client" ${target[kervd-$channel]} --line "$line" --inflight "$in_flight" \
    --seconds "$seconds" --warmup 0) || die "load client failed on $channel $line: $out"
  case $out in *"errors=0 "*) ;; *) die "$channel $line answered with errors: $out" ;; esac
  answers=${out#answers=}
  answers=${answers%% *}
  kill -INT "$tracer"
  wait "$tracer" || true
  unset 'kerv_pids[-1]' # the tracer, started last: its pid is no longer ours to stop
  # strace -c: "% time, seconds, usecs/call, calls, [errors], syscall"; errors may be blank.
  awk -v column="$channel $kind" -v answers="$answers" '
    $1 ~ /^[0-9.]+$/ && $NF != "total" {
      printf "%s\t%s\t%.2f\n", column, $NF, $4 / answers
      if (NF == 6) printf "%s\t%s failed\t%.2f\n", column, $NF, $5 / answers
    }' "$counts" >>"$work/per-command.tsv"
  echo "$channel $kind: $answers answers" >>"$work/answers.txt"
}

pin=()
start_modemd
for channel in $channels; do
  start_kervd "kervd-$channel" "$channel"
done
sleep 0.5

columns=()
for channel in $channels; do
  for entry in "${kinds[@]}"; do
    IFS='|' read -r kind line <<<"$entry"
    columns+=("$channel $kind")
    count_case "$channel" "$kind" "$line"
  done
done

echo "kervd system calls per command ($in_flight in flight, $seconds s per case; strace -c -f on all threads)"
echo "commands: internal = ATE1, relayed = AT+CSQ (modemd-sim), plug-in = AT+CGDCONT=? (example plug-in)"
sed 's/^/  /' "$work/answers.txt"
echo
(
  IFS=$'\t'
  printf '%s\n' "${columns[*]}"
) | awk -F '\t' -v OFS='\t' '
  NR == FNR { for (i = 1; i <= NF; i++) column[i] = $i; n = NF; next }
  {
    per[$1, $2] = $3
    if ($2 !~ / failed$/) total[$1] += $3
    if (!($2 in all)) names[++m] = $2
    all[$2] += $3
  }
  END {
    for (j = 2; j <= m; j++)  # most frequent first
      for (k = j; k > 1 && all[names[k]] > all[names[k - 1]]; k--) {
        swap = names[k]; names[k] = names[k - 1]; names[k - 1] = swap
      }
    printf "%-16s", "syscall"
    for (i = 1; i <= n; i++) printf " %16s", column[i]
    printf "\n"
    for (j = 1; j <= m; j++) {
      printf "%-16s", names[j]
      for (i = 1; i <= n; i++) printf " %16s", ((column[i], names[j]) in per) ? per[column[i], names[j]] : "-"
      printf "\n"
    }
    printf "%-16s", "total"
    for (i = 1; i <= n; i++) printf " %16.2f", total[column[i]]
    printf "\n"
  }' - "$work/per-command.tsv"
