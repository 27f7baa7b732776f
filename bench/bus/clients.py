"""The clients of the comparison: running, counting and observing them."""
import dataclasses
import json
import os
import re
import subprocess
import tempfile
from pathlib import Path

HERE = Path(__file__).parent

# Each client is pinned to this core while it is timed, as are the bus and systemd: the cost of
# waking another core depends on the load of the machine.
CORE = max(os.sched_getaffinity(0))


@dataclasses.dataclass(frozen=True)
class Kind:
    name: str
    program: str
    environment: tuple = ()
    counted: bool = True  # callgrind can count its instructions
    on_the_wire: bool = True


RAW = Kind("raw sd-bus (A)", "client-raw")
FLOOR = Kind("floor (B)", "client-floor")
LIBRARY = Kind("library (S)", "client-library")
SYSTEMCTL = Kind("systemctl", "client-systemctl", counted=False, on_the_wire=False)
KINDS = (
    RAW, FLOOR, LIBRARY,
    Kind("S, text traces", "client-library", ("TESSEL_TRACE=Sodrel=8;SignalMonitor=8",)),
    Kind("S, ring buffer", "client-library", ("FENNET_TRACE={folder},1M",)),
    Kind("sdbus-c++", "client-sdbus-cpp"),
    Kind("GDBus", "client-gdbus"),
    Kind("dbus-python", str(HERE / "dbus_python_client.py"), counted=False),
    Kind("Go", "client-go", counted=False),
    SYSTEMCTL,
)


class Process:
    """A program that prints "ready" and then replies to each line with one line."""

    def __init__(self, *command):
        self.process = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                        stderr=subprocess.DEVNULL, text=True)
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

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()


class Client(Process):
    """A client, pinned to the core, or with `counting` under callgrind."""

    def __init__(self, kind, programs, counting=False):
        self.folder = tempfile.TemporaryDirectory(prefix="bench-bus.")
        # Nothing else, because counts depend on where the environment ends and the stack begins.
        environment = [f"{name}={value}" for name, value in os.environ.items()
                       if name == "DBUS_SYSTEM_BUS_ADDRESS"]
        environment += [setting.format(folder=self.folder.name) for setting in kind.environment]
        programs = Path(programs).resolve()
        around = ["taskset", "--cpu-list", str(CORE)]
        if counting:
            environment += [f"LD_PRELOAD={programs / 'steady.so'}", "G_SLICE=always-malloc"]
            around = ["valgrind", "-q", "--tool=callgrind",
                      f"--callgrind-out-file={self.folder.name}/callgrind"]
        super().__init__("env", "-i", *environment, *around, str(programs / kind.program))

    def run(self, operation, unit, count):
        """Returns the processor and the wall times of each run, in nanoseconds."""
        times = [int(word) for word in self.ask(f"{operation} {unit} {count}").split()]
        return times[0::2], times[1::2]

    def profiles(self, operation, unit, count):
        """Returns callgrind's output file of each run."""
        for file in Path(self.folder.name).glob("callgrind.*"):
            file.unlink()
        self.run(operation, unit, count)
        return list(Path(self.folder.name).glob("callgrind.*"))

    def instructions(self, operation, unit, count):
        """Returns the user instructions of each run."""
        return [int(re.search(r"^totals: (\d+)", file.read_text(), re.MULTILINE)[1])
                for file in self.profiles(operation, unit, count)]

    def peak_memory(self):
        """Returns the largest resident size so far, in KiB."""
        status = Path(f"/proc/{self.process.pid}/status").read_text()
        return int(re.search(r"VmHWM:\s+(\d+)", status)[1])

    def close(self):
        super().close()
        self.folder.cleanup()


class Wire:
    """Counts the method calls that busctl sees on the bus, except systemd's own."""

    def __init__(self):
        self.monitor = subprocess.Popen(
            ["busctl", "monitor", "--json=short", "--match=type='method_call'"],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        self.monitor.stderr.readline()
        self.systemd = self.ask("GetNameOwner", "s", "org.freedesktop.systemd1")

    def ask(self, *call):
        bus = "org.freedesktop.DBus"
        asked = subprocess.run(["busctl", "--json=short", "call", bus, "/", bus, *call],
                               stdout=subprocess.PIPE, text=True, check=True)
        return json.loads(asked.stdout)["data"][0]

    def calls(self):
        """Returns the calls since the previous one, with and without a reply."""
        self.ask("GetId")  # by a connection of its own, which marks the end
        seen = []
        while not seen or seen[-1]["member"] != "GetId":
            seen.append(json.loads(self.monitor.stdout.readline()))
        counted = [call for call in seen
                   if call["sender"] not in (self.systemd, seen[-1]["sender"])]
        unawaited = sum(call["flags"] & 1 for call in counted)
        return [len(counted) - unawaited, unawaited]

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.monitor.terminate()
        self.monitor.wait()
