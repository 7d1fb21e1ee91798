#!/usr/bin/env python3
"""Independent checker of answers to XCSP 2.1 documents; shares no code with the solver.

    xcsp_checker.py FILE.xml < solver_output

Every "v" line (values in declaration order, then 0 for each variable announced but
never declared) must lie in the domains and satisfy every constraint in plain integer
arithmetic; an "o" line must be the objective of the model after it, improving
strictly. Exits 0 when all holds and there was a model, else says what failed, exits 1.
"""
import re
import sys
import xml.etree.ElementTree as ET

from check_common import OPERATORS, answer, trunc_div, trunc_mod


def fail(message):
    print("xcsp_checker: " + message)
    sys.exit(1)


def power(a, b):
    return a ** b if b >= 0 else fail("pow with a negative exponent")


FUNCTIONS = {name: OPERATORS[op] for name, op in (
    ("add", "+"), ("sub", "-"), ("mul", "*"), ("min", "min"), ("max", "max"), ("eq", "=="),
    ("ne", "!="), ("ge", ">="), ("gt", ">"), ("le", "<="), ("lt", "<"), ("and", "&&"),
    ("or", "||"))}
FUNCTIONS.update({
    "neg": lambda a: -a, "abs": abs, "pow": power, "not": lambda a: int(a == 0),
    "div": lambda a, b: trunc_div(a, b) if b else fail("division by 0 in a model"),
    "mod": lambda a, b: trunc_mod(a, b) if b else fail("modulo by 0 in a model"),
    "xor": lambda a, b: int((a != 0) != (b != 0)),
    "iff": lambda a, b: int((a != 0) == (b != 0)),
})


def parse_functional(text):
    """A tree of tuples: ("call", name, args), ("int", v) or ("name", word)."""
    text = re.sub(r"\s+", "", text)
    pos = 0

    def expr():
        nonlocal pos
        m = re.compile(r"[A-Za-z_][A-Za-z0-9_]*|[+-]?\d+").match(text, pos)
        if not m:
            fail("bad expression at %r" % text[pos:pos + 20])
        pos = m.end()
        word = m.group(0)
        if pos < len(text) and text[pos] == "(":
            pos += 1
            args = [expr()]
            while text[pos] == ",":
                pos += 1
                args.append(expr())
            if text[pos] != ")":
                fail("bad expression at %r" % text[pos:pos + 20])
            pos += 1
            return ("call", word, args)
        if word[0].isdigit() or word[0] in "+-":
            return ("int", int(word))
        if word in ("true", "false"):
            return ("int", int(word == "true"))
        return ("name", word)

    tree = expr()
    if pos != len(text):
        fail("text after the expression: %r" % text[pos:])
    return tree


def evaluate(tree, env):
    kind = tree[0]
    if kind == "int":
        return tree[1]
    if kind == "name":
        return env[tree[1]]
    name, args = tree[1], tree[2]
    if name == "if":
        return evaluate(args[1] if evaluate(args[0], env) else args[2], env)
    if name not in FUNCTIONS:
        fail("unknown function " + name)
    return FUNCTIONS[name](*[evaluate(a, env) for a in args])


def parameter_tokens(element):
    """The words of a <parameters> element, with <eq/> and the like as "<eq>"."""
    words = []

    def split(text):
        if text:
            words.extend(re.findall(r"[\[\]{}]|[^\s\[\]{}]+", text))

    split(element.text)
    for child in element:
        words.append("<" + child.tag + ">")
        split(child.tail)
    return words


def domain_values(text):
    values = set()
    for word in text.split():
        if ".." in word:
            lo, hi = word.split("..")
            values.update(range(int(lo), int(hi) + 1))
        else:
            values.add(int(word))
    return values


