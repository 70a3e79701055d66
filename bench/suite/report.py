#!/usr/bin/env python3
"""Reduces the samples of morva_bench to medians, as Markdown tables and SVG drawings.

usage: report.py SAMPLES.csv DIRECTORY

Writes DIRECTORY/medians.csv, medians.md and one drawing a workload. Needs
nothing but Python.
"""

import csv
import html
import math
import statistics
import sys
from collections import defaultdict
from pathlib import Path

# What is drawn first, and in colour. All others are peers.
OURS = "morva"
LIMIT = "limit"
LIMIT_KEYS = "index"


class Samples:
    """The medians of a file of samples, and where they are from."""

    def __init__(self, path):
        self.head = []
        values = defaultdict(list)
        self.units = {}
        with open(path, newline="", encoding="utf-8") as file:
            lines = list(file)
        self.head = [line[1:].strip() for line in lines if line.startswith("#")]
        rows = csv.DictReader(line for line in lines if not line.startswith("#"))
        for row in rows:
            if any(cell is None for cell in row.values()):
                raise ValueError(f"{path}: sample {rows.line_num - 1} is cut off")
            name = (row["workload"], row["keys"], int(row["n"]), row["contender"])
            values[name].append(float(row["value"]))
            self.units[row["workload"]] = row["unit"]
        if not values:
            raise ValueError(f"{path}: no samples")
        self.medians = {name: statistics.median(all_) for name, all_ in values.items()}
        self.counts = {name: len(all_) for name, all_ in values.items()}
        self.workloads = list(dict.fromkeys(name[0] for name in values))

    def sizes(self, workload, keys):
        return sorted({n for w, k, n, _ in self.medians if (w, k) == (workload, keys)})

    def contenders(self, workload, keys):
        """Ours, then the peers, then the limits of the same workload."""
        names = {c for w, k, _, c in self.medians if w == workload and k in (keys, LIMIT_KEYS)}
        return sorted(names, key=lambda c: (kind(c), c))

    def median(self, workload, keys, n, contender):
        if contender.startswith(LIMIT):
            # An array made for keys that never come says nothing about memory.
            if self.units[workload] == "bytes":
                return None
            keys = LIMIT_KEYS
        return self.medians.get((workload, keys, n, contender))


def kind(contender):
    """0 for ours, 1 for a peer, 2 for a limit."""
    return 0 if contender.startswith(OURS) else 2 if contender.startswith(LIMIT) else 1


def figure(value):
    """Three digits that count."""
    if value is None:
        return ""
    if value >= 1000:
        return f"{value:,.0f}".replace(",", " ")
    return f"{value:.0f}" if value >= 100 else f"{value:.1f}"


def markdown_table(samples, keys, n, workloads):
    """Contenders down, workloads across; the best of all tables in bold."""
    shown = [w for w in workloads if n in samples.sizes(w, keys)]
    names = sorted({c for w in shown for c in samples.contenders(w, keys)},
                   key=lambda c: (kind(c), c))
    best = {w: min((samples.median(w, keys, n, c) for c in names
                    if kind(c) != 2 and samples.median(w, keys, n, c) is not None), default=None)
            for w in shown}
    lines = ["| contender | " + " | ".join(w.replace("_", " ") for w in shown) + " |",
             "|---|" + "---:|" * len(shown)]
    for name in names:
        cells = []
        for workload in shown:
            value = samples.median(workload, keys, n, name)
            text = figure(value)
            cells.append(f"**{text}**" if value is not None and value == best[workload] else text)
        if any(cells):
            lines.append(f"| {name} | " + " | ".join(cells) + " |")
    return "\n".join(lines)


def groups_of(samples):
    """Workloads that belong in one table: those measured by the same contenders at one size."""
    families = [("One record per key", lambda w: w in POINTS),
                ("All keys in one bucket", lambda w: w.startswith("one_bucket")),
                ("Sums by group", lambda w: w == "group_sum"),
                ("Several records per key", lambda w: w.startswith("records")),
                ("Single insertions, number of records not known",
                 lambda w: w.startswith("latency_p") or w == "latency_worst"),
                ("Single insertions, number of records known",
                 lambda w: w.startswith("latency_told")),
                ("Two threads", lambda w: w == "two_threads")]
    for title, belongs in families:
        workloads = [w for w in samples.workloads if belongs(w)]
        if workloads:
            yield title, workloads


