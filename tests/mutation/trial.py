"""Builds mutants and has the unit tests find them. The source tree is never changed: a mutated copy of
one file is compiled, by clang, without optimisation and with its headers compiled before."""

import concurrent.futures
import contextlib
import json
import os
import re
import resource
import shlex
import shutil
import signal
import subprocess
import tempfile
import threading
import time

import namespaces

# A test may take so many seconds, and so many times what it takes without a mutant: a mutant may hang.
PATIENCE = 20.0
PATIENCE_FACTOR = 10.0
PATIENCE_OF_TOOLS = 600
MEMORY_LIMIT = 4 << 30
# Tests of one mutant at a time.
JOBS = 3
PROGRAM = "ravelin-disk-unit-tests"
PROGRAM_PATH = f"bin/{PROGRAM}"


class Broken(Exception):
    """What is built or measured first does not work."""


def run(*command, **how):
    done = subprocess.run([*map(str, command)], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE, text=True, timeout=PATIENCE_OF_TOOLS, **how)
    if done.returncode != 0:
        raise Broken(f"{shlex.join(map(str, command))}\n{done.stdout[-2000:]}{done.stderr[-4000:]}")
    return done.stdout


class Commands:
    """How clang compiles a file, by the preset tidy, which nobody builds."""

    def __init__(self, root, clang):
        self._clang = clang
        self._flags = {}
        for entry in json.loads((root / "build/tidy/compile_commands.json").read_text()):
            words = shlex.split(entry["command"])
            self._flags[os.path.relpath(entry["file"], root)] = [
                word for word in words if word.startswith(("-I", "-D", "-std="))]

    def compiling(self, file):
        return [self._clang, *self._flags[file], "-w", "-O0", "-fPIC"]


def syntax_of(commands, file, root):
    """The declarations of the project in the file, as clang prints its syntax tree."""
    return run(*commands.compiling(file), "-fsyntax-only", "-Xclang", "-ast-dump=json",
               "-Xclang", "-ast-dump-filter=ravelin", root / file)


class Workshop:
    """Makes a program of the unit tests in which each file of the rooms is a shared library, so that
    another one is made of the mutant alone."""

    def __init__(self, root, folder, commands, clang):
        self._root = root
        self._folder = folder
        self._commands = commands
        self._clang = clang
        self._lock = threading.Lock()
        self._headers = {}

    def _compile_headers(self, file):
        """The headers that the file includes, compiled once."""
        with self._lock:
            lock = self._headers.setdefault(file, threading.Lock())
        header = self._folder / "headers" / file.replace("/", "-")
        compiled = header.with_suffix(".pch")
        with lock:
            if not compiled.exists():
                lines = (self._root / file).read_text().splitlines()
                header.parent.mkdir(parents=True, exist_ok=True)
                header.write_text("".join(f"{line}\n" for line in lines if line.startswith("#include")))
                run(*self._commands.compiling(file), "-x", "c++-header", header, "-o", compiled)
        return compiled

    def library(self, file, source, folder, *options):
        """The file's library, of this source."""
        library = folder / f"lib{file.replace('/', '-')[:-len('.cpp')]}.so"
        copy = library.with_suffix(".cpp")
        copy.write_bytes(source)
        run(*self._commands.compiling(file), "-include-pch", self._compile_headers(file), *options,
            "-shared", "-o", library, copy)
        return library

    def program(self, rooms, libraries, program):
        """The objects of the rooms' tests, and what the build links with them, before it the libraries."""
        tree = self._root / "build/check"
        command = run("ninja", "-C", tree, "-t", "commands", PROGRAM).splitlines()[-1]
        words = shlex.split(command)
        words = words[words.index("&&") + 2:words.index("&&", 2)]
        words.remove(PROGRAM_PATH)
        tests = tuple(f"{PROGRAM}.dir/unit/{room}/" for room in rooms)
        objects = [word for word in words if any(test in word for test in tests)]
        archives = dict.fromkeys(word for word in words if word.endswith(".a") and not word.startswith("/"))
        others = [word for word in words if word.startswith(("/", "-l"))]
        # Any of it may be what a library uses. What is in a library is in no archive: those are of no
        # room, or the libraries would be taken for nothing.
        own = {f"libravelin-disk-{room}.a" for room in (*rooms, "core-base")}
        platform = [archive for archive in archives if os.path.basename(archive) not in own]
        # By their names alone, so that others of the same name may come before them.
        folder = libraries[0].parent
        names = [f"-l:{library.name}" for library in libraries]
        run(self._clang, "-o", program, *objects, f"-L{folder}", *names, "-Wl,--whole-archive", *platform,
            "-Wl,--no-whole-archive", *others, "-rdynamic", f"-Wl,-rpath,{folder},--enable-new-dtags",
            "-Wl,--strip-debug", cwd=tree)

    def make(self, mutant, source, folder):
        """Whether the mutant could be compiled."""
        folder.mkdir()
        try:
            self.library(mutant.file, mutant.applied_to(source), folder)
        except Broken:
            return False
        return True


