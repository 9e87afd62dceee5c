"""Runs the fuzz targets, as script/fuzz calls it."""

import argparse
import concurrent.futures
import contextlib
import math
import os
import pathlib
import re
import resource
import shutil
import signal
import subprocess
import sys
import threading

import coverage

ROOT = pathlib.Path(__file__).resolve().parents[2]
SOURCES = ROOT / "tests" / "fuzz"
# Where the programs are built; tests of this script have others.
BIN = os.environ.get("RAVELIN_DISK_FUZZ_BIN")
PROGRAMS = pathlib.Path(BIN) if BIN else ROOT / "build" / "fuzz" / "bin"
BUILD = ROOT / "build" / "fuzz"

# The sizes of inputs, and so of what is kept. An input may take long where many others compute, too.
LIMITS = ["-max_len=4096", "-timeout=120", "-rss_limit_mb=2048"]
# What a corpus may have in the tree.
CORPUS_LIMIT = 300 * 1024


def names():
    """The targets, by the names of their sources."""
    return sorted(re.sub(r"(?<!^)(?=[A-Z])", "-", source.stem.removeprefix("Fuzz")).lower()
                  for source in SOURCES.glob("Fuzz*.cpp"))


class Failure(Exception):
    """A target has failed."""


class Processes:
    """The targets that run, which end with this script. Any thread."""

    def __init__(self):
        self._lock = threading.Lock()
        self._running = set()
        self._have_ended = False

    def run(self, command, **how):
        """Runs the command in a group of processes of its own, and returns its status."""
        with self._lock:
            if self._have_ended:
                raise Failure("interrupted")
            process = subprocess.Popen(command, process_group=0, **how)
            self._running.add(process)
        try:
            return process.wait()
        finally:
            with self._lock:
                self._running.remove(process)

    def end(self):
        """Ends all of them; no other one is started."""
        with self._lock:
            self._have_ended = True
            for process in self._running:
                with contextlib.suppress(ProcessLookupError):
                    os.killpg(process.pid, signal.SIGKILL)


PROCESSES = Processes()


def size_of(folder):
    return sum(file.stat().st_size for file in folder.iterdir())


class Target:
    """One target and its corpora."""

    def __init__(self, name):
        self.name = name
        self.program = PROGRAMS / f"fuzz-{name}"
        self.kept = SOURCES / "corpus" / name
        self.found = BUILD / "corpus" / name
        self.failures = BUILD / "failures" / name
        self.log = BUILD / "logs" / f"{name}.log"

    def run(self, *options):
        """Runs the program and returns what it has printed; where it fails, Failure."""
        self.failures.mkdir(parents=True, exist_ok=True)
        self.log.parent.mkdir(parents=True, exist_ok=True)
        before = set(self.failures.iterdir())
        dictionary = SOURCES / "dictionaries" / self.name
        # Lines are counted only for --coverage.
        environment = os.environ | {"LLVM_PROFILE_FILE": "/dev/null"}
        with self.log.open("wb") as log:
            status = PROCESSES.run(
                [self.program, *LIMITS, *options, f"-artifact_prefix={self.failures}/",
                 *([f"-dict={dictionary}"] if dictionary.exists() else [])],
                cwd=ROOT, env=environment, stdin=subprocess.DEVNULL, stdout=log,
                stderr=subprocess.STDOUT)
        text = self.log.read_text(encoding="utf-8", errors="replace")
        if status != 0:
            kept = sorted(set(self.failures.iterdir()) - before)
            again = [f"Repeat it: {self.program} {file}" for file in kept
                     if not file.name.startswith("slow-unit-")]
            raise Failure("\n".join([f"{self.name} has failed, with status {status}:",
                                     *text.splitlines()[-40:], f"All of it: {self.log}", *again]))
        return text

    def copy_corpus(self, folder):
        folder.mkdir(parents=True, exist_ok=True)
        for file in self.kept.iterdir() if self.kept.exists() else ():
            shutil.copyfile(file, folder / file.name)

    def fuzz(self, minutes):
        self.copy_corpus(self.found)
        text = self.run(f"-max_total_time={math.ceil(minutes * 60)}", "-print_final_stats=1",
                        self.found)
        executions = figure(r"number_of_executed_units: (\d+)", text)
        added = figure(r"new_units_added: +(\d+)", text)
        features = re.findall(r"cov: (\d+) ft: (\d+)", text)[-1]
        before = size_of(self.kept) if self.kept.exists() else 0
        self.minimise()
        return (f"{self.name}: {executions} executions, {added} new inputs, {features[0]} edges and "
                f"{features[1]} features reached; the corpus had {before} bytes and has "
                f"{size_of(self.kept)}, in {len(list(self.kept.iterdir()))} files")

    def minimise(self):
        """Puts the least inputs that reach as much into the tree."""
        least = BUILD / "least" / self.name
        shutil.rmtree(least, ignore_errors=True)
        least.mkdir(parents=True)
        # Without the inputs that only reach something more often: there are many times as many.
        self.run("-merge=1", "-use_counters=0", least, self.found)
        if not any(least.iterdir()):
            raise Failure(f"{self.name}: nothing is left of the corpus in {self.found}")
        if size_of(least) > CORPUS_LIMIT:
            raise Failure(f"{self.name}: {least} has {size_of(least)} bytes, and a corpus in the tree "
                          f"may have {CORPUS_LIMIT}")
        # New ones first: whenever this is interrupted, nothing is missing.
        self.kept.mkdir(parents=True, exist_ok=True)
        for file in least.iterdir():
            shutil.copyfile(file, self.kept / file.name)
        for file in self.kept.iterdir():
            if not (least / file.name).exists():
                file.unlink()
        shutil.rmtree(self.found)
        shutil.move(least, self.found)

    def try_inputs(self, number):
        trial = BUILD / "trial" / self.name
        shutil.rmtree(trial, ignore_errors=True)
        self.copy_corpus(trial)
        text = self.run(f"-runs={number}", "-max_total_time=20", "-seed=1", "-print_final_stats=1", trial)
        shutil.rmtree(trial)
        executions = figure(r"number_of_executed_units: (\d+)", text)
        edges = re.findall(r"cov: (\d+)", text)[-1]
        return f"{self.name}: {executions} executions, {edges} edges reached"


