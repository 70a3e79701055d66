"""Running test programs against a mutant: what they answer, and within which limits."""

import os
import re
import resource
import signal
import subprocess
import time
from dataclasses import dataclass, field

# A mutant must not take the machine with it.
MEMORY = 6 << 30
OUTPUT = 64 << 20

# What a mutant may take longer than the sources as they are.
CPU_FACTOR, CPU_EXTRA = 4, 2
WALL_FACTOR, WALL_EXTRA = 20, 20


@dataclass
class Program:
    """A test program, and how long it takes when all is well."""

    name: str
    # Its tests are processes of their own, where they do not get on in one.
    filters: list = field(default_factory=lambda: ["*"])
    cpu: float = 0.0
    wall: float = 0.0
    sanitized: bool = False  # takes its memory as it likes, and is slow


@dataclass(frozen=True)
class Verdict:
    passed: bool
    by: str = ""  # the test that failed, or how the program ended
    how: str = ""  # "failure", "crash", "time"


def limits(cpu, sanitized):
    def apply():
        resource.setrlimit(resource.RLIMIT_CPU, (cpu, cpu + 1))
        if not sanitized:
            resource.setrlimit(resource.RLIMIT_AS, (MEMORY, MEMORY))
        resource.setrlimit(resource.RLIMIT_FSIZE, (OUTPUT, OUTPUT))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

    return apply


def environment(sanitized):
    ours = {"GTEST_FAIL_FAST": "1", "GTEST_BRIEF": "1"}
    if sanitized:
        ours["ASAN_OPTIONS"] = f"hard_rss_limit_mb={MEMORY >> 20}"
    else:
        # What is freed, or never written, does not look right by chance.
        ours["MALLOC_PERTURB_"] = "165"
    return {**os.environ, **ours}


def run(program, path, filter_, log, cpu, wall):
    """Runs one process; answers its exit code, or None after `wall` seconds."""
    with open(log, "wb") as output:
        process = subprocess.Popen(
            [str(path), f"--gtest_filter={filter_}"],
            stdin=subprocess.DEVNULL,
            stdout=output,
            stderr=subprocess.STDOUT,
            cwd=path.parent,
            env=environment(program.sanitized),
            preexec_fn=limits(cpu, program.sanitized),
            start_new_session=True,
        )
        try:
            return process.wait(wall)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            process.wait()
            return None


def tests_of(path):
    """The full names of the tests in a program."""
    listed = subprocess.run(
        [str(path), "--gtest_list_tests"], capture_output=True, text=True, check=True
    )
    names, suite = [], ""
    for line in listed.stdout.splitlines():
        name = line.split("#")[0].rstrip()
        if name and not name.startswith(" ") and name.endswith("."):
            suite = name
        elif name.startswith("  "):
            names.append(suite + name.strip())
    return names


def measure(program, path, log):
    """Runs a program on the sources as they are; false when it cannot pass."""
    for filters in (["*"], tests_of(path)):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        start = time.monotonic()
        if all(run(program, path, one, log, 600, 600) == 0 for one in filters):
            after = resource.getrusage(resource.RUSAGE_CHILDREN)
            program.filters = filters
            program.wall = time.monotonic() - start
            program.cpu = (
                after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
            )
            return True
    return False


def first_failure(log):
    with open(log, "rb") as file:
        text = file.read(OUTPUT).decode("utf-8", "replace")
    found = re.search(r"^\[  FAILED  \] (\S+?)[,\s]", text, re.MULTILINE)
    return found.group(1) if found else ""


def judge(program, path, log):
    """Runs a program on a mutant, up to the first failure."""
    cpu = int(CPU_FACTOR * program.cpu + CPU_EXTRA)
    wall = WALL_FACTOR * program.wall + WALL_EXTRA
    for one in program.filters:
        code = run(program, path, one, log, cpu, wall)
        if code == 0:
            continue
        if code is None or -code in (signal.SIGXCPU, signal.SIGKILL):
            return Verdict(False, program.name, "time")
        if code < 0:
            return Verdict(False, f"{program.name}: {signal.Signals(-code).name}", "crash")
        return Verdict(False, first_failure(log) or f"{program.name}: exit {code}", "failure")
    return Verdict(True)
