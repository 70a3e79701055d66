#!/usr/bin/env python3
"""Breaks src/ in small ways, one at a time, and sees whether the tests notice.

A mutant is caught when a test fails, crashes or does not end. One that does not
compile is no mutant; one that compiles to the same machine code is none either.
Ends with 1 when fewer than 95 % are caught, or when one lives that
tests/mutants/survivors.toml does not explain, or when what it explains was caught.
"""

import argparse
import os
import queue
import random
import re
import sys
import threading
import time
from collections import Counter
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
sys.dont_write_bytecode = True
sys.path.insert(0, str(ROOT / "tests" / "mutants"))

# pylint: disable=wrong-import-position
import explained
import handwritten
import programs
import scanner
from mutant import HAND_WRITTEN, KINDS, ROOMS, sources
from workshop import PLAIN, SANITIZED, SECOND, WITH_HEADERS, Base, NotCompiled, Worker, copy_tree

WANTED = 0.95

# About what linking a program takes, in seconds: those that need none go first.
LINKING = 0.7

FEWEST_HAND_WRITTEN = 60

OUTCOMES = ("not compiled", "same code", "caught", "survived")


def arguments():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--work", type=Path, default=ROOT / "build" / "mutants",
                        help="where to build (build/mutants)")
    parser.add_argument("--sample", type=int, default=300, metavar="N",
                        help="how many of the generated mutants to try (300)")
    parser.add_argument("--seed", type=int, default=5, help="which ones (5)")
    parser.add_argument("--all", action="store_true", help="try all that can be generated")
    parser.add_argument("--no-hand-written", action="store_true", help="only generated ones")
    parser.add_argument("--only", metavar="REGEX", help="only those whose file: name has it")
    parser.add_argument("--jobs", type=int, choices=(1, 2), default=min(2, os.cpu_count() or 1))
    parser.add_argument("--list", action="store_true", help="name the mutants, and end")
    parser.add_argument("--check", action="store_true",
                        help="see whether the lists fit the sources, and end")
    return parser.parse_args()


def choose(options, by_hand, generated):
    """The mutants to try."""
    chosen = generated
    if not options.all and not options.only:
        count = min(options.sample, len(generated))
        chosen = random.Random(options.seed).sample(generated, count)
    mutants = ([] if options.no_hand_written else by_hand) + chosen
    if options.only:
        wanted = re.compile(options.only)
        mutants = [m for m in mutants if wanted.search(f"{m.file}: {m.name}")]
    return mutants


class Trial:
    """Mutants, and what became of them under the tests of one build."""

    def __init__(self, base, mutants, jobs):
        self.sanitized = base.plan.sanitized
        self.workers = [Worker(base, number) for number in range(1, jobs + 1)]
        self.programs = measure(self.workers[0])
        self.waiting = queue.SimpleQueue()
        for mutant in mutants:
            self.waiting.put(mutant)
        self.total = len(mutants)
        self.outcomes = {}
        self.mutex = threading.Lock()

    def order(self, room):
        """The quick programs of the room, then the others; then what takes longer."""
        def rank(program):
            subject = {"headers": "keys"}.get(room, room)
            return (program.name in SECOND, subject not in program.name, program.wall)

        # Programs that have the headers in themselves take long to compile.
        chosen = [
            program
            for program in self.programs
            if room != "headers" or program.name not in SECOND or program.name in WITH_HEADERS
        ]
        return sorted(chosen, key=rank)

    def try_one(self, worker, mutant):
        """(outcome, what caught it, how)"""
        worker.begin(mutant)
        try:
            if not worker.build():
                return "same code", "", ""
            compared = self.sanitized
            for program in self.order(mutant.room):
                # What is not the same at -O1 may be at more.
                if program.name in SECOND and not compared:
                    if worker.is_same("-O2") or worker.is_same("-O3"):
                        return "same code", "", ""
                    compared = True
                verdict = programs.judge(program, worker.program(program.name), worker.log)
                if not verdict.passed:
                    return "caught", verdict.by, verdict.how
        except NotCompiled:
            return "not compiled", "", ""
        return "survived", "", ""

    def work(self, worker):
        while True:
            try:
                mutant = self.waiting.get_nowait()
            except queue.Empty:
                return
            start = time.monotonic()
            outcome, by, how = self.try_one(worker, mutant)
            if self.sanitized and how:
                how = "sanitizer"
            with self.mutex:
                self.outcomes[mutant] = (outcome, by, how)
                print(f"{len(self.outcomes):5}/{self.total} {outcome:12} "
                      f"{time.monotonic() - start:5.1f} s  {mutant.file}: {mutant.name}"
                      + (f"  [{how}: {by}]" if how else ""), flush=True)

    def run(self):
        threads = [threading.Thread(target=self.work, args=(each,)) for each in self.workers]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        return self.outcomes


