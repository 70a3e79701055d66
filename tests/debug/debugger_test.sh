#!/bin/sh
# debugger_test.sh GDB PRINTERS SCRIPT EXPECTED PROGRAM [ARGUMENT...]: what gdb
# shows of the program, stopped where it calls `look`, is as expected. For
# addresses, which differ, stands 0x*.
set -eu
LC_ALL=C.UTF-8
SHELL=/bin/sh
export LC_ALL SHELL
gdb=$1
printers=$2
script=$3
expected=$4
shift 4

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Some containers refuse to turn address randomisation off; leave it alone.
if ! "$gdb" -nx -nh -batch \
  -ex 'set confirm off' -ex 'set disable-randomization off' -ex 'set debuginfod enabled off' \
  -ex 'set width 0' -ex 'set print pretty on' \
  -ex "source $printers" -ex 'break look' -ex 'run' -ex 'up' -ex 'echo ---\n' \
  -x "$script" -ex 'kill' --args "$@" >"$work/log" 2>&1 </dev/null; then
  cat "$work/log" >&2
  echo 'gdb has failed' >&2
  exit 1
fi
sed -e '1,/^---$/d' -e '/^\[Inferior .*\]$/d' -e 's/0x[0-9a-f][0-9a-f]*/0x*/g' \
  "$work/log" >"$work/shown"
if ! diff -u "$expected" "$work/shown" >&2; then
  echo 'All that gdb has written:' >&2
  cat "$work/log" >&2
  exit 1
fi
