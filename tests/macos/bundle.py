#!/usr/bin/env python3
"""Checks what was built for macOS, as it would be installed.

usage: bundle.py STAGED SYSROOT [--defects]

STAGED is the root it was installed below, SYSROOT where the linker found the system's libraries. With
--defects it proves itself instead: it makes one defect at a time in a copy of what was installed, and
fails unless each is found.
"""

import argparse
import pathlib
import plistlib
import re
import shutil
import struct
import sys
import tempfile
import xml.parsers.expat

import macho
import stubs

APPLICATION = "Applications/Ravelin Disk.app"
PROGRAM = f"{APPLICATION}/Contents/MacOS/Ravelin Disk"
INFO = f"{APPLICATION}/Contents/Info.plist"
LAUNCH_AGENT = "Library/LaunchAgents/net.ravelin-disk.agent.plist"
IDENTIFIER = "net.ravelin-disk.agent"
MINIMUM = "11.0"
PROCESSORS = {"arm64", "x86_64"}
LIBRARIES = {"/usr/lib/libSystem.B.dylib", "/usr/lib/libc++.1.dylib", "/usr/lib/libobjc.A.dylib"}
FRAMEWORKS = {
    f"/System/Library/Frameworks/{name}.framework/Versions/{version}/{name}"
    for name, version in (("AppKit", "C"), ("CoreFoundation", "A"), ("CoreServices", "A"),
                          ("Foundation", "C"), ("NetFS", "A"), ("SystemConfiguration", "A"))}


def is_text(value):
    return isinstance(value, str) and value.strip() != ""


def is_version(value):
    return isinstance(value, str) and re.fullmatch(r"\d+\.\d+\.\d+", value)


# What a key's value has to be: the value itself, or a function that says so.
INFO_KEYS = {
    "CFBundleExecutable": "Ravelin Disk",
    "CFBundleIdentifier": IDENTIFIER,
    "CFBundleInfoDictionaryVersion": "6.0",
    "CFBundleName": "Ravelin Disk",
    "CFBundlePackageType": "APPL",
    "CFBundleShortVersionString": is_version,
    "CFBundleVersion": is_version,
    "LSMinimumSystemVersion": MINIMUM,
    "LSUIElement": True,
    "NSAppleEventsUsageDescription": is_text,
    "NSDesktopFolderUsageDescription": is_text,
    "NSLocalNetworkUsageDescription": is_text,
    "NSPrincipalClass": "NSApplication",
}
LAUNCH_AGENT_KEYS = {
    "AssociatedBundleIdentifiers": [IDENTIFIER],
    "KeepAlive": {"SuccessfulExit": False},
    "Label": IDENTIFIER,
    "LimitLoadToSessionType": "Aqua",
    "ProgramArguments": [f"/{PROGRAM}"],
    "RunAtLoad": True,
}


def known_symbols(sysroot):
    """What each library exports, by the path under which programs name it."""
    return dict(stubs.exported(file) for file in sorted(sysroot.rglob("*.tbd")))


def check_property_list(staged, name, keys):
    file = staged / name
    if not file.is_file():
        return [f"{name} is missing"]
    try:
        with file.open("rb") as opened:
            content = plistlib.load(opened)
    except (plistlib.InvalidFileException, xml.parsers.expat.ExpatError, ValueError) as error:
        return [f"{name}: {error}"]
    wrong = []
    for key, expected in keys.items():
        value = content.get(key)
        if key not in content:
            wrong.append(f"{name}: {key} is missing")
        elif not (expected(value) if callable(expected) else
                  type(value) is type(expected) and value == expected):
            wrong.append(f"{name}: {key} is {value!r}")
    return wrong


def check_program(staged, name, libraries, known):
    """A program for every processor; libraries are those that it has to be linked with, or None
    where those that every program has are enough."""
    file = staged / name
    if not file.is_file():
        return [f"{name} is missing"]
    if not file.stat().st_mode & 0o111:
        return [f"{name} is not executable"]
    try:
        slices = macho.slices(file.read_bytes())
    except macho.Malformed as error:
        return [f"{name}: {error}"]
    wrong = []
    if {part.processor for part in slices} != PROCESSORS or len(slices) != len(PROCESSORS):
        wrong.append(f"{name} is for {[part.processor for part in slices]}")
    for part in slices:
        where = f"{name} for {part.processor}"
        if part.minimum != MINIMUM or part.platform != macho.MACOS:
            wrong.append(f"{where} runs from version {part.minimum} of platform {part.platform} on")
        # By it the system tells programs apart to whom the local network is allowed.
        if part.uuid is None or part.uuid == bytes(16):
            wrong.append(f"{where} has no UUID")
        # No Mac with this processor runs what is not signed at all.
        if part.processor == "arm64" and not part.is_signed:
            wrong.append(f"{where} is not signed")
        if libraries is None:
            unexpected = set(part.libraries) - LIBRARIES - FRAMEWORKS
        else:
            unexpected = set(part.libraries) ^ libraries
        if unexpected:
            wrong.append(f"{where} is linked with {sorted(part.libraries)}, unlike what is expected in "
                         f"{sorted(unexpected)}")
        for symbol, library in part.undefined:
            if symbol not in known.get(library, ()):
                wrong.append(f"{where} needs {symbol} of {library}, which nothing vouches for")
    uuids = [part.uuid for part in slices]
    if len(set(uuids)) != len(uuids):
        wrong.append(f"{name}: its UUIDs are the same")
    return wrong


