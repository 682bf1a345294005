#!/usr/bin/env python3
"""What became of a long run: a verdict by slope, and a picture.

    soak.py <folder>

The folder has one more for each arrangement of processes, in which each process has a file of lines
(tests/torture/soak_process.cpp). Prints a table and writes picture.png beside it. The exit code is 1
when something grows beyond its budget, or a process has ended long before another.

Growth is the slope over the operations after a warm-up of a quarter: the median of the slopes between
all pairs of lines, which single lines and a step at the start do not move, with the interval that it
lies in with a probability of 99.7 % (from the ranks of those slopes). Something grows when the whole
interval is beyond the budget, and holds when none of it is; otherwise the run was too short to tell.
"""

import csv
import dataclasses
import itertools
import math
import pathlib
import subprocess
import sys

PER = 100_000  # operations
WARM_UP = 0.25  # of the lines; by then heaps have the size that all threads together need
DEVIATIONS = 3.0  # of the normal distribution, to either side
FEWEST_LINES = 6
FEWEST_PART = 0.75  # of the most lines of a process; machines under load have fewer


@dataclasses.dataclass(frozen=True)
class Quantity:
    key: str  # the column
    name: str
    budget: float  # of growth for each 100,000 operations; a count may grow by less than one


QUANTITIES = (
    Quantity("heap", "heap bytes", 1024),
    Quantity("private", "private bytes", 1024),  # outside of heaps, but for the viewer's
    Quantity("blocks", "blocks", 1),
    Quantity("handles", "handles", 1),
    Quantity("gdi", "drawing objects", 1),
    Quantity("windows", "windows", 1),
)


@dataclasses.dataclass(frozen=True)
class Slope:
    value: float
    low: float
    high: float


