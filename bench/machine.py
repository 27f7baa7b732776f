"""The machine that a comparison has run on."""
import os
import platform
import subprocess


def described(packages, **options):
    """Returns lines on the processor and system, the packages' versions, and the load.

    The options are those of the process that asks for the versions.
    """
    cpu = next(line.split(":")[1].strip() for line in open("/proc/cpuinfo")
               if line.startswith("model name"))
    release = platform.freedesktop_os_release()["PRETTY_NAME"]
    load = ", ".join(f"{value:.1f}" for value in os.getloadavg())
    query = subprocess.run(["dpkg-query", "-W", "-f=${Package} ${Version}\n", *packages],
                           stdout=subprocess.PIPE, text=True, **options)
    return [f"{cpu}, {os.cpu_count()} cores, Linux {platform.release()}, {release}",
            ", ".join(query.stdout.splitlines()),
            f"load when it began (1, 5, 15 minutes): {load}"]
