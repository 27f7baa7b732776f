#!/usr/bin/env python3
"""The weight of the public headers in preprocessed lines: headers.py BUILD.

Fails when one is heavier than it may be, next to <string> alone.
"""
import json
import shlex
import subprocess
import sys
from pathlib import Path

# The limits, as multiples of <string>.
BARS = {"string": 1.0, "Sodrel/Sodrel.h": 1.28, "Sodrel/SignalMonitor.h": 1.60,
        "platform/trace/Trace.h": 2.13}


def weigh(build):
    """Returns, by header, the number of preprocessed lines."""
    commands = json.loads((Path(build) / "compile_commands.json").read_text())
    compiler = next(shlex.split(command["command"]) for command in commands
                    if command["file"].endswith("LibraryClient.cpp"))
    compiler = [*compiler[:compiler.index("-o")], "-O0"]
    return {header: subprocess.run([*compiler, "-E", "-x", "c++", "-"], check=True, text=True,
                                   input=f"#include <{header}>\n", stdout=subprocess.PIPE
                                   ).stdout.count("\n")
            for header in BARS}


def judged(weights):
    """Yields whether each limit is met, and a line of the table."""
    for header, lines in weights.items():
        ratio = lines / weights["string"]
        yield (ratio <= BARS[header],
               f"<{header}>".ljust(28) + f"{lines:>8,} lines, to <string> {ratio:.2f}, "
               f"at most {BARS[header]:.2f}")


def main():
    build, = sys.argv[1:]
    rows = list(judged(weigh(build)))
    for met, line in rows:
        print("met   " if met else "MISSED", line)
    return 0 if all(met for met, _ in rows) else 1


if __name__ == "__main__":
    sys.exit(main())