def slope_of(points):
    """The slope of (x, y) points with its interval; None when there are too few."""
    slopes = sorted(
        (later[1] - earlier[1]) / (later[0] - earlier[0])
        for i, earlier in enumerate(points)
        for later in points[i + 1 :]
        if later[0] > earlier[0]
    )
    if len(points) < FEWEST_LINES or not slopes:
        return None
    count, pairs = len(points), len(slopes)
    reach = DEVIATIONS * math.sqrt(count * (count - 1) * (2 * count + 5) / 18)
    low = max(0, math.floor((pairs - reach) / 2))
    high = min(pairs - 1, math.ceil((pairs + reach) / 2))
    middle = (slopes[(pairs - 1) // 2] + slopes[pairs // 2]) / 2
    return Slope(middle, slopes[low], slopes[high])


def verdict_of(slope, budget):
    if slope is None:
        return "open"
    if slope.low > budget:
        return "grows"
    return "holds" if slope.high <= budget else "open"


def read(path):
    """The lines of a process: numbers by column."""
    with open(path, newline="") as file:
        return [
            {key: text if key in ("process", "slowest") else float(text) for key, text in row.items()}
            for row in csv.DictReader(file)
        ]


def operations_at(processes, time):
    """How many operations the processes together had made at a time."""
    total = 0.0
    for lines in processes:
        before = [line for line in lines if line["time"] <= time]
        after = [line for line in lines if line["time"] > time]
        if before and after:
            span = after[0]["time"] - before[-1]["time"]
            part = (time - before[-1]["time"]) / span
            total += before[-1]["operations"]
            total += part * (after[0]["operations"] - before[-1]["operations"])
        elif before:
            total += before[-1]["operations"]
    return total


def first_of(lines):
    """The place of the first line after the warm-up."""
    return max(1, math.ceil(len(lines) * WARM_UP))


def judge(lines):
    """(quantity, slope, verdict) of each quantity that a process has."""
    rows = []
    for quantity in QUANTITIES:
        points = [(line["operations"] / PER, line[quantity.key]) for line in lines[first_of(lines) :]]
        if any(y for _, y in points):
            slope = slope_of(points)
            rows.append((quantity, slope, verdict_of(slope, quantity.budget)))
    return rows


def load(folder):
    """{(arrangement, process): lines} of a run; operations of the viewer are those of all others."""
    run = {}
    for arrangement in sorted(path for path in folder.iterdir() if path.is_dir()):
        files = sorted(arrangement.glob("process-*.csv"))
        processes = [read(file) for file in files]
        for file, lines in zip(files, processes):
            run[arrangement.name, file.stem.removeprefix("process-")] = lines
        viewer = arrangement / "viewer.csv"
        if viewer.exists():
            lines = read(viewer)
            for line in lines:
                line["operations"] = operations_at(processes, line["time"])
            run[arrangement.name, "viewer"] = lines
    return {key: lines for key, lines in run.items() if lines}


def ended_early(run):
    """The names of processes that have far fewer lines than another; viewers start before them."""
    most = max((len(lines) for (_, name), lines in run.items() if name != "viewer"), default=0)
    return [": ".join(key) for key, lines in run.items() if len(lines) < FEWEST_PART * most]


def table(run):
    """The lines of the table, and the names of what grows and of what is open."""
    text = [
        f"| process | operations | faults | slowest call | quantity | for {PER:,} operations "
        "| between | budget | verdict |",
        "|---|---:|---:|---|---|---:|---:|---:|---|",
    ]
    grown, undecided = [], []
    for (arrangement, process), lines in run.items():
        name = f"{arrangement}: {process}"
        slowest = max(lines, key=lambda line: line["slowest_ms"])
        head = [
            name,
            f"{lines[-1]['operations']:,.0f}",
            f"{lines[-1]['faults']:,.0f}",
            f"{slowest['slowest_ms']:,.0f} ms, {slowest['slowest']}" if slowest["slowest"] else "",
        ]
        for quantity, slope, verdict in judge(lines):
            numbers = ["", ""] if slope is None else [
                f"{slope.value:+,.1f}", f"{slope.low:+,.1f} and {slope.high:+,.1f}"
            ]
            cells = [*head, quantity.name, *numbers, f"{quantity.budget:,}", verdict]
            text.append("| " + " | ".join(cells) + " |")
            head = ["", "", "", ""]
            list_of = {"grows": grown, "open": undecided}.get(verdict)
            if list_of is not None:
                list_of.append(f"{name}: {quantity.name}")
    return text, grown, undecided


COLOURS = ("#1f77b4", "#ff7f0e", "#2ca02c", "#d62728", "#9467bd", "#8c564b", "#17becf", "#7f7f7f")


PANELS = (  # title, what is drawn of a line, whether its change
    ("Heap bytes in use, change in KB", lambda line: line["heap"] / 1024, True),
    ("Private bytes outside of heaps, change in KB", lambda line: line["private"] / 1024, True),
    ("Pages of heaps, change in KB", lambda line: line["heap_pages"] / 1024, True),
    ("Handles, change", lambda line: line["handles"], True),
    ("Drawing objects and windows, change", lambda line: line["gdi"] + line["windows"], True),
    ("Slowest call of each period, ms", lambda line: line["slowest_ms"], False),
)


def plot(run, picture):
    """A panel for each matter, with a curve for each process."""
    start = min(lines[0]["time"] for lines in run.values())
    script = [
        "set terminal png size 1400,1200 noenhanced",
        f"set output '{picture}'",
        "set key outside right top",
        "set grid",
        "set xlabel 'minutes'",
    ]
    panels = []
    for title, value_of, is_change in PANELS:
        curves = []
        for colour, ((arrangement, process), lines) in zip(itertools.cycle(COLOURS), run.items()):
            values = [value_of(line) for line in lines]
            if not any(values):
                continue
            base = values[first_of(lines) - 1] if is_change else 0
            block = f"$data{len(panels)}x{len(curves)}"
            script.append(f"{block} << EOD")
            for line, value in zip(lines, values):
                if is_change or value > 0:
                    script.append(f"{(line['time'] - start) / 60:.3f} {value - base:.3f}")
            script.append("EOD")
            curves.append(
                f"{block} with lines lw 2 lc rgb '{colour}' title '{arrangement}: {process}'"
            )
        scale = "unset logscale y" if is_change else "set logscale y"
        panels.append(f"{scale}\nset title '{title}'\nplot " + ", ".join(curves))
    script += ["set multiplot layout 3,2", *panels, "unset multiplot"]
    subprocess.run(["gnuplot"], input="\n".join(script) + "\n", text=True, check=True)


def main(arguments):
    folder = pathlib.Path(arguments[0])
    run = load(folder)
    if not run:
        print("there are no records", file=sys.stderr)
        return 2
    text, grown, undecided = table(run)
    print("\n".join(text))
    plot(run, folder / "picture.png")
    if undecided:
        print("too short to tell: " + ", ".join(undecided))
    ended = ended_early(run)
    if ended:
        print("ended early: " + ", ".join(ended))
    if grown:
        print("grows: " + ", ".join(grown))
    if ended or grown:
        return 1
    print("nothing grows beyond its budget" if not undecided else "nothing is shown to grow")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
