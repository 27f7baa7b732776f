"""The operations of the comparison, and the measurements of each client."""
import dataclasses
import re
import subprocess
from collections import Counter
from pathlib import Path
from statistics import median

import clients
from clients import Client, Process, Wire


@dataclasses.dataclass(frozen=True)
class Operation:
    label: str
    title: str
    unit: str
    rounds: int  # over all clients
    runs: int  # in each round
    calls: list  # of the library: those that expect a reply, and those that do not

    @property
    def command(self):
        return self.label[0], self.unit


OPERATIONS = (
    Operation("1", "read a property of the manager", "-", 60, 20, [2, 0]),
    Operation("2", "read a property of a unit", "bench.service", 60, 10, [4, 0]),
    Operation("3a", "restart a target, job awaited", "bench.target", 60, 8, [4, 1]),
    Operation("3b", "restart a service, job awaited", "bench.service", 12, 3, [4, 1]),
    Operation("4", "reload the manager, awaited", "-", 12, 3, [4, 1]),
    Operation("5", "reload a service, awaited", "bench.service", 12, 3, [6, 1]),
    Operation("6", "connect anew, read once", "-", 60, 8, [4, 0]),
)
INSTRUCTIONS_BAR = 1.010  # library to floor


def subscriber(programs):
    """Keeps the manager sending signals while it runs."""
    return Process(str(Path(programs) / "subscriber"))


def calls(programs, kinds=clients.KINDS, operations=OPERATIONS):
    """Returns, by client and operation, the calls with and those without a reply in one run."""
    counted, runs = {}, 3
    with Wire() as wire:
        for kind in kinds:
            if kind.on_the_wire:
                with Client(kind, programs) as client:
                    for operation in operations:
                        client.run(*operation.command, 1)
                        wire.calls()
                        client.run(*operation.command, runs)
                        counted.setdefault(kind.name, {})[operation.label] = [
                            number / runs for number in wire.calls()]
    return counted


def instructions(programs, kinds=clients.KINDS, operations=OPERATIONS):
    """Returns, by client and operation, the user instructions of one run."""
    counted = {}
    for kind in kinds:
        if kind.counted:
            with Client(kind, programs, counting=True) as client:
                for operation in operations:
                    client.run(*operation.command, 2)
                    counted.setdefault(kind.name, {})[operation.label] = median(
                        client.instructions(*operation.command, 5))
    return counted


def owner(place):
    """Returns the owner of an object's code, as named in the table."""
    if place.startswith(("client-", "libSodrel")):
        return "own code"
    return {"steady.so": "allocation", "???": "unknown"}.get(place, place)


def annotated(programs, kind):
    """Returns, by operation, the instructions of each function, with its owner."""
    found = {}
    with Client(kind, programs, counting=True) as client:
        for operation in OPERATIONS:
            client.run(*operation.command, 2)
            profile, = client.profiles(*operation.command, 1)
            text = subprocess.run(
                ["callgrind_annotate", "--auto=no", "--threshold=100", profile],
                stdout=subprocess.PIPE, text=True, check=True).stdout
            lines = [(int(count.replace(",", "")), function, place) for count, function, place in
                     re.findall(r"^ *([\d,]+) \(.*?%\)  .*?:(.*?)(?: \[\S*?([^/\s]+)\])?$", text,
                                re.MULTILINE)]
            # Functions that were already running when counting began have the total count.
            whole = max(lines)[0]
            # Code inlined from another file is named after its function, without an object.
            objects = {function: place for _, function, place in lines if place}
            counted = found[operation.label] = Counter()
            for count, function, _ in lines:
                if count < whole:
                    counted[owner(objects.get(function, "unknown")), function] += count
    return found


def own_instructions(programs):
    """Returns, by operation and owner, the library's instructions minus the floor's; and which of
    its own functions take most when a service is restarted."""
    above = {}
    library, floor = (annotated(programs, kind) for kind in (clients.LIBRARY, clients.FLOOR))
    for functions, sign in ((library, 1), (floor, -1)):
        for label, counted in functions.items():
            for (place, _), count in counted.items():
                above.setdefault(label, Counter())[place] += sign * count
    most = [(count, re.sub(r"\(.*", "", function))
            for (place, function), count in library["3b"].most_common() if place == "own code"]
    return above, most[:12]


def times(programs):
    """Returns, by client and operation, the medians of each round; and each client's memory."""
    processor, wall = {}, {}
    order = [(kind, Client(kind, programs)) for kind in clients.KINDS]
    for operation in OPERATIONS:
        for kind, client in order:
            client.run(*operation.command, 2)
        for _ in range(operation.rounds):
            for kind, client in order:
                runs = 1 if kind is clients.SYSTEMCTL else operation.runs
                in_processor, in_wall = client.run(*operation.command, runs)
                for medians, values in ((processor, in_processor), (wall, in_wall)):
                    of_client = medians.setdefault(kind.name, {})
                    of_client.setdefault(operation.label, []).append(median(values))
            order.append(order.pop(0))
    memory = {kind.name: client.peak_memory() for kind, client in order if kind.on_the_wire}
    for _, client in order:
        client.close()
    return processor, wall, memory


def bars(counted, called, operations=OPERATIONS):
    """Yields whether each limit is met, and a line on it."""
    for operation in operations:
        ours, floor = (counted[kind.name][operation.label]
                       for kind in (clients.LIBRARY, clients.FLOOR))
        yield (ours <= floor * INSTRUCTIONS_BAR,
               f"{operation.label:3} instructions {ours:>9,.0f}, floor {floor:>9,.0f}, "
               f"ratio {ours / floor:.4f}, at most {INSTRUCTIONS_BAR:.3f}")
    for operation in operations:
        for kind in (clients.LIBRARY, clients.FLOOR):
            value = called[kind.name][operation.label]
            yield (value == operation.calls,
                   f"{operation.label:3} calls of {kind.name:12} {shown_calls(value):>4}, "
                   f"expected {shown_calls(operation.calls)}")


def shown_calls(pair):
    """Returns the number of calls that expect a reply, and of the others after a plus sign."""
    awaited, unawaited = pair
    return f"{awaited:g}" + (f"+{unawaited:g}" if unawaited else "")
