#!/usr/bin/env python3
"""Makes one table and one plot of the benchmarks that stand beside peers.

    bench/summarise.py FOLDER

reads the JSON results in FOLDER and writes peers.txt and peers.svg there; the table goes to the screen too.
A benchmark takes part when it has a label "what is done|who does it"; of repeated runs the fastest counts.
"""

import glob
import json
import math
import os
import sys
from xml.sax.saxutils import escape

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}
OURS = "zelqcood"


def read_rows(folder):
    rows = {}
    for path in sorted(glob.glob(os.path.join(folder, "*_bench.json"))):
        with open(path, encoding="utf-8") as file:
            results = json.load(file)["benchmarks"]
        for result in results:
            row, bar, who = result.get("label", "").partition("|")
            if not bar or result.get("error_occurred") or result.get("run_type") == "aggregate":
                continue
            # What waits for a disk or for other threads is measured by the clock, all else by processor time.
            clock = "real_time" if "/real_time" in result["name"] else "cpu_time"
            time = result[clock] * NANOSECONDS[result["time_unit"]]
            row = rows.setdefault(row, {})
            row[who] = min(time, row.get(who, time))
    return rows


def shown(nanoseconds):
    for unit in ("ns", "us", "ms"):
        if nanoseconds < 1000:
            return f"{nanoseconds:.3g} {unit}"
        nanoseconds /= 1000
    return f"{nanoseconds:.3g} s"


def verdict(times):
    ours = min((time for who, time in times.items() if who.startswith(OURS)), default=None)
    others = {who: time for who, time in times.items() if not who.startswith(OURS)}
    if ours is None or not others:
        return ""
    best = min(others, key=others.get)
    if ours <= others[best]:
        return f"{OURS} wins: {others[best] / ours:.1f} times as fast as {best}"
    return f"{best} wins: {ours / others[best]:.1f} times as fast as {OURS}"


def table(rows):
    lines = []
    for row, times in rows.items():
        lines.append(f"{row}: {verdict(times)}")
        lines += [f"    {shown(time):>9}  {who}" for who, time in sorted(times.items(), key=lambda each: each[1])]
    return "\n".join(lines) + "\n"


def plot(rows):
    """Bars whose length is the logarithm of the time: each grid line is ten times the one before."""
    name_width, bar_width, line_height = 300, 500, 18
    every = [time for times in rows.values() for time in times.values()]
    first, last = math.floor(math.log10(min(every))), math.ceil(math.log10(max(every)))
    scale = bar_width / max(last - first, 1)
    height = line_height * (sum(len(times) + 2 for times in rows.values()) + 2)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{name_width + bar_width + 100}" height="{height}" '
             'font-family="sans-serif" font-size="12">', '<rect width="100%" height="100%" fill="white"/>']
    for power in range(first, last + 1):
        x = name_width + (power - first) * scale
        parts.append(f'<line x1="{x:.0f}" y1="20" x2="{x:.0f}" y2="{height}" stroke="#ddd"/>'
                     f'<text x="{x:.0f}" y="15" text-anchor="middle">{shown(10.0 ** power)}</text>')
    y = 2 * line_height
    for row, times in rows.items():
        parts.append(f'<text x="5" y="{y + 12}" font-weight="bold">{escape(row)}</text>')
        y += line_height
        for who, time in sorted(times.items(), key=lambda each: each[1]):
            length = max((math.log10(time) - first) * scale, 1)
            colour = "#2a6" if who.startswith(OURS) else "#89a"
            parts.append(f'<text x="{name_width - 5}" y="{y + 12}" text-anchor="end">{escape(who)}</text>'
                         f'<rect x="{name_width}" y="{y + 2}" width="{length:.0f}" height="{line_height - 4}" '
                         f'fill="{colour}"/>'
                         f'<text x="{name_width + length + 5:.0f}" y="{y + 12}">{shown(time)}</text>')
            y += line_height
        y += line_height
    return "\n".join(parts + ["</svg>"]) + "\n"


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    folder = sys.argv[1]
    rows = read_rows(folder)
    if not rows:
        sys.exit(f"no results with peers in '{folder}'")
    for name, text in (("peers.txt", table(rows)), ("peers.svg", plot(rows))):
        with open(os.path.join(folder, name), "w", encoding="utf-8") as file:
            file.write(text)
    print(table(rows), end="")
    print(f"({os.path.join(folder, 'peers.txt')}, {os.path.join(folder, 'peers.svg')})")


main()
