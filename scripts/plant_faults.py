#!/usr/bin/env python3
"""Changes one line at a time in a copy of the sources that has been built, and reports the faults that no test detects.
scripts/faults.sh makes and builds the copy and calls this program; its help describes the report.

    plant_faults.py copy FOLDER                       brings the copy in FOLDER/source up to date
    plant_faults.py list|run FOLDER JOBS COUNT SEED [only=NAME]... PATH...
"""

from __future__ import annotations

import contextlib
import dataclasses
import filecmp
import hashlib
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import sys
import threading
import time
from collections.abc import Iterable, Iterator, Sequence
from concurrent.futures import ThreadPoolExecutor

sys.dont_write_bytecode = True  # the sources stay as they are

import fault_places
from fault_places import Place

# Tests that do not judge the code's behaviour, or take too long to run for every fault.
LEFT_OUT = re.compile(r"header_|binary_interface|installation|library_file_names|building_|docs_tutorial|docs_readme|packages_|"
                      r"structure_|scripts_|soak_|manuals_|completions_|examples_in_docs|python_mypy|\w*endurance_test")
SHARE_SECONDS = 3.0  # a program's cases are run in parallel groups of about this time
PATIENCE_SECONDS = 10.0
PATIENCE_FACTOR = 3.0  # a test hangs if it takes longer than its usual time times this factor, plus the seconds above


class Failed(Exception):
    """An error that ends the run; its text is a sentence."""


# ---- The copy ----

def files_of(root: pathlib.Path) -> list[str]:
    """The files of the working tree that git does not ignore."""
    if (root / ".git").exists():
        listed = subprocess.run(["git", "-C", root, "ls-files", "-co", "--exclude-standard", "-z"], check=True, capture_output=True)
        names = [os.fsdecode(name) for name in listed.stdout.split(b"\0") if name]
    else:
        names = [str(path.relative_to(root)) for path in root.rglob("*")
                 if path.relative_to(root).parts[0] != "build" and "__pycache__" not in path.parts]
    return [name for name in names if (root / name).is_symlink() or (root / name).is_file()]


def copy_sources(root: pathlib.Path, to: pathlib.Path) -> None:
    """Writes only files that differ, so that only they are built again."""
    wanted = set(files_of(root))
    for path in sorted(to.rglob("*"), reverse=True):
        if path.is_dir() and not path.is_symlink():
            with contextlib.suppress(OSError):
                path.rmdir()  # if it is empty now
        elif str(path.relative_to(to)) not in wanted:
            path.unlink()
    for name in wanted:
        source, target = root / name, to / name
        if target.is_symlink() or not target.exists() or not filecmp.cmp(source, target, shallow=False):
            target.parent.mkdir(parents=True, exist_ok=True)
            target.unlink(missing_ok=True)
            shutil.copy(source, target, follow_symlinks=False)
        elif not source.is_symlink() and source.stat().st_mode != target.stat().st_mode:
            target.chmod(source.stat().st_mode)


# ---- The tests ----

@dataclasses.dataclass
class Test:
    """A unit to run: a test program, a group of its cases, or another test of CTest."""

    name: str
    command: list[str]
    folder: str
    mirrored: str  # the folder of the sources that it tests
    stems: set[str] = dataclasses.field(default_factory=set)
    cases: list[str] = dataclasses.field(default_factory=list)  # of GoogleTest
    seconds: float = 0.0
    whole: bool = True

    @property
    def words(self) -> list[str]:
        if not self.cases:
            return self.command
        return [*self.command, "--gtest_fail_fast", *([] if self.whole else ["--gtest_filter=" + ":".join(self.cases)])]

    def limit(self) -> float:
        return PATIENCE_SECONDS + PATIENCE_FACTOR * self.seconds


@dataclasses.dataclass
class Outcome:
    test: Test
    passed: bool
    seconds: float
    output: str
    hung: bool = False

    def culprit(self) -> str:
        """The failed case, if the output shows it."""
        for pattern in (r"^\[  FAILED  \] ([^\s,]+)", r"^FAILED (\S+)"):
            found = re.search(pattern, self.output, re.MULTILINE)
            if found:
                return f"{found.group(1)} ({self.test.name})"
        begun = re.findall(r"^\[ RUN      \] (\S+)", self.output, re.MULTILINE)
        return f"{begun[-1]} ({self.test.name})" if begun else self.test.name


