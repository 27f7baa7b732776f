"""Runs the fast tests against mutants of src/ and prints those that no test notices."""
import argparse
import collections
import concurrent.futures
import contextlib
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

import mutants as finding

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parents[1]
TREE = ROOT / "build/mutate/tree"
BUILD = ROOT / "build/mutate/build"
LEVELS = ("platform", "scripted", "abi")
FLAGS = f"-O0 -g0 -w -Wno-narrowing -fpermissive -include {HERE}/Mutant.h"
JOBS = os.cpu_count()


def say(text):
    print(f"scripts/mutate: {text}", file=sys.stderr, flush=True)


def make_tree():
    """The texts to be mutated, by their place in the tree; all else is linked to."""
    sources = {}
    TREE.mkdir(parents=True, exist_ok=True)
    for path in (*ROOT.iterdir(), *sorted((ROOT / "src").rglob("*"))):
        target = TREE / path.relative_to(ROOT)
        if path.suffix in (".cpp", ".h"):
            sources[str(target)] = path.read_text(encoding="ascii")
            target.open("a").close()
        elif path.is_relative_to(ROOT / "src") and path.is_dir():
            target.mkdir(parents=True, exist_ok=True)
        elif path.name not in ("build", ".git"):
            target.unlink(missing_ok=True)
            target.symlink_to(path)
    subprocess.run(
        ["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
         f"-DCMAKE_CXX_FLAGS_DEBUG={FLAGS}"], check=True, stdout=subprocess.DEVNULL)
    return sources


def build(*targets):
    """Empty when all is built, else the compiler's messages."""
    done = subprocess.run(["ninja", "-C", BUILD, "-j", str(JOBS), "-k", "0", *targets],
                          capture_output=True, text=True, check=False)
    return "" if done.returncode == 0 else done.stdout or "failed"


def find_mutants(sources, wanted):
    """All mutants of the wanted files, numbered from 1."""
    finder = finding.Finder(sources)
    for path in filter(lambda each: each.endswith(".cpp"), sources):
        finder.parse(path, "-DFMT_HEADER_ONLY", f"-I{TREE}/src")
    found = []
    for path in sources:
        file = str(pathlib.Path(path).relative_to(TREE))
        if re.search(wanted, file):
            found += finder.mutants(path, file)
    for number, mutant in enumerate(found, 1):
        mutant.number = number
    return found


def write_sources(sources, mutants):
    """Writes the sources with these mutants to be switched on."""
    for path, text in sources.items():
        code = finding.switchable(
            text, [mutant for mutant in mutants if str(TREE / mutant.file) == path])
        if pathlib.Path(path).read_text() != code:
            pathlib.Path(path).write_text(code)


def build_switchable(sources, mutants):
    """Builds with all mutants that compile so, which are returned."""
    while True:
        write_sources(sources, mutants)
        messages = build(*(f"tests/{level}/all" for level in LEVELS))
        if not messages:
            return mutants
        # The lines with errors, or where all lie elsewhere, those that the messages name.
        place = rf"{re.escape(str(TREE))}/(src\S+?):(\d+):\d+:"
        places = set(re.findall(f"{place} error:", messages) or re.findall(place, messages))
        fitting = [mutant for mutant in mutants if not any(
            mutant.file == file and int(line) in mutant.lines for file, line in places)]
        if len(fitting) == len(mutants):
            raise SystemExit(messages)
        say(f"{len(mutants) - len(fitting)} mutants cannot be switched at run time")
        mutants = fitting


