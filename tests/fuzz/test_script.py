"""script/fuzz, in a tree of its own with a target that is soon done with."""

import hashlib
import os
import pathlib
import shutil
import signal
import subprocess
import textwrap
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]

TOY = """\
#include <cstddef>
#include <cstdint>
#include <cstdlib>

// Nothing that a fuzzer comes upon by itself.
bool isFatal(const std::uint8_t* data, std::size_t size) {
  std::uint64_t hash = 0;
  for (std::size_t at = 0; at < size; ++at) {
    hash = (hash ^ data[at]) * 0x100000001b3U;
  }
  return hash == FATAL;
}

int reached(const std::uint8_t* data, std::size_t size) {
  if (size > 0 && data[0] == 'a') {
    return 1;
  }
  if (isFatal(data, size)) {
    std::abort();
  }
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static volatile int sum = 0;
  sum = sum + reached(data, size);
  return 0;
}
"""
FATAL = b"fatal"


def hash_of(content):
    value = 0
    for byte in content:
        value = (value ^ byte) * 0x100000001B3 % 2**64
    return value


TOY = TOY.replace("FATAL", f"{hash_of(FATAL)}U")
COVERAGE = '["tests/fuzz/FuzzToyThing.cpp"]\n'
ABORT = """
    [["tests/fuzz/FuzzToyThing.cpp".unreached]]
    line = "std::abort();"
    reason = "it would be a fault"
    """


@pytest.fixture(scope="session")
def programs(tmp_path_factory):
    folder = tmp_path_factory.mktemp("bin")
    source = folder / "tests" / "fuzz" / "FuzzToyThing.cpp"
    source.parent.mkdir(parents=True)
    source.write_text(TOY, encoding="utf-8")
    subprocess.run(
        ["clang++-19", "-std=c++20", "-O1", "-fsanitize=fuzzer", "-fprofile-instr-generate",
         "-fcoverage-mapping", "-o", folder / "fuzz-toy-thing", source], check=True)
    return folder


class Tree:
    """A tree with the script and one target."""

    def __init__(self, folder, programs):
        self.folder = folder
        self.programs = programs
        self.sources = folder / "tests" / "fuzz"
        self.corpus = self.sources / "corpus" / "toy-thing"
        self.corpus.mkdir(parents=True)
        (folder / "script").mkdir()
        for name in "fuzz", "versions":
            shutil.copy(ROOT / "script" / name, folder / "script")
        for name in ("fuzz.py", "coverage.py"):
            shutil.copy(ROOT / "tests" / "fuzz" / name, self.sources)
        (self.sources / "FuzzToyThing.cpp").write_text(TOY, encoding="utf-8")
        self.expect(ABORT)

    def expect(self, unreached):
        (self.sources / "coverage.toml").write_text(COVERAGE + textwrap.dedent(unreached),
                                                    encoding="utf-8")

    def keep(self, *inputs):
        for number, content in enumerate(inputs):
            (self.corpus / f"input-{number}").write_bytes(content)

    def kept(self):
        return {file.name: file.read_bytes() for file in self.corpus.iterdir()}

    def started(self, *arguments, **how):
        return subprocess.Popen(
            [self.folder / "script" / "fuzz", *arguments], encoding="utf-8",
            env=os.environ | {"RAVELIN_DISK_FUZZ_BIN": os.fspath(self.programs)}, **how)

    def run(self, *arguments):
        with self.started(*arguments, stdout=subprocess.PIPE, stderr=subprocess.PIPE) as script:
            output, errors = script.communicate(timeout=300)
        return subprocess.CompletedProcess(script.args, script.returncode, output, errors)


@pytest.fixture
def tree(tmp_path, programs):
    return Tree(tmp_path, programs)


def test_the_corpus_is_minimised_and_named_by_its_content(tree):
    tree.keep(b"a", b"a more", b"a still more")
    result = tree.run("0.02", "toy-thing")
    assert result.returncode == 0, result.stderr
    kept = tree.kept()
    assert any(content.startswith(b"a") for content in kept.values())
    assert not {b"a more", b"a still more"} & set(kept.values())
    assert all(name == hashlib.sha1(content).hexdigest() for name, content in kept.items())
    assert result.stdout.startswith("toy-thing: ")


