#!/usr/bin/env python3
"""Independent checker of zelk's answers to a C-like model.

    c_like_checker.py MODEL.c < zelk-output

Every "v" line (the variables in declaration order) must give each variable a value
of its domain and each statement the value 1; an "o" line must be the objective of
the model after it; SATISFIABLE or OPTIMUM FOUND needs a model. The language, as
docs/c-like.md has it: integers without bound; any value but 0 is true; / truncates
towards zero, % has the dividend's sign, both give 0 for a divisor of 0; pow(0, 0) is
0; only the branch of ?: taken is evaluated; overlap(s1, l1, s2, l2) holds when
[s1, s1+l1) and [s2, s2+l2) are not apart; sub_interval(f1, t1, f2, t2[, k]) when
[f1, t1-k] is empty or within [f2, t2]. Exit status 0, 1 on a wrong model, 2 when the
model can't be read. parse_model and evaluate also serve the differential test.
"""
import re
import sys

from check_common import OPERATORS, answer, int_literal, trunc_div, trunc_mod

KEYWORDS = {"int", "bool", "unsigned", "abs", "pow", "minimize", "maximize", "min", "max"}
TOKEN = re.compile(r"""
    (?P<skip>[ \t\r\n]+|//[^\n]*|/\*.*?\*/)
  | (?P<hex>0x[0-9a-fA-F]+)
  | (?P<oct>0[0-9a-fA-F]+)
  | (?P<dec>0|[1-9][0-9]*)
  | (?P<name>[A-Za-z_][A-Za-z0-9_]*)
  | (?P<bad>\+\+|--)
  | (?P<op><=|>=|==|!=|&&|\|\||[-+*/%?:!<>{}(),;])
""", re.X | re.S)


class ModelError(Exception):
    pass


def tokenize(text):
    tokens, pos = [], 0
    while pos < len(text):
        m = TOKEN.match(text, pos)
        if not m:
            raise ModelError("unexpected character %r" % text[pos])
        pos = m.end()
        kind = m.lastgroup
        if kind == "skip":
            continue
        if kind == "bad":
            raise ModelError("operator %s is not in the language" % m.group())
        if kind in ("hex", "oct", "dec"):
            tokens.append(("num", int_literal(m.group())))
        elif kind == "name":
            word = m.group()
            tokens.append((word, word) if word in KEYWORDS else ("id", word))
        else:
            tokens.append((m.group(), m.group()))
    tokens.append(("eof", None))
    return tokens


# Binary operators: (level, associativity). Level 1 is ?:, 4 the prefix !.
BINARY = {"||": (2, "left"), "&&": (3, "left"),
          "==": (5, "none"), "!=": (5, "none"), "<": (5, "none"), ">": (5, "none"),
          "<=": (5, "none"), ">=": (5, "none"),
          "+": (6, "left"), "-": (6, "left"), "*": (7, "left"), "/": (7, "left"), "%": (7, "left")}


class Parser:
    def __init__(self, text):
        self.tokens = tokenize(text)
        self.pos = 0

    def peek(self):
        return self.tokens[self.pos][0]

    def take(self, kind=None):
        tok = self.tokens[self.pos]
        if kind is not None and tok[0] != kind:
            raise ModelError("expected %s, found %s" % (kind, tok[1]))
        self.pos += 1
        return tok[1]

    # An operator-precedence parse that reduces as the LALR grammar does.
    def expression(self, rbp=0):
        left = self.prefix()
        while True:
            op = self.peek()
            if op == "?":
                if rbp >= 1:
                    break
                self.take()
                middle = self.expression(0)
                self.take(":")
                left = ("if", left, middle, self.expression(1))
                continue
            if op not in BINARY:
                break
            level, assoc = BINARY[op]
            if level < rbp or (level == rbp and assoc == "left"):
                break
            if level == rbp:
                raise ModelError("comparison operators don't associate")
            self.take()
            left = (op, left, self.expression(level))
        return left

    def prefix(self):
        kind = self.peek()
        if kind == "!":
            self.take()
            return ("!", self.expression(4))
        if kind in ("-", "+"):
            self.take()
            operand = self.expression(8)
            if kind == "+":
                return operand
            if operand[0] == "const":
                return ("const", -operand[1])
            return ("neg", operand)
        if kind == "(":
            self.take()
            e = self.expression(0)
            self.take(")")
            return e
        if kind == "num":
            return ("const", self.take())
        if kind in ("abs", "min", "max", "pow"):
            self.take()
            args = self.arguments()
            if len(args) != (1 if kind == "abs" else 2):
                raise ModelError("wrong number of arguments of %s" % kind)
            return (kind,) + tuple(args)
        if kind == "id":
            name = self.take()
            if self.peek() == "(":
                return ("pred", name, self.arguments())
            return ("var", name)
        raise ModelError("unexpected %s" % (self.tokens[self.pos][1],))

    def arguments(self):
        self.take("(")
        args = [self.expression(0)]
        while self.peek() == ",":
            self.take()
            args.append(self.expression(0))
        self.take(")")
        return args

    def domain(self):
        kind = self.take()
        if kind == "bool":
            return set(range(2))
        if kind == "unsigned":
            if self.peek() == "int":
                self.take()
            return set(range(32))
        if self.peek() != "{":
            return set(range(32))
        self.take("{")
        values = set()
        while self.peek() != "}":
            parts = [self.signed()]
            while self.peek() == ":":
                self.take()
                parts.append(self.signed())
            if len(parts) == 1:
                values.add(parts[0])
            elif len(parts) == 2:
                values.update(range(parts[0], parts[1] + 1))
            else:
                values.update(range(parts[0], parts[2] + 1, parts[1]))
            if self.peek() == ",":
                self.take()
        self.take("}")
        return values

    def signed(self):
        if self.peek() == "-":
            self.take()
            return -self.take("num")
        return self.take("num")


