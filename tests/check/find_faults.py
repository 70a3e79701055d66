#!/usr/bin/env python3
"""Runs the checks on libraries with one fault each, and compares what they find.

    find_faults.py [--whole | --few] [--every-check] MORVA COMMAND TABLE DIRECTORY

COMMAND is check-extension or check-host. TABLE has lines FAULT: CHECK ... | CHECK ..., continued by
lines that start with a space. The library of a fault is broken_FAULT.so in DIRECTORY. The checks in
front of the bar must find the fault, and those behind it; all others must pass, unless there is a
star among them. CHECK=crashed and CHECK=timed-out say how a check must end that cannot come back.

To be quick, only the checks in front of the bar are run for each fault, and a handful of those that
must pass, others for each fault. With --whole all are, with --few none of the others. With
--every-check there must be a fault for each check, so that each is known to find something.
"""

import json
import os
import subprocess
import sys
import zlib

BAD = ("failed", "crashed", "timed-out")
HANDFUL = 3
LIMIT = 10
LIMIT_OF_HANGING = 1


def names_of_all_checks(morva, command):
    listed = subprocess.run([morva, command, "--list"], check=True, capture_output=True, text=True)
    return [line for line in listed.stdout.splitlines() if not line.startswith(" ")]


class Fault:
    """A line of the table."""

    def __init__(self, line):
        self.name, checks = line.split(":")
        first, _, also = checks.partition("|")
        self.ends = dict((word.split("=") + [None])[:2] for word in first.split())
        self.also = set(also.split()) - {"*"}
        self.unruly = "*" in also.split()

    def finds(self, check):
        return check in self.ends or check in self.also

    def handful(self, names):
        """Checks that must not find the fault, picked by its name."""
        others = [] if self.unruly else [name for name in names if not self.finds(name)]
        start = zlib.crc32(self.name.encode())
        step = max(1, len(others) // HANDFUL)
        return [others[(start + step * n) % len(others)] for n in range(HANDFUL) if others]


def faults_of(table):
    lines = []
    with open(table, encoding="ascii") as file:
        for line in file:
            line = line.split("#")[0].rstrip()
            if line.startswith(" "):
                lines[-1] += line
            elif line:
                lines.append(line)
    return [Fault(line) for line in lines]


def complaints(fault, morva, command, library, names, options):
    unknown = [name for name in [*fault.ends, *fault.also] if name not in names]
    if unknown or not fault.ends:
        return [f"the table names no check for it, or one that is not there: {unknown}"]
    hangs = "timed-out" in fault.ends.values()
    arguments = [morva, command, library, "--json"]
    arguments.append(f"--time-limit={LIMIT_OF_HANGING if hangs else LIMIT}")
    if "--whole" not in options:
        others = [] if "--few" in options else fault.handful(names)
        arguments += [f"--only={name}" for name in [*fault.ends, *others]]
    done = subprocess.run(arguments, capture_output=True, text=True, check=False)
    try:
        checks = {check["name"]: check for check in json.loads(done.stdout)["checks"]}
    except (ValueError, KeyError) as error:
        return [f"no report: {error}; {done.stderr}"]
    found = []
    if done.returncode != 1:
        found.append(f"the exit status is {done.returncode}")
    for name, check in checks.items():
        outcome, detail = check["outcome"], check["detail"]
        if not fault.finds(name):
            if outcome in BAD and not fault.unruly:
                found.append(f"{name} {outcome}, though it has nothing to do with it: {detail}")
        elif outcome not in BAD:
            found.append(f"{name} did not find it: {outcome}")
        elif fault.ends.get(name) not in (None, outcome):
            found.append(f"{name} {outcome}, not {fault.ends[name]}: {detail}")
    return found + [f"{name} was not run" for name in fault.ends if name not in checks]


def main(arguments):
    options = [word for word in arguments if word.startswith("--")]
    morva, command, table, directory = arguments[len(options) :]
    names = names_of_all_checks(morva, command)
    faults = faults_of(table)
    wrong = 0
    for name in names if "--every-check" in options else []:
        if not any(fault.finds(name) for fault in faults):
            wrong += 1
            print(f"{name}: no fault is found by it")
    for fault in faults:
        library = os.path.join(directory, f"broken_{fault.name}.so")
        for complaint in complaints(fault, morva, command, library, names, options):
            wrong += 1
            print(f"{fault.name}: {complaint}")
    print(f"{len(faults)} faults, {len(names)} checks, {wrong} complaints")
    return 0 if faults and wrong == 0 else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
