"""Small wrong changes of the agent, and whether its tests find them, as script/mutate calls it."""

import argparse
import collections
import concurrent.futures
import contextlib
import hashlib
import json
import os
import pathlib
import pickle
import shutil
import signal
import sys
import time
import tomllib

sys.path[:0] = [os.path.join(os.path.dirname(__file__), "..", "system")]

import namespaces
from syntax import Finder
from trial import Broken, Commands, Tests, Workshop, plain_symbol, syntax_of

ROOT = pathlib.Path(__file__).resolve().parents[2]
ROOMS = ("controller", "intake", "disk", "core")
SURVIVORS = pathlib.Path(__file__).with_name("survivors.toml")
# Beside what is being tried: what need not be made again as long as the sources are the same.
FOLDER = ROOT / "build/mutate"
AT_ONCE = 2 * os.cpu_count()
# No unit test links it.
LEFT_OUT = {"src/core/main.cpp"}


def sources(paths):
    """The files of the rooms that are, or lie in, the paths."""
    files = []
    for room in ROOMS:
        for file in sorted((ROOT / "src" / room).glob("*.cpp")):
            name = str(file.relative_to(ROOT))
            if name not in LEFT_OUT and (not paths or any(
                    file == path or path in file.parents for path in map(pathlib.Path.resolve, paths))):
                files.append(name)
    return files


def state_of(*places):
    """A name for what the files there hold now."""
    state = hashlib.sha256()
    for place in places:
        for file in sorted([place] if place.is_file() else place.rglob("*")):
            if file.is_file() and "__pycache__" not in file.parts:
                state.update(f"{file}\0{file.stat().st_size}\0".encode() + file.read_bytes())
    return state.hexdigest()


def kept(file, state, make):
    """What the file keeps for this state, or else what is made, which it keeps then."""
    with contextlib.suppress(FileNotFoundError):
        entry = pickle.loads(file.read_bytes())
        if entry[0] == state:
            return entry[1]
    value = make()
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_bytes(pickle.dumps((state, value)))
    return value


def mutants_of(commands, file):
    source = (ROOT / file).read_bytes()
    return Finder(file, str(ROOT / file), source, syntax_of(commands, file, ROOT)).mutants()


def every_mutant(commands, files, pool):
    """The mutants of all these files, as they come in them."""
    state = state_of(ROOT / "src", pathlib.Path(__file__).with_name("syntax.py"))
    found = pool.map(lambda file: kept(FOLDER / "syntax" / file.replace("/", "-"), state,
                                       lambda: mutants_of(commands, file)), files)
    return [mutant for mutants in found for mutant in mutants]


def chosen(mutants, count, seed):
    """As many of them, from every file and of every kind: of a group that has more, more are taken, but
    not as many more. Each draws its lot by itself, so that one more or less of them changes little of
    what is chosen for a seed."""
    def lot(*of):
        return int.from_bytes(hashlib.sha256(repr((seed, *of)).encode()).digest()[:8]) / 2 ** 64

    groups = collections.defaultdict(list)
    for mutant in mutants:
        groups[mutant.file, mutant.kind].append(mutant)
    ranked = [((number + lot(*group)) / len(members) ** 0.5, mutant)
              for group, members in groups.items()
              for number, mutant in enumerate(sorted(members, key=lambda mutant: lot(*mutant.key)))]
    ranked.sort(key=lambda entry: entry[0])
    return sorted(mutant for _, mutant in ranked[:count])


def listed_survivors():
    entries = tomllib.loads(SURVIVORS.read_text())["survivor"]
    survivors = {}
    for entry in entries:
        key = entry["file"], entry["function"], entry["was"], entry["becomes"], entry.get("nth", 1)
        if key in survivors or not entry["reason"].strip():
            raise Broken(f"listed twice or without a reason: {key}")
        survivors[key] = entry["reason"]
    return survivors


