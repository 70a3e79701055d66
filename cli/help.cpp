#include "help.h"

namespace morva::cli {

namespace {

// The lines that start with "  $ " are run by the tests, in a directory with the files they name.

constexpr const char *kOverview = R"(morva - counts, sums, deduplicates and joins CSV and TSV files

Usage: morva COMMAND [FILE...] [OPTION...]

Commands:
  count      rows per value of a column, or of several
  sum        the sum of one column per value of another
  distinct   the first row of every value of a column
  join       the rows of two files that agree in a column
  generate   a file of made-up orders to try things on
  check-extension  whether a library is an extension as the headers promise
  check-host  whether a library has a host as the headers promise
  help       this text, or with the name of a command its own

The values come out in the order in which they were first seen. Everything is
kept in a table of the library libmorva.so, in memory.

  $ morva count orders.csv --by customer
  $ morva help sum

morva --version tells the versions of the program and of the library.
Exit status: 0 done; 1 something is wrong with the data, the library or the
machine, or a check has not passed; 2 the command line is wrong.
)";

constexpr const char *kColumns = R"(
Columns are named as in the first line of the file, or with --no-header
numbered from 1. Several are given as A,B or by repeating the option; a name
that has a comma in it is given by itself.
)";

constexpr const char *kOneFile = R"(
FILE is read from the standard input when it is - or not given.
)";

constexpr const char *kInput = R"(
Input:
  --csv              comma-separated, fields may be in double quotes
  --tsv              tab-separated, quotes mean nothing
  --delimiter C      as --csv, with the character C for the comma (\t: tab)
                     Without these the file's name decides: .tsv and .tab are
                     tab-separated, all else and the standard input is CSV.
                     The output has the format of the input.
  --no-header        the first line is data; columns have numbers
  --comment TEXT     leave out lines that start with TEXT
  --skip-bad         leave out rows that cannot be used, and say how many; by
                     default the first such row ends the program
Empty lines are left out, except in files of one column. Lines end in LF or
CRLF; a byte order mark is dropped.

Other:
  --memory-limit SIZE  the most memory for the tables: bytes, or with K, M, G;
                     reaching it is an error. count, sum and join keep keys
                     in sizes of 16, 32, 64 bytes and so on, with room for
                     several at a time: a single very long key takes many
                     times its length
  --library FILE     the library to load; else the environment variable
                     MORVA_LIBRARY, else the one that belongs to the program
  --stats            print times and memory to the standard error
)";

constexpr const char *kCount = R"(Usage: morva count [FILE] --by COL[,COL...] [OPTION...]

Counts the rows per value of the columns. The output has these columns and
one more, count.

  $ morva count orders.csv --by customer
  $ morva count orders.csv --by customer,region
  $ morva count zones.tab --no-header --comment '#' --by 1
  $ tail -n +2 orders.csv | morva count --no-header --by 3
)";

constexpr const char *kSum = R"(Usage: morva sum [FILE] --by COL[,COL...] --value COL [OPTION...]

Adds up the column of --value per value of the columns of --by. The output has
the latter and one more, sum. Values are decimal numbers such as 12, -0.5 and
3e8; anything else is a bad row. They are added as 64-bit floats in the order
of the file.

  --empty-as-zero    an empty value counts as 0; by default it is a bad row

  $ morva sum orders.csv --by region --value amount
  $ morva sum orders.csv --by customer,region --value amount --stats
  $ morva sum gaps.csv --by region --value amount --empty-as-zero
  $ morva sum gaps.csv --by region --value amount --skip-bad
)";

constexpr const char *kDistinct = R"(Usage: morva distinct [FILE] --by COL[,COL...] [OPTION...]

Passes on the first row of every value of the columns, at once, so that it may
stand in a pipe. Memory is needed for the values only.

  --keys-only        the columns of --by only, not the whole row

  $ morva distinct orders.csv --by customer
  $ morva distinct orders.csv --by customer,region --keys-only
  $ cat orders.csv | morva distinct --by region
)";

constexpr const char *kJoin = R"(Usage: morva join LEFT RIGHT --on COL[,COL...] [OPTION...]

