"""Reads programs of macOS: for which processors they are, and what they need."""

import struct
from dataclasses import dataclass, field

LC_REQ_DYLD = 0x80000000
LC_SYMTAB = 0x2
LC_LOAD_DYLIB = 0xC
LC_LOAD_WEAK_DYLIB = 0x18 | LC_REQ_DYLD
LC_REEXPORT_DYLIB = 0x1F | LC_REQ_DYLD
LC_UUID = 0x1B
LC_CODE_SIGNATURE = 0x1D
LC_NOTE = 0x31
LC_BUILD_VERSION = 0x32
MACOS = 1

_FAT, _FAT_64, _SINGLE = 0xCAFEBABE, 0xCAFEBABF, 0xFEEDFACF
_EXECUTABLE = 2
_PROCESSORS = {0x01000007: "x86_64", 0x0100000C: "arm64"}


class Malformed(Exception):
    """Not a program of that system; the text says why."""


@dataclass
class Slice:
    """The part of a program for one processor."""

    start: int
    size: int
    processor: str
    commands: list = field(default_factory=list)  # (kind, place from the start)
    libraries: list = field(default_factory=list)  # in the order by which symbols name them
    undefined: list = field(default_factory=list)  # (symbol, library)
    uuid: bytes = None
    platform: int = None
    minimum: str = None
    is_signed: bool = False


def slices(content):
    """The parts of a program, which may be a single one."""
    try:
        (magic, number) = struct.unpack_from(">II", content)
        if magic == _FAT:
            return [_slice(content, *struct.unpack_from(">8xII", content, 8 + 20 * at))
                    for at in range(number)]
        if magic == _FAT_64:
            return [_slice(content, *struct.unpack_from(">8xQQ", content, 8 + 32 * at))
                    for at in range(number)]
        return [_slice(content, 0, len(content))]
    except struct.error as error:
        raise Malformed(f"it ends early ({error})") from error


def _slice(content, start, size):
    content = content[start:start + size]
    magic, processor, _, kind, number, _, _, _ = struct.unpack_from("<8I", content)
    if magic != _SINGLE or kind != _EXECUTABLE:
        raise Malformed("it is no program for 64 bits")
    part = Slice(start, size, _PROCESSORS.get(processor, hex(processor)))
    symbols, at = None, 32
    for _ in range(number):
        command, length = struct.unpack_from("<II", content, at)
        part.commands.append((command, at))
        if command in (LC_LOAD_DYLIB, LC_LOAD_WEAK_DYLIB, LC_REEXPORT_DYLIB):
            name = at + struct.unpack_from("<I", content, at + 8)[0]
            part.libraries.append(_text(content, name))
        elif command == LC_UUID:
            part.uuid = bytes(content[at + 8:at + 24])
        elif command == LC_CODE_SIGNATURE:
            part.is_signed = True
        elif command == LC_BUILD_VERSION:
            part.platform, version = struct.unpack_from("<II", content, at + 8)
            part.minimum = f"{version >> 16}.{version >> 8 & 255}"
        elif command == LC_SYMTAB:
            symbols = struct.unpack_from("<4I", content, at + 8)
        at += length
    if symbols is None:
        raise Malformed("it has no symbols")
    _read_undefined(content, part, *symbols)
    return part


def _read_undefined(content, part, table, number, names, _):
    for at in range(number):
        name, kind, _, description, _ = struct.unpack_from("<IBBHQ", content, table + 16 * at)
        is_debugging, is_undefined, is_external = kind & 0xE0, kind & 0x0E == 0, kind & 1
        if is_debugging or not is_undefined or not is_external:
            continue
        ordinal = description >> 8
        library = part.libraries[ordinal - 1] if 1 <= ordinal <= len(part.libraries) else \
            f"library {ordinal}"
        part.undefined.append((_text(content, names + name), library))


def _text(content, at):
    return content[at:content.index(b"\0", at)].decode()
