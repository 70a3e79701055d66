#!/bin/sh
# Shows what the program does, on tables that Debian ships and on a million
# generated rows, and checks one of its results against awk.
#
#   demo.sh MORVA     MORVA is the program that was built
#
# The tables are those of the package tzdata. Environment:
#   MORVA_DEMO_ROWS   rows to generate, 1000000 by default
#   ZONEINFO          where the tables are, /usr/share/zoneinfo by default
set -u

fail() {
  echo "demo: $*" >&2
  exit 1
}

[ $# -eq 1 ] || fail "usage: demo.sh MORVA"
[ -x "$1" ] || fail "there is no program $1"
morva=$(cd "$(dirname "$1")" && pwd)/$(basename "$1")
rows=${MORVA_DEMO_ROWS:-1000000}
case $rows in
  '' | *[!0-9]* | 0*) fail "MORVA_DEMO_ROWS is '$rows', not a number of rows" ;;
esac
zoneinfo=${ZONEINFO:-/usr/share/zoneinfo}
zones=$zoneinfo/zone.tab
[ -r "$zones" ] || zones=$zoneinfo/zone1970.tab
countries=$zoneinfo/iso3166.tab
for table in "$zones" "$countries"; do
  [ -r "$table" ] || fail "cannot read $table; the package tzdata has it"
done

work=$(mktemp -d) || fail "cannot make a temporary directory"
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

# Shows a command as one would type it.
announce() {
  echo "  \$ morva $*" | sed "s|$work/||g; s| # | '#' |g"
}

# Runs the program with its output in $work/out.
run() {
  announce "$@"
  "$morva" "$@" >"$work/out" || fail "the command failed"
}

# As run, and tells the time and memory it took.
measure() {
  "$morva" "$@" --stats >"$work/out" 2>"$work/stats" || {
    cat "$work/stats" >&2
    fail "the command failed"
  }
  announce "$@"
  awk '
    /^seconds/ { seconds = $2 }
    /^rows\/s/ { speed = $2 }
    /^pools mapped/ { pools = $3 }
    /^peak resident/ { peak = $3 }
    END {
      printf "    took %.2f s (%.1f million rows a second); ", seconds, speed / 1e6
      printf "the tables %.1f MiB, the program %.1f MiB at most\n", pools / 1048576, peak / 1048576
    }' "$work/stats"
}

lines() {
  echo $(($(wc -l <"$work/out")))
}

# The first $1 lines of the output.
show() {
  head -n "$1" "$work/out" | sed 's/^/    /'
}

"$morva" --version || fail "the program does not run"

echo
echo "1. Time zones with the names of their countries"
echo "   $zones has a line per zone, with the country's code;"
echo "   $countries has a line per country, with code and name."
run join "$zones" "$countries" --no-header --comment '#' --on 1
show 8
joined=$(lines)
echo "    ... $joined rows"
want=$(awk -F '\t' '/^#/ { next } FNR == NR { known[$1]++; next } $1 in known { n++ } END { print n + 0 }' \
  "$countries" "$zones")
[ "$joined" -eq "$want" ] || fail "awk finds $want rows to join, morva $joined"
echo "    (awk finds as many)"

echo
echo "2. Zones per country, in the order in which the countries come up"
run count "$zones" --no-header --comment '#' --by 1
show 8
echo "    ... $(lines) countries; those with most zones:"
sort -t "$(printf '\t')" -k 2,2nr -k 1,1 "$work/out" | head -n 3 | sed 's/^/    /'

echo
echo "3. $rows made-up orders of customers who order often or seldom"
"$morva" generate --rows "$rows" >"$work/orders.csv" || fail "cannot generate the orders"
echo "  \$ morva generate --rows $rows >orders.csv"
head -n 4 "$work/orders.csv" | sed 's/^/    /'
echo "    ... $(wc -c <"$work/orders.csv" | awk '{ printf "%.1f", $1 / 1048576 }') MiB"

echo
echo "   How many orders has each customer?"
measure count "$work/orders.csv" --by customer
echo "    $(($(lines) - 1)) customers; the first of them:"
show 4
cp "$work/out" "$work/counts.csv"

echo
echo "   What is each customer's turnover, region by region?"
measure sum "$work/orders.csv" --by customer,region --value amount
echo "    $(($(lines) - 1)) sums; the first of them:"
show 4

echo
echo "   Which was each customer's first order?"
measure distinct "$work/orders.csv" --by customer
echo "    $(($(lines) - 1)) orders; the first of them:"
show 4
first=$(lines)

echo
echo "   Every order with the number of orders its customer has"
measure join "$work/orders.csv" "$work/counts.csv" --on customer
echo "    $(($(lines) - 1)) orders; the first of them:"
show 4
[ "$(lines)" -eq $((rows + 1)) ] || fail "the join lost or added orders"
[ "$first" -eq "$(($(wc -l <"$work/counts.csv")))" ] || fail "count and distinct disagree"

echo
echo "4. The same turnover per customer by awk"
run sum "$work/orders.csv" --by customer --value amount
# In whole cents, so that both are exact; morva's sums are floats and are rounded to cents.
LC_ALL=C awk -F , '
  FNR == 1 { next }
  FNR == NR {
    if (!($2 in cents)) order[++groups] = $2
    amount = $4
    sub(/\./, "", amount)
    cents[$2] += amount
    next
  }
  {
    n++
    value = $2 * 100
    value = value < 0 ? -int(0.5 - value) : int(value + 0.5)
    if ($1 != order[n] || value != cents[$1]) {
      printf "    line %d: %s, awk has %s with %d cents\n", FNR, $0, order[n], cents[order[n]]
      exit 1
    }
  }
  END { if (n != groups) exit 1; printf "    agree on all %d customers, order included\n", n }
' "$work/orders.csv" "$work/out" || fail "awk and morva do not agree"
