"""What the stand-in headers declare, as the compiler understands them."""

import json
import pathlib
import re
import subprocess
from dataclasses import dataclass, field

import kinds


class BadHeaders(Exception):
    """The compiler does not take the headers; the text is what it says."""


@dataclass
class Function:
    framework: str
    arguments: tuple
    result: tuple
    is_variadic: bool


@dataclass
class Variable:
    framework: str
    kind: tuple


@dataclass
class Constant:
    framework: str
    value: int


@dataclass
class Record:
    framework: str
    fields: list  # of (name, kind)


@dataclass
class Method:
    is_of_class: bool
    arguments: tuple
    result: tuple


@dataclass
class Class:
    framework: str
    parent: str
    methods: dict = field(default_factory=dict)  # by selector


BUILT_IN = {
    "void": kinds.VOID,
    "char": kinds.integer(8, True),
    "signed char": kinds.integer(8, True),
    "unsigned char": kinds.integer(8, False),
    "short": kinds.integer(16, True),
    "unsigned short": kinds.integer(16, False),
    "int": kinds.integer(32, True),
    "unsigned int": kinds.integer(32, False),
    "long": kinds.integer(64, True),
    "unsigned long": kinds.integer(64, False),
    "long long": kinds.integer(64, True),
    "unsigned long long": kinds.integer(64, False),
    "float": ("float", 32),
    "double": ("float", 64),
    "BOOL": kinds.BOOL,
    "SEL": ("selector",),
    "Class": ("class",),
    "id": ("object", None),
    "instancetype": ("object", None),
}


class Declarations:
    """Everything that the headers in a folder declare, by kind and name."""

    def __init__(self, folder, compiler):
        self._folder = pathlib.Path(folder).resolve()
        self.functions, self.variables, self.constants = {}, {}, {}
        self.records, self.classes = {}, {}
        # The compiler's tree does not know these.
        self.macros = [name for header in sorted(self._folder.rglob("*.h"))
                       for name in re.findall(r"^#define (\w+)", header.read_text(), re.M)]
        self._typedefs, self._enums, self._record_names = {}, {}, {}
        tree = self._read(compiler)
        # The names first: a type may be used before what it is made of.
        nodes = list(self._outer(tree))
        for node in nodes:
            self._name(node)
        for node in nodes:
            if self._framework(node):
                self._take(node)

    def _read(self, compiler):
        headers = sorted(self._folder.rglob("*.h"))
        source = "".join(f"#include <{header.relative_to(self._folder)}>\n" for header in headers)
        command = [*compiler, "-isystem", str(self._folder), "-x", "objective-c++", "-",
                   "-fsyntax-only", "-Xclang", "-ast-dump=json"]
        ran = subprocess.run(command, input=source, text=True, capture_output=True, check=False)
        if ran.returncode != 0:
            raise BadHeaders(ran.stderr)
        # A place names its file only where the place before it was in another one.
        last = None

        def with_file(item):
            nonlocal last
            if "offset" in item and "tokLen" in item:
                last = item.setdefault("file", last)
            return item

        return json.loads(ran.stdout, object_hook=with_file)

    def _framework(self, node):
        """The framework whose stand-in holds the node, "" for none."""
        place = node.get("loc", {})
        file = place.get("expansionLoc", place).get("file")
        if file is None or not pathlib.Path(file).is_relative_to(self._folder):
            return ""
        header = pathlib.Path(file).relative_to(self._folder)
        return header.parts[0] if len(header.parts) > 1 else "Runtime"

    def _outer(self, node):
        for inner in node.get("inner", []):
            if inner["kind"] == "LinkageSpecDecl":
                yield from self._outer(inner)
            else:
                yield inner

    def _name(self, node):
        if node["kind"] == "TypedefDecl":
            self._typedefs[node["name"]] = node["type"]["qualType"]
            for inner in node.get("inner", []):
                owned = inner.get("ownedTagDecl", {})
                if owned.get("name") == "":
                    self._record_names[owned["id"]] = node["name"]
        elif node["kind"] == "EnumDecl" and "name" in node:
            self._enums[node["name"]] = node.get("fixedUnderlyingType", {"qualType": "int"})["qualType"]
        elif node["kind"] == "CXXRecordDecl" and "name" in node:
            self._record_names[node["id"]] = node["name"]
        elif node["kind"] == "ObjCInterfaceDecl":
            self.classes.setdefault(node["name"], None)

    def _take(self, node):
        framework, inner = self._framework(node), node.get("inner", [])
        if node["kind"] == "FunctionDecl":
            result = node["type"]["qualType"].split("(")[0]
            self.functions[node["name"]] = Function(
                framework, self._arguments(inner), self._kind(result), node.get("variadic", False))
        elif node["kind"] == "VarDecl":
            self.variables[node["name"]] = Variable(framework, self._kind(node["type"]["qualType"]))
        elif node["kind"] == "EnumDecl":
            for constant in inner:
                if constant["kind"] == "EnumConstantDecl":
                    self.constants[constant["name"]] = Constant(framework, _value(constant))
        elif node["kind"] == "CXXRecordDecl" and node.get("completeDefinition"):
            self.records[self._record_names[node["id"]]] = Record(framework, [
                (part["name"], self._kind(part["type"]["qualType"]))
                for part in inner if part["kind"] == "FieldDecl"])
        elif node["kind"] == "ObjCInterfaceDecl" and "super" in node:
            self._take_class(framework, node)

    def _take_class(self, framework, node):
        taken = Class(framework, node["super"]["name"])
        for inner in node.get("inner", []):
            if inner["kind"] == "ObjCMethodDecl" and not inner.get("isImplicit"):
                taken.methods[inner["name"]] = Method(
                    not inner.get("instance"), self._arguments(inner.get("inner", [])),
                    self._kind(inner["returnType"]["qualType"]))
            elif inner["kind"] == "ObjCPropertyDecl":
                taken.methods[inner["name"]] = Method(
                    inner.get("class", False), (), self._kind(inner["type"]["qualType"]))
        self.classes[node["name"]] = taken

    def _arguments(self, nodes):
        return tuple(self._kind(node["type"]["qualType"])
                     for node in nodes if node["kind"] == "ParmVarDecl")

    def _kind(self, text):
        text = re.sub(r"\b(const|volatile|struct|enum|__strong)\b", "", text)
        text = re.sub(r"\s+", " ", text).replace(" *", "*").strip()
        if match := re.fullmatch(r"(.*?)\s?\(\*\)\((.*)\)", text):
            arguments = [] if match[2] in ("", "void") else match[2].split(",")
            return ("callback", tuple(map(self._kind, arguments)), self._kind(match[1]))
        if match := re.fullmatch(r"(.*)\[(\d+)\]", text):
            return ("array", int(match[2]), self._kind(match[1]))
        if text in BUILT_IN:
            return BUILT_IN[text]
        if text.endswith("*"):
            to = text[:-1]
            if to in self.classes:
                return ("object", to)
            return kinds.POINTER if to == "void" else ("pointer", self._kind(to))
        if text in self._enums:
            return self._kind(self._enums[text])
        if text in self._typedefs and self._typedefs[text] not in (text, f"struct {text}"):
            if re.fullmatch(r"(const )?struct \w+ \*", self._typedefs[text]):
                return ("opaque", text.lower())
            return self._kind(self._typedefs[text])
        if text in self._record_names.values():
            return ("record", text.lower())
        return ("unknown", text)


def _value(node):
    for inner in node.get("inner", []):
        if inner["kind"] == "ConstantExpr":
            return int(inner["value"])
        if (value := _value(inner)) is not None:
            return value
    return None
