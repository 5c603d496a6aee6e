#!/usr/bin/env python3
"""Prints what the benchmarks measured: one row a side, with our time as a multiple of its time.

usage: table.py FILE...        FILE: what --benchmark_out wrote

A time is the median over the repetitions; those of all sides of a program alternate. Sides in
parentheses are no peers but limits: the part of the work that nobody can leave out. Exit status 1
when a side did not do its work, or when ours is slower than every peer.
"""

import json
import re
import statistics
import sys

OURS = "hybase"
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


class Side:
    def __init__(self):
        self.times = []  # ns
        self.rates = []  # bytes a second
        self.goal = None
        self.error = None

    def add(self, run):
        if run.get("error_occurred"):
            self.error = run["error_message"]
            return
        self.times.append(run["real_time"] * NANOSECONDS[run["time_unit"]])
        if "bytes_per_second" in run:
            self.rates.append(run["bytes_per_second"])
        self.goal = run.get("goal")

    @property
    def time(self):
        return statistics.median(self.times) if self.times else float("inf")


def read(path, comparisons):
    with open(path, encoding="utf-8") as stream:
        runs = json.load(stream)["benchmarks"]
    for run in runs:
        if run["run_type"] != "iteration":
            continue
        # "WHAT/WHO" and what the benchmark library appends: "/real_time", "/threads:4" ...
        name = re.sub(r"/(real_time|manual_time|process_time|\w+:\d+)", "", run["run_name"])
        what, who = name.rsplit("/", 1)
        comparisons.setdefault(what, {}).setdefault(who, Side()).add(run)


def show_time(ns):
    for unit in ("ms", "us"):
        if ns >= NANOSECONDS[unit]:
            return f"{ns / NANOSECONDS[unit]:,.2f} {unit}"
    return f"{ns:,.1f} ns"


def row(who, side, ours):
    if side.error:
        return [who, side.error, "", "", "", ""]
    rate = f"{statistics.median(side.rates) / 1e6:,.0f} MB/s" if side.rates else ""
    cells = [who, show_time(side.time), rate, "", "", ""]
    if who != OURS and not ours.error:
        ratio = ours.time / side.time
        cells[3] = f"{ratio:.3f}"
        if side.goal:
            cells[4] = f"<= {side.goal:g}"
            cells[5] = "reached" if ratio <= side.goal else "missed"
    return cells


def print_table(what, rows):
    heading = [what, "time", "rate", "ours / it", "goal", ""]
    widths = [max(len(line[i]) for line in [heading] + rows) for i in range(len(heading))]
    for line in [heading, ["-" * width for width in widths]] + rows:
        cells = [line[0].ljust(widths[0])] + [c.rjust(w) for c, w in zip(line[1:], widths[1:])]
        print("| " + " | ".join(cells) + " |")
    print()


def main(paths):
    if not paths:
        sys.exit(__doc__)
    comparisons = {}
    for path in paths:
        read(path, comparisons)
    good = True
    for what, sides in comparisons.items():
        ours = sides[OURS]
        by_time = sorted(sides.items(), key=lambda item: item[1].time)
        print_table(what, [row(who, side, ours) for who, side in by_time])
        good = good and not any(side.error for side in sides.values())
        peers = [side for who, side in sides.items() if who != OURS and not who.startswith("(")]
        if good and peers and ours.time > max(side.time for side in peers):
            good = False
            print(f"{what}: slower than every peer\n")
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
