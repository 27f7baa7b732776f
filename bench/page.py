"""Describes the machine that a comparison ran on, and writes its results into a page."""
import datetime
import os
import platform
import subprocess
from pathlib import Path

DOCS = Path(__file__).resolve().parent.parent / "docs"


def machine(packages):
    """Returns lines on the date, the machine, the packages' versions, and the load."""
    # On ARM, cpuinfo has no such line.
    cpu = next((line.split(":")[1].strip() for line in open("/proc/cpuinfo")
                if line.startswith("model name")), platform.machine())
    release = platform.freedesktop_os_release()["PRETTY_NAME"]
    query = subprocess.run(["dpkg-query", "-W", "-f=${Package} ${Version}\n", *packages],
                           stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    load = ", ".join(f"{value:.1f}" for value in os.getloadavg())
    return [f"{datetime.date.today()}, {cpu}, {os.cpu_count()} cores, Linux {platform.release()}, "
            f"{release}",
            ", ".join(query.stdout.splitlines()),
            f"load at the start (1, 5, 15 minutes): {load}"]


def publish(page, name, lines):
    """Replaces what is between the page's markers "<!-- name -->" and "<!-- /name -->"."""
    path = DOCS / page
    begin, end = f"<!-- {name} -->\n", f"<!-- /{name} -->"
    before, found, rest = path.read_text().partition(begin)
    _, ended, after = rest.partition(end)
    if not found or not ended:
        raise RuntimeError(f"{path} has no block <!-- {name} --> ... <!-- /{name} -->")
    path.write_text("".join([before, begin, "```text\n", *(f"{line.rstrip()}\n" for line in lines),
                             "```\n", end, after]))
