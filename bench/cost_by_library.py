#!/usr/bin/env python3
"""Sums a callgrind profile's own (exclusive) instruction counts by shared object, so a
benchmark can say how much of its work happens inside which library.

usage: cost_by_library.py callgrind.out.N
"""
import re
import sys
from collections import defaultdict


def main(path):
    names = {}
    current_ob = "?"
    totals = defaultdict(int)
    skip_next = False
    with open(path, encoding="utf-8", errors="replace") as f:
        for raw in f:
            line = raw.rstrip("\n")
            if skip_next:
                # The cost line after calls= is the call's inclusive cost, not the caller's own.
                skip_next = False
                continue
            if line.startswith("cob="):
                m = re.match(r"cob=\((\d+)\) (.*)", line)
                if m:
                    names[m.group(1)] = m.group(2)
                continue
            if line.startswith("ob="):
                m = re.match(r"ob=\((\d+)\)(?: (.*))?", line)
                if m:
                    if m.group(2):
                        names[m.group(1)] = m.group(2)
                    current_ob = names.get(m.group(1), m.group(1))
                else:
                    current_ob = line[3:]
                continue
            if line.startswith("calls="):
                skip_next = True
                continue
            if line and (line[0].isdigit() or line[0] in "+-*"):
                parts = line.split()
                if len(parts) >= 2:
                    totals[current_ob] += int(parts[-1])
    # Names may be given after their first use by number.
    totals = {names.get(k, k): v for k, v in totals.items()}
    grand = sum(totals.values()) or 1
    for ob, cost in sorted(totals.items(), key=lambda kv: -kv[1]):
        print(f"{100.0 * cost / grand:6.2f}%  {cost:>14,}  {ob}")
    # The drawing stack: cairo and pango, and the libraries they drive.
    stack = ("libcairo", "libpixman", "libpango", "libharfbuzz", "libfreetype", "libfontconfig",
             "libglib", "libgobject", "libfribidi", "libthai", "libpng", "libz")
    inside = sum(c for ob, c in totals.items() if any(s in ob for s in stack))
    print(f"inside cairo/pango and their libraries: {100.0 * inside / grand:.1f}%; "
          f"outside: {100.0 * (grand - inside) / grand:.1f}%")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    main(sys.argv[1])