class Tests:
    """The unit tests of a program, each in a process and a home of its own, in a network of the mutant's
    own."""

    def __init__(self, program):
        self._program = program
        self.times = {}

    def names(self):
        suite, names = "", []
        for line in run(self._program, "--gtest_list_tests", env={**os.environ, "LLVM_PROFILE_FILE": "/dev/null"}).splitlines():
            text = line.split("#")[0].rstrip()
            if text and not text.startswith(" "):
                suite = text
            elif text and "DISABLED_" not in suite + text:
                names.append(suite + text.strip())
        return [name for name in names if "." in name and not name.startswith("Running")]

    @contextlib.contextmanager
    def _started(self, network, name, home, libraries, profile):
        environment = {**os.environ, "HOME": home, "TMPDIR": home, "LD_LIBRARY_PATH": str(libraries),
                       "LLVM_PROFILE_FILE": str(profile)}
        for unwanted in ("XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_DATA_DIRS"):
            environment.pop(unwanted, None)
        with network.entered():
            process = subprocess.Popen(
                [str(self._program), f"--gtest_filter={name}"], env=environment, cwd=home, start_new_session=True,
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        # The mutant may take all there is.
        resource.prlimit(process.pid, resource.RLIMIT_AS, (MEMORY_LIMIT, MEMORY_LIMIT))
        resource.prlimit(process.pid, resource.RLIMIT_CORE, (0, 0))
        try:
            yield process
        finally:
            with contextlib.suppress(ProcessLookupError):
                os.killpg(process.pid, signal.SIGKILL)
            process.wait()

    def passes(self, network, name, libraries, profile="/dev/null", stop=None):
        """Whether the test passes in time, with the libraries of that folder before the real ones. None
        when it has been stopped."""
        limit = PATIENCE + PATIENCE_FACTOR * self.times.get(name, PATIENCE)
        with tempfile.TemporaryDirectory(prefix="mutant-", ignore_cleanup_errors=True) as home, \
                self._started(network, name, home, libraries, profile) as process:
            end = time.monotonic() + limit
            while time.monotonic() < end:
                try:
                    return process.wait(0.1) == 0
                except subprocess.TimeoutExpired:
                    if stop is not None and stop.is_set():
                        return None
        return False

    def measure(self, libraries, folder, profdata):
        """Runs every test, and returns for each that passes the functions that it has run, None where
        that is not known; and those that fail."""
        runs = {}

        def look(name):
            profiles = folder / re.sub(r"\W", "-", name)
            profiles.mkdir(parents=True, exist_ok=True)
            begin = time.monotonic()
            passed = any(self.passes(network, name, libraries, profiles / "%p-%m") for _ in range(2))
            took = time.monotonic() - begin
            functions = set()
            # One of each library and process; of a killed one it may be broken.
            merged = profiles / "all"
            with contextlib.suppress(Broken):
                run(profdata, "merge", "--failure-mode=all", "-o", merged, *profiles.iterdir())
                functions = functions_run(run(profdata, "show", "--all-functions", merged))
            shutil.rmtree(profiles)
            if passed:
                self.times[name] = took
                # What the process runs that such a test starts is not counted.
                runs[name] = None if "DeathTest." in name else functions
            return name, passed

        if not (names := self.names()):
            raise Broken("there are no tests")
        with concurrent.futures.ThreadPoolExecutor(JOBS) as pool, namespaces.Namespace() as network:
            failed = [name for name, passed in pool.map(look, names) if not passed]
        return runs, failed

    def finder_of(self, libraries, names):
        """The test that fails, the quick ones being asked first, or None. What fails is asked again by
        itself: a busy machine finds nothing."""
        stop = threading.Event()
        found = []

        def look(name):
            for _ in range(2):
                if stop.is_set() or self.passes(network, name, libraries, stop=stop) is not False:
                    return
            found.append(name)
            stop.set()

        with concurrent.futures.ThreadPoolExecutor(JOBS) as pool, namespaces.Namespace() as network:
            list(pool.map(look, sorted(names, key=self.times.__getitem__)))
        return found[0] if found else None


def plain_symbol(symbol):
    """Without the file that stands before what no other file sees; and constructors and destructors
    are each compiled under several names."""
    return re.sub(r"([CD])[0-3](?=E)", r"\g<1>2", re.split("[;:]", symbol)[-1])


def functions_run(shown):
    """The functions with a count that is not 0 in what llvm-profdata shows."""
    functions = set()
    name = None
    for line in shown.splitlines():
        if re.fullmatch(r"  \S+:", line) and line.strip() != "Counters:":
            name = line.strip()[:-1]
        elif found := re.match(r"    Function count: (\d+)", line):
            if int(found.group(1)) > 0 and name:
                functions.add(plain_symbol(name))
    return functions
