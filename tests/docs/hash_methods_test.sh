#!/bin/sh
# hash_methods_test.sh PROGRAM DOCUMENT: the measuring program, run small. How the
# methods spread fixed keys is fixed, too, and the document shows it; times are
# only asked for, not looked at.
set -eu
program=$1 document=$2
here=$(dirname "$0")
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

fail() {
  echo "hash_methods_test.sh: $*" >&2
  exit 1
}

"$program" spread 10 >"$scratch/spread"
diff -u "$here/hash_spread.expected" "$scratch/spread" || fail "keys spread in another way"

"$program" spread 16 >"$scratch/spread16"
if grep -vxF -f "$document" "$scratch/spread16" >&2; then
  fail "$document does not show these lines"
fi

# Keys that differ in their last byte only: method 6 never lets it count.
printf 'key-a\nkey-b\nkey-b\n\nkey-c\nkey-d\nkey-e\n' >"$scratch/keys"
"$program" spread 2 "mine=$scratch/keys" >"$scratch/mine"
grep -q '^| mine | 1 | .* | 4 | 1 | .* |$' "$scratch/mine" ||
  fail "the longest bucket should be 1 with methods 2 and 7, and 4 with method 6"

"$program" finds 6 3 | grep -q '^| UUID text | ' || fail "no times of finds"
"$program" speed 1 100 | grep -q '^| 100 bytes | ' || fail "no times of hashes"

# refused TEXT ARGUMENT...: fails and says so.
refused() {
  text=$1
  shift
  if "$program" "$@" >"$scratch/out" 2>"$scratch/message"; then fail "accepted: $*"; fi
  grep -qF -- "$text" "$scratch/message" || fail "no '$text' in: $(cat "$scratch/message")"
}
refused "usage:"
refused "'21' is no number from 1 to 20" spread 21
refused "'x' is no number from 1 to 1000" speed x 5
refused "'keys' is not NAME=FILE" spread 2 keys
refused "cannot read lines of $scratch/none" spread 2 "a=$scratch/none"
