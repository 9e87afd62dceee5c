#!/usr/bin/env python3
"""Holds the stand-in headers against two independent descriptions of the same interfaces: the units
of Free Pascal, and the type definitions of the npm package @nativescript/macos-node-api. From the
declarations that were found right it writes what the linker needs.

usage: audit.py TOOLCHAIN [--mistakes]

TOOLCHAIN is where script/macos keeps what it fetched; the linker looks in its sysroot. With --mistakes it proves itself instead: it
makes each of the mistakes in mistakes.py, one at a time, and fails unless each is found.
"""

import argparse
import pathlib
import re
import sys
from dataclasses import dataclass, field

import kinds
import mistakes
import stubs
import typescript
from declarations import BadHeaders, Declarations
from pascal import Pascal
from typescript import TypeScript

HERE = pathlib.Path(__file__).resolve().parent
STAND_INS = HERE / "standin"
FRAMEWORKS = ("AppKit", "CoreFoundation", "CoreServices", "Foundation", "NetFS", "Runtime",
              "SystemConfiguration")
PASCAL, TYPES = "Free Pascal", "NativeScript"


@dataclass
class Finding:
    """What the two descriptions say of one declaration: True (right), False (wrong), None (nothing)."""

    name: str
    verdicts: dict = field(default_factory=dict)
    differences: list = field(default_factory=list)

    def add(self, witness, verdict, here="", there=""):
        self.verdicts[witness] = verdict
        if verdict is False:
            self.differences.append(f"here {here}, {witness} {there}")

    def witnesses(self):
        return [witness for witness, verdict in self.verdicts.items() if verdict]


class Audit:
    """The two descriptions, against which any number of folders of headers can be held."""

    def __init__(self, toolchain):
        self._pascal = Pascal(toolchain / "pascal")
        self._types = TypeScript(toolchain / "types", FRAMEWORKS)
        self._exported = stubs.exported_by_system(toolchain)
        self._compiler = stubs.compiler(toolchain)

    def findings(self, folder):
        """One Finding for each declaration of the headers, and the declarations."""
        declared = Declarations(folder, self._compiler)
        found = []
        for name, function in declared.functions.items():
            found.append(self._function(name, function))
        for name, variable in declared.variables.items():
            found.append(self._variable(name, variable))
        for name, constant in declared.constants.items():
            found.append(self._constant(name, constant))
        for name, record in declared.records.items():
            found.append(self._record(name, record))
        for name, of in declared.classes.items():
            if of is None or not of.framework:
                continue
            found.append(self._class(name, of))
            for selector, method in of.methods.items():
                found.append(self._method(name, selector, method))
        found += [Finding(f"macro {name}") for name in declared.macros]
        return found, declared

    def _function(self, name, function):
        finding = Finding(f"function {name}")
        here = f"{kinds.signature(function.arguments, function.result)}{' ...' * function.is_variadic}"
        if theirs := self._pascal.function(name):
            arguments, result, is_variadic = theirs
            finding.add(PASCAL, kinds.all_agree(function.arguments, arguments)
                        and kinds.agree(function.result, result)
                        and is_variadic == function.is_variadic,
                        here, f"{kinds.signature(arguments, result)}{' ...' * is_variadic}")
        if theirs := self._types.function(name):
            framework, arguments, result = theirs
            finding.add(TYPES, framework == function.framework
                        and typescript.all_fit(arguments, function.arguments)
                        and typescript.fits(result, function.result),
                        f"{function.framework} {here}", f"{framework} {arguments} -> {result}")
        if function.framework == "Runtime" and f"_{name}" not in self._exported:
            finding.add("the system's library", False, "it is there", "does not export it")
        return finding

    def _variable(self, name, variable):
        finding = Finding(f"variable {name}")
        if theirs := self._pascal.variable(name):
            finding.add(PASCAL, kinds.agree(variable.kind, theirs),
                        kinds.shown(variable.kind), kinds.shown(theirs))
        if theirs := self._types.variable(name):
            framework, text = theirs
            finding.add(TYPES, framework == variable.framework and typescript.fits(text, variable.kind),
                        f"{variable.framework} {kinds.shown(variable.kind)}", f"{framework} {text}")
        return finding

    def _constant(self, name, constant):
        finding = Finding(f"constant {name}")
        for witness, theirs in ((PASCAL, self._pascal.constant(name)), (TYPES, self._types.constant(name))):
            if theirs is not None:
                finding.add(witness, theirs == constant.value, constant.value, theirs)
        # These have the name without the value: that can contradict, but not confirm.
        if (theirs := self._types.variable(name)) and theirs[0] != constant.framework:
            finding.add(TYPES, False, constant.framework, theirs[0])
        return finding

    def _record(self, name, record):
        finding = Finding(f"record {name}")
        here = [(part, kinds.shown(kind)) for part, kind in record.fields]
        names, of = [part for part, _ in record.fields], [kind for _, kind in record.fields]
        if theirs := self._pascal.record(name):
            finding.add(PASCAL, names == [part for part, _ in theirs]
                        and kinds.all_agree(of, [kind for _, kind in theirs]),
                        here, [(part, kinds.shown(kind)) for part, kind in theirs])
        if theirs := self._types.record(name):
            finding.add(TYPES, names == [part for part, _ in theirs]
                        and typescript.all_fit([text for _, text in theirs], of), here, theirs)
        return finding

    def _class(self, name, of):
        finding = Finding(f"class {name}")
        if theirs := self._pascal.parent(name):
            finding.add(PASCAL, theirs == of.parent, of.parent, theirs)
        if theirs := self._types.parent(name):
            finding.add(TYPES, theirs == (of.framework, of.parent), (of.framework, of.parent), theirs)
        return finding

    def _method(self, name, selector, method):
        finding = Finding(f"method {'+' if method.is_of_class else '-'}[{name} {selector}]")
        here = f"{'+' if method.is_of_class else '-'} {kinds.signature(method.arguments, method.result)}"
        if theirs := self._pascal.method(name, selector):
            is_of_class, arguments, result = theirs
            finding.add(PASCAL, is_of_class == method.is_of_class
                        and kinds.all_agree(method.arguments, arguments)
                        and kinds.agree(method.result, result),
                        here, f"{'+' if is_of_class else '-'} {kinds.signature(arguments, result)}")
        if theirs := self._types.method(name, selector):
            is_of_class, arguments, result = theirs
            finding.add(TYPES, is_of_class == method.is_of_class
                        and typescript.all_fit(arguments, method.arguments)
                        and typescript.fits(result, method.result), here, theirs)
        return finding


