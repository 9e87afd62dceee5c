"""What the linker has to know of the system's libraries, and the compiler that is told of them."""

import pathlib
import re
import subprocess

HEAD = """--- !tapi-tbd
tbd-version: 4
targets: [ arm64-macos, x86_64-macos ]
install-name: '{}'
exports:
"""
# The versions that are part of the frameworks' paths.
VERSIONS = {"AppKit": "C", "Foundation": "C"}
# What no header declares: the compiler itself refers to it.
LITERALS = "___CFConstantStringClassReference"
# Likewise, of the library of Objective-C itself.
RUNTIME = """_objc_alloc _objc_alloc_init _objc_autorelease _objc_autoreleasePoolPop
    _objc_autoreleasePoolPush _objc_begin_catch _objc_ehtype_vtable _objc_end_catch
    _objc_enumerationMutation _objc_exception_rethrow _objc_exception_throw _objc_msgSend
    _objc_msgSendSuper2 _objc_opt_class _objc_opt_isKindOfClass _objc_opt_new
    _objc_opt_respondsToSelector _objc_opt_self _objc_release _objc_retain _objc_terminate
    __objc_empty_cache ___objc_personality_v0 _OBJC_EHTYPE_id""".split()
# The other processor has no use for it: how a record comes back.
RUNTIME_OF_X86_64 = ["_objc_msgSend_stret"]


def compiler(toolchain):
    """The command of the compiler, with the system's C headers and no other ones."""
    return [str(toolchain / "bin/clang++"), "--target=arm64-apple-macos11", "-isysroot",
            str(toolchain / "sysroot"), "-std=c++20", "-nostdinc++", "-Wno-incompatible-sysroot"]


def exported_by_system(toolchain):
    """The symbols of the library that every program of the system is linked with."""
    return exported(toolchain / "sysroot/usr/lib/libSystem.tbd")[1]


def exported(file):
    """(the path of the library, its symbols) of a .tbd file. What it describes besides are the
    libraries that the first one consists of."""
    text = file.read_text()
    symbols = set()
    for kind, names in re.findall(r"([a-z-]+):\s*\[([^\]]*)\]", text):
        listed = [name.strip(" \n'\"") for name in names.split(",")]
        if kind.endswith("symbols"):
            symbols.update(listed)
        elif kind == "objc-classes":
            symbols.update(f"_OBJC_{what}_$_{name}" for name in listed for what in ("CLASS", "METACLASS"))
    return re.search(r"^install-name:\s*'?([^'\n]+)", text, re.M)[1], symbols


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
    _write(folder / "usr/lib/libobjc.tbd", "/usr/lib/libobjc.A.dylib", RUNTIME, ["NSObject"],
           RUNTIME_OF_X86_64)
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


def _write(file, install_name, symbols, classes, symbols_of_x86_64=()):
    text = HEAD.format(install_name)
    for targets, key, names in (("arm64-macos, x86_64-macos", "symbols", symbols),
                                ("arm64-macos, x86_64-macos", "objc-classes", classes),
                                ("x86_64-macos", "symbols", symbols_of_x86_64)):
        if names:
            listed = ", ".join(map(repr, sorted(names)))
            text += f"  - targets: [ {targets} ]\n    {key}: [ {listed} ]\n"
    pathlib.Path(file).parent.mkdir(parents=True, exist_ok=True)
    pathlib.Path(file).write_text(text + "...\n")
