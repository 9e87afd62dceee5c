"""What Free Pascal's units for the system say of it: names, and the kind of everything."""

import re

import kinds

# Plain types, and those that the units define otherwise for 32 bits.
BUILT_IN = {
    "byte": kinds.integer(8, False), "boolean": kinds.integer(8, False),
    "byteparameter": kinds.integer(8, False),
    "shortint": kinds.integer(8, True), "cchar": kinds.integer(8, True),
    "integer": kinds.integer(16, True), "word": kinds.integer(16, False),
    "uint16": kinds.integer(16, False), "unichar": kinds.integer(16, False),
    "longint": kinds.integer(32, True), "cint": kinds.integer(32, True),
    "pid_t": kinds.integer(32, True),
    "longword": kinds.integer(32, False), "cuint": kinds.integer(32, False),
    "uint32": kinds.integer(32, False),
    "int64": kinds.integer(64, True), "signedlong": kinds.integer(64, True),
    "clong": kinds.integer(64, True), "clonglong": kinds.integer(64, True),
    "nsinteger": kinds.integer(64, True),
    "qword": kinds.integer(64, False), "unsignedlong": kinds.integer(64, False),
    "culong": kinds.integer(64, False), "nsuinteger": kinds.integer(64, False),
    "single": ("float", 32), "double": ("float", 64), "cdouble": ("float", 64),
    "objcbool": kinds.BOOL, "pointer": kinds.POINTER, "univptr": kinds.POINTER,
    "pchar": kinds.CHARACTERS, "pculong": ("pointer", kinds.integer(64, False)),
    "idptr": ("pointer", ("object", None)), "id": ("object", None), "instancetype": ("object", None),
    "sel": ("selector",), "pobjc_class": ("class",),
}
CALL = re.compile(r"(function|procedure)\s*(\w*)\s*(?:\(([^)]*)\))?\s*(?::\s*(\w+))?\s*;?(.*)", re.S)


class Pascal:
    """The units below a folder of Free Pascal's sources."""

    def __init__(self, packages):
        text = []
        for folder in ("univint/src", "cocoaint/src/foundation", "cocoaint/src/appkit"):
            for file in sorted((packages / folder).iterdir()):
                # That one holds all the other ones once more.
                if file.suffix in (".pas", ".inc") and file.name != "MacOSAll.pas":
                    text.append(file.read_text(encoding="latin-1"))
        text = re.sub(r"\{.*?\}|\(\*.*?\*\)", " ", "\n".join(text), flags=re.S)
        self._types = {}
        for name, target in re.findall(
                r"^\s*(\w+)\s*=\s*(\^?\w+|(?:function|procedure)\s*(?:\([^)]*\))?[^;]*)\s*;", text, re.M):
            self._types.setdefault(name.lower(), target)
        self._values = {}
        for name, value in re.findall(r"^\s*(\w+)\s*=\s*([^;]+);", text, re.M):
            self._values.setdefault(name, value.strip())
        self._records = {}
        for name, body in re.findall(
                r"^\s*(\w+)\s*=\s*(?:packed\s+)?record\b(.*?)\bend\s*;", text, re.M | re.S):
            self._records.setdefault(name, body)
        self._functions = {}
        for call in re.findall(
                r"^\s*((?:function|procedure)\s+\w+\s*(?:\([^)]*\))?[^\n]*\bexternal\b)", text, re.M):
            match = CALL.fullmatch(call)
            self._functions.setdefault(match[2], match)
        self._variables = dict(re.findall(
            r"^\s*(?:var\s+)?(\w+)\s*:\s*(\w+)\s*;\s*(?:cvar\s*;\s*)?external\b", text, re.M))
        self._parents, self._methods = {}, {}
        for _, name, kind, parent, body in re.findall(
                r"^( *)(\w+)\s*=\s*objc(class|category)\s+external(?:\s+name\s+'\w+')?\s*\((\w+)[^)]*\)"
                r"(.*?)^\1end\s*;", text, re.M | re.S):
            if kind == "class":
                self._parents[name] = parent
            of = self._methods.setdefault(name if kind == "class" else parent, {})
            for is_of_class, call, selector in re.findall(
                    r"^\s*(class\s+)?((?:function|procedure)\b[^\n]*?;)\s*message\s+'([^']+)'", body, re.M):
                of.setdefault(selector, (bool(is_of_class), CALL.fullmatch(call)))

    def function(self, name):
        """(kinds of the arguments, kind of the result, is variadic); None when unknown."""
        match = self._functions.get(name)
        return match and (*self._call(match), "varargs" in match[5])

    def variable(self, name):
        return self._kind(self._variables[name]) if name in self._variables else None

    def constant(self, name):
        text = self._values.get(name, "")
        if match := re.fullmatch(r"FourCharCode\('(.{4})'\)", text):
            return int.from_bytes(match[1].encode(), "big")
        if match := re.fullmatch(r"(\d+)\s+shl\s+(\d+)", text):
            return int(match[1]) << int(match[2])
        if match := re.fullmatch(r"-?\d+|\$[0-9A-Fa-f]+", text):
            return int(match[0].replace("$", "0x"), 0)
        return None

    def record(self, name):
        """The fields, (name, kind) each; None when unknown."""
        if name not in self._records:
            return None
        fields = []
        for names, text in re.findall(r"([\w\s,]+):((?:[^;(]|\([^)]*\))*)(?:;|$)", self._records[name]):
            for part in names.split(","):
                fields.append((part.strip().rstrip("_"), self._kind(text.strip())))
        return fields

    def parent(self, name):
        return self._parents.get(name)

    def method(self, name, selector):
        """(is of the class, kinds of the arguments, kind of the result); None when unknown."""
        found = self._methods.get(name, {}).get(selector)
        return found and (found[0], *self._call(found[1]))

    def _call(self, match):
        arguments = []
        for group in filter(None, map(str.strip, (match[3] or "").split(";"))):
            names, _, text = group.partition(":")
            by_reference = re.match(r"(var|const|out)\s", names.strip() + " ")
            kind = self._kind(text.strip())
            for _ in names.split(","):
                arguments.append(("pointer", kind) if by_reference else kind)
        return tuple(arguments), self._kind(match[4]) if match[4] else kinds.VOID

    def _kind(self, text):
        name = text.lower()
        if name in BUILT_IN:
            return BUILT_IN[name]
        if match := re.fullmatch(r"(?:packed\s+)?array\s*\[0\.\.(\d+)\]\s*of\s+(\w+)", text):
            return ("array", int(match[1]) + 1, self._kind(match[2]))
        if re.match(r"(function|procedure)\b", name):
            return ("callback", *self._call(CALL.fullmatch(text)))
        if text in self._parents or name == "nsobject":
            return ("object", text)
        if name.startswith("^"):
            return ("pointer", self._kind(text[1:]))
        target = self._types.get(name, "")
        # A reference to what may be changed is an alias of the one to what may not.
        if name.endswith("ref") and (target.startswith("^") or name.startswith("cfmutable")):
            return ("opaque", name)
        if target and target.lower() != name:
            return self._kind(target)
        if text in self._records:
            return ("record", name)
        return ("unknown", text)
