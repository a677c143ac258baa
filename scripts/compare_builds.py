#!/usr/bin/env python3
"""Compares the benchmarks of two builds as ratios.

    scripts/compare_builds.py BEFORE AFTER [--rounds 7] [--filter REGEX] [--limit 1.1] [--out FILE]

BEFORE and AFTER are build folders whose benchmarks are built (target `benches`). Both run every
program in turn, in alternating order, so that a slow minute of the machine hits both. Each round
gives a ratio AFTER / BEFORE of the time per iteration: that of the clock where a benchmark's name
ends in real_time, that of the processor elsewhere. What is shown is the median of the rounds, with
the smallest and the largest. A line is marked where all of at least five rounds agree that AFTER is
slower, or faster.

With --limit, the status is 1 if a median exceeds it. --out writes the table as JSON.
"""

import argparse
import json
import pathlib
import statistics
import subprocess
import sys
import tempfile


def programs(build):
    return {p.name: p for p in sorted((build / "bench").glob("*_bench")) if p.is_file()}


def run_once(program, pattern, min_time):
    """The time of every benchmark of a program, in nanoseconds per iteration."""
    units = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
    with tempfile.NamedTemporaryFile(suffix=".json") as out:
        arguments = [str(program), f"--benchmark_out={out.name}", "--benchmark_out_format=json"]
        if pattern:
            arguments.append(f"--benchmark_filter={pattern}")
        if min_time:
            arguments.append(f"--benchmark_min_time={min_time}")
        subprocess.run(arguments, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        text = pathlib.Path(out.name).read_text()
    # A program none of whose benchmarks fits the filter writes nothing.
    rows = json.loads(text)["benchmarks"] if text else []
    return {
        row["name"]: row["real_time" if row["name"].endswith("real_time") else "cpu_time"]
        * units[row.get("time_unit", "ns")]
        for row in rows
        if row.get("run_type", "iteration") == "iteration" and not row.get("error_occurred")
    }


def compare(before, after, arguments):
    """Yields (benchmark, ratios, times before, times after), program by program."""
    common = [name for name in programs(before) if name in programs(after)]
    if not common:
        sys.exit("the two folders have no benchmark in common: build the target benches in both")
    for name in common:
        rounds = []
        for number in range(arguments.rounds):
            order = [before, after] if number % 2 == 0 else [after, before]
            times = {
                build: run_once(programs(build)[name], arguments.filter, arguments.min_time)
                for build in order
            }
            rounds.append((times[before], times[after]))
        for benchmark in rounds[0][0]:
            pairs = [(a[benchmark], b[benchmark]) for a, b in rounds if benchmark in a and benchmark in b]
            if pairs:
                yield f"{name}/{benchmark}", pairs


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("before", type=pathlib.Path)
    parser.add_argument("after", type=pathlib.Path)
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--filter", help="only benchmarks whose name fits this pattern")
    parser.add_argument("--min-time", help="seconds that one benchmark runs at least in a round")
    parser.add_argument("--limit", type=float, help="fail if a median ratio exceeds this")
    parser.add_argument("--out", type=pathlib.Path, help="a JSON file for the table")
    arguments = parser.parse_args()
    if arguments.rounds < 1 or arguments.before.resolve() == arguments.after.resolve():
        parser.error("two different builds and at least one round are needed")

    table = []
    print(f"{'benchmark':<60} {'before':>12} {'after':>12}  ratio (range)")
    for name, pairs in compare(arguments.before, arguments.after, arguments):
        ratios = [after / before for before, after in pairs]
        row = {
            "name": name,
            "before_ns": statistics.median(before for before, _ in pairs),
            "after_ns": statistics.median(after for _, after in pairs),
            "ratio": statistics.median(ratios),
            "lowest": min(ratios),
            "highest": max(ratios),
        }
        table.append(row)
        mark = ""
        if len(ratios) >= 5:
            mark = " slower" if row["lowest"] > 1 else " faster" if row["highest"] < 1 else ""
        print(
            f"{name:<60} {row['before_ns']:>9.4g} ns {row['after_ns']:>9.4g} ns"
            f"  {row['ratio']:.3f} ({row['lowest']:.3f} to {row['highest']:.3f}){mark}",
            flush=True,
        )
    if arguments.out:
        arguments.out.write_text(json.dumps({"rounds": arguments.rounds, "benchmarks": table}, indent=1))
    too_slow = [row for row in table if arguments.limit and row["ratio"] > arguments.limit]
    sys.exit(1 if too_slow else 0)


if __name__ == "__main__":
    main()
