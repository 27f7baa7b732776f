"""Runs the fast tests against mutants of src/ and prints those that no test notices."""
import argparse
import collections
import concurrent.futures
import fnmatch
import json
import os
import pathlib
import queue
import random
import re
import resource
import shutil
import signal
import subprocess
import sys
import time

import mutants as finding

ROOT = pathlib.Path(__file__).resolve().parents[2]
TREE = ROOT / "build/mutate/tree"
BUILD = ROOT / "build/mutate/build"
DISMISSED = pathlib.Path(__file__).with_name("dismissed")
LEVELS = ("platform", "scripted", "abi")
FLAGS = "-O0 -g0 -w -Wno-narrowing -fpermissive"


def say(text):
    print(f"scripts/mutate: {text}", file=sys.stderr, flush=True)


def plain(path):
    """The text in which mutants are looked for: the first line's comment makes room."""
    lines = path.read_text(encoding="ascii").split("\n")
    lines[0] = "#include <Mutant.h>"
    return finding.withoutAssertions("\n".join(lines))


def writeIfChanged(path, text):
    if not path.exists() or path.read_text() != text:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)


def makeTree():
    """The sources to be mutated, by their place in the tree; all else is linked to."""
    TREE.mkdir(parents=True, exist_ok=True)
    for entry in ROOT.iterdir():
        link = TREE / entry.name
        if entry.name not in ("src", "build", ".git") and not link.is_symlink():
            link.symlink_to(entry)
    sources = {}
    for path in sorted((ROOT / "src").rglob("*")):
        target = TREE / path.relative_to(ROOT)
        if path.suffix in (".cpp", ".h"):
            sources[str(target)] = plain(path)
        elif path.is_file():
            writeIfChanged(target, path.read_text())
    writeIfChanged(TREE / "src/Mutant.h", DISMISSED.with_name("Mutant.h").read_text())
    return sources


def configure():
    subprocess.run(
        ["cmake", "-S", TREE, "-B", BUILD, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Debug",
         f"-DCMAKE_CXX_FLAGS_DEBUG={FLAGS}"], check=True, stdout=subprocess.DEVNULL)


def build(*arguments):
    """Empty when all is built, else the compiler's messages."""
    done = subprocess.run(["ninja", "-C", BUILD, "-j", str(os.cpu_count()), *arguments],
                          capture_output=True, text=True)
    return "" if done.returncode == 0 else done.stdout or "failed"


def findMutants(sources, wanted):
    """All mutants of the wanted files."""
    for path, text in sources.items():
        if not pathlib.Path(path).exists():
            writeIfChanged(pathlib.Path(path), text)
    configure()
    finder = finding.Finder(sources)
    for command in json.loads((BUILD / "compile_commands.json").read_text()):
        if command["file"] in sources:
            words = [word for word in command["command"].split()
                     if re.match("-[ID]|-std|-isystem", word) or "fmt" in word]
            finder.parse(command["file"], words)
    found = []
    for path in sources:
        shown = str(pathlib.Path(path).relative_to(TREE))
        if fnmatch.fnmatch(shown, f"*{wanted}*"):
            found += finder.mutants(path, shown, (ROOT / shown).read_text())
    for number, mutant in enumerate(found, 1):
        mutant.number = number
    return found


def writeSwitchable(sources, mutants):
    byFile = collections.defaultdict(list)
    for mutant in mutants:
        byFile[str(TREE / mutant.file)].append(mutant)
    for path, text in sources.items():
        writeIfChanged(pathlib.Path(path), finding.switchable(text, byFile[path]))


def buildSwitchable(sources, mutants):
    """Builds with all mutants but those that do not compile so, which are returned."""
    rest = []
    while True:
        writeSwitchable(sources, mutants)
        messages = build("-k", "0", *(f"tests/{level}/all" for level in LEVELS))
        if not messages:
            return rest
        troubled = set()
        for pattern in (r": error:", ""):
            places = set(re.findall(
                rf"({re.escape(str(TREE))}/src\S+?):(\d+):\d+{pattern}", messages))
            for mutant in mutants:
                text = sources[str(TREE / mutant.file)]
                last = mutant.line + text.count("\n", mutant.start, mutant.end)
                if any((str(TREE / mutant.file), str(line)) in places
                       for line in range(mutant.line, last + 1)):
                    troubled.add(mutant)
            if troubled:
                break
        if not troubled:
            raise SystemExit(messages)
        say(f"{len(troubled)} mutants cannot be switched at run time")
        rest += troubled
        mutants[:] = [mutant for mutant in mutants if mutant not in troubled]


