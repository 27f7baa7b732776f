#!/usr/bin/env python3
"""Compares the platform layer with its peers: compare.py BUILD FOLDER.

Prints the table, and leaves it in FOLDER as table.txt and results.json.
"""
import dataclasses
import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

HERE = Path(__file__).parent
sys.path.append(str(HERE.parent))

import machine

CORE = str(max(os.sched_getaffinity(0)))
PACKAGES = ("g++", "libc6", "libbenchmark1debian", "libmimalloc2.0", "libspdlog1.10",
            "liblttng-ust1", "lttng-tools", "valgrind")

# Each program runs so often, and each run gives the medians of so many interleaved repetitions.
ROUNDS = 5
REPETITIONS = 9


@dataclasses.dataclass(frozen=True)
class Comparison:
    what: str
    program: str
    ours: str
    theirs: str
    limit: float
    instructions: int | None = None  # the most that ours may take


def create(way, beside=""):
    return f"createAndDrop{beside}<{way}Way>"


ACCESSES = ("readNumber", "writeNumber", "callWithNumber",
            "readString", "writeString", "callWithString")

# What one run of a program compares stands together.
COMPARISONS = (
    Comparison("create and drop an entity, to new and delete", "entity/entity-bench",
               create("Entity"), create("NewDelete"), 0.75, 75),
    Comparison("create and drop an entity, to mimalloc", "entity/entity-bench",
               create("Entity"), create("Mimalloc"), 1.6),
    Comparison("create and drop an entity, beside a thread to alone", "entity/entity-bench",
               create("Entity", "BesideAThread"), create("Entity"), 1.1),
    Comparison("copy and drop a pointer, to a plain count", "types/types-bench",
               "copyAndDrop/entity", "copyAndDrop/plainCount", 1.3),
    Comparison("copy and drop a pointer, beside a thread to an atomic count", "types/types-bench",
               "copyAndDropBesideAThread/entity", "copyAndDropBesideAThread/atomicCount", 1.05),
    Comparison("trace that is off, to spdlog", "trace/trace-bench",
               "disabledTrace", "disabledSpdlog", 0.3, 20),  # too few for a clock or an allocation
    Comparison("trace as a line of text, to spdlog", "trace/trace-bench",
               "textTrace", "textSpdlog", 0.65),
    Comparison("trace as a record, to LTTng-UST", "trace/lttng-bench",
               "recordTrace", "recordLttng", 0.17),
    Comparison("trace as a record, to a ring written by hand", "trace/trace-bench",
               "recordTrace", "recordByHand", 1.1, 110),
    *(Comparison(f"generic access, {access}, to a table of functions", "types/types-bench",
                 f"{access}/reflected", f"{access}/bare", 2.3) for access in ACCESSES),
)

# A process that has had a second thread is not what these are about.
ALONE = (create("Entity"), create("NewDelete"), create("Mimalloc"),
         "copyAndDrop/entity", "copyAndDrop/plainCount")


def pattern(names):
    return f"^({'|'.join(names)})(/iterations.*)?$"


def medians(command, names):
    """Returns the processor time of each benchmark in nanoseconds, by one run of a program."""
    output = subprocess.run(
        ["taskset", "--cpu-list", CORE, *command, f"--benchmark_filter={pattern(names)}",
         f"--benchmark_repetitions={REPETITIONS}", "--benchmark_min_time=0.03",
         "--benchmark_enable_random_interleaving=true",
         "--benchmark_report_aggregates_only=true", "--benchmark_format=json"],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=True).stdout
    found = {run["run_name"]: run["cpu_time"] for run in json.loads(output)["benchmarks"]
             if run.get("aggregate_name") == "median"}
    if set(found) != set(names):
        raise RuntimeError(f"{command[-1]} gave no time for {set(names) - set(found)}")
    return found


def groups():
    """Yields each program with benchmarks that one run of it may interleave."""
    for program in dict.fromkeys(comparison.program for comparison in COMPARISONS):
        names = {name for comparison in COMPARISONS if comparison.program == program
                 for name in (comparison.ours, comparison.theirs)}
        for group in (names & set(ALONE), names - set(ALONE)):
            if group:
                yield program, sorted(group)