class Tests:
    """The tests of a build. Each runs in process, network and mount namespaces of its own, with a private /tmp on a read-only system,
    because a program with a fault may end or remove anything."""

    def __init__(self, folder: pathlib.Path, jobs: int):
        self.folder, self.build, self.jobs = folder, folder / "build", jobs
        self.tests: list[Test] = []
        self._stop = threading.Event()

    def read(self) -> None:
        self._check_sandbox()
        listed = subprocess.run(["ctest", "--test-dir", self.build, "--show-only=json-v1"], capture_output=True, text=True,
                                check=False)
        if listed.returncode != 0:
            raise Failed(f"ctest cannot list the tests of {self.build}: {listed.stderr.strip()}")
        programs: dict[str, Test] = {}
        self.tests = []
        for test in json.loads(listed.stdout)["tests"]:
            properties = {each["name"]: each["value"] for each in test["properties"]}
            words: list[str] = test.get("command", [])
            case = next((word.split("=", 1)[1] for word in words if word.startswith("--gtest_filter=")), None)
            program = [word for word in words if not word.startswith("--gtest_")]
            name = pathlib.Path(program[-1]).name if case and program else test["name"]
            if properties.get("DISABLED") or LEFT_OUT.match(name):
                continue
            if case is None:
                command = ["ctest", "--test-dir", str(self.build), "-R", f"^{re.escape(name)}$", "--output-on-failure"]
                self.tests.append(Test(name, command, str(self.build), ""))
                continue
            working = properties.get("WORKING_DIRECTORY", str(self.build))
            mirrored = os.path.relpath(working, self.build).removeprefix("tests/")
            programs.setdefault(name, Test(name, program, working, mirrored)).cases.append(case)
        self._read_sources(programs)
        self.tests += programs.values()

    def _read_sources(self, programs: dict[str, Test]) -> None:
        """The name of the sources that a program tests: "threads" for threads_test.cpp."""
        for words in compile_commands(self.build):
            target = re.search(r"CMakeFiles/([^/]+)\.dir/", words[words.index("-o") + 1])
            if target and target.group(1) in programs:
                programs[target.group(1)].stems.add(pathlib.Path(words[-1]).stem.removesuffix("_test"))

    def learn(self, outcomes: Iterable[Outcome]) -> None:
        """Divides long programs into groups of cases, by the time of each case."""
        self.tests = [share for outcome in outcomes for share in shares_of(outcome)]

    def nearest_first(self, file: str) -> list[Test]:
        # The tests of the C++ headers are in tests/cpp.
        path = pathlib.PurePath(file)
        if path.suffix == ".hpp":
            path = pathlib.PurePath("cpp", path.name)

        def order(test: Test) -> tuple[int, bool, float]:
            common = pathlib.PurePath(os.path.commonpath(["/" + str(path.parent), "/" + test.mirrored])).parts
            near = len(common) - 1 + (path.stem in test.stems and len(common) > 1)
            # Among the near tests the quickest come first; among the others the slowest, because the run waits for all of them.
            other_side = test.mirrored.startswith("tools") != file.startswith("tools")
            return (-near, other_side, test.seconds if near else -test.seconds)

        return sorted(self.tests, key=order)

    def run(self, tests: Sequence[Test], *, all_of_them: bool = False) -> list[Outcome]:
        """Runs tests in parallel, in their order, until the first failure unless all are to be run."""
        self._stop.clear()
        outcomes: list[Outcome] = []
        with ThreadPoolExecutor(self.jobs) as workers:
            pending = [workers.submit(self._run_one, test, all_of_them) for test in tests]
            try:
                for each in pending:
                    outcome = each.result()
                    if outcome is not None:
                        outcomes.append(outcome)
            except BaseException:
                self._stop.set()
                raise
        return outcomes

    def _sandbox(self, own_tmp: pathlib.Path) -> list[str]:
        capabilities = ["--cap-add", "ALL"] if os.geteuid() == 0 else []
        return ["bwrap", "--die-with-parent", "--unshare-pid", "--unshare-net", "--unshare-ipc", *capabilities, "--ro-bind", "/", "/",
                "--dev-bind", "/dev", "/dev", "--proc", "/proc", "--bind", str(own_tmp), "/tmp", "--bind", str(self.folder),
                str(self.folder), "--tmpfs", str(self.build / "Testing")]

    def _check_sandbox(self) -> None:
        shutil.rmtree(self.folder / "tmp", ignore_errors=True)  # left by a run that was killed
        own_tmp = self.folder / "tmp/tried"
        own_tmp.mkdir(parents=True)
        tried = subprocess.run([*self._sandbox(own_tmp), "true"], capture_output=True, text=True, check=False)
        shutil.rmtree(own_tmp)
        if tried.returncode != 0:
            raise Failed(f"this machine does not permit the isolation that the tests need: {tried.stderr.strip()}")

    def _run_one(self, test: Test, limitless: bool) -> Outcome | None:
        """None if the failure of another test made this one unnecessary."""
        if self._stop.is_set():
            return None
        own_tmp = self.folder / "tmp" / str(threading.get_native_id())
        own_tmp.mkdir(parents=True, exist_ok=True)
        own_tmp.chmod(0o1777)
        log = own_tmp.with_suffix(".log")
        words = [*self._sandbox(own_tmp), "--chdir", test.folder, "--", *test.words]
        began = time.monotonic()
        limit = 900.0 if limitless else test.limit()
        hung = False
        with log.open("wb") as output, subprocess.Popen(words, stdin=subprocess.DEVNULL, stdout=output,
                                                        stderr=subprocess.STDOUT) as process:
            while process.poll() is None:
                hung = time.monotonic() - began > limit
                if hung or self._stop.is_set():
                    process.kill()
                    process.wait()
                    break
                with contextlib.suppress(subprocess.TimeoutExpired):
                    process.wait(0.05)
            stopped = self._stop.is_set() and process.returncode != 0 and not hung
        output = log.read_text(errors="replace")
        log.unlink()
        shutil.rmtree(own_tmp, ignore_errors=True)
        if stopped:
            return None
        passed = process.returncode == 0 and not hung
        if not passed and not limitless:
            self._stop.set()
        return Outcome(test, passed, time.monotonic() - began, output, hung)


