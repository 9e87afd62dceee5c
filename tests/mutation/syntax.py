"""Small wrong changes of a source file, made from clang's syntax tree of it, so that nothing in a
comment, a text or a macro is taken for code."""

import collections
import dataclasses
import json
import re
import sys

COMPARISONS = {"<": "<=", "<=": "<", ">": ">=", ">=": ">", "==": "!=", "!=": "=="}
LOGIC = {"&&": "||", "||": "&&"}
ARITHMETIC = {"+": "-", "-": "+", "*": "/", "/": "*", "%": "*", "<<": ">>", ">>": "<<", "&": "|", "|": "&",
              "+=": "-=", "-=": "+=", "*=": "/=", "/=": "*=", "<<=": ">>=", ">>=": "<<=", "|=": "&=", "&=": "|="}
STEPS = {"++": "--", "--": "++"}

FUNCTIONS = {"FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl", "CXXConversionDecl"}
WRAPPERS = {"ExprWithCleanups", "ImplicitCastExpr", "MaterializeTemporaryExpr", "CXXBindTemporaryExpr",
            "ConstantExpr"}
CALLS = {"CallExpr", "CXXMemberCallExpr"}
EXITS = {"ReturnStmt", "BreakStmt", "ContinueStmt"}
# What only takes memory early, and what takes its arguments in any order.
WITHOUT_EFFECT = {"reserve"}
SYMMETRIC = {"min", "max", "swap"}
# The name, by custom here, of what preconditions say.
SAID_BY_PRECONDITIONS = "OPERATION"

sys.setrecursionlimit(20_000)


@dataclasses.dataclass(frozen=True, order=True)
class Mutant:
    """A change of the bytes from begin to end of the file to the text. The rest is what tells it from
    others when lines have moved: the changed lines before and after, and the how manieth it is of
    those in the function that look the same."""

    file: str
    begin: int
    end: int
    text: bytes
    kind: str
    function: str
    line: int
    was: str
    becomes: str
    nth: int
    symbols: frozenset  # linker's names of the functions in which it is

    @property
    def key(self):
        return self.file, self.function, self.was, self.becomes, self.nth

    def applied_to(self, source):
        return source[:self.begin] + self.text + source[self.end:]

    def __str__(self):
        nth = f" (number {self.nth})" if self.nth > 1 else ""
        return (f"{self.file}:{self.line}: {self.kind} in {self.function}{nth}\n"
                f"  - {self.was}\n  + {self.becomes}")


def _blank(text):
    """The text with spaces for its comments."""
    return re.sub(rb"//[^\n]*|/\*.*?\*/", lambda found: b" " * len(found.group()), text, flags=re.DOTALL)


def _inner(node):
    return node.get("inner", ())


def _unwrapped(node):
    while node.get("kind") in WRAPPERS and len(_inner(node)) == 1:
        node = node["inner"][0]
    return node


def _reference(node):
    """The declaration that the expression names, or an empty one."""
    node = _unwrapped(node)
    return node.get("referencedDecl", node if node.get("kind") == "MemberExpr" else {})


class _Tree:
    """One tree of those that clang prints for a file, as it prints them."""

    def __init__(self):
        self._file = None

    def complete(self, value):
        """Writes into each place the file that clang leaves out where it is that of the place before."""
        if isinstance(value, list):
            for child in value:
                self.complete(child)
        elif isinstance(value, dict):
            if "offset" in value:
                self._file = value.setdefault("file", self._file)
            else:
                for name, child in value.items():
                    if name != "includedFrom":
                        self.complete(child)