def exceptions():
    """The reasons of exceptions.txt by (what, witness or None)."""
    reasons = {}
    for line in (HERE / "exceptions.txt").read_text().splitlines():
        if line and not line.startswith("#"):
            what, witness, reason = re.split(r"\s*\|\s*", line)
            reasons[what, None if witness == "none" else witness] = reason
    return reasons


def judge(findings, reasons):
    """The lines that say what is wrong; empty where nothing is."""
    wrong, needed = [], set()
    for finding in findings:
        for witness, verdict in finding.verdicts.items():
            if verdict is False and (finding.name, witness) in reasons:
                needed.add((finding.name, witness))
                finding.verdicts[witness] = None
        if False in finding.verdicts.values():
            wrong.append(f"WRONG {finding.name}: {'; '.join(finding.differences)}")
        elif not finding.witnesses():
            needed.add((finding.name, None))
            if (finding.name, None) not in reasons:
                wrong.append(f"UNKNOWN to both descriptions: {finding.name}")
    for what, witness in sorted(set(reasons) - needed, key=str):
        wrong.append(f"NOT NEEDED in exceptions.txt: {what} | {witness or 'none'}")
    return wrong


def main():
    parser = argparse.ArgumentParser(usage=__doc__.split("usage: ")[1].split("\n")[0])
    parser.add_argument("toolchain", type=pathlib.Path)
    parser.add_argument("--mistakes", action="store_true")
    options = parser.parse_args()
    audit, reasons = Audit(options.toolchain), exceptions()
    if options.mistakes:
        def complaint(folder):
            try:
                lines = judge(audit.findings(folder)[0], reasons)
            except BadHeaders as error:
                lines = [f"the compiler: {error}"]
            return lines[0] if lines else None
        return mistakes.prove(STAND_INS, complaint)

    findings, declared = audit.findings(STAND_INS)
    wrong = judge(findings, reasons)
    by = [len(finding.witnesses()) for finding in findings]
    print(f"{len(findings)} declarations: {by.count(2)} confirmed by both descriptions, "
          f"{by.count(1)} by one, {by.count(0)} by none, {len(wrong)} wrong")
    for finding in findings:
        if len(finding.witnesses()) == 1:
            print(f"  by {finding.witnesses()[0]} alone: {finding.name}")
        elif not finding.witnesses():
            print(f"  by none: {finding.name}: {reasons.get((finding.name, None), '')}")
    if wrong:
        print("\n".join(wrong))
        return 1
    stubs.write(options.toolchain / "sysroot", options.toolchain, declared)
    return 0


if __name__ == "__main__":
    sys.exit(main())
