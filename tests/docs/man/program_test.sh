#!/bin/sh
# program_test.sh MORVA SOURCES PAGE: the page has an entry for every command
# and every option that the program's help knows, and for every environment
# variable that its SOURCES read.
set -eu
morva=$1
sources=$2
page=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# What the entries are headed by, without the marks for the formatter.
sed -n 's/\\-/-/g; s/\\f.//g; s/\\~/ /g; s/^\.B[IR]* //p' "$page" >"$work/entries"

status=0
missing() {
  echo "$page has no entry for $1" >&2
  status=1
}

"$morva" help >"$work/help"
commands=$(awk '/^Commands:/ { on = 1; next } /^$/ { on = 0 } on { print $1 }' "$work/help")
[ -n "$commands" ] || { echo 'the help names no commands' >&2; exit 1; }
for command in $commands; do
  grep -qx "$command" "$work/entries" || missing "the command $command"
  "$morva" help "$command" >>"$work/help"
done

options=$(grep -oE '(^|[^-[:alnum:]])--[a-z][a-z-]*' "$work/help" | grep -oE -e '--.*' | sort -u)
[ -n "$options" ] || { echo 'the help names no options' >&2; exit 1; }
for option in $options; do
  grep -qE -e "^(-[a-zA-Z]\"?[, \"]*)?$option([^a-z-]|\$)" "$work/entries" || missing "the option $option"
done

variables=$(cat "$sources"/*.cpp | grep -oE 'getenv\("[A-Z_]+"\)' | grep -oE '[A-Z_]{2,}' | sort -u)
[ -n "$variables" ] || { echo "no environment variables in $sources" >&2; exit 1; }
for variable in $variables; do
  grep -qx "$variable" "$work/entries" || missing "the environment variable $variable"
done
exit $status
