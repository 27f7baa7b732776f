#!/usr/bin/env python3
"""Prints tables of the results of compare.py: report.py RESULTS [--publish].

With --publish it also writes them into docs/, with a plot. Fails when the library misses a bar.
"""
import json
import sys
from pathlib import Path
from statistics import median

sys.path.append(str(Path(__file__).parent.parent))

import clients
import headers
import measure
import page
import plot

# The clients of the short table and the plot.
PEERS = [kind for kind in clients.KINDS if not kind.environment]


def ratio(values, client, base, label):
    """Returns the ratio of two clients; for times, the median of the ratios of all rounds."""
    ours, theirs = (values.get(name, {}).get(label) for name in (client, base))
    if ours is None or theirs is None:
        return "-"
    if not isinstance(ours, list):
        ours, theirs = [ours], [theirs]
    return f"{median(one / other for one, other in zip(ours, theirs)):.3f}"


def microseconds(results, what, kind, operation):
    return median(results[what][kind.name][operation.label]) / 1000


def memory(results, kind):
    peak = results["memory"].get(kind.name)
    return f"{peak:,}" if peak else "-"


def short_table(results):
    """Yields one line per operation: the library's calls and instructions, each client's time."""
    short_names = {clients.RAW: "A", clients.FLOOR: "B", clients.LIBRARY: "S"}
    yield f"{'':34}{'calls':>6}{'instr':>7}   processor time, us"
    yield (f"{'':34}{'of S':>6}{'S/B':>7}"
           + "".join(f"{short_names.get(kind, kind.name):>12}" for kind in PEERS))
    for operation in measure.OPERATIONS:
        calls = results["calls"][clients.LIBRARY.name][operation.label]
        yield (f"{operation.label:3}{operation.title:31}{measure.shown_calls(calls):>6}"
               + ratio(results["instructions"], clients.LIBRARY.name, clients.FLOOR.name,
                       operation.label).rjust(7)
               + "".join(f"{microseconds(results, 'processor', kind, operation):>12,.1f}"
                         for kind in PEERS))
    yield (f"{'peak memory, KiB':47}"
           + "".join(f"{memory(results, kind):>12}" for kind in PEERS))
    yield ""
    for _, line in headers.judged(results["headers"]):
        yield line


def operations(results):
    """Yields one block per operation, with one line per client."""
    bases = (clients.RAW.name, clients.FLOOR.name)
    columns = ("processor", "instructions")
    yield (f"{'':28}{'wall us':>12}{'CPU us':>10}{'instructions':>14}{'calls':>7}"
           f"{'CPU/A':>9}{'instr/A':>9}{'CPU/B':>9}{'instr/B':>9}")
    for operation in measure.OPERATIONS:
        label = operation.label
        yield f"{label:3} {operation.title}"
        for kind in clients.KINDS:
            name = kind.name
            counted = results["instructions"].get(name, {}).get(label)
            calls = results["calls"].get(name, {}).get(label)
            yield (f"      {name:22}{microseconds(results, 'wall', kind, operation):>12,.1f}"
                   f"{microseconds(results, 'processor', kind, operation):>10,.1f}"
                   f"{f'{counted:,.0f}' if counted else '-':>14}"
                   f"{measure.shown_calls(calls) if calls else '-':>7}"
                   + "".join(f"{ratio(results[what], name, base, label):>9}"
                             for base in bases for what in columns))


def own_instructions(results):
    owners = sorted({owner for counted in results["above"].values() for owner in counted})
    yield "Instructions of S less those of B, by where callgrind_annotate finds them"
    yield f"{'':35}" + "".join(f"{owner:>22}" for owner in owners)
    for operation in measure.OPERATIONS:
        counted = results["above"][operation.label]
        yield (f"{operation.label:3} {operation.title:31}"
               + "".join(f"{counted.get(owner, 0):>22,}" for owner in owners))
    yield ""
    yield "Functions of the library with the most instructions in 3b, inlined code included"
    for count, function in results["own"]:
        yield f"{count:>8,}  {function}"


def full_table(results):
    yield from operations(results)
    yield ""
    yield from own_instructions(results)
    yield ""
    yield "Peak memory"
    for kind in clients.KINDS:
        yield f"      {kind.name:22}{memory(results, kind):>12} KiB"
    yield ""
    for met, line in bars(results):
        yield ("met    " if met else "MISSED ") + line


def bars(results):
    yield from measure.bars(results["instructions"], results["calls"])
    yield from headers.judged(results["headers"])


def main():
    results = json.loads(Path(sys.argv[1]).read_text())
    short = [*results["machine"], "", *short_table(results)]
    full = [*results["machine"], "", *full_table(results)]
    print(*full, "", *short, sep="\n")
    if sys.argv[2:] == ["--publish"]:
        page.publish("performance-table.md", "summary", short)
        page.publish("performance-table.md", "bus", full)
        plot.draw({kind.name: [microseconds(results, "processor", kind, operation)
                               for operation in measure.OPERATIONS] for kind in PEERS},
                  [f"{operation.label}  {operation.title}" for operation in measure.OPERATIONS],
                  page.DOCS / "performance.svg")
    return 0 if all(met for met, _ in bars(results)) else 1


if __name__ == "__main__":
    sys.exit(main())
