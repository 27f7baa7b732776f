#!/usr/bin/env python3
"""Fails if the library exceeds its limits on instructions or calls: check.py PROGRAMS.

Runs on the system bus that its environment names, with a scripted manager.
"""
import dataclasses
import sys

import clients
import measure

KINDS = (clients.FLOOR, clients.LIBRARY)
# One unit of the scripted manager is enough, because all its restarts are the same.
OPERATIONS = [dataclasses.replace(operation, unit="web.service")
              for operation in measure.OPERATIONS if operation.label != "3b"]


def main():
    programs, = sys.argv[1:]
    with measure.subscriber(programs):
        judged = list(measure.bars(measure.instructions(programs, KINDS, OPERATIONS),
                                   measure.calls(programs, KINDS, OPERATIONS), OPERATIONS))
    for met, line in judged:
        print("met   " if met else "MISSED", line)
    return 0 if all(met for met, _ in judged) else 1


sys.exit(main())
