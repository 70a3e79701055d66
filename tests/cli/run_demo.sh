#!/bin/sh
# Runs the demonstration with few rows, and once where it must find a mistake:
# run_demo.sh DEMO
#
# MORVA names the program, MORVA_LIBRARY the library.
set -u

demo=$1
work=$(mktemp -d) || exit 1
trap 'rm -rf "$work"' EXIT
MORVA_DEMO_ROWS=20000
TMPDIR=$work
export MORVA_DEMO_ROWS TMPDIR

sh "$demo" "$MORVA" >"$work/report" 2>&1 || {
  echo "the demo failed:"
  cat "$work/report"
  exit 1
}
for text in 'Andorra' 'took .* s (.* million rows a second); the tables .* MiB' \
  '20000 orders; the first of them' 'agree on all .* customers, order included'; do
  grep -q "$text" "$work/report" || {
    echo "the demo did not print: $text"
    cat "$work/report"
    exit 1
  }
done

# A program whose sums are wrong must not pass.
cat >"$work/wrong" <<'WRONG'
#!/bin/sh
case $1 in
  sum) "$MORVA" "$@" | sed '9s/,[^,]*$/,1/' ;;
  *) exec "$MORVA" "$@" ;;
esac
WRONG
chmod +x "$work/wrong"
if sh "$demo" "$work/wrong" >"$work/report" 2>&1; then
  echo "the demo did not notice a wrong sum:"
  cat "$work/report"
  exit 1
fi
grep -q 'awk and morva do not agree' "$work/report" || {
  echo "the demo failed for another reason:"
  cat "$work/report"
  exit 1
}

# Nothing is left behind.
rm -f "$work/report" "$work/wrong"
left=$(ls -A "$work")
[ -z "$left" ] || {
  echo "the demo left files: $left"
  exit 1
}
