"""The scripts for a Mac, run where there is none.

They run in a copy of what they need of the tree, in a temporary home. Their PATH has nothing but what
macOS has too: stand-ins for its own programs, and the tools that both systems have, without the options
that only one of them knows. What is installed is what RAVELIN_DISK_STAGED has, the root below which
script/macos has put the programs, or else programs that are none.
"""

import os
import pathlib
import plistlib
import shutil
import signal
import subprocess
import textwrap
import time

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
STAGED = os.environ.get("RAVELIN_DISK_STAGED")
LABEL = "net.ravelin-disk.agent"
BUNDLE = "Ravelin Disk.app"
PROGRAM = "Contents/MacOS/Ravelin Disk"
TOOLS = ("ravelin-disk-announce", "ravelin-disk-volume")
PATIENCE = 120

# What both systems have. Long options are GNU's alone; so are the others, by the name of the tool.
SHARED = ("cat", "chmod", "cp", "date", "dirname", "grep", "head", "mkdir", "mktemp", "mv", "rm", "sed",
          "sleep", "sort", "tee", "touch")
ONLY_GNU = {"cp": "-a|-t", "date": "-d|-I*", "grep": "-P*", "mktemp": "-p", "mv": "-t|-T", "sed": "-i|-r|-z|-s"}

STAND_INS = {
    "uname": 'case $1 in -m) echo arm64 ;; *) echo Darwin ;; esac',
    "id": '[ "$*" = -u ] && cat "$STATE/uid"',
    "sw_vers": '[ "$*" = -productVersion ] && cat "$STATE/version"',
    "sysctl": '[ "$*" = "-n hw.ncpu" ] && echo 3',
    "xcode-select": '[ "$*" = -p ] && [ ! -e "$STATE/no-xcode" ] && echo /Library/Developer/CommandLineTools',
    "brew": '''
        case "$1 $2" in
          "list --versions") [ "$3" = --formula ] && [ -e "$STATE/brewed/$4" ] ;;
          "install --formula")
            [ "$NONINTERACTIVE" = 1 ] || exit 1
            shift 2
            for formula; do touch "$STATE/brewed/$formula"; done
            ;;
          *) exit 1 ;;
        esac''',
    "cmake": '''
        case $1 in
          --preset) mkdir -p "build/$2/tests" && touch "build/$2/build.ninja" ;;
          --build)
            mkdir -p "build/$3/bin" "build/$3/Testing/Temporary"
            cp -R "$BUILT/." "build/$3/bin"
            echo tests/unit/OneTest.cpp >"build/$3/tests/left-out.txt"
            ;;
          *) exit 1 ;;
        esac''',
    "ctest": 'mkdir -p "build/$2/Testing/Temporary" && echo passed >"build/$2/Testing/Temporary/LastTest.log"',
    # Signs a bundle, whose list of what it holds comes into it.
    "codesign": '''
        [ "$1 $2 $3" = "--force --sign -" ] && [ -e "$4/Contents/Info.plist" ] || exit 1
        mkdir -p "$4/Contents/_CodeSignature" && echo signed >"$4/Contents/_CodeSignature/CodeResources"''',
}

# What was loaded ends only after it has been asked for twice more. It loads no file that launchd would
# refuse, and nothing a second time.
LAUNCHCTL = '''
import os, pathlib, plistlib, sys

state = pathlib.Path(os.environ["STATE"])
loaded, ending = state / "loaded", state / "ending"
command, target = sys.argv[1:3]
if command == "bootstrap":
    domain, file = target, pathlib.Path(sys.argv[3])
    content = plistlib.loads(file.read_bytes())
    refused = (domain != "gui/501" or loaded.exists() or (state / "no-session").exists()
               or file.stat().st_mode & 0o022 or file.name != content["Label"] + ".plist"
               or not os.access(content["ProgramArguments"][0], os.X_OK))
    if refused:
        sys.exit("Bootstrap failed: 5: Input/output error")
    loaded.write_text(str(file))
    sys.exit(0)
if target != "gui/501/net.ravelin-disk.agent":
    sys.exit("Unrecognized target specifier")
if command == "enable":
    sys.exit(0)
if command not in ("print", "bootout"):
    sys.exit("Unrecognized subcommand")
if not loaded.exists():
    sys.exit(113)
if command == "bootout":
    ending.write_text("..")
    sys.exit(36)
if ending.exists():
    left = ending.read_text()[1:]
    ending.write_text(left)
    if not left:
        ending.unlink()
        loaded.unlink()
'''

