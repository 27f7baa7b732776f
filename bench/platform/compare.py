#!/usr/bin/env python3
"""Compares the platform layer with its peers: compare.py PROGRAMS [--publish].

Prints the table; with --publish it also writes it into docs/. Fails when the one bar is missed.
"""
import json
import os
import subprocess
import sys
import tempfile
from pathlib import Path

HERE = Path(__file__).parent
sys.path.append(str(HERE.parent))

import page

CORE = str(max(os.sched_getaffinity(0)))
PACKAGES = ("g++", "libc6", "libbenchmark1debian", "libspdlog1.10", "liblttng-ust1", "lttng-tools")
OFF_BAR = 0.3
COMPARISONS = (
    # what, ours, theirs, the limit of the ratio
    ("create and drop an entity, beside std::make_shared", "createEntity", "createShared", None),
    ("trace that is off, beside spdlog", "trace/off", "spdlogTrace/off", OFF_BAR),
    ("trace as a line of text, beside spdlog", "trace/text", "spdlogTrace/text", None),
    ("trace as a record, beside LTTng-UST", "recordTrace", "recordLttng", None),
)


def times(*command):
    """Returns the median processor time of each benchmark of a program, in nanoseconds."""
    output = subprocess.run(
        [*command, "--benchmark_repetitions=25", "--benchmark_min_time=0.03",
         "--benchmark_enable_random_interleaving=true", "--benchmark_report_aggregates_only=true",
         "--benchmark_format=json"],
        # Text traces go to standard error.
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True).stdout
    return {run["run_name"]: run["cpu_time"] for run in json.loads(output)["benchmarks"]
            if run["aggregate_name"] == "median"}


def recorded(snapshots):
    """Returns how many events LTTng-UST has kept; with none, its time would be meaningless."""
    listing = subprocess.run(["babeltrace2", snapshots], stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, text=True, check=True).stdout
    return listing.count("platform_bench:call")


def main():
    programs = Path(sys.argv[1])
    lines = [*page.machine(PACKAGES), "",
             f"{'':52}{'ns':>9}{'peer ns':>9}{'ratio':>8}"]
    pinned = ("taskset", "--cpu-list", CORE)
    with tempfile.TemporaryDirectory(prefix="bench-lttng.") as snapshots:
        measured = {**times(*pinned, str(programs / "platform-bench")),
                    **times(str(HERE / "lttng-session"), snapshots,
                            *pinned, str(programs / "lttng-bench"))}
        if not recorded(snapshots):
            raise RuntimeError("LTTng-UST recorded nothing")
    all_met = True
    for what, ours, theirs, bar in COMPARISONS:
        ratio = measured[ours] / measured[theirs]
        met = bar is None or ratio <= bar
        all_met = all_met and met
        verdict = "" if bar is None else f"  {'met' if met else 'MISSED'}, at most {bar}"
        lines.append(f"{what:52}{measured[ours]:>9,.2f}{measured[theirs]:>9,.2f}"
                     f"{ratio:>8.3f}{verdict}")
    print(*lines, sep="\n")
    if sys.argv[2:] == ["--publish"]:
        page.publish("performance-table.md", "platform", lines)
    return 0 if all_met else 1


sys.exit(main())
