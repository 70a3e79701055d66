#!/bin/sh
# reject.sh MORVA LIBRARY HOST CHECK[=OUTCOME]... [| CHECK...]
# Of the checks named, those before the bar find the host wrong, and no others
# do. Those that all others need are run, too. A check that is to time out is
# given two seconds.
set -eu
LC_ALL=C
export LC_ALL
morva=$1
library=$2
host=$3
shift 3

expected=
only=
wrong=yes
seconds=20
for check; do
  case $check in
  '|')
    wrong=no
    continue
    ;;
  *=timed-out) seconds=2 ;;
  esac
  only="$only --only ${check%=*}"
  [ $wrong = no ] || expected="$expected$check
"
done
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
printf %s "$expected" | sort >"$work/expected"

status=0
# shellcheck disable=SC2086 # names of checks have no blanks
"$morva" check-host --json --library "$library" --time-limit "$seconds" $only "$host" \
  >"$work/json" 2>"$work/errors" || status=$?
sed -n 's/^ *{"name": "\([^"]*\)", "outcome": "\([^"]*\)".*/\2 \1/p' "$work/json" >"$work/outcomes"
awk '
  FNR == NR { if (split($1, part, "=") == 2) exact[part[1]] = 1; next }
  $1 == "failed" || $1 == "crashed" || $1 == "timed-out" { print $2 ($2 in exact ? "=" $1 : "") }
' "$work/expected" "$work/outcomes" | sort >"$work/wrong"

if ! cmp -s "$work/expected" "$work/wrong" || [ $status -ne 1 ]; then
  echo "$host: status $status, and wrong should be: $(tr '\n' ' ' <"$work/expected")" >&2
  cat "$work/json" "$work/errors" >&2
  exit 1
fi
cat "$work/outcomes"