def measure(worker):
    """The test programs, each run on the sources as they are."""
    measured = []
    for name in worker.base.plan.programs:
        program = programs.Program(name, sanitized=worker.base.plan.sanitized)
        if not programs.measure(program, worker.program_as_it_is(name), worker.log):
            raise SystemExit(f"{name} fails on the sources as they are: see {worker.log}")
        if worker.base.is_white_box(name):
            program.wall += LINKING
        measured.append(program)
    return measured


def table(outcomes):
    """Rows of a Markdown table: what became of the mutants of a room and kind."""
    head = ("room", "kind", "made", *OUTCOMES, "of those that count")
    yield "| " + " | ".join(head) + " |"
    yield "|---|---|" + "---:|" * (len(head) - 2)
    rows = [(room, kind) for room in (*ROOMS, "headers") for kind in KINDS]
    rows += [("all", HAND_WRITTEN), ("all", "generated"), ("all", "all")]
    for room, kind in rows:
        counts = Counter(
            outcome
            for mutant, (outcome, _, _) in outcomes.items()
            if room in ("all", mutant.room)
            and (kind in ("all", mutant.kind)
                 or kind == "generated" and mutant.kind != HAND_WRITTEN)
        )
        if not counts:
            continue
        cells = [room, kind, sum(counts.values()), *(counts[outcome] for outcome in OUTCOMES)]
        yield "| " + " | ".join(map(str, cells)) + f" | {share(counts)} |"


def share(counts):
    tried = counts["caught"] + counts["survived"]
    return f"{100 * counts['caught'] / tried:.1f} %" if tried else "-"


def report(outcomes, explanations, seconds):
    """Prints what became of the mutants; answers the exit status."""
    print("\n" + "\n".join(table(outcomes)))
    hows = Counter(how for outcome, _, how in outcomes.values() if outcome == "caught")
    print("\nCaught by: " + ", ".join(f"{how} {n}" for how, n in hows.most_common())
          + f". {seconds / 60:.1f} minutes.")
    problems = []
    survivors = [m for m, (outcome, _, _) in outcomes.items() if outcome == "survived"]
    if survivors:
        print("\nSurvivors:")
    for mutant in sorted(survivors, key=lambda m: (m.file, m.start)):
        print(f"- {mutant.file}: {mutant.name}")
        entry = explanations.get((mutant.file, mutant.name))
        if entry is None:
            problems.append(f"not explained: {mutant.file}: {mutant.name}")
        else:
            print(f"    {'equal' if entry['equal'] else 'not tested'}: {entry['why'].strip()}")
    for mutant, (outcome, by, _) in outcomes.items():
        if (mutant.file, mutant.name) in explanations and outcome != "survived":
            problems.append(f"explained, but {outcome}: {mutant.file}: {mutant.name} {by}")
    counts = Counter(outcome for outcome, _, _ in outcomes.values())
    if counts["caught"] < WANTED * (counts["caught"] + counts["survived"]):
        problems.append(f"only {share(counts)} are caught")
    for problem in problems:
        print(f"mutants: {problem}", file=sys.stderr)
    return 1 if problems else 0


def load(root):
    """The mutants by hand, those generated, and the explanations."""
    by_hand = handwritten.load(root)
    if len(by_hand) < FEWEST_HAND_WRITTEN:
        raise handwritten.ListError(f"only {len(by_hand)} are written by hand")
    generated = scanner.generate(root, sources(root))
    explanations = explained.load(root)
    explained.check(explanations, by_hand + generated)
    return by_hand, generated, explanations


def main():
    options = arguments()
    work = options.work.resolve()
    start = time.monotonic()
    try:
        by_hand, generated, explanations = load(ROOT)
        if not options.check and not options.list:
            # From here on the sources may change.
            copy_tree(ROOT, work / "tree", (ROOT / "build", work))
            by_hand, generated, explanations = load(work / "tree")
    except handwritten.ListError as error:
        print(f"mutants: {error}", file=sys.stderr)
        return 1
    if options.check:
        print(f"{len(by_hand)} written by hand, {len(generated)} generated, "
              f"{len(explanations)} explained: all fit the sources")
        return 0
    mutants = choose(options, by_hand, generated)
    if options.list:
        for mutant in mutants:
            print(f"{mutant.kind}: {mutant.file}: {mutant.name}")
        return 0
    trial = Trial(Base(work, PLAIN), mutants, options.jobs)
    print(f"built and measured in {time.monotonic() - start:.0f} s; "
          f"{len(mutants)} mutants, seed {options.seed}", flush=True)
    outcomes = trial.run()
    # Those that nothing can tell from the sources need no other look.
    unclear = [
        mutant
        for mutant, (outcome, _, _) in outcomes.items()
        if outcome == "survived"
        and not explanations.get((mutant.file, mutant.name), {"equal": False})["equal"]
    ]
    if unclear:
        print(f"{len(unclear)} once more, under sanitizers", flush=True)
        outcomes.update(Trial(Base(work, SANITIZED), unclear, options.jobs).run())
    return report(outcomes, explanations, time.monotonic() - start)


if __name__ == "__main__":
    sys.exit(main())