def shares_of(outcome: Outcome) -> Iterator[Test]:
    test = outcome.test
    passed = re.findall(r"^\[       OK \] (\S+?)(?:, where .*)? \((\d+) ms\)$", outcome.output, re.MULTILINE)
    taken = {name: int(milliseconds) / 1000 for name, milliseconds in passed}
    if not outcome.passed or len(taken) < 2 or outcome.seconds <= SHARE_SECONDS:
        yield dataclasses.replace(test, seconds=outcome.seconds)
        return
    own = max(0.0, outcome.seconds - sum(taken.values()))
    share: list[str] = []
    seconds = 0.0
    for case in sorted(taken, key=lambda case: taken[case]):
        if share and seconds + taken[case] > SHARE_SECONDS:
            yield dataclasses.replace(test, cases=share, seconds=own + seconds, whole=False)
            share, seconds = [], 0.0
        share.append(case)
        seconds += taken[case]
    yield dataclasses.replace(test, cases=share, seconds=own + seconds, whole=False)


# ---- The build ----

class Build:
    def __init__(self, folder: pathlib.Path):
        self.folder, self.source, self.build = folder, folder / "source", folder / "build"
        self._objects = {path: digest(path) for path in self.build.rglob("*.o")}
        self._commands = {self.build / words[words.index("-o") + 1]: words for words in compile_commands(self.build)}

    def make(self) -> bool:
        with (self.folder / "ninja.log").open("wb") as log:
            made = subprocess.run(["ninja", "-C", self.build], stdout=log, stderr=subprocess.STDOUT, check=False)
            return made.returncode == 0

    def changed_objects(self) -> list[pathlib.Path]:
        """The objects that differ from those of the sources without a fault."""
        return [path for path, before in self._objects.items() if digest(path) != before]

    def optimised(self, objects: Iterable[pathlib.Path]) -> list[str | None]:
        """A digest of the optimized object code of each of these objects; None if it cannot be compiled."""
        digests: list[str | None] = []
        for path in objects:
            if path not in self._commands:
                digests.append(None)
                continue
            words, target = self._commands[path], self.folder / "optimised.o"
            made = subprocess.run([*words, "-O2", "-w", "-o", target], cwd=self.build, capture_output=True, check=False)
            digests.append(digest(target) if made.returncode == 0 else None)
            target.unlink(missing_ok=True)
        return digests


