#!/usr/bin/env python3
"""Fails when the library costs more than it may next to the floor: check.py PROGRAMS.

Runs on the system bus that its environment names, with a scripted manager. Instructions may exceed
the bars by a margin, as string operations vary with where strings lie; calls may not.
"""
import sys

import bars
import clients
import measure

MARGIN = 0.01
COUNTED = ("1", "2", "3a", "6")
KINDS = (clients.FLOOR, clients.LIBRARY)
FLOODS = (0, 1_000)


def main():
    programs, = sys.argv[1:]
    observer = clients.Observer(programs)
    judged = bars.Bars(MARGIN)
    bars.instruction_bars(
        judged, measure.instructions(programs, KINDS, COUNTED), COUNTED)
    bars.call_bars(judged, measure.calls(programs, observer, KINDS, bars.CALLS))
    observer.close()
    bars.flood_bars(judged, measure.flood_instructions(programs, KINDS, FLOODS))
    for met, what, value, limit in judged.lines:
        print(f"{'met   ' if met else 'MISSED'} {what}: {value}, bar {limit}")
    return 0 if all(met for met, *_ in judged.lines) else 1


sys.exit(main())
