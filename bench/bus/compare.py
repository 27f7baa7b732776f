#!/usr/bin/env python3
"""Runs the comparison inside a systemd box: compare.py PROGRAMS FOLDER.

Prints the table, and leaves it in FOLDER as table.txt, results.json and plot.svg.
"""
import json
import os
import subprocess
import sys
from pathlib import Path

sys.path.append(str(Path(__file__).parent.parent))

import clients
import machine
import measure
import report

PACKAGES = ("systemd", "libsystemd0", "dbus-daemon", "libsdbus-c++1", "libglib2.0-0",
            "python3-dbus", "golang-dbus-dev", "valgrind")


def share_core():
    """Moves the bus and systemd to the clients' core."""
    buses = subprocess.run(["pidof", "dbus-daemon"], stdout=subprocess.PIPE, text=True, check=True)
    for process in (1, *map(int, buses.stdout.split())):
        os.sched_setaffinity(process, {clients.CORE})


def main():
    programs, folder = sys.argv[1:]
    results = {"machine": machine.described(PACKAGES, check=True)}
    subprocess.run(["systemctl", "start", "bench-runs.service"], check=True)
    share_core()
    observer = clients.Observer(programs)
    results["processor"], results["wall"], results["memory"] = measure.times(programs)
    results["calls"] = measure.calls(programs, observer)
    results["instructions"] = measure.instructions(programs)
    results["shares"] = measure.shares(programs)
    observer.close()
    results["flood"] = measure.flood_times(programs)
    results["flood instructions"] = measure.flood_instructions(programs)

    text = "\n".join(report.table(results)) + "\n"
    print(text, end="")
    folder = Path(folder)
    (folder / "table.txt").write_text(text)
    (folder / "plot.svg").write_text(report.plot(results))
    flat = {what: {" | ".join(map(str, key)): value for key, value in values.items()}
            if isinstance(values, dict) and what not in ("memory", "shares") else values
            for what, values in results.items()}
    (folder / "results.json").write_text(json.dumps(flat, indent=1) + "\n")


main()