class Tests:
    """The cases of each test executable, and the mutants that each case reaches."""

    def __init__(self, jobs):
        self.jobs = jobs
        self.folders = queue.Queue()
        for number in range(jobs):
            self.folders.put(BUILD.with_name(f"tmp{number}"))
        self.cases = {}  # executable -> case -> seconds
        self.reaching = collections.defaultdict(lambda: collections.defaultdict(list))
        labels = "^(" + "|".join(LEVELS) + ")$"
        shown = subprocess.run(["ctest", "--show-only=json-v1", "-L", labels], cwd=BUILD,
                               check=True, capture_output=True, text=True).stdout
        self.where = {}
        for test in json.loads(shown)["tests"]:
            executable, *words = test["command"]
            name = next((word for word in words if word.startswith("--gtest_filter=")), None)
            if name:
                self.cases.setdefault(executable, {})[name.partition("=")[2]] = 0
                self.where[executable] = next(
                    (each["value"] for each in test["properties"]
                     if each["name"] == "WORKING_DIRECTORY"), str(BUILD))

    def run(self, executable, cases, seconds, environment):
        """0 where the cases pass, None where they take too long."""
        folder = self.folders.get()
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        cpuLimit = int(3 + 6 * seconds)

        def limit():
            resource.setrlimit(resource.RLIMIT_CPU, (cpuLimit, cpuLimit + 1))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
            resource.setrlimit(resource.RLIMIT_FSIZE, (1 << 30, 1 << 30))

        command = [executable, "--gtest_fail_fast", "--gtest_filter=" + ":".join(cases)]
        process = subprocess.Popen(
            command, cwd=self.where[executable], env={**os.environ, "TMPDIR": str(folder),
                                                      **environment},
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            start_new_session=True, preexec_fn=limit)
        try:
            status = process.wait(20 + 20 * seconds)
        except subprocess.TimeoutExpired:
            status = None
        try:
            os.killpg(process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        process.wait()
        self.folders.put(folder)
        return None if status in (-signal.SIGXCPU, -signal.SIGKILL) else status

    def trace(self, count, slowest):
        """Runs each case by itself without a mutant, and notes which ones it asks for."""
        def one(executable, case):
            reached = BUILD.with_name(
                f"reached-{os.path.basename(executable)}-{case.replace('/', '-')}")
            reached.write_bytes(bytes(count + 1))
            begin = time.monotonic()
            status = self.run(executable, [case], 30, {"SODREL_MUTANTS_REACHED": str(reached)})
            seconds = time.monotonic() - begin
            found = [number for number, byte in enumerate(reached.read_bytes()) if byte]
            reached.unlink()
            return executable, case, status, seconds, found

        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            futures = [pool.submit(one, executable, case)
                       for executable, cases in self.cases.items() for case in cases]
            for future in futures:
                executable, case, status, seconds, found = future.result()
                if status != 0:
                    raise SystemExit(f"{executable}: {case} fails without a mutant")
                self.cases[executable][case] = seconds
                if seconds > slowest:
                    say(f"{case} stays out: it takes {seconds:.0f} s")
                    del self.cases[executable][case]
                    continue
                for number in found:
                    self.reaching[number][executable].append(case)

    def judge(self, cases, mutant):
        """What these cases, by executable, make of the mutant: killed, late or survives."""
        times = {executable: sum(self.cases[executable][case] for case in chosen)
                 for executable, chosen in cases.items()}
        for executable in sorted(cases, key=times.get):
            status = self.run(executable, cases[executable], times[executable],
                              {"SODREL_MUTANT": str(mutant.number)})
            if status != 0:
                return "late" if status is None else "killed"
        return "survives"

    def judgeAlone(self, sources, mutant, near):
        """The same for a mutant that is compiled by itself."""
        path = TREE / mutant.file
        path.write_text(finding.alone(sources[str(path)], mutant))
        none = finding.Mutant(0, 0, "", "", "", "")
        # The executables that know the file best come first, so that few need to be built.
        for executable in sorted(filter(self.cases.get, self.cases), key=lambda each: (
                -len(near.get(each, ())), sum(self.cases[each].values()))):
            before = os.stat(executable).st_mtime
            if build(os.path.relpath(executable, BUILD)):
                return "rejected"
            if os.stat(executable).st_mtime == before and "/abi/" not in executable:
                continue
            for some in (set(near.get(executable, ())),
                         set(self.cases[executable]) - set(near.get(executable, ()))):
                result = self.judge({executable: sorted(some)}, none) if some else "survives"
                if result != "survives":
                    return result
        if mutant.file.endswith(".h"):
            if build("tests/compile/all"):
                return "killed"
            compiled = subprocess.run(
                ["ctest", "-L", "^compile$", "-j", str(self.jobs), "--stop-on-failure"],
                cwd=BUILD, stdout=subprocess.DEVNULL, check=False)
            return "killed" if compiled.returncode else "survives"
        return "survives"


def readDismissed():
    """The reasons of the dismissed mutants by their keys.

    An entry has lines "FILE: LINE" or "FILE FUNCTION: LINE" with the source line, indented lines
    "OLD => NEW", and indented lines with the reason."""
    reasons = {}
    for block in DISMISSED.read_text().split("\n\n"):
        lines = [line for line in block.split("\n") if line and not line.startswith("#")]
        if not lines:
            continue
        sources = [line.partition(": ") for line in lines if not line.startswith(" ")]
        changes = [line.strip() for line in lines if line.startswith(" ") and " =>" in line]
        reason = " ".join(line.strip() for line in lines
                          if line.startswith(" ") and " =>" not in line)
        if not (sources and changes and reason):
            raise SystemExit(f"{DISMISSED}: incomplete entry:\n{block}")
        for file, _, line in sources:
            for change in changes:
                # Removals have nothing behind the arrow.
                reasons[(file, line, re.sub("=>$", "=> ", change))] = reason
    return reasons


def shown(mutant):
    return f"{mutant.file}:{mutant.line}: {mutant.lineText}\n   {mutant.old} => {mutant.new}"


def report(results, seconds):
    columns = ("made", "killed", "late", "rejected", "dismissed", "left", "survives")
    folders = collections.defaultdict(collections.Counter)
    for mutant, result in results:
        for folder in (os.path.dirname(mutant.file), "all"):
            folders[folder]["made"] += 1
            folders[folder][result] += 1
    print(f"{'':22}" + "".join(f"{column:>10}" for column in columns))
    for folder in sorted(folders, key=lambda name: (name == "all", name)):
        print(f"{folder:22}" + "".join(f"{folders[folder][column]:10}" for column in columns))
    print(f"in {seconds / 60:.0f} minutes")
    for mutant, result in results:
        if result == "survives":
            print("\n" + shown(mutant))


def main():
    parser = argparse.ArgumentParser(prog="scripts/mutate", description=__doc__)
    parser.add_argument("--file", default="", metavar="PATTERN", help="files to mutate")
    parser.add_argument("--sample", type=int, metavar="N", help="so many of the mutants")
    parser.add_argument("--seed", type=int, default=1, help="of the sample")
    ways = parser.add_mutually_exclusive_group()
    ways.add_argument("--switched", action="store_true",
                      help="leave out what has to be compiled one by one")
    ways.add_argument("--compiled", action="store_true", help="only those")
    parser.add_argument("--slowest", type=float, default=10, metavar="SECONDS",
                        help="the longest that a test case may take")
    parser.add_argument("--minutes", type=float, metavar="N",
                        help="switch mutants no longer than that, and compile some no longer")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--list", action="store_true", help="print the mutants and run nothing")
    options = parser.parse_args()

    begin = time.monotonic()
    sources = makeTree()
    found = findMutants(sources, options.file)
    reasons = readDismissed()
    keys = {key for mutant in found for key in mutant.keys()}
    stale = [key for key in reasons
             if key not in keys and fnmatch.fnmatch(key[0].split()[0], f"*{options.file}*")]
    if stale:
        raise SystemExit("\n".join(f"{DISMISSED}: no mutant is {key}" for key in stale))

    if options.list:
        for mutant in found:
            print(f"{mutant.file}:{mutant.line}: {mutant.kind}: {mutant.old} => {mutant.new}")
        return

    chosen = found
    if options.sample is not None:
        chosen = random.Random(options.seed).sample(found, min(options.sample, len(found)))
    say(f"{len(found)} mutants; building")
    switched = list(found)
    unswitched = set(buildSwitchable(sources, switched))
    tests = Tests(options.jobs)
    say("running each test without a mutant")
    tests.trace(len(found), options.slowest)

    alone = unswitched | {mutant for mutant in found if not tests.reaching[mutant.number]}
    if options.switched or options.compiled:
        chosen = [mutant for mutant in chosen if (mutant in alone) == options.compiled]
    results = {mutant: "dismissed" for mutant in chosen
               if any(key in reasons for key in mutant.keys())}
    chosen = [mutant for mutant in chosen if mutant not in results]
    running = [mutant for mutant in chosen if mutant not in alone]
    compiled = [mutant for mutant in chosen if mutant in alone]
    say(f"{len(running)} mutants are switched, {len(compiled)} compiled one by one")
    stage = time.monotonic()

    def isLate():
        return options.minutes is not None and time.monotonic() - stage > 60 * options.minutes

    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        judged = pool.map(lambda mutant: "left" if isLate() else tests.judge(
            tests.reaching[mutant.number], mutant), running)
        for number, (mutant, result) in enumerate(zip(running, judged), 1):
            results[mutant] = result
            if result == "survives":
                say(shown(mutant))
            if number % 100 == 0:
                say(f"{number} of {len(running)}")
    stage = time.monotonic()
    for number, mutant in enumerate(compiled, 1):
        if isLate():
            results.update((other, "left") for other in compiled[number - 1:])
            break
        near = collections.defaultdict(set)
        for other in found:
            if other.file == mutant.file:
                for executable, cases in tests.reaching[other.number].items():
                    near[executable].update(cases)
        results[mutant] = tests.judgeAlone(sources, mutant, near)
        say(f"{number} of {len(compiled)}, {results[mutant]}: {shown(mutant)}")
        if number == len(compiled) or compiled[number].file != mutant.file:
            writeSwitchable(sources, switched)

    report(sorted(results.items(), key=lambda pair: pair[0].number),
           time.monotonic() - begin)
    sys.exit("survives" in results.values())


main()