def parse_model(text):
    """Returns (variables as [(name, domain)], objective (sense, tree) or None, constraints)."""
    p = Parser(text)
    variables, objective, constraints = [], None, []
    while p.peek() in ("int", "bool", "unsigned"):
        domain = p.domain()
        variables.append((p.take("id"), domain))
        while p.peek() == ",":
            p.take()
            variables.append((p.take("id"), domain))
        p.take(";")
    if p.peek() in ("minimize", "maximize"):
        sense = p.take()
        p.take("(")
        objective = (sense, p.expression(0))
        p.take(")")
        p.take(";")
    while p.peek() != "eof":
        constraints.append(p.expression(0))
        p.take(";")
    return variables, objective, constraints


def power(x, y):
    if y >= 0:
        return 0 if x == 0 and y == 0 else x ** y
    if x == 0:
        return 0
    return trunc_div(1, x ** -y)


def evaluate(e, values):
    kind = e[0]
    if kind == "const":
        return e[1]
    if kind == "var":
        return values[e[1]]
    if kind == "if":
        return evaluate(e[2] if evaluate(e[1], values) != 0 else e[3], values)
    if kind == "pred":
        return predicate(e[1], [evaluate(a, values) for a in e[2]])
    args = [evaluate(a, values) for a in e[1:]]
    if kind in ("/", "%"):
        return 0 if args[1] == 0 else (trunc_div if kind == "/" else trunc_mod)(*args)
    unary = {"!": lambda a: int(a == 0), "neg": lambda a: -a, "abs": abs, "pow": power}
    return unary[kind](*args) if kind in unary else OPERATORS[kind](*args)


def predicate(name, args):
    if name == "all_diff":
        return int(len(set(args)) == len(args))
    if name == "overlap" and len(args) == 4:
        s1, l1, s2, l2 = args
        return int(not (s1 + l1 <= s2 or s2 + l2 <= s1))
    if name == "sub_interval" and len(args) in (4, 5):
        f1, t1, f2, t2 = args[:4]
        k = args[4] if len(args) == 5 else 0
        return int(f1 > t1 - k or (f2 <= f1 and t1 - k <= t2))
    raise ModelError("predicate %s/%d has no meaning" % (name, len(args)))


def check(text, output):
    """Returns a list of problems; empty when every model of the output is right."""
    variables, objective, constraints = parse_model(text)
    problems = []
    status, models = answer(output)
    for k, (claimed, numbers) in enumerate(models, 1):
        if len(numbers) != len(variables):
            problems.append("model %d has %d values for %d variables"
                            % (k, len(numbers), len(variables)))
            continue
        values = {name: v for (name, _), v in zip(variables, numbers)}
        problems += ["model %d: %s = %d is outside its domain" % (k, name, values[name])
                     for name, domain in variables if values[name] not in domain]
        problems += ["model %d: statement %d doesn't hold" % (k, i + 1)
                     for i, c in enumerate(constraints) if evaluate(c, values) != 1]
        if claimed is not None and objective is not None:
            value = evaluate(objective[1], values)
            if value != claimed:
                problems.append("model %d: o %d, but the objective is %d" % (k, claimed, value))
    if status in ("SATISFIABLE", "OPTIMUM FOUND") and not models:
        problems.append("status %s without a model" % status)
    return problems


def main():
    if len(sys.argv) != 2:
        print("usage: c_like_checker.py MODEL < output")
        return 2
    try:
        with open(sys.argv[1]) as f:
            text = f.read()
        problems = check(text, sys.stdin.read())
    except (OSError, ModelError) as e:
        print("c_like_checker: %s" % e)
        return 2
    for p in problems:
        print(p)
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