def check(commands, listed, pool):
    """Whether each listed survivor can still be made."""
    files = sorted({file for file, *_ in listed})
    there = [file for file in files if (ROOT / file).exists()]
    keys = {mutant.key for mutant in every_mutant(commands, there, pool)}
    gone = [key for key in listed if key not in keys]
    for file, function, was, becomes, nth in gone:
        print(f"GONE {file}: in {function} (number {nth})\n  - {was}\n  + {becomes}")
    print(f"{len(listed)} survivors are listed, {len(gone)} of them name a place that is not there any more")
    return 1 if gone else 0


def covering(mutant, runs):
    """The tests that run the function, or may do so; all, for a table that belongs to none."""
    symbols = {plain_symbol(symbol) for symbol in mutant.symbols}
    return [name for name, functions in runs.items()
            if not symbols or functions is None or functions & symbols]


class Results:
    """What has become of the mutants."""

    def __init__(self, listed, record):
        self._listed = listed
        self._record = record
        self._counts = collections.defaultdict(collections.Counter)
        self.unlisted = 0
        self.needless = 0

    def add(self, mutant, state, by):
        is_listed = mutant.key in self._listed
        self._counts[mutant.kind, mutant.file.split("/")[1]][state] += 1
        if state == "survived" and is_listed:
            print(f"{mutant}\n  SURVIVED, which is known: {self._listed[mutant.key]}")
        elif state == "survived":
            self.unlisted += 1
            print(f"{mutant}\n  SURVIVED")
        elif is_listed and state == "found":
            self.needless += 1
            print(f"{mutant}\n  LISTED as a survivor, but found by {by}")
        else:
            print(f"{mutant}\n  {state}" + (f" by {by}" if by else ""))
        sys.stdout.flush()
        with self._record.open("a") as record:
            print(json.dumps({"file": mutant.file, "line": mutant.line, "function": mutant.function,
                              "kind": mutant.kind, "was": mutant.was, "becomes": mutant.becomes,
                              "nth": mutant.nth, "state": state, "by": by}), file=record)

    def table(self):
        states = ("found", "survived", "does not compile")
        print(f"\n{'':<14}" + "".join(f"{room:>20}" for room in (*ROOMS, "all")))
        for kind in sorted({kind for kind, _ in self._counts}) + ["all"]:
            line = f"{kind:<14}"
            for room in (*ROOMS, "all"):
                count = sum((counter for (a_kind, a_room), counter in self._counts.items()
                             if kind in (a_kind, "all") and room in (a_room, "all")), collections.Counter())
                tried = count["found"] + count["survived"]
                line += f"{count['found']:>14} of {tried:<3}" if tried else f"{'':>20}"
            print(line)
        count = sum(self._counts.values(), collections.Counter())
        print("\n" + ", ".join(f"{count[state]} {state}" for state in states)
              + f"; {self.unlisted} survivors are not listed, {self.needless} listed ones were found")


