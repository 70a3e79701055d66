#!/bin/sh
# What `morva check-extension` says and answers, beside the checks themselves:
#   command_test.sh MORVA LIBRARY BROKEN
# LIBRARY is an extension as it should be, BROKEN a directory of broken ones.
set -u

morva=$1
library=$2
broken=$3
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
failed=0

# expect STATUS PATTERN ARGUMENT...: that status, and a line of output that is the pattern.
expect() {
  status=$1
  pattern=$2
  shift 2
  "$morva" check-extension "$@" >out 2>&1
  got=$?
  if [ "$got" -ne "$status" ] || ! grep -q -e "$pattern" out; then
    echo "morva check-extension $*: status $got, not $status, or no line '$pattern':"
    cat out
    failed=1
  fi
}

refuse() {
  if grep -q -e "$1" out; then
    echo "there is a line '$1', and should not be:"
    cat out
    failed=1
  fi
}

# A run of some checks.
expect 0 '^4 checks: 4 passed$' "$library" --only version.record
expect 0 '^passed *version.record$' "$library" --only version.record
refuse 'version.queries'
expect 0 '^5 checks: 5 passed$' "$library" --only version.
expect 0 '^passed *version.queries$' "$library" --only=version. --only=remove.removes
expect 0 '^passed *remove.removes$' "$library" --only=version. --only=remove.removes
expect 1 "there is no check 'version'" "$library" --only version
expect 1 "there is no check 'nothing.'" "$library" --only nothing.
expect 1 "there is no check 'file.load'" "$library" --only version.record --only file.load

# The list says what a check is about.
expect 0 '^file.loads$' --list
expect 0 '^    The file is a shared library that can be loaded.$' --list
expect 2 'takes no files' "$library" --list
expect 2 'does not go with' --list --json

# Wrong command lines.
expect 2 'takes one FILE, and 0 are given'
expect 2 'takes one FILE, and 2 are given' one two
expect 2 'the name of FILE is empty' ''
expect 2 'not a number of seconds' "$library" --time-limit 0
expect 2 'not a number of seconds' "$library" --time-limit 3601
expect 2 'not a number of seconds' "$library" --time-limit 1.5
expect 2 'not a number of seconds' "$library" --time-limit soon
expect 2 'given twice' "$library" --time-limit 1 --time-limit 2
expect 0 'passed' "$library" --only version.record --time-limit 3600
expect 2 'does not belong to' "$library" --library x

# A gate that fails stops the rest, which says why.
echo 'no library' >text.so
expect 1 '^FAILED *file.loads$' ./text.so
expect 1 '^not-run *version.record$' ./text.so
expect 1 '^    it needs file.loads$' ./text.so
refuse '^passed'
expect 1 'text.so.*1 check has not passed' ./text.so
expect 1 '^FAILED *file.exports-the-entry$' "$broken/broken_is-no-extension.so"
expect 1 '^    it needs file.exports-the-entry$' "$broken/broken_is-no-extension.so"
expect 1 '^FAILED *file.loads$' ./missing.so

# A name without a slash is a file that is here, if there is one.
ln -s "$library" here.so
expect 0 '^passed *version.record$' here.so --only version.record
expect 1 'cannot be loaded.*text.so' text.so
ln -s "$library" ./-odd.so
expect 0 '^passed *version.record$' --only version.record -- -odd.so

# Without the standard input and errors, as a service may be started.
"$morva" check-extension "$library" --only version. <&- 2>&- >out
if ! grep -q '^5 checks: 5 passed$' out; then
  echo "morva check-extension without standard streams:"
  cat out
  failed=1
fi
# Nowhere to print to: no report is no success.
for nowhere in '>&-' '>/dev/full'; do
  for json in '' --json; do
    if eval '"$morva" check-extension "$library" --only version.record $json' "$nowhere" 2>errors; then
      echo "morva check-extension $json $nowhere: status 0"
      failed=1
    fi
  done
done

# For programs: one value, nothing before and nothing behind.
"$morva" check-extension ./text.so --json >report 2>errors
python3 - report <<'END' || failed=1
import json, sys
report = json.load(open(sys.argv[1]))
outcomes = {"passed", "failed", "crashed", "timed-out", "not-applicable", "not-run"}
assert set(report) == {"kind", "file", "checks"} | outcomes, report.keys()
assert report["kind"] == "extension" and report["file"] == "./text.so"
assert report["failed"] == 1 and report["not-run"] == len(report["checks"]) - 1
assert sum(report[name] for name in outcomes) == len(report["checks"])
for check in report["checks"]:
    assert set(check) == {"name", "promise", "outcome", "milliseconds", "detail"}, check
    assert check["outcome"] in outcomes
END
grep -q 'has not passed' errors || { echo "no message: $(cat errors)"; failed=1; }

exit $failed
