#!/usr/bin/env python3
"""Runs the benchmark programs and prints each figure as a ratio to its peer of the same run, beside its goal."""
import json
import pathlib
import statistics
import subprocess
import sys


def medians(program, directory):
    """Runs one program five times over, the order of its benchmarks shuffled, and takes each one's median."""
    out = directory / f"{program.name}.json"
    subprocess.run(
        [program, "--benchmark_repetitions=5", "--benchmark_min_time=0.2", "--benchmark_out_format=json",
         f"--benchmark_out={out}"],
        check=True, stdout=subprocess.DEVNULL)
    times = {}
    for row in json.loads(out.read_text())["benchmarks"]:
        if row.get("run_type") == "iteration":
            if row.get("error_occurred"):
                sys.exit(f"{row['name']}: {row.get('error_message')}")
            times.setdefault(row["run_name"], []).append(row["real_time"])
    return {name: statistics.median(values) for name, values in times.items()}


def main():
    build = pathlib.Path(sys.argv[1])
    goals = [line.split("\t") for line in (pathlib.Path(__file__).parent / "goals.tsv").read_text().splitlines()
             if line and not line.startswith("#")]
    times = {}
    for program in sorted({row[0] for row in goals}):
        times[program] = medians(build / "bin" / program, build)
    print(f"{'what':58} {'ours, ns':>10} {'peer, ns':>10} {'ratio':>6} {'goal':>6}")
    for program, ours, peer, goal, what in goals:
        mine, other = times[program][ours], times[program][peer]
        verdict = "" if goal == "-" or mine / other <= float(goal) else "  over the goal"
        print(f"{what:58} {mine:10.0f} {other:10.0f} {mine / other:6.2f} {goal:>6}{verdict}")


main()