def built(workshop, folder, options=()):
    """The libraries of all files, in the folder."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        return list(pool.map(
            lambda file: workshop.library(file, (ROOT / file).read_bytes(), folder, *options), sources([])))


def prepared(workshop, tests, program, profdata):
    """Makes the program. Which functions each test runs, and how long each takes; the tests that fail
    without a mutant say nothing."""
    for folder in ("headers", "bin", "profiles"):
        shutil.rmtree(FOLDER / folder, ignore_errors=True)
    program.parent.mkdir(parents=True)
    # The tests look for the helpers beside themselves.
    for helper in (ROOT / "build/check/bin").iterdir():
        (program.parent / helper.name).symlink_to(helper)
    workshop.program(ROOMS, built(workshop, FOLDER / "real"), program)
    built(workshop, FOLDER / "counting", ["-fprofile-instr-generate"])
    print("== what the tests cover", flush=True)
    return *tests.measure(FOLDER / "counting", FOLDER / "profiles", profdata), tests.times


def try_one(mutant, folder, workshop, tests, runs):
    """What becomes of the mutant, and the test that finds it."""
    names = covering(mutant, runs)
    if not names:
        return "survived", None
    try:
        if not workshop.make(mutant, (ROOT / mutant.file).read_bytes(), folder):
            return "does not compile", None
        by = tests.finder_of(folder, names)
        return ("found" if by else "survived"), by
    finally:
        shutil.rmtree(folder, ignore_errors=True)


def try_all(mutants, workshop, tests, runs, folder, results):
    """Some at a time, each in a network of its own: the tests wait more than they compute."""
    with concurrent.futures.ThreadPoolExecutor(AT_ONCE) as pool:
        trials = {pool.submit(try_one, mutant, folder / f"mutant-{number}", workshop, tests, runs): mutant
                  for number, mutant in enumerate(mutants)}
        try:
            for trial in concurrent.futures.as_completed(trials):
                results.add(trials[trial], *trial.result())
        except BaseException:
            # Those that are under way clean up behind themselves.
            pool.shutdown(wait=False, cancel_futures=True)
            raise


def main():
    parser = argparse.ArgumentParser(prog="script/mutate", description=__doc__)
    parser.add_argument("paths", metavar="PATH", nargs="*", type=pathlib.Path)
    parser.add_argument("--seed", type=int, default=1)
    parser.add_argument("--count", type=int, default=160)
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--check", action="store_true")
    parser.add_argument("--listed", action="store_true")
    arguments = parser.parse_args()
    for path in arguments.paths:
        if not sources([path]):
            parser.error(f"there is nothing to be changed at {path}")
    clang, profdata = os.environ["CLANG"], os.environ["LLVM_PROFDATA"]
    commands = Commands(ROOT, clang)
    listed = listed_survivors()
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        if arguments.check:
            return check(commands, listed, pool)
        every = every_mutant(commands, sources(arguments.paths), pool)
    if arguments.listed:
        mutants = [mutant for mutant in every if mutant.key in listed]
    else:
        mutants = chosen(every, arguments.count, arguments.seed)
    if arguments.list:
        print(*mutants, sep="\n")
        print(f"{len(mutants)} of {len(every)}")
        return 0
    if not namespaces.may_be_made():
        print("script/mutate: needs root, for a network of the tests' own", file=sys.stderr)
        return 1
    mutants_folder = FOLDER / "mutants"
    shutil.rmtree(mutants_folder, ignore_errors=True)
    mutants_folder.mkdir(parents=True)
    results = Results(listed, mutants_folder / "results.jsonl")
    workshop = Workshop(ROOT, FOLDER, commands, clang)
    program = FOLDER / "bin" / "unit-tests"
    state = state_of(ROOT / "src", ROOT / "tests/unit", ROOT / "tests/support",
                     pathlib.Path(__file__).with_name("trial.py"))
    tests = Tests(program)
    runs, failed, tests.times = kept(FOLDER / "runs", state, lambda: prepared(workshop, tests, program, profdata))
    for name in failed:
        print(f"LEFT OUT: {name} fails without any change here")
    print(f"{len(runs)} tests, {sum(tests.times.values()):.0f} s in all")
    print(f"== {len(mutants)} mutants of {len(every)}, seed {arguments.seed}", flush=True)
    begin = time.monotonic()
    try_all(mutants, workshop, tests, runs, mutants_folder, results)
    results.table()
    print(f"{time.monotonic() - begin:.0f} s")
    return 1 if results.unlisted else 0


if __name__ == "__main__":
    # By an exception: the tests are in sessions of their own and would go on.
    for number in (signal.SIGINT, signal.SIGTERM):
        signal.signal(number, lambda number, _: sys.exit(128 + number))
    try:
        sys.exit(main())
    except Broken as error:
        sys.exit(f"script/mutate: {error}")
