#!/usr/bin/env python3
"""usage: bench/report.py BUILD. Runs the benchmark programs of BUILD and prints each figure as a ratio to its peer of the
same run, beside its goal. Writes the same as BUILD/report.json, as the plot docs/bench.svg and as the last section of
docs/performance.md."""
import datetime
import itertools
import json
import os
import pathlib
import platform
import statistics
import subprocess
import sys

import matplotlib

matplotlib.use("svg")
import matplotlib.pyplot as plt  # noqa: E402: after the choice of what it draws with

BENCH = pathlib.Path(__file__).parent
DOCS = BENCH.parent / "docs"
FIGURES = "## The figures\n"


def medians(program, directory):
    """Runs one program, each benchmark five times and these in random order, and takes each one's median."""
    out = directory / f"{program.name}.json"
    subprocess.run(
        [program, "--benchmark_repetitions=5", "--benchmark_enable_random_interleaving=true",
         "--benchmark_min_time=0.2", "--benchmark_out_format=json", f"--benchmark_out={out}"],
        check=True, stdout=subprocess.DEVNULL)
    times = {}
    for row in json.loads(out.read_text())["benchmarks"]:
        if row.get("run_type") == "iteration":
            if row.get("error_occurred"):
                sys.exit(f"{row['name']}: {row.get('error_message')}")
            times.setdefault(row["run_name"], []).append(row["real_time"])
    return {name: statistics.median(values) for name, values in times.items()}


def measure(build):
    """A row for each line of goals.tsv, by family: the folder that the program's source lies in."""
    goals = [line.split("\t") for line in (BENCH / "goals.tsv").read_text().splitlines()
             if line and not line.startswith("#")]
    times = {program: medians(build / "bin" / program, build) for program in sorted({row[0] for row in goals})}
    rows = []
    for program, ours, peer, goal, what in goals:
        mine, other = times[program][ours], times[program][peer]
        rows.append({"family": next(BENCH.glob(f"*/{program}.cpp")).parent.name, "what": what,
                     "program": program, "ours": ours, "peer": peer, "oursNs": mine, "peerNs": other,
                     "ratio": mine / other, "goal": None if goal == "-" else float(goal)})
    return sorted(rows, key=lambda row: row["family"])


def number(ratio):
    return f"{ratio:.2f}" if ratio >= 0.1 else f"{ratio:.2g}"


def by_family(rows):
    return [(family, list(group)) for family, group in itertools.groupby(rows, lambda row: row["family"])]


def print_table(rows):
    width = max(len(row["what"]) for row in rows)
    print(f"{'':{width}} {'ours, ns':>11} {'peer, ns':>11} {'ratio':>7} {'goal':>6}")
    for family, group in by_family(rows):
        print(f"-- {family}")
        for row in group:
            verdict = "  over the goal" if row["goal"] and row["ratio"] > row["goal"] else ""
            print(f"{row['what']:{width}} {row['oursNs']:11.0f} {row['peerNs']:11.0f} {number(row['ratio']):>7}"
                  f" {row['goal'] or '-':>6}{verdict}")


def write_figures(run, document):
    """The last section of the document anew; what stands before it is written by hand."""
    lines = [FIGURES, f"Of {run['date']}: {run['machine']}, {run['processors']} processors of a shared virtual machine, the"
             f" load before the run {run['loadBefore']:.1f}. Bold: over the goal.", ""]
    for family, group in by_family(run["rows"]):
        lines += [f"| {family}: ours / peer | ratio | goal |", "|---|---|---|"]
        for row in group:
            ratio = number(row["ratio"])
            ratio = f"**{ratio}**" if row["goal"] and row["ratio"] > row["goal"] else ratio
            lines.append(f"| {row['what']} | {ratio} | {row['goal'] or '-'} |")
        lines.append("")
    text = document.read_text().partition(FIGURES)[0]
    document.write_text(text + "\n".join(lines))


def draw(rows, plot):
    """A bar for each row that has a goal: how much of it is used. In colours for a light page and for a dark one."""
    ink, within, beyond = "#7a8490", "#3f8fc4", "#d9702b"
    plt.rcParams.update({"svg.fonttype": "none", "svg.hashsalt": "zema", "font.size": 9.5, "text.color": ink,
                         "xtick.color": ink, "ytick.color": ink})
    lines = []  # a family's name, or a row
    for family, group in by_family([row for row in rows if row["goal"]]):
        lines += [family, *group]
    figure, axes = plt.subplots(figsize=(800 / 72, (len(lines) * 16 + 60) / 72), layout="constrained")
    widest = max(1.2, *(row["ratio"] / row["goal"] for row in lines if isinstance(row, dict)))
    for at, row in enumerate(lines):
        if isinstance(row, dict):
            used = row["ratio"] / row["goal"]
            axes.barh(at, used, height=0.66, color=within if used <= 1 else beyond)
            axes.text(widest * 1.25, at, f"{number(row['ratio'])} of {row['goal']:g}", va="center", ha="right")
    axes.text(widest * 1.25, 0, "ratio of goal", va="center", ha="right", fontweight="bold")
    axes.axvline(1, color=ink, linewidth=1, linestyle=(0, (4, 3)))
    axes.set(xlim=(0, widest * 1.25), ylim=(len(lines) - 0.4, -0.8), xticks=[0, 0.5, 1],
             xticklabels=["0", "half", "the goal"])
    axes.set_yticks(range(len(lines)), [row if isinstance(row, str) else row["what"] for row in lines])
    for label, row in zip(axes.get_yticklabels(), lines):
        label.set_fontweight("bold" if isinstance(row, str) else "normal")
    axes.tick_params(length=0, labeltop=True)
    axes.set_frame_on(False)
    figure.suptitle("Our time, or bytes, as a ratio to the peer's: how much of the goal is used", fontsize=10.5)
    figure.savefig(plot, transparent=True, metadata={"Date": None})


def main():
    build = pathlib.Path(sys.argv[1])
    run = {"date": datetime.date.today().isoformat(), "machine": platform.machine(), "processors": os.cpu_count(),
           "loadBefore": os.getloadavg()[0]}
    run["rows"] = measure(build)
    (build / "report.json").write_text(json.dumps(run, indent=1) + "\n")
    print_table(run["rows"])
    draw(run["rows"], DOCS / "bench.svg")
    write_figures(run, DOCS / "performance.md")


main()