def check(staged, known):
    """What is wrong, a line each; empty where nothing is."""
    wrong = check_property_list(staged, INFO, INFO_KEYS)
    wrong += check_property_list(staged, LAUNCH_AGENT, LAUNCH_AGENT_KEYS)
    wrong += check_program(staged, PROGRAM, LIBRARIES | FRAMEWORKS, known)
    prefix = staged / "usr/local"
    for tool in ("ravelin-disk-announce", "ravelin-disk-volume"):
        wrong += check_program(staged, f"usr/local/bin/{tool}", None, known)
        if not (prefix / f"share/man/man1/{tool}.1").is_file():
            wrong.append(f"the man page of {tool} is missing")
    return wrong


# The defects. Each function makes one in what was installed below a folder.

def change_list(name, change):
    def make(staged):
        with (staged / name).open("rb") as file:
            content = plistlib.load(file)
        change(content)
        (staged / name).write_bytes(plistlib.dumps(content))
    return make


def change_bytes(name, change):
    def make(staged):
        content = bytearray((staged / name).read_bytes())
        change(content)
        (staged / name).write_bytes(content)
    return make


def replace(old, new):
    def change(content):
        at = content.index(old)
        content[at:at + len(old)] = new
    return change


def replace_all(old, new):
    def change(content):
        content[:] = content.replace(old, new)
    return change


def in_command(processor, command, change):
    """change(content, start) of the first load command of its kind, for one processor."""
    def in_content(content):
        part = next(one for one in macho.slices(bytes(content)) if one.processor == processor)
        change(content, part.start + next(at for kind, at in part.commands if kind == command))
    return in_content


def becomes_another_command(content, at):
    struct.pack_into("<I", content, at, macho.LC_NOTE)


def alone(processor):
    def change(content):
        part = next(one for one in macho.slices(bytes(content)) if one.processor == processor)
        content[:] = content[part.start:part.start + part.size]
    return change


def defects():
    made = []
    for name, keys in ((INFO, INFO_KEYS), (LAUNCH_AGENT, LAUNCH_AGENT_KEYS)):
        made.append((f"no {name}", lambda staged, name=name: (staged / name).unlink()))
        made.append((f"{name} is no property list", change_bytes(name, replace(b"</dict>", b"</dinner>"))))
        for key in keys:
            made.append((f"{key} is missing", change_list(name, lambda of, key=key: of.pop(key))))
            made.append((f"{key} is wrong", change_list(name, lambda of, key=key: of.update({key: ""}))))
    made.append(("KeepAlive without its condition", change_list(LAUNCH_AGENT, lambda of: of.update(KeepAlive=True))))
    for name in (PROGRAM, "usr/local/bin/ravelin-disk-announce", "usr/local/bin/ravelin-disk-volume"):
        made.append((f"no {name}", lambda staged, name=name: (staged / name).unlink()))
        made.append((f"{name} is not executable",
                     lambda staged, name=name: (staged / name).chmod(0o644)))
        made.append((f"{name} is no program", change_bytes(name, replace(b"\xca\xfe", b"\xca\xfa"))))
        for processor in sorted(PROCESSORS):
            made += [(f"{name}: {what} of {processor}", change_bytes(name, change)) for what, change in (
                ("nothing but the part", alone(processor)),
                ("a later minimum", in_command(processor, macho.LC_BUILD_VERSION, lambda content, at:
                    struct.pack_into("<I", content, at + 12, 12 << 16))),
                ("another platform", in_command(processor, macho.LC_BUILD_VERSION, lambda content, at:
                    struct.pack_into("<I", content, at + 8, 2))),
                ("no minimum", in_command(processor, macho.LC_BUILD_VERSION, becomes_another_command)),
                ("no UUID", in_command(processor, macho.LC_UUID, becomes_another_command)),
                ("an empty UUID", in_command(processor, macho.LC_UUID, lambda content, at:
                    content.__setitem__(slice(at + 8, at + 24), bytes(16)))),
                ("another library", in_command(processor, macho.LC_LOAD_DYLIB, lambda content, at:
                    content.__setitem__(at + 25, ord("x")))),
            )]
        made.append((f"{name}: no signature", change_bytes(name, in_command(
            "arm64", macho.LC_CODE_SIGNATURE, becomes_another_command))))
        made.append((f"{name}: a symbol that no library has",
                     change_bytes(name, replace_all(b"\0___cxa_throw\0", b"\0___cxa_drown\0"))))
    made.append(("a framework too few", change_bytes(PROGRAM, in_command(
        "arm64", macho.LC_LOAD_DYLIB, becomes_another_command))))
    made.append(("no man page", lambda staged: (staged / "usr/local/share/man/man1/ravelin-disk-volume.1").unlink()))
    return made


def prove(staged, known):
    """Makes each defect; returns the exit status: 0 where each was found."""
    made, missed = defects(), 0
    with tempfile.TemporaryDirectory() as temporary:
        copy = pathlib.Path(temporary) / "staged"
        for what, make in made:
            shutil.rmtree(copy, ignore_errors=True)
            shutil.copytree(staged, copy)
            make(copy)
            wrong = check(copy, known)
            missed += not wrong
            print(f"{'found' if wrong else 'MISSED'}: {what}: {wrong[:1]}")
    print(f"{len(made)} defects, {missed} not found")
    return 1 if missed else 0


def main():
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1].split("\n")[0])
    parser.add_argument("staged", type=pathlib.Path)
    parser.add_argument("sysroot", type=pathlib.Path)
    parser.add_argument("--defects", action="store_true")
    options = parser.parse_args()
    known = known_symbols(options.sysroot)
    if options.defects:
        return prove(options.staged, known)
    wrong = check(options.staged, known)
    print("\n".join(wrong) or "the bundle, the launch agent and the tools are as they have to be")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