def times(programs, snapshots):
    """Returns, by program and benchmark, the best of all rounds."""
    best = {}
    for _ in range(ROUNDS):
        for program, names in groups():
            command = [str(programs / program)]
            if program == "trace/lttng-bench":
                command = [str(HERE / "lttng-session"), snapshots, *command]
            for name, time in medians(command, names).items():
                key = program, name
                best[key] = min(time, best.get(key, time))
    return best


def recorded(snapshots):
    """The number of events that LTTng-UST has kept; without any its time would mean nothing."""
    listing = subprocess.run(["babeltrace2", snapshots], stdout=subprocess.PIPE,
                             stderr=subprocess.DEVNULL, text=True, check=True).stdout
    return listing.count("trace_bench:call")


def instructions(program, name):
    """Returns the user instructions of one iteration and its loop."""
    few, many = 1_000, 11_000
    totals = []
    for count in (few, many):
        with tempfile.NamedTemporaryFile() as counts:
            subprocess.run(
                ["valgrind", "-q", "--tool=callgrind", f"--callgrind-out-file={counts.name}",
                 str(program), f"--benchmark_filter={pattern([name])}"],
                env={**os.environ, "BENCH_ITERATIONS": str(count)},
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
            totals.append(int(re.search(r"^(?:totals|summary): (\d+)",
                                        Path(counts.name).read_text(), re.MULTILINE)[1]))
    return (totals[1] - totals[0]) / (many - few)


def kills(program):
    """Returns what the test that kills traced processes has counted."""
    with tempfile.NamedTemporaryFile(suffix=".json") as report:
        subprocess.run([str(program), f"--gtest_output=json:{report.name}"],
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        test = json.loads(Path(report.name).read_text())["testsuites"][0]["testsuite"][0]
    return {what: int(test[what]) for what in ("kills", "found", "lost", "torn")}


def verdict(met):
    return "met   " if met else "MISSED"


def table(results):
    yield from results["machine"]
    yield ""
    yield f"{'':69}{'ns':>8}{'peer ns':>9}{'ratio':>8}{'bar':>7}{'instructions':>14}{'bar':>5}"
    for comparison in COMPARISONS:
        ours = results["times"][comparison.program, comparison.ours]
        theirs = results["times"][comparison.program, comparison.theirs]
        count = results["instructions"][comparison.program, comparison.ours]
        met = (ours / theirs <= comparison.limit and
               (comparison.instructions is None or count <= comparison.instructions))
        yield (f"{verdict(met)} {comparison.what:62}{ours:>8,.2f}{theirs:>9,.2f}"
               f"{ours / theirs:>8.3f}{comparison.limit:>7}{count:>14,.1f}"
               f"{comparison.instructions or '':>5}")
    yield ""
    killed = results["kills"]
    for what in ("lost", "torn"):
        yield (f"{verdict(killed[what] == 0)} records {what} beside {killed['found']:,} found, in "
               f"{killed['kills']:,} kills of two tracing threads: {killed[what]}, bar 0")
    yield f"Events that LTTng-UST kept in its snapshots: {results['recorded']:,}"


def main():
    build, folder = map(Path, sys.argv[1:])
    programs = build / "bench"
    results = {"machine": machine.described(PACKAGES, stderr=subprocess.DEVNULL)}
    with tempfile.TemporaryDirectory(prefix="bench-lttng.") as snapshots:
        results["times"] = times(programs, snapshots)
        results["recorded"] = recorded(snapshots)
    if results["recorded"] == 0:
        raise RuntimeError("LTTng-UST recorded nothing")
    results["instructions"] = {
        (comparison.program, comparison.ours): None for comparison in COMPARISONS}
    loop = instructions(programs / "entity/entity-bench", "emptyLoop")
    for program, name in results["instructions"]:
        # The same code as in trace-bench, where no tracing library stands around it.
        counted = program.replace("lttng-bench", "trace-bench")
        results["instructions"][program, name] = instructions(programs / counted, name) - loop
    results["kills"] = kills(build / "tests/platform/killed-trace-test")

    text = "\n".join(table(results)) + "\n"
    print(text, end="")
    folder.mkdir(exist_ok=True)
    (folder / "table.txt").write_text(text)
    flat = {what: {" | ".join(key): value for key, value in values.items()}
            if what in ("times", "instructions") else values for what, values in results.items()}
    (folder / "results.json").write_text(json.dumps(flat, indent=1) + "\n")


main()