def figure(pattern, text):
    return int(re.search(pattern, text)[1])


def number_above(smallest, kind):
    def read(text):
        value = kind(text)
        if not smallest < value < math.inf:
            raise ValueError
        return value
    read.__name__ = f"number above {smallest}"
    return read


def read_arguments():
    parser = argparse.ArgumentParser(
        prog="script/fuzz", add_help=False, allow_abbrev=False,
        usage="script/fuzz MINUTES [TARGET...] | --runs NUMBER [TARGET...] | --coverage")
    parser.add_argument("--runs", type=number_above(0, int))
    parser.add_argument("--coverage", action="store_true")
    parser.add_argument("rest", nargs="*")
    arguments = parser.parse_args()
    if arguments.coverage and (arguments.runs or arguments.rest):
        parser.error("--coverage stands alone")
    arguments.minutes = None
    if not arguments.runs and not arguments.coverage:
        if not arguments.rest:
            parser.error("how many MINUTES?")
        minutes = arguments.rest.pop(0)
        try:
            arguments.minutes = number_above(0, float)(minutes)
        except ValueError:
            parser.error(f"MINUTES must be a number above 0, not {minutes}")
    for name in arguments.rest:
        if name not in names():
            parser.error(f"no target has the name {name}; there are: {' '.join(names())}")
    return arguments


def build():
    if not BIN:
        subprocess.run(["script/build", "fuzz"], cwd=ROOT, check=True, stdout=subprocess.DEVNULL)


def main():
    arguments = read_arguments()
    build()
    if arguments.coverage:
        return coverage.check(ROOT, PROGRAMS, names())
    targets = [Target(name) for name in dict.fromkeys(arguments.rest) or names()]
    work = (lambda target: target.fuzz(arguments.minutes)) if arguments.minutes else (
        lambda target: target.try_inputs(arguments.runs))
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(len(os.sched_getaffinity(0))) as pool:
        try:
            for result in concurrent.futures.as_completed([pool.submit(work, target) for target in targets]):
                try:
                    print(result.result(), flush=True)
                except Failure as failure:
                    print(failure, file=sys.stderr, flush=True)
                    failed = 1
        except BaseException:
            PROCESSES.end()
            pool.shutdown(wait=False, cancel_futures=True)
            raise
    seconds = resource.getrusage(resource.RUSAGE_CHILDREN)
    print(f"processor time: {seconds.ru_utime + seconds.ru_stime:.0f} s", flush=True)
    return failed


if __name__ == "__main__":
    # By an exception, so that nothing is left running.
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda number, _: sys.exit(128 + number))
    sys.exit(main())
