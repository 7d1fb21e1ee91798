"""What the independent checkers share (none of it from the solver): integer operators,
where division truncates towards 0 and the remainder takes the dividend's sign, and
the s, o and v lines of an answer."""
import operator
import re


def trunc_div(a, b):
    q = abs(a) // abs(b)
    return q if (a >= 0) == (b >= 0) else -q


def trunc_mod(a, b):
    return a - b * trunc_div(a, b)


def int_literal(text):
    """Decimal, 0x hexadecimal, or a leading 0 read as octal up to the first other digit."""
    if text.startswith("0x"):
        return int(text, 16)
    if len(text) > 1 and text[0] == "0":
        digits = re.match(r"[0-7]*", text[1:]).group(0)
        return int(digits, 8) if digits else 0
    return int(text)


def _truth(f):
    return lambda a, b: int(f(a, b))


# Comparisons and connectives give 0 or 1; any value but 0 is true.
OPERATORS = {
    "+": operator.add, "-": operator.sub, "*": operator.mul, "min": min, "max": max,
    "==": _truth(operator.eq), "!=": _truth(operator.ne), "<": _truth(operator.lt),
    "<=": _truth(operator.le), ">": _truth(operator.gt), ">=": _truth(operator.ge),
    "&&": lambda a, b: int(a != 0 and b != 0), "||": lambda a, b: int(a != 0 or b != 0),
}


def answer(text):
    """(last status word or None, [(o value just before it or None, integers)] per v line)."""
    status, models, pending = None, [], None
    for line in text.splitlines():
        if line.startswith("s "):
            status = line[2:].strip()
        elif line.startswith("o "):
            pending = int(line.split()[1])
        elif line.startswith("v ") or line.rstrip() == "v":
            models.append((pending, [int(w) for w in line.split()[1:]]))
            pending = None
    return status, models