def compile_commands(build: pathlib.Path) -> list[list[str]]:
    """The words of the compile command, with the source as the last one."""
    return [shlex.split(entry["command"]) for entry in json.loads((build / "compile_commands.json").read_text())]


def digest(path: pathlib.Path) -> str:
    return hashlib.sha1(path.read_bytes()).hexdigest() if path.exists() else ""


# ---- The faults ----

@dataclasses.dataclass
class Verdict:
    place: Place
    word: str  # killed, survived, equivalent, does not compile
    detail: str = ""


class Planting:
    def __init__(self, build: Build, tests: Tests):
        self.build, self.tests = build, tests

    def judge(self, place: Place) -> Verdict:
        file = self.build.source / place.file
        original = file.read_text()
        lines = original.split("\n")
        if lines[place.line - 1] != place.before:
            raise Failed(f"{place.file} has changed since it was copied; run this again")
        lines[place.line - 1] = place.after
        try:
            file.write_text("\n".join(lines))
            if not self.build.make():
                return Verdict(place, "does not compile")
            changed = self.build.changed_objects()
            if not changed:
                return Verdict(place, "equivalent", "(the object code does not change)")
            verdict = self._test(place)
            planted = self.build.optimised(changed) if verdict.word == "survived" else []
        finally:
            file.write_text(original)
        if verdict.word == "survived" and None not in planted and planted == self.build.optimised(changed):
            return Verdict(place, "equivalent", "(the optimized object code does not change)")
        return verdict

    def _test(self, place: Place) -> Verdict:
        pending = self.tests.nearest_first(place.file)
        unsteady: list[str] = []
        while pending:
            outcomes = self.tests.run(pending)
            failed = next((outcome for outcome in outcomes if not outcome.passed), None)
            if failed is None:
                break
            # A test may fail once for another reason.
            if failed.hung:
                return Verdict(place, "killed", f"by {failed.culprit()}, which takes longer than {failed.test.limit():.0f} s")
            if not self.tests.run([failed.test])[0].passed:
                return Verdict(place, "killed", f"by {failed.culprit()}")
            unsteady.append(failed.culprit())
            done = [outcome.test for outcome in outcomes]
            pending = [test for test in pending if not any(test is each for each in done)]
        return Verdict(place, "survived", f"(failed only once: {', '.join(unsteady)})" if unsteady else "")


def check_clean(folder: pathlib.Path, tests: Tests) -> None:
    """Makes sure that all tests pass without a fault, and measures each. Not repeated while the copy is unchanged."""
    source = folder / "source"
    state = hashlib.sha1("".join(f"{name} {digest(source / name)}\n" for name in sorted(files_of(source))).encode()).hexdigest()
    kept = folder / "clean.json"
    with contextlib.suppress(FileNotFoundError, ValueError, TypeError):
        known = json.loads(kept.read_text())
        if known["state"] == state:
            tests.tests = [Test(**(test | {"stems": set(test["stems"])})) for test in known["tests"]]
            return
    print(f"running {len(tests.tests)} tests without a fault, to measure their times", flush=True)
    began = time.monotonic()
    outcomes = tests.run(tests.tests, all_of_them=True)
    # The cases of such a program only pass in separate processes.
    alone = [dataclasses.replace(outcome.test, cases=[case], whole=False)
             for outcome in outcomes if not outcome.passed and len(outcome.test.cases) > 1 for case in outcome.test.cases]
    outcomes = [outcome for outcome in outcomes if outcome.passed or len(outcome.test.cases) <= 1]
    outcomes += tests.run(alone, all_of_them=True)
    failing = [outcome.test for outcome in outcomes if not outcome.passed]
    culprits = [outcome.culprit() for outcome in outcomes if not outcome.passed]
    if failing:
        again = [outcome for outcome in tests.run(failing, all_of_them=True) if not outcome.passed]
        for outcome in again:
            print("\n".join(outcome.output.splitlines()[-30:]), file=sys.stderr)
        if again:
            raise Failed("these tests fail even without a fault: " + ", ".join(outcome.culprit() for outcome in again))
        outcomes = [outcome for outcome in outcomes if outcome.passed]
        print(f"left out because they fail sometimes: {', '.join(culprits)}", flush=True)
    tests.learn(outcomes)
    known_tests = [dataclasses.asdict(test) | {"stems": sorted(test.stems)} for test in tests.tests]
    kept.write_text(json.dumps({"state": state, "tests": known_tests}))
    print(f"they pass after {time.monotonic() - began:.0f} s", flush=True)