class instance:
    def __init__(self, path):
        root = ET.parse(path).getroot()
        self.domains = {d.get("name"): domain_values(d.text or "") for d in root.iter("domain")}
        self.variables = [(v.get("name"), v.get("domain")) for v in root.iter("variable")]
        announced = root.find("variables")
        self.announced = int(announced.get("nbVariables", len(self.variables))) if announced is not None else 0
        self.relations = {}
        for r in root.iter("relation"):
            tuples = {tuple(int(x) for x in t.split()) for t in (r.text or "").split("|") if t.strip()}
            self.relations[r.get("name")] = (r.get("semantics") == "supports", tuples)
        self.predicates = {}
        for p in root.iter("predicate"):
            formal = (p.find("parameters").text or "").split()[1::2]
            functional = p.find("expression/functional")
            if functional is None:
                fail("predicate %s has no functional expression" % p.get("name"))
            self.predicates[p.get("name")] = (formal, parse_functional(functional.text))
        self.constraints = list(root.iter("constraint"))
        self.objective = None

    def check(self, values):
        names = [n for n, _ in self.variables]
        if len(values) != max(self.announced, len(names)):
            return "%d values for %d variables" % (len(values), max(self.announced, len(names)))
        if any(v != 0 for v in values[len(names):]):
            return "an undeclared variable is not 0"
        env = dict(zip(names, values))
        for name, domain in self.variables:
            if env[name] not in self.domains[domain]:
                return "%s=%d outside its domain" % (name, env[name])
        for c in self.constraints:
            if not self.satisfied(c, env):
                return "constraint %s is violated" % c.get("name")
        return None

    def value_of(self, word, env):
        return int(word) if re.fullmatch(r"[+-]?\d+", word) else env[word]

    def satisfied(self, c, env):
        reference = c.get("reference")
        scope = c.get("scope").split()
        if reference.lower() == "global:alldifferent":
            vals = [env[v] for v in scope]
            return len(set(vals)) == len(vals)
        parameters = c.find("parameters")
        if reference.lower() == "global:weightedsum":
            words = parameter_tokens(parameters)
            terms = re.findall(r"\{ (\S+) (\S+) \}", " ".join(words))
            relation, bound = words[-2], int(words[-1])
            if c.get("name", "").startswith(("Optimize:minimize", "Optimize:maximize")) and \
                    len(terms) == 1 and int(terms[0][0]) == 0:
                self.objective = (terms[0][1], c.get("name").startswith("Optimize:minimize"))
                return True
            total = sum(int(k) * self.value_of(v, env) for k, v in terms)
            return {"<eq>": total == bound, "<ne>": total != bound, "<ge>": total >= bound,
                    "<gt>": total > bound, "<le>": total <= bound, "<lt>": total < bound}[relation]
        if reference in self.relations:
            supports, tuples = self.relations[reference]
            return (tuple(env[v] for v in scope) in tuples) == supports
        if reference in self.predicates:
            formal, tree = self.predicates[reference]
            actual = [w for w in parameter_tokens(parameters) if w not in "[]{}"]
            if len(actual) != len(formal):
                fail("constraint %s passes %d parameters to %d" % (c.get("name"), len(actual), len(formal)))
            return evaluate(tree, {f: self.value_of(a, env) for f, a in zip(formal, actual)}) != 0
        fail("constraint %s: unknown reference %s" % (c.get("name"), reference))


def main():
    if len(sys.argv) != 2:
        fail("usage: xcsp_checker.py FILE.xml < solver_output")
    model = instance(sys.argv[1])
    last = None
    models = answer(sys.stdin.read())[1]
    for k, (claimed, values) in enumerate(models):
        problem = model.check(values)
        if problem:
            fail("model %d: %s" % (k + 1, problem))
        if claimed is None:
            continue
        if model.objective is None:
            fail("an 'o' line for a document without objective")
        var, minimize = model.objective
        actual = values[[n for n, _ in model.variables].index(var)]
        if actual != claimed:
            fail("'o %d' but the objective is %d" % (claimed, actual))
        if last is not None and (claimed >= last if minimize else claimed <= last):
            fail("'o %d' does not improve on %d" % (claimed, last))
        last = claimed
    if not models:
        fail("no model")
    print("xcsp_checker: %d model(s) verified" % len(models))


if __name__ == "__main__":
    main()