# What bash 3.2 has not got.
OLD_BASH = '''
enable -n mapfile readarray
printf() { case $1 in *%\\(*) echo "printf: no such conversion" >&2; return 1 ;; esac; builtin printf "$@"; }
'''


def executable(file, text):
    file.write_text(text)
    file.chmod(0o755)


def files(folder):
    """All that is no folder below one, by its path from there."""
    return sorted(str(file.relative_to(folder)) for file in folder.rglob("*") if not file.is_dir())


class Mac:
    def __init__(self, folder):
        self.folder = folder
        self.tree, self.home, self.state, self.built, self.bin = (
            folder / name for name in ("tree", "home", "state", "built", "bin"))
        self.applications = folder / "Applications"
        for made in (self.home, self.state / "brewed", self.built, self.bin, self.applications):
            made.mkdir(parents=True)
        for copied in ("script", "packaging", "docs/man"):
            shutil.copytree(ROOT / copied, self.tree / copied)
        self.say("uid", "501")
        self.say("version", "15.1")
        self._build_programs()
        for name, text in STAND_INS.items():
            log = f'echo "{name} $*" >>"$STATE/calls"\n'
            executable(self.bin / name, f"#!/bin/sh\nset -e\n{log}{textwrap.dedent(text)}\n")
        executable(self.bin / "launchctl", f"#!/usr/bin/python3 -B\n{LAUNCHCTL}")
        for name in SHARED:
            executable(self.bin / name, textwrap.dedent(f'''\
                #!/bin/sh
                for option; do
                  case $option in
                    --?*|{ONLY_GNU.get(name, "--?*")})
                      echo "{name}: illegal option $option" >&2
                      exit 64
                      ;;
                    -*) ;;
                    *) break ;;
                  esac
                done
                exec {shutil.which(name)} "$@"
                '''))
        (self.bin / "bash").symlink_to(shutil.which("bash"))
        (folder / "old-bash").write_text(OLD_BASH)
        self.environment = {"PATH": str(self.bin), "HOME": str(self.home), "STATE": str(self.state),
                            "BUILT": str(self.built), "BASH_ENV": str(folder / "old-bash"),
                            "RAVELIN_DISK_APPLICATIONS": str(self.applications)}

    def _build_programs(self):
        if STAGED:
            shutil.copytree(pathlib.Path(STAGED) / "Applications" / BUNDLE, self.built / BUNDLE)
            for tool in TOOLS:
                shutil.copy(pathlib.Path(STAGED) / "usr/local/bin" / tool, self.built)
            return
        (self.built / BUNDLE / PROGRAM).parent.mkdir(parents=True)
        shutil.copy(ROOT / "packaging/macos/Info.plist.in", self.built / BUNDLE / "Contents/Info.plist")
        executable(self.built / BUNDLE / PROGRAM, "the agent")
        for tool in TOOLS:
            executable(self.built / tool, tool)

    def say(self, what, text=""):
        (self.state / what).write_text(text)

    def calls(self, program):
        """What a program has been called with since this was last asked."""
        file = self.state / "calls"
        lines = file.read_text().splitlines() if file.exists() else []
        file.write_text("")
        return [line.partition(" ")[2] for line in lines if line.startswith(f"{program} ")]

    def run(self, script, *arguments, status=0):
        """What the script prints; it has to end with that status."""
        ended = subprocess.run([self.tree / "script" / script, *arguments], env=self.environment,
                               stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                               stderr=subprocess.STDOUT, text=True, timeout=300, check=False)
        assert ended.returncode == status, ended.stdout
        return ended.stdout

    def loaded(self):
        file = self.state / "loaded"
        return file.read_text() if file.exists() else None

    @property
    def launch_agent(self):
        return self.home / "Library/LaunchAgents" / f"{LABEL}.plist"

    @property
    def configuration(self):
        return self.home / "Library/Application Support/RavelinDisk/Ravelin Disk Config.plist"


@pytest.fixture(name="mac")
def _mac(tmp_path):
    return Mac(tmp_path)


def expected_in_home():
    return sorted([f"Library/LaunchAgents/{LABEL}.plist",
                   "Library/Application Support/RavelinDisk/Ravelin Disk Config.plist",
                   *(f".local/bin/{tool}" for tool in TOOLS),
                   *(f".local/share/man/man1/{tool}.1" for tool in TOOLS)])


