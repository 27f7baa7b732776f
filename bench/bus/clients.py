"""The clients of the comparison, and driving one of them through its standard streams."""
import dataclasses
import os
import re
import shutil
import subprocess
import tempfile
from pathlib import Path

HERE = Path(__file__).parent

# The core that every client is pinned to while it is timed, and with it whatever serves it: what it
# takes to wake another core depends on what else the machine does.
CORE = max(os.sched_getaffinity(0))


@dataclasses.dataclass(frozen=True)
class Kind:
    name: str
    program: str
    environment: tuple = ()
    counted: bool = True  # callgrind sees its instructions


RAW = Kind("raw sd-bus (A)", "client-raw")
FLOOR = Kind("floor (B)", "client-floor")
LIBRARY = Kind("library (S)", "client-library")
TEXT = Kind("S, text traces", "client-library",
            (("TESSEL_TRACE", "Sodrel=8;SignalMonitor=8"),))
RING = Kind("S, ring buffer", "client-library", (("FENNET_TRACE", "{folder},1M"),))
SDBUS_CPP = Kind("sdbus-c++", "client-sdbus-cpp")
GDBUS = Kind("GDBus", "client-gdbus")
PYTHON = Kind("dbus-python", str(HERE / "dbus_python_client.py"), counted=False)
GO = Kind("Go", "client-go", counted=False)
SYSTEMCTL = Kind("systemctl", "client-forked", counted=False)

KINDS = (RAW, FLOOR, LIBRARY, TEXT, RING, SDBUS_CPP, GDBUS, PYTHON, GO, SYSTEMCTL)


class Process:
    """A program that answers each line with one line, from its "ready" on."""

    def __init__(self, command, environment=()):
        self.process = subprocess.Popen(
            command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
            text=True, env={**os.environ, **dict(environment)})
        self.answer()

    def answer(self):
        line = self.process.stdout.readline()
        if not line:
            raise RuntimeError(f"{self.process.args} ended with status {self.process.wait()}")
        return line.strip()

    def ask(self, line):
        self.process.stdin.write(line + "\n")
        self.process.stdin.flush()
        return self.answer()

    def close(self):
        self.process.stdin.close()
        self.process.wait()


class Client:
    """A client process, in `around` (a command line that ends in a command) if given."""

    def __init__(self, kind, programs, around=(), counting=False):
        self.folder = Path(tempfile.mkdtemp(prefix="bench-bus."))
        self.counts = self.folder / "callgrind" if counting else None
        environment = [(name, value.format(folder=self.folder))
                       for name, value in kind.environment]
        if counting:
            command = ["valgrind", "-q", "--tool=callgrind", f"--callgrind-out-file={self.counts}"]
            environment += [("LD_PRELOAD", str(Path(programs) / "steady.so")),
                            ("G_SLICE", "always-malloc")]
        else:
            around = ("taskset", "--cpu-list", str(CORE), *around)
            command = []
        command.append(str(Path(programs) / kind.program))
        if environment:
            command = ["env", *(f"{name}={value}" for name, value in environment), *command]
        self.process = Process([*around, *command])

    def run(self, operation, count):
        """Returns the processor and the wall times of each run, in nanoseconds."""
        times = [int(word) for word in self.process.ask(f"{operation} {count}").split()]
        return times[0::2], times[1::2]

    def profiles(self, operation, count):
        """Returns callgrind's file of each run."""
        for file in self.folder.glob("callgrind*"):
            file.unlink()
        self.process.ask(f"{operation} {count}")
        return sorted(self.folder.glob("callgrind.*"), key=lambda file: int(file.suffix[1:]))

    def instructions(self, operation, count):
        """Returns the user instructions of each run."""
        return [int(re.search(r"^totals: (\d+)", file.read_text(), re.MULTILINE)[1])
                for file in self.profiles(operation, count)]

    def peak_memory(self):
        """Returns the largest resident size so far, in KiB."""
        process = self.process.process.pid
        while children := Path(f"/proc/{process}/task/{process}/children").read_text().split():
            process = children[-1]
        return int(re.search(r"VmHWM:\s+(\d+)", Path(f"/proc/{process}/status").read_text())[1])

    def close(self):
        self.process.close()
        shutil.rmtree(self.folder)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class Observer(Process):
    """Keeps the manager's signals coming, and counts calls on the wire."""

    def __init__(self, programs):
        super().__init__([str(Path(programs) / "bus-observer")])

    def calls(self, client, operation, count):
        """Returns the calls of `count` runs: those that ask for a reply, and those that do not."""
        self.ask("record")
        client.run(operation, count)
        return [int(number) for number in self.ask("count").split()]
