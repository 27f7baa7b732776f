"""Prints how many lines and branches of the sources have run, file by file, from gcov's counts.

coverage.py BUILD SOURCES: the programs in BUILD were built with --coverage, and have run. Names what
is left, and fails if anything is. gcovr's marks except what no test can reach: GCOVR_EXCL_LINE and
GCOVR_EXCL_BR_LINE a line or its branches, GCOVR_EXCL_START and GCOVR_EXCL_STOP all lines between.
"""

import collections
import concurrent.futures
import json
import pathlib
import re
import subprocess
import sys

FOLD = re.compile(r"\) ?(&&|\|\|) ?\.\.\.")
# Where g++ asks by itself: whether another thread is making the variable, whether there is anything
# to delete, whether to free what `new` took.
ASKED_BY_COMPILER = re.compile(
    r"\bTRACE_FACILITY\(|\bstatic (?!constexpr)[^(]* ?[={;]|\bdelete this;|\bnew \w+\(")


class Counts:
    """The runs of each line of a file, and of each branch of a line."""

    def __init__(self):
        self.lines = collections.Counter()
        self.branches = collections.defaultdict(collections.Counter)


def branches_of(line):
    """The number and the runs of each branch of a line, without those that the compiler has added.

    They come in pairs. One of the two may be the way to an exception. A pair that was never reached
    tells nothing that a branch in front of it does not, if it is not on the way of an exception.
    """
    counts = line["branches"]
    for number in range(0, len(counts), 2):
        pair = counts[number:number + 2]
        if any(way["count"] for way in pair) and not any(way["throw"] for way in pair):
            yield number, pair[0]["count"]
            yield number + 1, pair[1]["count"]


def add(counts, lines):
    """Adds the counts of a file in one object.

    The instances of a template count together: a branch is taken when one of them takes it. Where
    gcov gives one sum of them all, as for a lambda in a template, so do all branches of a line.
    """
    for line in lines:
        number = line["line_number"]
        counts.lines[number] += line["count"]
        for branch, runs in branches_of(line):
            counts.branches[number][branch if "function_name" in line else branch % 2] += runs


def counts_of(data):
    """What gcov says of one object."""
    return json.loads(subprocess.run(
        ["gcov", "--json-format", "--branch-probabilities", "--stdout", str(data)],
        check=True, capture_output=True, text=True).stdout)


def except_some(counts, text):
    """Leaves out what the source's marks except, and braces, where only destructors run."""
    inside = asked = False
    for number, line in enumerate(text, 1):
        inside = (inside or "GCOVR_EXCL_START" in line) and "GCOVR_EXCL_STOP" not in line
        asked = asked or ASKED_BY_COMPILER.search(line)
        if inside or "GCOVR_EXCL_LINE" in line:
            counts.lines.pop(number, None)
            counts.branches.pop(number, None)
        elif "GCOVR_EXCL_BR_LINE" in line or asked:
            counts.branches.pop(number, None)
        elif line.strip() == "}":
            counts.lines.pop(number, None)
        elif FOLD.search(line) and counts.branches[number]:
            # A branch for each argument of a pack is one in the source.
            runs = counts.branches.pop(number)
            counts.branches[number] = {way: sum(runs[branch] for branch in runs if branch % 2 == way)
                                       for way in (0, 1)}
        asked = asked and not line.split("//")[0].rstrip(" \\").endswith(";")


def row(name, lines, branches):
    return f"{name:40} {lines[0]:6} of {lines[1]:5} {branches[0]:8} of {branches[1]:5}"


def main(build, sources):
    root = pathlib.Path.cwd()
    sources = pathlib.Path(sources).resolve()
    total = collections.defaultdict(Counts)
    with concurrent.futures.ThreadPoolExecutor() as pool:
        for counted in pool.map(counts_of, sorted(pathlib.Path(build).rglob("*.gcda"))):
            for file in counted["files"]:
                path = pathlib.Path(file["file"]).resolve()
                if path.is_relative_to(sources):
                    add(total[path], file["lines"])
    if not total:
        sys.exit(f"{build} has no counts of {sources}")

    left = []
    all_lines, all_branches = [0, 0], [0, 0]
    print(f"{'':40} {'lines run':>15} {'branches taken':>17}")
    for path, counts in sorted(total.items()):
        name = path.relative_to(root)
        text = path.read_text().splitlines()
        except_some(counts, text)
        taken = [runs for branches in counts.branches.values() for runs in branches.values()]
        lines = [sum(map(bool, counts.lines.values())), len(counts.lines)]
        branches = [sum(map(bool, taken)), len(taken)]
        print(row(str(name), lines, branches))
        all_lines = [all_lines[0] + lines[0], all_lines[1] + lines[1]]
        all_branches = [all_branches[0] + branches[0], all_branches[1] + branches[1]]
        for line, runs in sorted(counts.lines.items()):
            never = [runs for runs in counts.branches[line].values() if not runs]
            if not runs or never:
                what = "never run" if not runs else f"{len(never)} branches never taken"
                left.append(f"{name}:{line}: {what}: {text[line - 1].strip()}")
    print(row("all", all_lines, all_branches))
    if left:
        sys.exit("\n".join(left))


if __name__ == "__main__":
    main(*sys.argv[1:])