def check_launch_agent(mac, program):
    """It is the one of the package, with that program, and launchd has it."""
    content = plistlib.loads(mac.launch_agent.read_bytes())
    packaged = plistlib.loads((ROOT / f"packaging/macos/{LABEL}.plist").read_bytes())
    assert content.pop("ProgramArguments") == [str(program)]
    packaged.pop("ProgramArguments")
    assert content == packaged
    assert os.access(program, os.X_OK)
    assert mac.loaded() == str(mac.launch_agent)


def test_install_puts_everything_into_its_place(mac):
    text = mac.run("install")
    assert files(mac.home) == expected_in_home()
    bundle = mac.applications / BUNDLE
    assert files(mac.applications) == sorted(
        f"{BUNDLE}/{name}" for name in ["Contents/_CodeSignature/CodeResources",
                                        *files(mac.built / BUNDLE)])
    for name in files(mac.built / BUNDLE):
        assert (bundle / name).read_bytes() == (mac.built / BUNDLE / name).read_bytes()
    for tool in TOOLS:
        installed = mac.home / ".local/bin" / tool
        assert installed.read_bytes() == (mac.built / tool).read_bytes()
        assert os.access(installed, os.X_OK)
    check_launch_agent(mac, bundle / PROGRAM)
    sample = ROOT / "packaging/Ravelin Disk Config.plist"
    assert mac.configuration.read_bytes() == sample.read_bytes()
    for place in (bundle, mac.launch_agent, mac.configuration, mac.home / ".local/bin"):
        assert str(place) in text
    assert f'{mac.home}/.local/bin/ravelin-disk-announce mounted 127.0.0.1 5077 --label "USB Disk"' in text
    assert "local network" in text and "does not\nask" not in text


def test_what_is_installed_takes_the_place_of_a_running_agent(mac):
    mac.run("install")
    mac.configuration.write_text("the user's own")
    running = [mac.applications / BUNDLE / PROGRAM, *(mac.home / ".local/bin" / tool for tool in TOOLS)]
    opened = [file.open("rb") for file in running]
    (mac.applications / BUNDLE / "Contents/left over").write_text("")
    for file in (mac.built / BUNDLE / PROGRAM, *(mac.built / tool for tool in TOOLS)):
        file.write_bytes(b"newer")
    mac.run("install")
    # No file that runs is written into.
    for file, before in zip(running, opened):
        assert file.read_bytes() == b"newer"
        assert before.read() != b"newer"
        before.close()
    assert not (mac.applications / BUNDLE / "Contents/left over").exists()
    check_launch_agent(mac, mac.applications / BUNDLE / PROGRAM)
    assert mac.configuration.read_text() == "the user's own"


def test_uninstall_leaves_the_configuration_alone(mac):
    own = mac.home / ".local/bin/ravelin-disk-of-my-own"
    own.parent.mkdir(parents=True)
    own.write_text("")
    mac.run("install")
    text = mac.run("uninstall")
    assert files(mac.home) == sorted([".local/bin/ravelin-disk-of-my-own",
                                      str(mac.configuration.relative_to(mac.home))])
    assert os.listdir(mac.applications) == []
    assert mac.loaded() is None
    assert f"The configuration stays: {mac.configuration.parent}\n" in text
    for removed in (mac.applications / BUNDLE, mac.launch_agent, mac.home / ".local/bin" / TOOLS[0]):
        assert f"Removed: {removed}\n" in text
    assert "Removed" not in mac.run("uninstall")


def test_who_may_not_write_to_applications_has_a_folder_of_their_own(mac):
    mac.applications.rmdir()
    text = mac.run("install")
    assert not mac.applications.exists()
    check_launch_agent(mac, mac.home / "Applications" / BUNDLE / PROGRAM)
    assert ("macOS 15 does not\nask from there whether it may find devices on the local network"
            in text)
    mac.run("uninstall")
    assert files(mac.home) == [str(mac.configuration.relative_to(mac.home))]


def test_there_is_one_bundle_only(mac):
    mac.applications.rmdir()
    mac.run("install")
    mac.applications.mkdir()
    mac.run("install")
    assert files(mac.home / "Applications") == []
    check_launch_agent(mac, mac.applications / BUNDLE / PROGRAM)


def test_another_program_of_the_same_name_stays(mac):
    other = mac.applications / BUNDLE / "Contents/Info.plist"
    other.parent.mkdir(parents=True)
    other.write_text("<string>com.example.other</string>")
    text = mac.run("install", status=1)
    assert text.endswith(f"script/install: {mac.applications / BUNDLE} is another program, and stays\n")
    assert files(mac.home) == []
    mac.run("uninstall")
    assert files(mac.applications) == [f"{BUNDLE}/Contents/Info.plist"]


