#!/usr/bin/env python3
"""Draws the samples of hostile_keys: nanoseconds per find over the number of keys in one bucket.

usage: report.py SAMPLES.csv DRAWING.svg

A line is the median of all hash methods, a dot is one of them. Needs nothing but Python.
"""

import csv
import html
import math
import statistics
import sys
from collections import defaultdict
from pathlib import Path

# In the order of the legend.
COLOURS = {
    "morva C": "#1f6fb2",
    "morva::table": "#5aa9e6",
    "std::map": "#555555",
    "std::unordered_map": "#c1572e",
}
LEFT, TOP, WIDTH, HEIGHT, BETWEEN = 62, 50, 330, 300, 60


def medians(path, operation):
    """By key length, contender and n: the medians of the methods."""
    samples = defaultdict(list)
    with open(path, newline="", encoding="utf-8") as file:
        for row in csv.DictReader(file):
            if row["operation"] == operation:
                name = (int(row["key_bytes"]), row["contender"], int(row["n"]), row["method"])
                samples[name].append(float(row["ns"]))
    if not samples:
        raise ValueError(f"{path}: no samples of {operation}")
    of = defaultdict(lambda: defaultdict(dict))
    for (length, contender, n, _), values in sorted(samples.items()):
        of[length][contender].setdefault(n, []).append(statistics.median(values))
    return of


def powers(low, high):
    """The powers of ten around two numbers."""
    return range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)


def text(x, y, content, anchor="middle", extra=""):
    return (f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}"{extra}>'
            f"{html.escape(content)}</text>")


def figure(exponent):
    return f"{10 ** exponent:,}".replace(",", " ")


def panel(lines, length, left, xs, ys):
    """One key length: axes, lines and dots."""
    def x_of(n):
        return left + WIDTH * (math.log10(n) - xs[0]) / (xs[-1] - xs[0])

    def y_of(ns):
        return TOP + HEIGHT * (ys[-1] - math.log10(ns)) / (ys[-1] - ys[0])

    yield text(left + WIDTH / 2, TOP - 8, f"keys of {length} bytes", extra=' font-weight="bold"')
    for exponent in xs:
        x = x_of(10 ** exponent)
        yield f'<path d="M{x:.1f} {TOP}V{TOP + HEIGHT}" stroke="#ddd"/>'
        yield text(x, TOP + HEIGHT + 16, figure(exponent))
    for exponent in ys:
        y = y_of(10 ** exponent)
        yield f'<path d="M{left} {y:.1f}H{left + WIDTH}" stroke="#ddd"/>'
        yield text(left - 6, y + 4, figure(exponent), "end")
    yield text(left + WIDTH / 2, TOP + HEIGHT + 34, "keys in the bucket")
    for contender, colour in COLOURS.items():
        points = lines.get(contender, {})
        path = " ".join(f"{x_of(n):.1f},{y_of(statistics.median(all_)):.1f}"
                        for n, all_ in sorted(points.items()))
        yield f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="2"/>'
        for n, all_ in points.items():
            for ns in all_:
                yield f'<circle cx="{x_of(n):.1f}" cy="{y_of(ns):.1f}" r="2" fill="{colour}"/>'


def draw(of, path):
    everything = [(n, ns) for lines in of.values() for points in lines.values()
                  for n, all_ in points.items() for ns in all_]
    xs = powers(min(n for n, _ in everything), max(n for n, _ in everything))
    ys = powers(min(ns for _, ns in everything), max(ns for _, ns in everything))
    elements = [text(0, 18, "All keys in one bucket: nanoseconds per find, less is better",
                     "start", ' font-weight="bold"')]
    left = LEFT
    for length, lines in sorted(of.items()):
        elements.extend(panel(lines, length, left, xs, ys))
        left += WIDTH + BETWEEN
    y = TOP + HEIGHT + 58
    for i, (contender, colour) in enumerate(COLOURS.items()):
        x = LEFT + 170 * i
        elements.append(f'<rect x="{x}" y="{y - 8}" width="18" height="4" fill="{colour}"/>')
        elements.append(text(x + 24, y, contender, "start"))
    width, height = left - BETWEEN + 50, y + 14
    path.write_text(
        f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
        f'viewBox="-10 0 {width} {height}" font-family="sans-serif" font-size="12">\n'
        f'<rect x="-10" width="{width}" height="{height}" fill="white"/>\n'
        + "\n".join(elements) + "\n</svg>\n", encoding="utf-8")


def main(arguments):
    if len(arguments) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        draw(medians(arguments[0], "find"), Path(arguments[1]))
    except (OSError, KeyError, ValueError) as error:
        print(f"report.py: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
