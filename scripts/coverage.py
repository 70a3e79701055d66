#!/usr/bin/env python3
"""Says which lines and branches of the libraries the tests have run.

    coverage.py BUILD REPORT

BUILD is a build directory of the preset "coverage" whose tests have been run.
Into the directory REPORT go index.html, report.txt and rooms.txt; the table of
rooms is also printed. The exit status is 1 where a room misses its share, or
where tests/coverage/excluded.txt does not fit the sources any more.

The figures are gcov's, put together by gcovr. A branch is a way out of a decision
in the source: nothing is optimised, and the libraries are compiled without
exceptions, so a call has no branches. Instances of a template count as one, line by line.
"""

import json
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
EXCLUDED = ROOT / "tests/coverage/excluded.txt"

# What must be run: of lines and of branches, in percent. The public headers are
# counted as far as the libraries are compiled from them.
ROOMS = [
    ("src/port", 100, 100),
    ("src/ext", 100, 100),
    ("src/instance", 100, 100),
    ("src/keys", 100, 100),
    ("src/tree", 100, 100),
    ("src/ops", 100, 100),
    ("include/morva", 100, 100),
    ("host", 95, 95),
]


class Trouble(Exception):
    """The list of exclusions is wrong."""


def read_exclusions(path):
    """Yields (where, file, at most?, lines, branches, text) of each entry.

    An entry is a line FILE: [at most] N lines, M branches; the lines of the
    source it is about, indented; and its reason. Or it is a line everywhere:,
    then a pattern of lines whose branches are not counted where they are not run.
    """
    for number, block in blocks(path.read_text().splitlines()):
        where = f"{path.name}:{number}"
        head, *rest = block
        text = [line.strip() for line in rest if line.startswith("    ")]
        reason = " ".join(line for line in rest if not line.startswith("    "))
        if head == "everywhere:" and len(text) == 1 and reason:
            yield where, None, False, 0, 0, text
            continue
        file, colon, amount = head.partition(": ")
        at_most = amount.startswith("at most ")
        words = amount.removeprefix("at most ").replace(",", "").split()
        if not colon or len(words) != 4 or words[1] != "lines" or words[3] != "branches":
            raise Trouble(f"{where}: not 'FILE: [at most] N lines, M branches'")
        if not text or not reason:
            raise Trouble(f"{where}: an entry has lines of the source and a reason")
        yield where, file, at_most, int(words[0]), int(words[2]), text


def blocks(lines):
    block, start = [], 0
    for number, line in enumerate([*lines, ""], 1):
        if line.startswith("#"):
            continue
        if line.strip():
            start = start if block else number
            block.append(line.rstrip())
        elif block:
            yield start, block
            block = []


def find(where, file, text):
    """The number of the first line of `text`, which is in the file once."""
    source = [line.strip() for line in (ROOT / file).read_text().splitlines()]
    found = [
        at + 1 for at in range(len(source)) if source[at : at + len(text)] == text
    ]
    if len(found) != 1:
        raise Trouble(f"{where}: {file} has these lines {len(found)} times: {text[0]}")
    return found[0]


def exclude(files, exclusions):
    """Takes what is excluded out of the figures; answers what does not fit."""
    wrong = []
    for where, file, at_most, lines, branches, text in exclusions:
        if file is None:
            if not exclude_everywhere(files, re.compile(text[0])):
                wrong.append(f"{where}: there is no such branch: {text[0]}")
            continue
        try:
            first = find(where, file, text)
        except (OSError, Trouble) as trouble:
            wrong.append(str(trouble))
            continue
        missed_lines = missed_branches = 0
        for line in files.get(file, {"lines": []})["lines"]:
            if not first <= line["line_number"] < first + len(text):
                continue
            if line.get("gcovr/noncode"):
                continue
            kept = [branch for branch in line["branches"] if branch["count"] != 0]
            missed_branches += len(line["branches"]) - len(kept)
            line["branches"] = kept
            if line["count"] == 0:
                missed_lines += 1
                line["gcovr/noncode"] = True
                line["branches"] = []
        missed = (missed_lines, missed_branches)
        good = (
            missed_lines <= lines and missed_branches <= branches
            if at_most
            else missed == (lines, branches)
        )
        if not good:
            wrong.append(
                f"{where}: {file}:{first} excludes {lines} lines and {branches} branches,"
                f" and {missed_lines} and {missed_branches} are not run"
            )
    return wrong