def test_without_a_session_the_agent_starts_later(mac):
    mac.say("no-session")
    text = mac.run("install", status=1)
    assert "everything is installed, but launchctl could not start the agent" in text
    assert files(mac.home) == expected_in_home()


@pytest.mark.parametrize("script", ["install", "uninstall"])
def test_nothing_is_done_as_root(mac, script):
    mac.say("uid", "0")
    assert mac.run(script, status=1).startswith(f"script/{script}: without sudo, please")
    assert files(mac.home) == []
    assert mac.calls("brew") == mac.calls("cmake") == []


@pytest.mark.parametrize("script", ["install", "uninstall"])
def test_options_are_refused(mac, script):
    assert mac.run(script, "--help", status=2) == f"usage: script/{script}\n"
    assert files(mac.home) == []


def test_setup_installs_what_is_missing_once(mac):
    (mac.state / "brewed/cmake").touch()
    mac.run("setup", "run")
    assert [call for call in mac.calls("brew") if call.startswith("install")] == [
        "install --formula ninja cli11 utf8cpp"]
    mac.run("setup", "test")
    assert [call for call in mac.calls("brew") if call.startswith("install")] == [
        "install --formula googletest"]
    mac.run("setup")
    assert [call for call in mac.calls("brew") if call.startswith("install")] == []


def test_setup_says_what_it_cannot_install(mac):
    mac.say("no-xcode")
    assert "xcode-select --install" in mac.run("setup", "run", status=1)
    (mac.state / "no-xcode").unlink()
    (mac.bin / "brew").unlink()
    text = mac.run("setup", "run", status=1)
    assert text == ("script/setup: Homebrew is missing (https://brew.sh says how to install it); it is "
                    "needed for: cmake ninja cli11 utf8cpp\n")
    mac.say("version", "10.15.7")
    assert mac.run("setup", "run", status=1) == (
        "script/setup: macOS 11 or later is needed, and this is 10.15.7\n")


@pytest.mark.parametrize("part", ["macos", "on"])
def test_setup_knows_the_parts_that_a_mac_has(mac, part):
    assert "run, test and all" in mac.run("setup", part, status=2)


def test_warnings_of_a_compiler_that_nobody_has_seen_stop_nothing(mac):
    mac.run("build", "check")
    assert mac.calls("cmake") == [
        "--preset check -DRAVELIN_DISK_WARNINGS_AS_ERRORS=OFF", "--build --preset check"]
    assert "release and check" in mac.run("build", "asan", status=2)


def test_test_says_what_it_leaves_out(mac):
    text = mac.run("test")
    assert mac.calls("ctest") == ["--preset check -j 6 --no-tests=error"]
    assert "everything passed that a Mac can run, but this was left out" in text
    assert "LEFT OUT: the system tests, the demo and the checks of the sources" in text
    assert "LEFT OUT: of the unit tests, tests/unit/OneTest.cpp\n" in text
    assert "sanitizer" not in text
    assert "LEFT OUT: the sanitizer builds" in mac.run("test", "--all")


def test_test_fails_where_a_test_does(mac):
    executable(mac.bin / "ctest", "#!/bin/sh\nexit 8\n")
    assert "everything passed" not in mac.run("test", status=8)


def test_run_has_the_agent_tidy_up_at_control_c(mac):
    executable(mac.built / BUNDLE / PROGRAM, textwrap.dedent("""\
        #!/bin/sh
        trap 'echo tidied >"$STATE/tidied"; exit 0' TERM
        echo started >"$STATE/started"
        while :; do sleep 0.1; done
        """))
    mac.run("install")
    running = subprocess.Popen(
        [mac.tree / "script/run"], env=mac.environment, stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, start_new_session=True,
        preexec_fn=lambda: signal.signal(signal.SIGINT, signal.default_int_handler))
    try:
        end = time.monotonic() + PATIENCE
        while not (mac.state / "started").exists():
            assert running.poll() is None and time.monotonic() < end
            time.sleep(0.05)
        os.killpg(running.pid, signal.SIGINT)
        text, _ = running.communicate(timeout=PATIENCE)
    finally:
        if running.poll() is None:
            os.killpg(running.pid, signal.SIGKILL)
            running.communicate()
    assert running.returncode == 0
    assert (mac.state / "tidied").exists()
    assert f"Configuration: {mac.configuration}\n" in text
    assert f"Desktop folder: {mac.home}/Desktop\n" in text
    assert "local network" in text
    assert f"launchctl bootout gui/501/{LABEL}\n" in text