POINTS = ("insert", "find_hit", "find_dependent", "find_miss", "replace", "mixed", "remove",
          "memory")


def write_markdown(samples, path):
    parts = ["Medians. Nanoseconds per operation (per record, for several records per key); memory "
             "in bytes per record.", "\n".join(f"- {line}" for line in samples.head)]
    for title, workloads in groups_of(samples):
        parts.append(f"## {title}")
        for keys in ("u64", "text"):
            sizes = sorted({n for w in workloads for n in samples.sizes(w, keys)})
            for n in sizes:
                count = max(c for (w, k, m, _), c in samples.counts.items()
                            if w in workloads and k == keys and m == n)
                parts.append(f"### {keys} keys, n = {figure(n)} ({count} samples)")
                parts.append(markdown_table(samples, keys, n, workloads))
    path.write_text("\n\n".join(parts) + "\n", encoding="utf-8")


def write_medians(samples, path):
    with open(path, "w", newline="", encoding="utf-8") as file:
        out = csv.writer(file)
        out.writerow(["workload", "keys", "contender", "n", "median", "unit", "samples"])
        for name in sorted(samples.medians):
            workload, keys, n, contender = name
            out.writerow([workload, keys, contender, n, f"{samples.medians[name]:.6g}",
                          samples.units[workload], samples.counts[name]])


# ---- drawings -----------------------------------------------------------------

BAR, GAP, LABEL, WIDTH, FIGURES = 14, 4, 210, 420, 70
COLOURS = ("#1f6fb2", "#9a9a9a", "#d9d2c0")


def nice_top(value):
    """The next 1, 2 or 5 times a power of ten."""
    power = 10 ** math.floor(math.log10(value))
    return next(m * power for m in (1, 2, 5, 10) if m * power >= value)


def svg_text(x, y, text, anchor="start", weight="normal"):
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" font-weight="{weight}">'
            f"{html.escape(text)}</text>")


def panel(samples, workload, keys, n, top, elements):
    """Draws the bars of one size from `top` down; answers where they end."""
    bars = [(samples.median(workload, keys, n, c), c) for c in samples.contenders(workload, keys)]
    bars = sorted((value, c) for value, c in bars if value is not None)
    # A few that are very slow would make all others look alike: those are cut off.
    usual = statistics.median(value for value, _ in bars)
    scale = nice_top(max(1e-9, min(bars[-1][0], 4 * usual)))
    elements.append(svg_text(0, top + 12, f"{keys} keys, n = {figure(n)}", weight="bold"))
    top += 20
    for value, contender in bars:
        length = WIDTH * min(1, value / scale)
        elements.append(svg_text(LABEL - 6, top + BAR - 3, contender, anchor="end"))
        elements.append(f'<rect x="{LABEL}" y="{top}" width="{length:.1f}" height="{BAR}" '
                        f'fill="{COLOURS[kind(contender)]}"/>')
        cut = " (cut off)" if value > scale else ""
        elements.append(svg_text(LABEL + length + 5, top + BAR - 3, figure(value) + cut))
        top += BAR + GAP
    return top + 14


def draw(samples, workload, path):
    elements = []
    top = 30
    for keys in ("u64", "text"):
        for n in samples.sizes(workload, keys):
            top = panel(samples, workload, keys, n, top, elements)
    if not elements:
        return
    unit = "bytes per record" if samples.units[workload] == "bytes" else "nanoseconds"
    title = f"{workload.replace('_', ' ')}: {unit}, less is better"
    width = LABEL + WIDTH + FIGURES + 60
    path.write_text(
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{top}" '
        f'viewBox="-10 0 {width} {top}" font-family="sans-serif" font-size="12">\n'
        f'<rect x="-10" width="{width}" height="{top}" fill="white"/>\n'
        + svg_text(0, 16, title, weight="bold") + "\n" + "\n".join(elements) + "\n</svg>\n",
        encoding="utf-8")


def main(arguments):
    if len(arguments) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        samples = Samples(arguments[0])
    except (OSError, KeyError, ValueError) as error:
        print(f"report.py: {error}", file=sys.stderr)
        return 1
    directory = Path(arguments[1])
    directory.mkdir(parents=True, exist_ok=True)
    write_medians(samples, directory / "medians.csv")
    write_markdown(samples, directory / "medians.md")
    for workload in samples.workloads:
        draw(samples, workload, directory / f"{workload}.svg")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