def summary(verdicts: Sequence[Verdict], not_compiled: int) -> str:
    count = {word: sum(verdict.word == word for verdict in verdicts) for word in ("killed", "survived", "equivalent")}
    counts = ", ".join(f"{number} {word}" for word, number in count.items())
    lines = [f"{len(verdicts)} planted: {counts}; {not_compiled} others did not compile"]
    lines += [f"{verdict.place} {verdict.detail}".rstrip() for verdict in verdicts if verdict.word == "survived"]
    return "\n".join(lines)


def chosen(folder: pathlib.Path, root: pathlib.Path, paths: Sequence[str], seed: int, only: Sequence[str]) -> Iterator[Place]:
    if not only:
        places = fault_places.places_below(root, paths)
        if not places:
            raise Failed(f"no fault can be planted in {' '.join(paths)}: there is no C or C++ code")
        return fault_places.drawn(places, seed)
    names: list[str] = []
    for name in only:
        if name == "survivors":
            kept = folder / "survivors.txt"
            if not kept.exists():
                raise Failed("no run has listed survivors yet")
            names += kept.read_text().split()
        else:
            names.append(name)
    by_name = {place.name: place for place in fault_places.places_below(root, {name.split(":")[0] for name in names})}
    found: dict[str, Place] = {}
    for name in names:
        matching = {each: place for each, place in by_name.items() if each == name or each.startswith(name + ":")}
        if not matching:
            raise Failed(f"no fault can be planted at \"{name}\"; --list shows the possible faults")
        found |= matching
    return iter(found.values())


def plant(folder: pathlib.Path, jobs: int, count: int, places: Iterator[Place]) -> None:
    tests = Tests(folder, jobs)
    tests.read()
    check_clean(folder, tests)
    planting = Planting(Build(folder), tests)
    verdicts: list[Verdict] = []
    not_compiled = 0
    try:
        for place in places:
            if len(verdicts) == count:
                break
            began = time.monotonic()
            verdict = planting.judge(place)
            if verdict.word == "does not compile":
                not_compiled += 1
                continue
            verdicts.append(verdict)
            print(f"[{len(verdicts)}/{count}] {place.name}: {f'{verdict.word} {verdict.detail}'.rstrip()}, "
                  f"{time.monotonic() - began:.1f} s", flush=True)
    finally:
        report = summary(verdicts, not_compiled)
        (folder / "report.txt").write_text(report + "\n")
        survivors = [verdict.place.name for verdict in verdicts if verdict.word == "survived"]
        (folder / "survivors.txt").write_text("".join(f"{name}\n" for name in survivors))
        print(report)


def main(words: Sequence[str]) -> int:
    # A shell that runs this in the background ignores interrupts, which the tests would inherit.
    for each in (signal.SIGINT, signal.SIGTERM):
        signal.signal(each, signal.default_int_handler)
    root, (task, name, *rest) = pathlib.Path.cwd(), words
    folder = (root / name).resolve()
    try:
        if task == "copy":
            (folder / "source").mkdir(parents=True, exist_ok=True)
            copy_sources(root, folder / "source")
            return 0
        jobs, count, seed = (int(word) for word in rest[:3])
        only = [word.split("=", 1)[1] for word in rest[3:] if word.startswith("only=")]
        paths = [word for word in rest[3:] if not word.startswith("only=")]
        if task == "list":
            for number, place in enumerate(chosen(folder, root, paths, seed, only)):
                if number < count or only:
                    print(place)
            return 0
        places = list(chosen(folder, folder / "source", paths, seed, only))
        plant(folder, jobs, len(places) if only else count, iter(places))
    except Failed as failed:
        print(f"scripts/faults.sh: {failed}", file=sys.stderr)
        return 1
    except KeyboardInterrupt:
        print("scripts/faults.sh: interrupted", file=sys.stderr)
        return 130
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