class Finder:
    """Finds the changes of one file in the trees of clang's JSON."""

    def __init__(self, name, path, source, dump):
        self._name = name
        self._path = path
        self._source = source
        self._records = {}
        self._enumerators = {}
        self._found = {}
        self._function = ""
        self._symbols = frozenset()
        trees = self._trees(dump)
        for tree in trees:
            self._learn(tree, "")
        for tree in trees:
            self._visit(tree)

    @staticmethod
    def _trees(dump):
        decoder = json.JSONDecoder()
        trees = []
        at = 0
        while (begin := re.compile(r"\s*").match(dump, at).end()) < len(dump):
            tree, at = decoder.raw_decode(dump, begin)
            _Tree().complete(tree)
            trees.append(tree)
        return trees

    def mutants(self):
        """All of them, by their places."""
        count = collections.Counter()
        mutants = []
        for (begin, end, text), (kind, function, symbols) in sorted(self._found.items()):
            first = self._source.rfind(b"\n", 0, begin) + 1
            last = self._source.find(b"\n", end)
            before, after = self._source[first:begin], self._source[end:last]
            was = " ".join(self._source[first:last].decode().split())
            becomes = " ".join((before + text + after).decode().split())
            count[function, was, becomes] += 1
            mutants.append(Mutant(self._name, begin, end, text, kind, function,
                                  self._source.count(b"\n", 0, begin) + 1, was, becomes,
                                  count[function, was, becomes], frozenset(symbols)))
        return mutants

    # What the trees say about names.

    def _learn(self, node, scope):
        kind = node.get("kind")
        name = node.get("name", "")
        if kind in ("CXXRecordDecl", "ClassTemplateDecl"):
            scope = f"{scope}{name}::" if name and kind == "CXXRecordDecl" else scope
            self._records[node["id"]] = scope
        elif kind == "EnumDecl":
            values = [child for child in _inner(node) if child.get("kind") == "EnumConstantDecl"]
            for value, other in zip(values, values[1:] + values[:1]):
                self._enumerators[value["id"]] = other["name"]
        for child in _inner(node):
            self._learn(child, scope)

    def _span(self, node):
        """Begin and end of the node's text, or None where it is not as it stands in the file."""
        begin, end = (node.get("range", {}).get(side, {}) for side in ("begin", "end"))
        if not ("offset" in begin and "offset" in end and begin["file"] == end["file"] == self._path):
            return None
        span = begin["offset"], end["offset"] + end["tokLen"]
        return span if span[0] < span[1] else None

    def _text(self, node):
        span = self._span(node)
        return self._source[slice(*span)] if span else b""

    def _change(self, kind, begin, end, text):
        if not self._function or self._source[begin:end] == text:
            return
        entry = self._found.setdefault((begin, end, text), (kind, self._function, set()))
        entry[2].update(self._symbols)

    # The walk.

    def _visit(self, node):
        kind = node.get("kind")
        if kind == "StaticAssertDecl" or node.get("isImplicit"):
            return
        if kind == "VarDecl" and node.get("name") == SAID_BY_PRECONDITIONS:
            return
        if kind in FUNCTIONS and not self._is_inside_function():
            self._visit_function(node)
            return
        if kind == "VarDecl" and not self._is_inside_function():
            self._inside(node.get("name", ""), (), node)
            return
        visit = getattr(self, f"_visit_{kind}", None)
        if visit:
            visit(node)
        if kind == "CallExpr" and _reference(node["inner"][0]).get("name") == "precondition":
            # What it says is for whoever made the mistake.
            self._visit(node["inner"][1])
            return
        for child in _inner(node):
            # The value of a case is none of a condition.
            if not (kind == "CaseStmt" and child.get("kind") == "ConstantExpr"):
                self._visit(child)

    def _is_inside_function(self):
        return bool(self._function)

    def _inside(self, function, symbols, node):
        self._function, self._symbols = function, frozenset(symbols)
        for child in _inner(node):
            self._visit(child)
        self._function, self._symbols = "", frozenset()

    def _visit_function(self, node):
        scope = self._records.get(node.get("parentDeclContextId"), "")
        symbol = node.get("mangledName")
        body = next((child for child in _inner(node) if child.get("kind") == "CompoundStmt"), None)
        if body and _inner(body):
            # Nothing comes after it.
            body["inner"][-1]["isLast"] = True
        self._inside(scope + node.get("name", ""), [symbol] if symbol else [], node)

    # Operators.

    def _operator(self, begin, end, string=False):
        """Changes the operator that stands there."""
        token = self._source[begin:end].decode()
        for kind, others in (("comparison", COMPARISONS), ("logic", LOGIC), ("arithmetic", ARITHMETIC)):
            if token in others and not (kind == "arithmetic" and string):
                self._change(kind, begin, end, others[token].encode())

    def _visit_BinaryOperator(self, node):
        left, right = (self._span(child) for child in node["inner"])
        if not (left and right):
            return
        gap = _blank(self._source[left[1]:right[0]])
        opcode = node["opcode"].encode()
        if gap.strip() == opcode:
            begin = left[1] + gap.index(opcode)
            self._operator(begin, begin + len(opcode))

    _visit_CompoundAssignOperator = _visit_BinaryOperator

    def _visit_CXXOperatorCallExpr(self, node):
        span = self._span(_unwrapped(node["inner"][0]))
        if span and len(node["inner"]) == 3:
            types = str([child.get("type") for child in node["inner"][1:]] + [node.get("type")])
            self._operator(*span, string="basic_string" in types or "Text" in types)

    def _visit_UnaryOperator(self, node):
        span = self._span(node)
        if not span:
            return
        opcode = node["opcode"]
        if opcode == "!" and self._source[span[0]:span[0] + 1] == b"!" and \
                self._source[span[0] + 1:span[0] + 2] != b"=":
            self._change("condition", span[0], span[0] + 1, b"")
        elif opcode in STEPS:
            begin = span[1] - 2 if node.get("isPostfix") else span[0]
            if self._source[begin:begin + 2] == opcode.encode():
                self._change("arithmetic", begin, begin + 2, STEPS[opcode].encode())

    # Conditions.

    def _negate(self, condition):
        span = self._span(condition)
        if not span:
            return
        core = _unwrapped(condition)
        operator = core.get("opcode") or (
            self._text(_unwrapped(core["inner"][0])).decode() if core.get("kind") == "CXXOperatorCallExpr" else "")
        if core.get("kind") == "CXXRewrittenBinaryOperator" or operator in ("!", "==", "!="):
            # The operator's own change is the same.
            return
        self._change("condition", *span, b"!(" + self._source[slice(*span)] + b")")

    def _visit_IfStmt(self, node):
        if not (node.get("hasVar") or node.get("isConstexpr")):
            self._negate(node["inner"][1 if node.get("hasInit") else 0])

    def _visit_WhileStmt(self, node):
        if not node.get("hasVar"):
            self._negate(node["inner"][0])

    def _visit_ConditionalOperator(self, node):
        self._negate(node["inner"][0])

    # Constants.

    def _visit_IntegerLiteral(self, node):
        span = self._span(node)
        if not span:
            return
        found = re.fullmatch(r"(0[xX][0-9a-fA-F']+|[0-9']+)([uUlLzZ]*)", self._text(node).decode())
        if found:
            digits, suffix = found.groups()
            value = int(digits.replace("'", ""), 0) + 1
            self._change("constant", *span, f"{value:#x}{suffix}".encode() if digits[:2] in ("0x", "0X")
                         else f"{value}{suffix}".encode())

    def _visit_FloatingLiteral(self, node):
        if span := self._span(node):
            self._change("constant", *span, b"(" + self._text(node) + b" * 2)")

    def _visit_CXXBoolLiteralExpr(self, node):
        if span := self._span(node):
            self._change("constant", *span, b"false" if node["value"] else b"true")

    def _visit_CharacterLiteral(self, node):
        if span := self._span(node):
            self._change("constant", *span, b"'~'")

    def _visit_StringLiteral(self, node):
        if (span := self._span(node)) and self._source[span[1] - 1:span[1]] == b'"':
            self._change("text", span[1] - 1, span[1], b'~"')

    def _visit_DeclRefExpr(self, node):
        other = self._enumerators.get(node.get("referencedDecl", {}).get("id"))
        if other and (span := self._span(node)):
            self._change("constant", span[1] - node["range"]["end"]["tokLen"], span[1], other.encode())

    # Statements.

    def _statement_kind(self, statement):
        """What the statement is, if it is one that may be missing."""
        node = _unwrapped(statement)
        kind = node.get("kind")
        if not self._span(statement):
            return None
        if kind in CALLS:
            name = _reference(node["inner"][0]).get("name")
            return None if name == "precondition" or name in WITHOUT_EFFECT else "call"
        if kind == "CXXDeleteExpr":
            return "call"
        if kind in ("BinaryOperator", "CompoundAssignOperator", "UnaryOperator"):
            return "assignment"
        if kind == "CXXOperatorCallExpr":
            operator = self._text(_unwrapped(node["inner"][0]))
            return "call" if operator == b"(" else "assignment"
        return None

    def _visit_CompoundStmt(self, node):
        statements = _inner(node)
        kinds = [self._statement_kind(statement) for statement in statements]
        for number, (statement, kind) in enumerate(zip(statements, kinds)):
            span = self._span(statement)
            if kind:
                self._change(kind, *span, b"")
                if number > 0 and kinds[number - 1]:
                    first = self._span(statements[number - 1])
                    self._swap(first, span)
            elif span and statement["kind"] in EXITS and not statement.get("isLast"):
                self._change("exit", *span, b"")

    def _swap(self, first, second):
        if first[1] <= second[0]:
            self._change("order", first[0], second[1],
                         self._source[slice(*second)] + self._source[first[1]:second[0]] + self._source[slice(*first)])

    def _visit_call(self, node, arguments):
        callee = _reference(node["inner"][0]).get("name", "")
        if callee == "precondition" or callee in SYMMETRIC:
            return
        for first, second in zip(arguments, arguments[1:]):
            types = [argument.get("type", {}).get("qualType", "").replace("const ", "").rstrip(" &")
                     for argument in (first, second)]
            spans = self._span(first), self._span(second)
            if types[0] == types[1] != "" and all(spans):
                self._swap(*spans)

    def _visit_CallExpr(self, node):
        self._visit_call(node, node["inner"][1:])

    _visit_CXXMemberCallExpr = _visit_CallExpr