def exclude_everywhere(files, pattern):
    """Answers how many branches that were."""
    excluded = 0
    for name, entry in files.items():
        source = (ROOT / name).read_text().splitlines()
        for line in entry["lines"]:
            if line["branches"] and pattern.fullmatch(source[line["line_number"] - 1].strip()):
                kept = [branch for branch in line["branches"] if branch["count"] != 0]
                excluded += len(line["branches"]) - len(kept)
                line["branches"] = kept
    return excluded


class Count:
    def __init__(self):
        self.lines = self.lines_run = self.branches = self.branches_run = 0

    def add(self, line):
        self.lines += 1
        self.lines_run += line["count"] != 0
        self.branches += len(line["branches"])
        self.branches_run += sum(branch["count"] != 0 for branch in line["branches"])

    def row(self):
        return [
            f"{self.lines_run}/{self.lines}",
            percent(self.lines_run, self.lines),
            f"{self.branches_run}/{self.branches}",
            percent(self.branches_run, self.branches),
        ]

    def reaches(self, lines, branches):
        return (
            self.lines_run * 100 >= lines * self.lines
            and self.branches_run * 100 >= branches * self.branches
        )


def percent(part, whole):
    """Never 100 where something is missing."""
    return f"{int(part * 1000 / whole) / 10 if whole else 100.0:.1f} %"


def table(rows):
    widths = [max(len(row[i]) for row in rows) for i in range(len(rows[0]))]
    padded = ([cell.rjust(width) for cell, width in zip(row, widths)] for row in rows)
    return "\n".join(
        "  ".join([row[0].ljust(widths[0]), *cells[1:]]) for row, cells in zip(rows, padded)
    )


def gcovr(*arguments):
    subprocess.run(["gcovr", "--root", str(ROOT), *arguments], check=True, cwd=ROOT)


def main(build, report):
    report.mkdir(parents=True, exist_ok=True)
    raw, counted = report / "raw.json", report / "counted.json"
    filters = [f"--filter={name}/" for name, _, _ in ROOMS]
    gcovr(*filters, "--json", str(raw), str(build / "src"), str(build / "host"))

    data = json.loads(raw.read_text())
    files = {entry["file"]: entry for entry in data["files"]}
    wrong = exclude(files, read_exclusions(EXCLUDED))
    counted.write_text(json.dumps(data))
    gcovr("--add-tracefile", str(counted), "--txt", str(report / "report.txt"),
          "--html-details", str(report / "index.html"))

    rows = [["Room", "lines", "", "branches", "", "wanted"]]
    for room, lines, branches in ROOMS:
        count = Count()
        for name, entry in files.items():
            if not name.startswith(room + "/"):
                continue
            for line in entry["lines"]:
                if line.get("gcovr/noncode"):
                    continue
                count.add(line)
                missing = sum(branch["count"] == 0 for branch in line["branches"])
                if line["count"] == 0 or missing:
                    what = f"{missing} branches" if line["count"] else "line"
                    print(f"not run: {name}:{line['line_number']}: {what}")
        rows.append([room, *count.row(), f"{lines} %, {branches} %"])
        if count.lines == 0:
            wrong.append(f"{room}: nothing was counted")
        elif not count.reaches(lines, branches):
            wrong.append(f"{room}: less than wanted")
    text = table(rows)
    (report / "rooms.txt").write_text(text + "\n")
    print(text)
    for sentence in wrong:
        print(sentence, file=sys.stderr)
    return 1 if wrong else 0


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    try:
        sys.exit(main(pathlib.Path(sys.argv[1]).resolve(), pathlib.Path(sys.argv[2]).resolve()))
    except (Trouble, subprocess.CalledProcessError) as trouble:
        sys.exit(f"coverage.py: {trouble}")