class Tests:
    """The cases of each test executable, and the mutants that each case reaches."""

    def __init__(self, count):
        self.seconds = collections.defaultdict(dict)  # by executable and case
        self.reaching = collections.defaultdict(lambda: collections.defaultdict(list))
        shown = subprocess.check_output(
            ["ctest", "--show-only=json-v1", "-L", f"^({'|'.join(LEVELS)})$"], cwd=BUILD)
        for command in (test["command"] for test in json.loads(shown)["tests"]):
            for word in command[1:]:
                if word.startswith("--gtest_filter="):
                    self.seconds[command[0]][word.partition("=")[2]] = 0

        def run(executable, case):
            """Which mutants a case asks for; run without any."""
            with tempfile.NamedTemporaryFile() as reached:
                reached.write(bytes(count + 1))
                reached.flush()
                begin = time.monotonic()
                if not self.pass_with(executable, [case], 30, SODREL_MUTANTS_REACHED=reached.name):
                    raise SystemExit(f"{executable}: {case} fails without a mutant")
                self.seconds[executable][case] = time.monotonic() - begin
                reached.seek(0)
                return reached.read()

        pairs = [(executable, case) for executable in self.seconds
                 for case in self.seconds[executable]]
        with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
            for (executable, case), reached in zip(pairs, pool.map(run, *zip(*pairs))):
                for number in filter(reached.__getitem__, range(1, count + 1)):
                    self.reaching[number][executable].append(case)

    def pass_with(self, executable, cases, seconds, **environment):
        """Runs cases, which take so long without a mutant."""
        with tempfile.TemporaryDirectory(ignore_cleanup_errors=True) as folder:
            process = subprocess.Popen(
                ["prlimit", f"--cpu={int(4 + 6 * seconds)}", "--core=0", "--fsize=1073741824",
                 executable, "--gtest_fail_fast", "--gtest_filter=" + ":".join(cases)],
                cwd=os.path.dirname(executable),
                env={**os.environ, "TMPDIR": folder, **environment}, stdin=subprocess.DEVNULL,
                stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
            try:
                return process.wait(20 + 20 * seconds) == 0
            except subprocess.TimeoutExpired:
                return False
            finally:
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(process.pid, signal.SIGKILL)
                process.wait()

    def judge(self, mutant):
        """What the cases that reach a mutant make of it once it is switched on."""
        for executable, cases in self.reaching[mutant.number].items():
            seconds = sum(map(self.seconds[executable].get, cases))
            if not self.pass_with(executable, cases, seconds, SODREL_MUTANT=str(mutant.number)):
                return "killed"
        return "surviving"

    def judge_alone(self, mutant, text, near):
        """What all cases make of a mutant that is compiled by itself."""
        (TREE / mutant.file).write_text(finding.alone(text, mutant))
        # The executables that reach most of the file come first, so that few need to be built.
        for executable in sorted(self.seconds, key=lambda each: -near[each]):
            cases = self.seconds[executable]
            if build(os.path.relpath(executable, BUILD)):
                return "rejected"
            if not self.pass_with(executable, cases, sum(cases.values())):
                return "killed"
        if mutant.file.endswith(".h") and (build("tests/compile/all") or subprocess.run(
                ["ctest", "-L", "^compile$", "-j", str(JOBS), "--stop-on-failure"],
                cwd=BUILD, stdout=subprocess.DEVNULL, check=False).returncode):
            return "killed"
        return "surviving"


def read_dismissed(wanted):
    """The dismissed mutants of the wanted files, as (file, name)."""
    dismissed = set()
    for line in (HERE / "dismissed").read_text().split("\n"):
        if line.startswith("src/"):
            file = line
        elif line.startswith("      ") and re.search(wanted, file):
            dismissed.add((file, line.strip()))
    return dismissed


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutate", description=__doc__)
    parser.add_argument("--file", default="", metavar="REGEX", help="only the files that match")
    parser.add_argument("--switched", action="store_true", help="none that is compiled by itself")
    options = parser.parse_args()

    begin = time.monotonic()
    sources = make_tree()
    found = find_mutants(sources, options.file)
    dismissed = read_dismissed(options.file)
    stale = dismissed - {(mutant.file, mutant.name) for mutant in found}
    if stale:
        raise SystemExit("\n".join(f"no such mutant: {file}\n      {name}" for file, name in stale))
    say(f"{len(found)} mutants; building, then running each test without a mutant")
    fitting = set(build_switchable(sources, list(found)))
    tests = Tests(len(found))

    results = {mutant: "dismissed" for mutant in found if (mutant.file, mutant.name) in dismissed}
    left = [mutant for mutant in found if mutant not in results]
    switched = [mutant for mutant in left if mutant in fitting and tests.reaching[mutant.number]]
    compiled = [] if options.switched else [each for each in left if each not in switched]
    say(f"{len(switched)} mutants are switched on, {len(compiled)} compiled one by one")
    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        results.update(zip(switched, pool.map(tests.judge, switched)))
    for number, mutant in enumerate(compiled, 1):
        write_sources(sources, [])
        near = collections.Counter(executable for each in found if each.file == mutant.file
                                   for executable in tests.reaching[each.number])
        results[mutant] = tests.judge_alone(mutant, sources[str(TREE / mutant.file)], near)
        say(f"{number} of {len(compiled)} compiled, {results[mutant]}: {mutant.name}")

    counts = collections.Counter(results.values())
    print(f"{len(found)} mutants in {(time.monotonic() - begin) / 60:.0f} minutes: "
          + ", ".join(f"{count} {result}" for result, count in sorted(counts.items())))
    for mutant in found:
        if results.get(mutant) == "surviving":
            print(f"\n{mutant.file}:{mutant.lines[0]}\n      {mutant.name}")
    sys.exit(counts["surviving"] > 0)


main()
