#!/bin/sh
# Lets each fuzzer run for some seconds, one after the other:
#   fuzz.sh <build directory> <seconds> [target ...]
# They begin with the inputs of tests/fuzz/corpus. What they find, and new inputs, stay in
# the build directory, below fuzz/. One line for each; status 1 if any has found something.
set -eu
# Logs hold any bytes.
LC_ALL=C
export LC_ALL

build=$1
seconds=$2
shift 2
source=$(cd "$(dirname "$0")/.." && pwd)
[ $# -gt 0 ] || set -- operations failures definition tree port hash table csv

# The last number that a line of the log gives for `$1`.
stat() {
  sed -n "s/^stat::$1: *//p" "$log" | tail -n 1
}

status=0
printf '%-11s %8s %11s %9s %7s %7s %9s\n' target seconds executions per_second edges inputs findings
for target in "$@"; do
  work=$build/fuzz/$target
  log=$work/log
  if [ ! -x "$build/fuzz/fuzz_$target" ]; then
    echo "fuzz.sh: $build/fuzz/fuzz_$target has not been built" >&2
    exit 2
  fi
  mkdir -p "$work/inputs" "$work/findings"
  known=$(find "$work/findings" -type f | wc -l)
  # Choices may be of any length at once; text begins short, and has a dictionary.
  how=-len_control=0
  dictionary=$source/tests/fuzz/$target.dict
  [ ! -f "$dictionary" ] || how=-dict=$dictionary
  begun=$(date +%s)
  "$build/fuzz/fuzz_$target" -max_total_time="$seconds" -print_final_stats=1 \
    -timeout=20 -max_len=1024 "$how" -artifact_prefix="$work/findings/" \
    "$work/inputs" "$source/tests/fuzz/corpus/$target" >"$log" 2>&1 || status=1
  ended=$(date +%s)
  findings=$(($(find "$work/findings" -type f | wc -l) - known))
  progress=$(grep -aE '^#[0-9]+.* cov: [0-9]+' "$log" | tail -n 1)
  edges=$(echo "$progress" | sed -n 's/.* cov: \([0-9]*\).*/\1/p')
  inputs=$(echo "$progress" | sed -n 's/.* corp: \([0-9]*\).*/\1/p')
  printf '%-11s %8s %11s %9s %7s %7s %9s\n' "$target" $((ended - begun)) \
    "$(stat number_of_executed_units)" "$(stat average_exec_per_sec)" "${edges:-0}" "${inputs:-0}" \
    "$findings"
  [ "$findings" -eq 0 ] || sed -n '/ERROR:\|runtime error:\|^[^ ]*:[0-9]*: /p' "$log" | head -n 5
done

[ "$status" -eq 0 ] || echo "Something was found, or did not run: see the logs and findings in $build/fuzz." >&2
exit "$status"