def test_a_failure_keeps_its_input_and_the_corpus(tree):
    tree.keep(b"a", FATAL)
    before = tree.kept()
    result = tree.run("0.02")
    assert result.returncode == 1
    assert tree.kept() == before
    repeat = next(line for line in result.stderr.splitlines() if line.startswith("Repeat it: "))
    program, file = repeat.removeprefix("Repeat it: ").split()
    assert pathlib.Path(file).read_bytes() == FATAL
    assert subprocess.run([program, file], cwd=tree.folder, stderr=subprocess.DEVNULL,
                          check=False).returncode != 0


@pytest.mark.parametrize("number", [signal.SIGINT, signal.SIGTERM])
def test_an_interrupted_one_leaves_nothing_running(tree, number):
    tree.keep(b"a", b"a more")
    before = tree.kept()
    log = tree.folder / "build" / "fuzz" / "logs" / "toy-thing.log"
    with tree.started("2") as script:
        end = time.monotonic() + 100
        while not log.exists() or b"INITED" not in log.read_bytes():
            assert time.monotonic() < end and script.poll() is None
            time.sleep(0.05)
        script.send_signal(number)
        assert script.wait(100) == 128 + number
    commands = [file.read_bytes() for file in pathlib.Path("/proc").glob("[0-9]*/cmdline")
                if file.exists()]
    assert not [command for command in commands if os.fsencode(tree.folder) in command]
    assert tree.kept() == before


def test_a_number_of_runs_leaves_the_tree_as_it_is(tree):
    tree.keep(b"a", b"a more")
    before = tree.kept()
    result = tree.run("--runs", "10")
    assert result.returncode == 0, result.stderr
    assert tree.kept() == before
    assert "toy-thing: 1" in result.stdout


def test_every_line_is_reached_but_those_that_are_named(tree):
    tree.keep(b"a", b"c")
    result = tree.run("--coverage")
    assert result.returncode == 0, result.stdout + result.stderr
    assert "tests/fuzz/FuzzToyThing.cpp: " in result.stdout


@pytest.mark.parametrize("line", ["std::abort();", "return 0;"])
def test_a_line_that_is_reached_sometimes_may_be_reached_or_not(tree, line):
    tree.keep(b"a", b"c")
    tree.expect(ABORT + (ABORT if line not in ABORT else "").replace("std::abort();", line)
                + "    sometimes = true\n")
    result = tree.run("--coverage")
    assert result.returncode == 0, result.stdout + result.stderr


@pytest.mark.parametrize(("inputs", "unreached", "fault"), [
    ([b"c"], ABORT, "FuzzToyThing.cpp:16: not reached: return 1;"),
    ([b"a", b"c"], "", "FuzzToyThing.cpp:19: not reached: std::abort();"),
    ([b"a", b"c"], ABORT + ABORT.replace("std::abort();", "return 0;"), "reached, but coverage.toml"),
    ([b"a", b"c"], ABORT + ABORT.replace("std::abort();", "gone();"), "names what is not there: gone();"),
    ([b"a", b"c"], ABORT.replace("it would be a fault", ""), "has no reason for: std::abort();"),
])
def test_what_is_wrong_with_the_coverage(tree, inputs, unreached, fault):
    tree.keep(*inputs)
    tree.expect(unreached)
    result = tree.run("--coverage")
    assert result.returncode == 1
    assert fault in result.stdout


@pytest.mark.parametrize(("arguments", "reason"), [
    ([], "Usage: script/fuzz MINUTES"),
    (["0"], "MINUTES must be a number above 0, not 0"),
    (["inf"], "MINUTES must be a number above 0, not inf"),
    (["soon"], "MINUTES must be a number above 0, not soon"),
    (["1", "toy"], "no target has the name toy; there are: toy-thing"),
    (["--runs", "0"], "--runs"),
    (["--run", "1"], "--run"),
    (["--coverage", "toy-thing"], "--coverage stands alone"),
])
def test_misuse(tree, arguments, reason):
    result = tree.run(*arguments)
    assert result.returncode == 2
    assert reason in result.stderr
    assert result.stdout == ""


def test_help(tree):
    result = tree.run("--help")
    assert result.returncode == 0
    assert "Usage: script/fuzz MINUTES [TARGET...]" in result.stdout
