"""What a declaration is made of, so that three languages can be held against each other.

A kind is a tuple: its first element says what it is, the others of what.

    ("void",)  ("bool",)  ("int", bits, signed)  ("float", bits)
    ("pointer", kind)     kind None: to anything
    ("opaque", name)      a reference to what nobody looks into, by its name in small letters
    ("object", class)     class None: of any class
    ("selector",)  ("class",)
    ("record", name)      by value
    ("array", number, kind)
    ("callback", (kinds of the arguments), kind of the result)
    ("unknown", text)     agrees with nothing
"""

VOID = ("void",)
BOOL = ("bool",)
POINTER = ("pointer", None)
CHARACTERS = ("pointer", ("int", 8, True))


def integer(bits, signed):
    return ("int", bits, signed)


def is_address(kind):
    return kind[0] in ("pointer", "opaque", "object", "callback", "selector", "class")


def agree(one, other):
    """Whether two kinds may describe the same thing."""
    if one == other:
        return one[0] != "unknown"
    if POINTER in (one, other):
        return is_address(one) and is_address(other)
    if one[0] != other[0] or len(one) != len(other):
        return False
    if one[0] == "pointer":
        return agree(one[1], other[1])
    if one[0] == "object":
        return None in (one[1], other[1])
    if one[0] == "array":
        return one[1] == other[1] and agree(one[2], other[2])
    if one[0] == "callback":
        return all_agree(one[1], other[1]) and agree(one[2], other[2])
    return False


def all_agree(some, others):
    return len(some) == len(others) and all(map(agree, some, others))


def shown(kind):
    """The kind as a person reads it."""
    if kind[0] == "int":
        return f"{'' if kind[2] else 'u'}int{kind[1]}"
    if kind[0] == "float":
        return f"float{kind[1]}"
    if kind[0] == "pointer":
        return f"pointer to {shown(kind[1])}" if kind[1] else "pointer"
    if kind[0] == "array":
        return f"{kind[1]} of {shown(kind[2])}"
    if kind[0] == "callback":
        return signature(kind[1], kind[2])
    return " ".join(str(part) for part in kind if part is not None)


def signature(arguments, result):
    return f"({', '.join(map(shown, arguments))}) -> {shown(result)}"
