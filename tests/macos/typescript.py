"""What the type definitions of @nativescript/macos-node-api say of the system: in which framework
something is, and roughly what it is. They were made from the headers of a recent arm64 system."""

import re


def split(text, separator=","):
    """The parts of a text that stand between separators outside of any brackets."""
    parts, depth, start = [], 0, 0
    for at, character in enumerate(text):
        if character in "([{<":
            depth += 1
        elif character in ")]}" or character == ">" and text[at - 1] != "=":
            depth -= 1
        elif character == separator and depth == 0:
            parts.append(text[start:at])
            start = at + 1
    parts.append(text[start:])
    return [part.strip() for part in parts if part.strip()]


class TypeScript:
    """The definitions in a folder."""

    def __init__(self, folder, frameworks):
        self._functions, self._variables, self._enums, self._classes = {}, {}, {}, {}
        for framework in frameworks:
            for line in self._entries((folder / f"{framework}.d.ts").read_text()):
                self._take(framework, line)

    @staticmethod
    def _entries(text):
        return re.split(r"\n(?=declare )", text)

    def _take(self, framework, entry):
        entry = entry.strip()
        if match := re.fullmatch(r"declare function (\w+)\((.*)\): ([^\n]*);", entry):
            self._functions[match[1]] = (framework, [_of(part) for part in split(match[2])], match[3])
        elif match := re.fullmatch(r"declare const (\w+): \{\n(.*)\};?", entry, re.S):
            self._enums[match[1]] = dict(
                (name, int(value)) for name, value in re.findall(r"^\s+(\w+): (-?\d+),", match[2], re.M))
        elif match := re.fullmatch(r"declare const (\w+): (.*);", entry):
            self._variables[match[1]] = (framework, match[2])
        elif match := re.match(r"declare (?:class|interface) (\w+)(<.*?>)? ?([^{]*)\{\n", entry):
            parent = re.search(r"extends (\w+)", match[3])
            # A class and the protocol of its name stand beside each other.
            known = self._classes.setdefault(match[1], [framework, None, {}])
            known[1] = known[1] or parent and parent[1]
            for static, name, rest in re.findall(
                    r"^  (static )?(?:readonly )?(\w+)((?:\(|<|: ).*);$", entry[match.end():], re.M):
                known[2].setdefault((bool(static), name), _plain(rest, match[2]))

    def function(self, name):
        """(framework, types of the arguments, type of the result); None when unknown."""
        return self._functions.get(name)

    def variable(self, name):
        """(framework, type); None when unknown."""
        return self._variables.get(name)

    def constant(self, name):
        """The value; None when unknown. Values are kept in the enumeration's own object, without
        what the names of its enumerators have in common."""
        best, value = 0, None
        for enumeration, members in self._enums.items():
            for member, number in members.items():
                before, _, after = name.removeprefix("k").partition(member)
                if best < len(before) < len(name) - 1 and enumeration.startswith(before) \
                        and after in enumeration:
                    best, value = len(before), number
        return value

    def record(self, name):
        """The fields, (name, type) each; None when unknown."""
        if name not in self._classes:
            return None
        return [(field, rest[2:]) for (_, field), rest in self._classes[name][2].items()
                if rest.startswith(": ")]

    def parent(self, name):
        """(framework, parent); None when unknown."""
        return tuple(self._classes[name][:2]) if name in self._classes else None

    def method(self, name, selector):
        """(is of the class, types of the arguments, type of the result); None when unknown."""
        if name not in self._classes:
            return None
        first, *others = selector.split(":")
        joined = first + "".join(part[:1].upper() + part[1:] for part in others)
        for is_of_class in (False, True):
            rest = self._classes[name][2].get((is_of_class, joined))
            if rest is None:
                continue
            if rest.startswith(": "):
                return is_of_class, [], rest[2:]
            match = re.fullmatch(r"\((.*)\): (.*)", rest)
            return is_of_class, [_of(part) for part in split(match[1])], match[2]
        return None


def _plain(text, parameters):
    """The text of a member without what is generic in it."""
    for parameter in split((parameters or "<>")[1:-1]):
        text = re.sub(rf"\b{parameter.split()[0]}\b", "interop.Object", text)
    text = re.sub(r"^<This extends .*?>\(this: This(?:, )?|^<[\w., ]+>\(", "(", text)
    return re.sub(r"InstanceType<This>", "this", text)


def _of(argument):
    return argument.partition(": ")[2]


def fits(text, kind):
    """Whether a type of TypeScript may be what is made of the kind."""
    if match := re.fullmatch(r"\((.*?)\) => (.*)", text):
        return kind[0] == "callback" and all_fit([_of(part) for part in split(match[1])], kind[1]) \
            and fits(match[2], kind[2])
    text = split(text, "|")[0]
    if text.startswith("interop.Enum<"):
        return kind[0] == "int"
    if text == "unknown /* const array */":
        return kind[0] == "array"
    if kind[0] in ("int", "float"):
        return text == "number"
    if kind[0] in ("void", "bool"):
        return text == {"void": "void", "bool": "boolean"}[kind[0]]
    if kind == ("pointer", ("int", 8, True)) or kind[0] == "selector" or kind == ("object", "NSString"):
        return text == "string"
    if kind == ("object", None):
        return text in ("interop.Object", "NSObject", "this")
    if kind[0] == "object":
        return re.sub("<.*", "", text) in (kind[1], "this")
    if kind[0] == "record":
        return text.lower() == kind[1]
    if kind[0] == "opaque":
        return text in ("interop.Object", "interop.Pointer", "interop.PointerConvertible")
    if kind[0] == "pointer":
        return text in ("interop.Pointer", "interop.PointerConvertible") \
            or kind[1] is None and text == "interop.Object"
    return False


def all_fit(texts, some):
    return len(texts) == len(some) and all(map(fits, texts, some))
