"""The measurements: calls on the wire, instructions, times, and waits under a flood of signals."""
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from statistics import median

import clients
import share
from clients import Client

# What is done, and how often it is timed: rounds over all clients, and runs in each round.
OPERATIONS = {
    "1": ("read a property of the manager", 60, 20),
    "2": ("read a property of a unit", 60, 10),
    "3a": ("start a target, job awaited", 60, 8),
    "3b": ("start a oneshot service, job awaited", 12, 3),
    "3c": ("restart a service, job awaited", 12, 3),
    "3d": ("stop a target, job awaited", 20, 8),
    "4": ("reload the manager, awaited", 12, 3),
    "5": ("reload a service, awaited", 12, 3),
    "6": ("create a client, read once, drop it", 60, 8),
}
# A run of these is preceded by one of its counterpart, which is not measured but is on the wire.
PREPARED = ("3a", "3d")

FLOODS = (0, 1_000, 10_000, 100_000)
# sd-bus moves its whole queue for each signal that came before the reply: too long to count.
UNCOUNTED = ("before", 100_000)
FLOODED = (clients.FLOOR, clients.LIBRARY, clients.SDBUS_CPP, clients.GDBUS)
SIDES = ("before", "after")


def calls_per_run(observer, client, operation, count=3):
    """Returns the calls of one run, whatever a series of runs costs in addition."""
    client.run(operation, 1)
    few = observer.calls(client, operation, count)
    more = observer.calls(client, operation, 2 * count)
    runs = count * (2 if operation in PREPARED else 1)
    return [(after - before) / runs for before, after in zip(few, more)]


def instructions_per_run(client, operation, count=5):
    client.instructions(operation, 2)
    return median(client.instructions(operation, count))


# systemctl goes past the bus, and traces add no calls.
ON_THE_WIRE = (clients.RAW, clients.FLOOR, clients.LIBRARY, clients.SDBUS_CPP, clients.GDBUS,
               clients.PYTHON, clients.GO)


def calls(programs, observer, kinds=ON_THE_WIRE, operations=OPERATIONS):
    """Returns, by client and operation, the calls with and those without a reply."""
    counted = {}
    for kind in kinds:
        with Client(kind, programs) as client:
            for operation in operations:
                counted[kind.name, operation] = calls_per_run(observer, client, operation)
    return counted


def instructions(programs, kinds=clients.KINDS, operations=OPERATIONS):
    """Returns, by client and operation, the user instructions of a run."""
    counted = {}
    for kind in kinds:
        if kind.counted:
            with Client(kind, programs, counting=True) as client:
                for operation in operations:
                    counted[kind.name, operation] = instructions_per_run(client, operation)
    return counted


def shares(programs):
    """Returns, by operation, where the instructions of the library above the floor's go."""
    counted = {}
    for kind in (clients.LIBRARY, clients.FLOOR):
        with Client(kind, programs, counting=True) as client:
            for operation in OPERATIONS:
                client.instructions(operation, 2)
                profile, = client.profiles(operation, 1)
                counted[kind, operation] = share.read(profile)
    return {operation: {name: counted[clients.LIBRARY, operation][name] -
                        counted[clients.FLOOR, operation][name] for name in share.SHARES}
            for operation in OPERATIONS}


def times(programs):
    """Returns, by client and operation, the medians of each round; and each client's memory."""
    processor, wall, memory = {}, {}, {}
    running = {kind: Client(kind, programs) for kind in clients.KINDS}
    for operation, (_, rounds, runs) in OPERATIONS.items():
        order = list(running.items())
        for kind, client in order:
            client.run(operation, 2)
        for _ in range(rounds):
            for kind, client in order:
                one = kind is clients.SYSTEMCTL
                in_processor, in_wall = client.run(operation, 1 if one else runs)
                processor.setdefault((kind.name, operation), []).append(median(in_processor))
                wall.setdefault((kind.name, operation), []).append(median(in_wall))
            order.append(order.pop(0))
    for kind, client in running.items():
        memory[kind.name] = client.peak_memory()
        client.close()
    return processor, wall, memory


def flooded(programs, side, count):
    """The command line before a client's, for `count` signals of other jobs on one side."""
    program = str(Path(programs) / "flooded-bus")
    return (program, str(count), "0") if side == "before" else (program, "0", str(count))


def flood_times(programs):
    """Returns, by client, side and count, the processor and wall time and the peak memory."""
    def one(kind, side, count):
        with Client(kind, programs, around=flooded(programs, side, count)) as client:
            client.run("1", 20)
            (processor,), (wall,) = client.run("7", 1)
            return processor, wall, client.peak_memory()

    # What pages the kernel maps around those that are used differs from process to process.
    return {(kind.name, side, count):
            tuple(map(median, zip(*(one(kind, side, count) for _ in range(3)))))
            for side in SIDES for count in FLOODS for kind in FLOODED}


def flood_instructions(programs, kinds=(clients.FLOOR, clients.LIBRARY), counts=FLOODS):
    """Returns, by client, side and count, the user instructions of one wait."""
    cases = [(kind, side, count) for count in reversed(counts) for side in SIDES for kind in kinds
             if (side, count) != UNCOUNTED]

    def one(case):
        kind, side, count = case
        with Client(kind, programs, around=flooded(programs, side, count), counting=True) as client:
            client.instructions("1", 2)
            return client.instructions("7", 1)[0]

    # Each on a bus of its own, so that they do not meet.
    with ThreadPoolExecutor(max_workers=2) as pool:
        counted = pool.map(one, cases)
        return {(kind.name, side, count): value
                for (kind, side, count), value in zip(cases, counted)}
