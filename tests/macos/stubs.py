"""What the linker has to know of the system's libraries, and the compiler that is told of them."""

import pathlib
import re
import subprocess

HEAD = """--- !tapi-tbd
tbd-version: 4
targets: [ arm64-macos, x86_64-macos ]
install-name: '{}'
exports:
  - targets: [ arm64-macos, x86_64-macos ]
"""
# The versions that are part of the frameworks' paths.
VERSIONS = {"AppKit": "C", "Foundation": "C"}
# What no header declares: the compiler itself refers to it.
LITERALS = "___CFConstantStringClassReference"
RUNTIME = """_objc_alloc _objc_alloc_init _objc_autoreleasePoolPop _objc_autoreleasePoolPush
    _objc_begin_catch _objc_end_catch _objc_exception_rethrow _objc_exception_throw _objc_msgSend
    _objc_msgSendSuper2 _objc_opt_class _objc_opt_isKindOfClass _objc_opt_new
    _objc_opt_respondsToSelector _objc_opt_self _objc_terminate __objc_empty_cache
    ___objc_personality_v0 _OBJC_EHTYPE_id""".split()


def compiler(toolchain):
    """The command of the compiler, with the system's C headers and no other ones."""
    return [str(toolchain / "bin/clang++"), "--target=arm64-apple-macos11", "-isysroot",
            str(toolchain / "sysroot"), "-std=c++20", "-nostdinc++", "-Wno-incompatible-sysroot"]


def exported_by_system(toolchain):
    """The symbols of the library that every program of the system is linked with."""
    text = (toolchain / "sysroot/usr/lib/libSystem.tbd").read_text()
    return set(re.findall(r"(?<![\w.$])_[\w.$]+", text))


def write(folder, toolchain, declared):
    """Writes a .tbd file for each framework, the Objective-C runtime and libc++ below the folder."""
    frameworks = {}
    for names in (declared.functions, declared.variables):
        for name, of in names.items():
            frameworks.setdefault(of.framework, ([], []))[0].append(f"_{name}")
    for name, of in declared.classes.items():
        if of is not None and of.framework:
            frameworks.setdefault(of.framework, ([], []))[1].append(name)
    frameworks.pop("Runtime", None)
    frameworks["CoreFoundation"][0].append(LITERALS)
    for name, (symbols, classes) in frameworks.items():
        path = f"/System/Library/Frameworks/{name}.framework"
        _write(folder / path[1:] / f"{name}.tbd", f"{path}/Versions/{VERSIONS.get(name, 'A')}/{name}",
               symbols, classes)
    _write(folder / "usr/lib/libobjc.tbd", "/usr/lib/libobjc.A.dylib", RUNTIME, ["NSObject"])
    _write(folder / "usr/lib/libc++.tbd", "/usr/lib/libc++.1.dylib", _of_libcxx(toolchain), [])


def _of_libcxx(toolchain):
    """The names that the same version of libc++ defines here; they are the same there but for the
    underscore in front of each."""
    symbols = set()
    for name in ("libc++.so.1", "libc++abi.so.1"):
        listed = subprocess.run(
            [toolchain / "bin/llvm-nm", "-D", "--defined-only", "--format=just-symbols",
             toolchain / "lib" / name], check=True, capture_output=True, text=True).stdout
        symbols.update(re.findall(r"^(?:_Z|__cxa|__gxx)\w+", listed, re.M))
    return [f"_{symbol}" for symbol in symbols]


def _write(file, install_name, symbols, classes):
    text = HEAD.format(install_name)
    for key, names in (("symbols", symbols), ("objc-classes", classes)):
        if names:
            text += f"    {key}: [ {', '.join(map(repr, sorted(names)))} ]\n"
    pathlib.Path(file).parent.mkdir(parents=True, exist_ok=True)
    pathlib.Path(file).write_text(text + "...\n")