Puts together the rows of LEFT and RIGHT that agree in the columns of --on:
the columns of LEFT, then those of RIGHT without the columns of --on. The rows
come in the order of LEFT, and for each in the order of RIGHT. RIGHT is held in
memory, LEFT is not. The output has the format of LEFT; - for one of the files
is the standard input.

  --on COL[,COL...]  the columns, as they are called in both files; L=R where
                     LEFT calls L what RIGHT calls R
  --left             pass on rows of LEFT without a partner too, with empty
                     fields for RIGHT
  --width N          with --no-header: rows of LEFT have N columns

Rows with fewer columns than the header are filled up with empty fields; rows
with more are bad. Without a header the longest row of the file counts, or
--width; on the standard input the first row.

  $ morva join orders.csv customers.csv --on customer
  $ morva join orders.csv customers.csv --on customer --left
  $ morva join orders.csv regions.tab --on region=name
  $ morva join zones.tab countries.tab --no-header --comment '#' --on 1
)";

constexpr const char *kGenerate = R"(Usage: morva generate --rows N [--groups G] [--seed S]

Writes a CSV file of N made-up orders, with the columns id, customer, region
and amount; a helper for demonstrations and measurements. Some customers order
very often and many seldom, as in real life. The same numbers give the same
file everywhere.

  --rows N           how many rows
  --groups G         how many customers there are, a tenth of N by default; the
                     rarest need not turn up
  --seed S           another number gives another file, 1 by default

  $ morva generate --rows 5
  $ morva generate --rows 1000 --groups 20 --seed 7 | morva count --by customer
)";

constexpr const char *kCheckExtension =
    R"(Usage: morva check-extension FILE [OPTION...]
       morva check-extension --list

Tries whether the shared library FILE is an extension as the C headers of Morva
promise one: loads it, makes tables on a host that writes down every call, and
compares what it does, gives back and leaves alone. Nothing is asked for but
what the headers promise of any extension; what it costs is not measured.
)";

constexpr const char *kCheckHost = R"(Usage: morva check-host FILE [OPTION...]
       morva check-host --list

Tries whether the host in the shared library FILE is one as the C headers of
Morva promise: its pools, locks and companions, alone and below an extension.
The library exports MORVAHostForCheck, see <morva/check_host.h>.
)";

constexpr const char *kChecks = R"(
Every check has a name and runs in a process of its own: a library may crash or
hang, and the next check runs all the same. Run it on files you trust.

  --only NAME        that check only, or with a name that ends in a dot all
                     that start so; may be repeated. The checks without which
                     nothing else makes sense run along
  --time-limit SECONDS  the most time for one check, 1 to 3600; 20 by default
  --json             the report as one JSON object
  --list             print the checks and what each promises, and run none
)";

constexpr const char *kCheckExtensionEnd = R"(
Exit status: 0 all is well; 1 a check has failed, crashed or not come back.

  $ morva check-extension ./libmine.so --only version. --only routines.cases
  $ morva check-extension ./libmine.so --only sums. --json | grep -c promise
  $ morva check-extension --list | grep '^sums'
)";

constexpr const char *kCheckHostEnd =
    R"(  --library FILE     the extension that the host is tried with; else the
                     environment variable MORVA_LIBRARY, else the one that
                     belongs to the program

Exit status: 0 all is well; 1 a check has failed, crashed or not come back.

  $ morva check-host --list | head -n 1
)";

constexpr const char *kHelp = R"(Usage: morva help [COMMAND]

Prints what a command does, with its options and with examples.

  $ morva help
  $ morva help join
)";

}  // namespace

std::string helpText(const std::string &topic) {
  const std::string columns = kColumns;
  if (topic == "count") return kCount + columns + kOneFile + kInput;
  if (topic == "sum") return kSum + columns + kOneFile + kInput;
  if (topic == "distinct") return kDistinct + columns + kOneFile + kInput;
  if (topic == "join") return kJoin + columns + kInput;
  if (topic == "generate") return kGenerate;
  if (topic == "check-extension") {
    return std::string(kCheckExtension) + kChecks + kCheckExtensionEnd;
  }
  if (topic == "check-host") return std::string(kCheckHost) + kChecks + kCheckHostEnd;
  if (topic == "help") return kHelp;
  return kOverview;
}

}  // namespace morva::cli
