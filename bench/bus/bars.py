"""The bars that the library is held to, judged on what has been measured."""
from math import exp, log
from statistics import median

import clients
import measure

COUNTED = ("1", "2", "3a", "3b", "3c", "6")
TIMED = ("1", "2", "3a", "6")

# Awaited and unawaited calls of one run.
CALLS = {"1": (2, 0), "2": (4, 0), "3a": (4, 1), "4": (4, 1), "5": (6, 1), "6": (4, 0)}


def mean(values):
    values = list(values)
    return exp(sum(map(log, values)) / len(values))


def ratio(values, kind, base, operation):
    """Returns how two clients compare; of times, the median of what they do round by round."""
    ours, theirs = values.get((kind.name, operation)), values.get((base.name, operation))
    if ours is None or theirs is None:
        return None
    if isinstance(ours, list):
        return median(one / other for one, other in zip(ours, theirs))
    return ours / theirs


def shown_calls(pair):
    """The calls with a reply, and those without behind a plus sign."""
    awaited, unawaited = pair
    return f"{awaited:g}" + (f"+{unawaited:g}" if unawaited else "")


class Bars:
    """Lines of: whether it is met, what it is about, the value, and the bar."""

    def __init__(self, margin=0):
        self.lines = []
        self.margin = margin

    def add(self, what, value, limit, form="{:.3f}"):
        """The bar is met up to `limit` and the margin."""
        limit += self.margin
        met = value is not None and value <= limit
        shown = "none" if value is None else form.format(value)
        self.lines.append((met, what, shown, form.format(limit)))

    def add_least(self, what, value, least):
        self.lines.append((value >= least, what, f"{value:.1f}", f"at least {least}"))

    def add_calls(self, what, value, expected):
        self.lines.append((value == expected, what, shown_calls(value), shown_calls(expected)))


def instruction_bars(bars, instructions, operations=COUNTED):
    ratios = [ratio(instructions, clients.LIBRARY, clients.FLOOR, operation)
              for operation in operations]
    for operation, value in zip(operations, ratios):
        bars.add(f"instructions of {operation}, S to B", value, 1.03)
    bars.add("instructions, S to B, geometric mean", mean(ratios), 1.02)


def call_bars(bars, calls):
    for operation, expected in CALLS.items():
        for kind in (clients.FLOOR, clients.LIBRARY):
            bars.add_calls(f"calls of {operation}, {kind.name}",
                          tuple(calls[kind.name, operation]), expected)


def per_signal(instructions, kind, side, count):
    return (instructions[kind.name, side, count] - instructions[kind.name, side, 0]) / count


def flood_bars(bars, instructions):
    counts = sorted({count for _, side, count in instructions if side == "after"})[1:]
    for side in measure.SIDES:
        for count in counts:
            if (clients.LIBRARY.name, side, count) in instructions:
                ours, theirs = (per_signal(instructions, kind, side, count)
                                for kind in (clients.LIBRARY, clients.FLOOR))
                bars.add(f"instructions per signal of {count:,} {side} the reply, S to B",
                         ours / theirs, 1.01)
    fewest, most = counts[0], counts[-1]
    if fewest < most:
        bars.add(f"instructions per signal, S with {most:,} after the reply to {fewest:,}",
                 per_signal(instructions, clients.LIBRARY, "after", most) /
                 per_signal(instructions, clients.LIBRARY, "after", fewest), 1.01)


def all_bars(results):
    bars = Bars()
    instruction_bars(bars, results["instructions"])
    for operation in TIMED:
        bars.add(f"processor time of {operation}, S to B",
                 ratio(results["processor"], clients.LIBRARY, clients.FLOOR, operation), 1.03)
    for operation in TIMED:
        bars.add(f"wall time of {operation}, S to B",
                 ratio(results["wall"], clients.LIBRARY, clients.FLOOR, operation), 1.02)
    call_bars(bars, results["calls"])
    flood_bars(bars, results["flood instructions"])
    memory = [results["flood"][clients.LIBRARY.name, "after", count][2]
              for count in measure.FLOODS]
    bars.add("KiB of memory that signals after the reply add, S", max(memory) - memory[0], 100,
             "{}")
    for kind, least in ((clients.GDBUS, 2), (clients.PYTHON, 2), (clients.GO, 2),
                        (clients.SYSTEMCTL, 50)):
        for operation in ("1", "3a", "6"):
            bars.add_least(f"processor time of {operation}, {kind.name} to S",
                           ratio(results["processor"], kind, clients.LIBRARY, operation), least)
    for kind, limit in ((clients.RING, 1.02), (clients.TEXT, 1.10)):
        for operation in measure.OPERATIONS:
            bars.add(f"instructions of {operation}, {kind.name} to S",
                     ratio(results["instructions"], kind, clients.LIBRARY, operation), limit)
    return bars.lines
