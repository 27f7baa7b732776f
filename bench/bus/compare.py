#!/usr/bin/env python3
"""Measures all clients inside a systemd box: compare.py BUILD RESULTS.

RESULTS is a JSON file for report.py.
"""
import json
import os
import subprocess
import sys
from pathlib import Path

sys.path.append(str(Path(__file__).parent.parent))

import clients
import headers
import measure
import page

PACKAGES = ("systemd", "libsystemd0", "dbus-daemon", "libsdbus-c++1", "libglib2.0-0",
            "python3-dbus", "golang-dbus-dev", "g++", "valgrind")


def share_core():
    """Moves the bus and systemd to the clients' core."""
    buses = subprocess.run(["pidof", "dbus-daemon"], stdout=subprocess.PIPE, text=True, check=True)
    for process in (1, *map(int, buses.stdout.split())):
        os.sched_setaffinity(process, {clients.CORE})


def main():
    build, results_file = map(Path, sys.argv[1:])
    programs = build / "bench/bus"
    results = {"machine": page.machine(PACKAGES)}
    subprocess.run(["systemctl", "start", "bench.service", "bench.target"], check=True)
    share_core()
    with measure.subscriber(programs):
        results["processor"], results["wall"], results["memory"] = measure.times(programs)
        results["calls"] = measure.calls(programs)
        results["instructions"] = measure.instructions(programs)
        results["above"], results["own"] = measure.own_instructions(programs)
    results["headers"] = headers.weigh(build)
    results_file.write_text(json.dumps(results, indent=1) + "\n")


main()
