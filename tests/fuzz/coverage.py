"""Which lines the committed corpora reach, held against coverage.toml."""

import os
import re
import subprocess
import tempfile
import tomllib


def counted(root, program, name):
    """What the corpus of one target reaches, as lcov has it."""
    with tempfile.TemporaryDirectory() as folder:
        raw, profile = os.path.join(folder, "raw"), os.path.join(folder, "profile")
        subprocess.run([program, "-runs=0", "-timeout=600", root / "tests" / "fuzz" / "corpus" / name],
                       cwd=folder, env=os.environ | {"LLVM_PROFILE_FILE": raw}, check=True,
                       stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        version = os.environ["LLVM"]  # the compiler's
        subprocess.run([f"llvm-profdata-{version}", "merge", "-o", profile, raw], check=True)
        return subprocess.run(
            [f"llvm-cov-{version}", "export", "-format=lcov", f"-instr-profile={profile}", program],
            check=True, stdout=subprocess.PIPE, encoding="utf-8").stdout


def reached_by(root, programs, names):
    """Runs the corpora; for each source file, how often each of its lines that do something was reached."""
    lines = {}
    for name in names:
        for record in counted(root, programs / f"fuzz-{name}", name).split("end_of_record\n"):
            if source := re.search(r"^SF:(.*)$", record, re.MULTILINE):
                counts = lines.setdefault(os.path.normpath(source[1]), {})
                for number, count in re.findall(r"^DA:(\d+),(\d+)", record, re.MULTILINE):
                    counts[int(number)] = max(counts.get(int(number), 0), int(count))
    return lines


def lines_named(entry, text):
    """The numbers of the lines that an entry of coverage.toml names: those of a function, which begins
    and ends without an indentation, or those with a text, with "after" only behind a line with that
    text, with "until" the first one and all up to one with that text."""
    lines = [line.strip() for line in text.splitlines()]
    if "function" in entry:
        first = next((number for number, line in enumerate(text.splitlines())
                      if entry["function"] in line and not line.startswith((" ", "}"))), None)
        return set() if first is None else set(range(first + 1, text.splitlines().index("}", first) + 2))
    found = {number for number, line in enumerate(lines, 1)
             if line == entry["line"] and entry.get("after", lines[number - 2]) == lines[number - 2]}
    if found and "until" in entry:
        return set(range(min(found), lines.index(entry["until"], min(found)) + 2))
    return found


def faults_of(path, entries, text, reached):
    """What is wrong with one source file."""
    lines = text.splitlines()
    if not reached:
        yield f"{path}: no target has it"
        return
    named = set()
    for entry in entries:
        what = entry.get("line") or entry["function"]
        if not entry.get("reason"):
            yield f"{path}: coverage.toml has no reason for: {what}"
        numbers = {number for number in lines_named(entry, text) if number in reached}
        if not numbers:
            yield f"{path}: coverage.toml names what is not there: {what}"
        for number in sorted(numbers):
            if reached[number] and not entry.get("sometimes"):
                yield f"{path}:{number}: reached, but coverage.toml says that it is not: {what}"
        named |= numbers
    for number, count in sorted(reached.items()):
        if not count and number not in named:
            yield f"{path}:{number}: not reached: {lines[number - 1].strip()}"


def check(root, programs, names):
    """Prints what is reached, and what is wrong; returns the status."""
    wanted = tomllib.loads((root / "tests" / "fuzz" / "coverage.toml").read_text(encoding="utf-8"))
    every = reached_by(root, programs, names)
    faults = []
    for path, entries in wanted.items():
        # Where it was built is of no account: a compiler's cache has it from elsewhere.
        reached = {}
        for name, counts in every.items():
            if name.endswith(f"/{path}"):
                reached |= {number: max(times, reached.get(number, 0)) for number, times in counts.items()}
        text = (root / path).read_text(encoding="utf-8")
        # The end of a block is reached when the block is.
        for number, line in enumerate(text.splitlines(), 1):
            if line.strip() == "}":
                reached.pop(number, None)
        faults += faults_of(path, entries.get("unreached", []), text, reached)
        print(f"{path}: {sum(map(bool, reached.values()))} of {len(reached)} lines reached")
    for fault in faults:
        print(fault)
    return 1 if faults else 0
