#!/usr/bin/env python3
"""Randomised differential test of zelk's XCSP 2.1 answers.

Random documents of 2 to 6 variables (--large: 6 to 12, mostly binary tables, for more
search): extension constraints weighted towards the binary shapes the loader turns
into (dis)equalities, intension predicates shared between constraints, alldifferent,
weightedsum, an objective. Brute force in plain integer arithmetic gives the status,
optimum and (when few) the solutions; every answer must agree, pass xcsp_checker, and
-d must print exactly the solutions. "s UNSUPPORTED" (values outside 0..31) is a
refusal by design, counted by reason; more than a quarter refused fails the run.
"""
import itertools
import math
import os
import random
import re
import subprocess
import sys

import difftest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools"))
from check_common import trunc_div, trunc_mod  # noqa: E402,F401  (in the compiled tests)

# -a twice: cliques of disequalities without the all-different constraint deduced from them.
OPTION_SETS = difftest.OPTION_SETS + [["-a", "-a"]]
VAR_NAMES = ["X", "Y", "Z", "x1", "x2", "q0", "q1", "s0_1", "V", "w_2", "a", "b", "T", "u9",
             "P0", "P1"]
CMP_OPS = ["eq", "ne", "lt", "le", "gt", "ge"]
SUM_OPS = ["eq", "ge", "gt", "le", "lt"]

# ---- documents -----------------------------------------------------------------------
# An expression is ("int", v), ("par", i) for the i-th formal parameter, or
# (op, [arguments]). A constraint is a dict with "kind" ext, int, alldiff or wsum.

class Document:
    def __init__(self):
        self.domains = []          # sorted value lists
        self.variables = []        # (name, domain index)
        self.dummies = 0           # announced by nbVariables, never declared
        self.relations = []        # (arity, "supports"/"conflicts", sorted tuples)
        self.predicates = []       # (formal names, expression)
        self.constraints = []
        self.objective = None      # (variable, minimize, position among the constraints)
        self.large = False         # looser relations, so that more of them fit

    def values(self, v):
        return self.domains[self.variables[v][1]]

    def name(self, v):
        return self.variables[v][0]

    def scope(self, c):
        if c["kind"] == "int":
            seen = list(dict.fromkeys(x for kind, x in c["args"] if kind == "var"))
            return seen[::-1] if c.get("reversed_scope") else seen
        if c["kind"] == "wsum":
            return list(dict.fromkeys(v for _, v in c["terms"]))
        return c["scope"]

    def text(self):
        out = ['<?xml version="1.0" encoding="UTF-8"?>', "<instance>",
               '<presentation name="differential" format="XCSP 2.1"/>',
               '<domains nbDomains="%d">' % len(self.domains)]
        out += ['<domain name="D%d" nbValues="%d">%s</domain>' % (i, len(values),
                                                                 domain_text(values))
                for i, values in enumerate(self.domains)]
        out += ["</domains>", '<variables nbVariables="%d">' % (len(self.variables) + self.dummies)]
        out += ['<variable name="%s" domain="D%d"/>' % v for v in self.variables]
        out.append("</variables>")
        rels = sorted({c["rel"] for c in self.constraints if c["kind"] == "ext"})
        if rels:
            out.append('<relations nbRelations="%d">' % len(rels))
            out += ['<relation name="R%d" arity="%d" nbTuples="%d" semantics="%s">%s</relation>'
                    % (r, self.relations[r][0], len(self.relations[r][2]), self.relations[r][1],
                       "|".join(" ".join(map(str, t)) for t in self.relations[r][2]))
                    for r in rels]
            out.append("</relations>")
        preds = sorted({c["pred"] for c in self.constraints if c["kind"] == "int"})
        if preds:
            out.append('<predicates nbPredicates="%d">' % len(preds))
            for p in preds:
                formal, expr = self.predicates[p]
                out += ['<predicate name="PR%d">' % p,
                        "<parameters>%s</parameters>" % " ".join("int " + f for f in formal),
                        "<expression><functional>%s</functional></expression>"
                        % expr_text(expr, formal), "</predicate>"]
            out.append("</predicates>")
        rows = [self.constraint_text(i, c) for i, c in enumerate(self.constraints)]
        if self.objective is not None:
            v, minimize, pos = self.objective
            rows.insert(min(pos, len(rows)),
                        '<constraint name="Optimize:%s" arity="1" scope="%s" '
                        'reference="global:weightedsum"><parameters>[ { 0 %s } ] <eq/> 0'
                        '</parameters></constraint>'
                        % ("minimize" if minimize else "maximize", self.name(v), self.name(v)))
        out += ['<constraints nbConstraints="%d">' % len(rows)] + rows
        out += ["</constraints>", "</instance>"]
        return "\n".join(out) + "\n"

    def constraint_text(self, i, c):
        scope = self.scope(c)
        head = '<constraint name="C%d" arity="%d" scope="%s"' % (
            i, len(scope), " ".join(self.name(v) for v in scope))
        kind = c["kind"]
        if kind == "ext":
            return head + ' reference="R%d"/>' % c["rel"]
        if kind == "int":
            return head + ' reference="PR%d"><parameters>%s</parameters></constraint>' % (
                c["pred"], " ".join(self.name(x) if k == "var" else str(x)
                                    for k, x in c["args"]))
        if kind == "alldiff":
            ref = ' reference="%s"' % c["spelling"]
            if not c["with_parameters"]:
                return head + ref + "/>"
            return head + ref + "><parameters>[ %s ]</parameters></constraint>" % " ".join(
                self.name(v) for v in scope)
        terms = " ".join("{ %d %s }" % (k, self.name(v)) for k, v in c["terms"])
        return head + ' reference="global:weightedsum"><parameters>[ %s ] <%s/> %d' \
                      '</parameters></constraint>' % (terms, c["op"], c["bound"])


def domain_text(values):
    """Values as runs: 0..3 5 7..8, so that both forms occur."""
    words = []
    i = 0
    while i < len(values):
        j = i
        while j + 1 < len(values) and values[j + 1] == values[j] + 1:
            j += 1
        if j - i >= 2 or (j > i and values[i] % 2):
            words.append("%d..%d" % (values[i], values[j]))
        else:
            words += [str(v) for v in values[i:j + 1]]
        i = j + 1
    return " ".join(words)


def expr_text(e, formal):
    if e[0] == "int":
        return str(e[1])
    if e[0] == "par":
        return formal[e[1]]
    return "%s(%s)" % (e[0], ",".join(expr_text(a, formal) for a in e[1]))


# ---- value ranges, as zelk's loader sees them -----------------------------------------
# zelk refuses a sum that can exceed 31 and a difference that can be negative (outside
# abs), judged on the domains of the operands; a compound operand lives in an auxiliary
# variable over 0..31, and add(X,X) becomes a product, which it does not propagate yet.

def is_leaf(e):
    return e[0] in ("int", "par")


def int_range(e, ranges):
    """(lo, hi, fits): bounds of an integer expression, and whether zelk takes it."""
    if e[0] == "int":
        return e[1], e[1], True
    if e[0] == "par":
        lo, hi = ranges[e[1]]
        return lo, hi, True
    op, args = e
    if op == "if":
        a, b = int_range(args[1], ranges), int_range(args[2], ranges)
        return min(a[0], b[0]), max(a[1], b[1]), bool_fits(args[0], ranges) and a[2] and b[2]
    if op == "abs":
        lo, hi, fits = difference_range(args[0], ranges)     # abs only of a difference
        if lo >= 0:
            return lo, hi, fits
        if hi <= 0:
            return -hi, -lo, fits
        return 0, max(-lo, hi), fits
    if op in ("mul", "div", "mod", "min", "max"):
        a, b = int_range(args[0], ranges), int_range(args[1], ranges)
        fits = a[2] and b[2]
        if op == "mul":
            return a[0] * b[0], a[1] * b[1], fits and a[0] >= 0 and b[0] >= 0 and a[1] * b[1] <= 31
        if op in ("min", "max"):
            f = min if op == "min" else max
            return f(a[0], b[0]), f(a[1], b[1]), fits
        if b[0] < 1 or a[0] < 0:
            return 0, 31, False
        if op == "div":
            return a[0] // b[1], a[1] // b[0], fits
        return 0, min(a[1], b[1] - 1), fits
    a, b = int_range(args[0], ranges), int_range(args[1], ranges)
    seen = [(a[0], a[1]) if is_leaf(args[0]) else (0, 31),
            (b[0], b[1]) if is_leaf(args[1]) else (0, 31)]
    if op == "add":
        same = args[0] == args[1] and args[0][0] == "par"
        return (a[0] + b[0], a[1] + b[1],
                a[2] and b[2] and not same and seen[0][1] + seen[1][1] <= 31)
    lo, hi, fits = difference_range(e, ranges)
    return lo, hi, fits and (seen[0][0] >= seen[1][1] or args[0] == args[1])


def difference_range(e, ranges):
    a, b = int_range(e[1][0], ranges), int_range(e[1][1], ranges)
    return a[0] - b[1], a[1] - b[0], a[2] and b[2]


def bool_fits(e, ranges):
    op, args = e
    if op in CMP_OPS:
        return int_range(args[0], ranges)[2] and int_range(args[1], ranges)[2]
    return all(bool_fits(a, ranges) for a in args)


def arg_ranges(doc, args):
    return [(min(doc.values(x)), max(doc.values(x))) if k == "var" else (x, x)
            for k, x in args]


# ---- generation ----------------------------------------------------------------------

def near_constant(rng, ranges):
    """A constant in reach of the parameters, so that comparisons are not all decided."""
    if rng.random() < 0.3:
        return rng.randint(0, 6)
    lo, hi = rng.choice(ranges)
    return rng.randint(lo, min(31, hi + 1))


def gen_leaf(rng, ranges):
    if rng.random() < 0.8:
        i = rng.randrange(len(ranges))
        return ("par", i), ranges[i][0], ranges[i][1]
    v = near_constant(rng, ranges)
    return ("int", v), v, v


def gen_operand(rng, depth, ranges):
    """Mostly a leaf: zelk takes a compound operand of add or sub as 0..31."""
    return gen_leaf(rng, ranges) if rng.random() < 0.85 else gen_int(rng, depth, ranges)


def gen_int(rng, depth, ranges):
    """(expression, lo, hi), keeping sums and differences in range most of the time."""
    if depth <= 0 or rng.random() < 0.35:
        return gen_leaf(rng, ranges)
    r = rng.random()
    if r < 0.3:
        a, alo, ahi = gen_operand(rng, depth - 1, ranges)
        b, blo, bhi = gen_operand(rng, depth - 1, ranges)
        if rng.random() < 0.9 and ahi <= 31 and (ahi + bhi > 31 or a == b):
            v = rng.randint(0, min(6, 31 - ahi))
            b, blo, bhi = ("int", v), v, v
        return ("add", [a, b]), alo + blo, ahi + bhi
    if r < 0.5:
        a, alo, ahi = gen_operand(rng, depth - 1, ranges)
        b, blo, bhi = gen_operand(rng, depth - 1, ranges)
        if alo < bhi and rng.random() < 0.9:
            below = [i for i, (lo, hi) in enumerate(ranges) if hi <= alo and ("par", i) != a]
            if below and rng.random() < 0.6:
                i = rng.choice(below)
                b, blo, bhi = ("par", i), ranges[i][0], ranges[i][1]
            elif alo >= 0 and rng.random() < 0.7:
                v = rng.randint(0, min(alo, 31))
                b, blo, bhi = ("int", v), v, v
            else:
                e = ("abs", [("sub", [a, b])])
                lo, hi, _ = int_range(e, ranges)
                return e, lo, hi
        return ("sub", [a, b]), alo - bhi, ahi - blo
    if r < 0.6:
        a = gen_operand(rng, depth - 1, ranges)[0]
        b = gen_operand(rng, depth - 1, ranges)[0]
        e = ("abs", [("sub", [a, b])])
        lo, hi, _ = int_range(e, ranges)
        return e, lo, hi
    if r < 0.85:
        return gen_nonlinear(rng, depth, ranges)
    c = gen_bool(rng, depth - 1, ranges)
    a, alo, ahi = gen_int(rng, depth - 1, ranges)
    b, blo, bhi = gen_int(rng, depth - 1, ranges)
    return ("if", [c, a, b]), min(alo, blo), max(ahi, bhi)


def gen_nonlinear(rng, depth, ranges):
    """mul, div, mod, min or max over operands in range: a product kept at most 31,
    a divisor that cannot be 0 (zelk refuses the others)."""
    op = rng.choice(["mul", "div", "mod", "min", "max"])
    a, alo, ahi = gen_operand(rng, depth - 1, ranges)
    b, blo, bhi = gen_operand(rng, depth - 1, ranges)
    if op in ("min", "max"):
        f = min if op == "min" else max
        return (op, [a, b]), f(alo, blo), f(ahi, bhi)
    if op == "mul":
        if alo < 0 or blo < 0 or ahi * bhi > 31:
            v = rng.randint(0, 3)
            b, blo, bhi = ("int", v), v, v
            if alo < 0 or ahi * v > 31:
                a, alo, ahi = gen_leaf(rng, ranges)
                if ahi * v > 31:
                    b, blo, bhi = ("int", 1), 1, 1
        return ("mul", [a, b]), alo * blo, ahi * bhi
    if blo < 1:
        v = rng.randint(1, 5)
        b, blo, bhi = ("int", v), v, v
    if alo < 0:
        a, alo, ahi = gen_leaf(rng, ranges)
    if op == "div":
        return ("div", [a, b]), alo // bhi, ahi // blo
    return ("mod", [a, b]), 0, min(ahi, bhi - 1)


def gen_bool(rng, depth, ranges):
    r = rng.random()
    if depth <= 0 or r < 0.5:
        a = gen_int(rng, depth - 1, ranges)[0]
        b = gen_int(rng, depth - 1, ranges)[0]
        if a[0] == "int" and b[0] == "int":
            a = ("par", rng.randrange(len(ranges)))
        if a == b and a[0] == "par" and len(ranges) > 1:
            b = ("par", (a[1] + rng.randint(1, len(ranges) - 1)) % len(ranges))
        return (rng.choice(CMP_OPS + ["ne", "le", "ge"]), [a, b])
    if r < 0.85:
        return (rng.choice(["and", "or", "or", "xor", "iff"]),
                [gen_bool(rng, depth - 1, ranges), gen_bool(rng, depth - 1, ranges)])
    if r < 0.95:
        return ("not", [gen_bool(rng, depth - 1, ranges)])
    return ("if", [gen_bool(rng, depth - 1, ranges) for _ in range(3)])


def random_args(rng, doc, k):
    """k actual parameters: mostly variables, some constants, a repeat now and then."""
    n = len(doc.variables)
    fresh = rng.sample(range(n), n)
    args = []
    for _ in range(k):
        if rng.random() < 0.2:
            args.append(("const", rng.randint(0, 6)))
        elif args and (rng.random() < (0 if doc.large else 0.1) or not fresh):
            args.append(rng.choice(args))
        else:
            args.append(("var", fresh.pop()))
    if not any(kind == "var" for kind, _ in args):
        args[rng.randrange(k)] = ("var", rng.randrange(n))
    return args


def gen_intension(rng, doc):
    """A new predicate, or a known one with other actual parameters."""
    if doc.predicates and rng.random() < 0.4:
        p = rng.randrange(len(doc.predicates))
        formal, expr = doc.predicates[p]
        for _ in range(20):
            if rng.random() < 0.5:
                args = random_args(rng, doc, len(formal))
            else:
                prev = [c["args"] for c in doc.constraints if c.get("pred") == p]
                args = list(rng.choice(prev)) if prev else random_args(rng, doc, len(formal))
                rng.shuffle(args)
            if bool_fits(expr, arg_ranges(doc, args)) or rng.random() < 0.05:
                return dict(kind="int", pred=p, args=args)
    k = rng.choice([1, 2, 2, 3, 3, 4])
    args = random_args(rng, doc, k)
    ranges = arg_ranges(doc, args)
    for _ in range(20):
        expr = gen_bool(rng, rng.randint(1, 3), ranges)
        if bool_fits(expr, ranges) or rng.random() < 0.05:
            break
    if rng.random() < 0.04:
        # a value outside 0..31: refused, or else answered in plain arithmetic
        i = rng.randrange(k)
        leaving = rng.choice([("sub", [("int", ranges[i][0]), ("par", i)]),
                              ("add", [("par", i), ("int", 31 - ranges[i][1] + 1)])])
        expr = (rng.choice(CMP_OPS), [leaving, gen_leaf(rng, ranges)[0]])
    r = rng.random()
    if r < 0.6:
        formal = ["P%d" % i for i in range(k)]
    elif r < 0.8:
        formal = ["A", "B", "C", "D"][:k]
    else:
        # formal names that are also variable names, in another order
        pool = [name for name, _ in doc.variables] + ["Q%d" % i for i in range(k)]
        formal = rng.sample(pool, k)
    doc.predicates.append((formal, expr))
    c = dict(kind="int", pred=len(doc.predicates) - 1, args=args)
    if rng.random() < 0.3:
        c["reversed_scope"] = True             # a scope in any order names the same
    return c


def value_set(rng, doc, v):
    """Values for a shape over variable v: its domain, a part of it, or more."""
    values = set(doc.values(v))
    r = rng.random()
    if r < 0.5:
        return sorted(values)
    if r < 0.8 and len(values) > 1:
        return sorted(rng.sample(sorted(values), rng.randint(1, len(values) - 1)))
    extra = {rng.choice([rng.randint(0, 8), 31]) for _ in range(rng.randint(1, 2))}
    return sorted(values | extra)


def gen_relation(rng, doc, scope):
    arity = len(scope)
    semantics = "supports" if rng.random() < 0.5 else "conflicts"
    tuples = set()
    r = rng.random() if not doc.large else 0.5 + rng.random() / 2
    if r < 0.08:
        pass                                           # empty relation
    elif arity == 2 and r < 0.55:
        s = value_set(rng, doc, rng.choice(scope))
        shape = rng.choice(["diagonal", "distinct_pairs", "all_different", "equal_pairs_plus"])
        if shape == "diagonal":
            tuples = {(v, v) for v in s}
        elif shape == "distinct_pairs":
            tuples = {(a, b) for a in s for b in s if a != b}
        elif shape == "all_different":
            pairs = [(a, b) for a in doc.values(scope[0]) for b in doc.values(scope[1]) if a != b]
            tuples = set(rng.sample(pairs, rng.randint(0, len(pairs)))) if pairs else set()
        else:
            tuples = {(v, v) for v in s}
            tuples |= {(a, b) for a in s for b in s if rng.random() < 0.2}
        if rng.random() < 0.15 and tuples:             # one tuple too few or too many
            if rng.random() < 0.5:
                tuples.discard(rng.choice(sorted(tuples)))
            else:
                tuples.add((rng.randint(0, 7), rng.randint(0, 7)))
    else:
        extra = 0 if doc.large else 0.3
        columns = [sorted(set(doc.values(v)) | ({rng.randint(0, 9)} if rng.random() < extra
                                                else set())) for v in scope]
        density = rng.uniform(0.4, 0.9) if semantics == "supports" else rng.uniform(0.1, 0.5)
        if doc.large:
            density = rng.uniform(0.65, 0.8) if semantics == "supports" else rng.uniform(0.2, 0.35)
        tuples = {t for t in itertools.product(*columns) if rng.random() < density}
    doc.relations.append((arity, semantics, sorted(tuples)))
    return len(doc.relations) - 1


def gen_extension(rng, doc):
    n = len(doc.variables)
    if doc.relations and rng.random() < 0.35:
        r = rng.randrange(len(doc.relations))
        arity = doc.relations[r][0]
        if arity <= n:
            return dict(kind="ext", rel=r, scope=rng.sample(range(n), arity))
    arity = rng.choice([1, 2, 2, 2, 3]) if n >= 3 else rng.choice([1, 2, 2])
    if doc.large:
        arity = 2 if rng.random() < 0.9 else 3
    scope = rng.sample(range(n), arity)
    return dict(kind="ext", rel=gen_relation(rng, doc, scope), scope=scope)


def gen_ne_clique(rng, doc):
    """Pairwise disequalities over 3 or 4 variables, each written in one of the forms
    the loader turns into a disequality, so that all-different detection has work.
    Returns the constraints."""
    n = len(doc.variables)
    group = rng.sample(range(n), rng.randint(3, min(4, n)))
    out = []
    for x, y in itertools.combinations(group, 2):
        form = rng.random()
        if form < 0.4:
            doc.predicates.append((["P0", "P1"], ("ne", [("par", 0), ("par", 1)])))
            out.append(dict(kind="int", pred=len(doc.predicates) - 1,
                            args=[("var", x), ("var", y)]))
        else:
            s = sorted(set(doc.values(x)) | set(doc.values(y)))
            if form < 0.7:
                doc.relations.append((2, "conflicts", [(v, v) for v in s]))
            else:
                doc.relations.append((2, "supports", [(a, b) for a in s for b in s if a != b]))
            out.append(dict(kind="ext", rel=len(doc.relations) - 1, scope=[x, y]))
    return out


def gen_alldiff(rng, doc):
    # From 4 variables on the loader posts the global constraint beside the
    # disequalities: scopes reach 6, as far as the documents go.
    n = len(doc.variables)
    scope = rng.sample(range(n), rng.randint(2, min(6, n)))
    spelling = rng.choice(["global:alldifferent", "global:alldifferent", "global:allDifferent"])
    return dict(kind="alldiff", scope=scope, spelling=spelling,
                with_parameters=rng.random() < 0.6)


def sum_bounds(doc, terms):
    lo = sum(k * (min(doc.values(v)) if k > 0 else max(doc.values(v))) for k, v in terms)
    hi = sum(k * (max(doc.values(v)) if k > 0 else min(doc.values(v))) for k, v in terms)
    return lo, hi


def gen_wsum(rng, doc):
    n = len(doc.variables)
    terms = []
    for v in rng.sample(range(n), rng.randint(1, min(4, n))):
        k = rng.choice([-3, -2, -1, -1, 1, 1, 1, 2, 3, 4])
        terms.append((0 if rng.random() < 0.03 else k, v))
    if rng.random() < 0.08:
        terms.append((rng.choice([-1, 1, 2]), terms[0][1]))   # a variable twice
    op = "ne" if rng.random() < 0.02 else rng.choice(SUM_OPS)
    lo, hi = sum_bounds(doc, terms)
    if doc.large:
        op = rng.choice(["ge", "le"])
        bound = (lo + hi) // 2 + rng.randint(-1, 1)
        return dict(kind="wsum", terms=terms, op=op, bound=bound)
    if op == "eq" and rng.random() < 0.7:
        bound = sum(k * rng.choice(doc.values(v)) for k, v in terms)
    else:
        bound = rng.randint(lo - 1, hi + 1)
    return dict(kind="wsum", terms=terms, op=op, bound=bound)


def gen_domain(rng, large):
    if large:
        lo = rng.randint(0, 3)
        return sorted(rng.sample(range(lo, lo + 9), rng.randint(4, 6)))
    if rng.random() < 0.08:
        return [rng.randint(0, 6)]
    r = rng.random()
    if r < 0.45:
        lo = rng.randint(0, 2)
        return list(range(lo, lo + rng.randint(2, 5)))
    if r < 0.85:
        return sorted(rng.sample(range(7), rng.randint(2, 5)))
    if r < 0.93:
        lo = rng.randint(24, 29)
        return list(range(lo, min(31, lo + rng.randint(1, 4)) + 1))
    return sorted({rng.randint(0, 31) for _ in range(rng.randint(1, 4))})


def add_objective(rng, doc):
    """Either an existing variable, or a new one tied to others by a weighted sum or
    by a predicate; the Optimize constraint goes anywhere among the others."""
    n = len(doc.variables)
    minimize = rng.random() < 0.5
    r = rng.random()
    if r < 0.35:
        obj = rng.randrange(n)
    else:
        terms = [(rng.choice([1, 1, 2, 3]), v) for v in rng.sample(range(n), rng.randint(1, min(3, n)))]
        lo, hi = sum_bounds(doc, terms)
        while hi > 31:
            terms.pop()
            lo, hi = sum_bounds(doc, terms)
        if not terms:
            obj = rng.randrange(n)
        else:
            top = min(31, hi + rng.randint(0, 3))
            doc.domains.append(list(range(max(0, lo - rng.randint(0, 2)), top + 1)))
            names = {name for name, _ in doc.variables}
            name = next(x for x in ["obj", "cost", "O", "makespan", "z9"] if x not in names)
            doc.variables.append((name, len(doc.domains) - 1))
            obj = len(doc.variables) - 1
            if r < 0.75 or len(terms) > 2:
                op = rng.choice(["eq", "eq", "ge", "le"])
                doc.constraints.insert(rng.randint(0, len(doc.constraints)), dict(
                    kind="wsum", terms=[(1, obj)] + [(-k, v) for k, v in terms], op=op,
                    bound=0))
            else:
                # obj = x1 (+ x2) written as an intension
                body = ("add", [("par", 1), ("par", 2)]) if len(terms) == 2 else ("par", 1)
                args = [("var", obj)] + [("var", v) for _, v in terms]
                doc.predicates.append((["P%d" % i for i in range(len(args))],
                                       ("eq", [("par", 0), body])))
                doc.constraints.insert(rng.randint(0, len(doc.constraints)), dict(
                    kind="int", pred=len(doc.predicates) - 1, args=args))
    doc.objective = (obj, minimize, rng.randint(0, len(doc.constraints)))


def generate(seed, large=False):
    """The document of a seed; large ones have more variables, values and constraints,
    so that the search meets more conflicts (brute force then takes a while)."""
    rng = random.Random(seed)
    doc = Document()
    doc.large = large
    n = rng.randint(6, 12) if large else rng.randint(2, 6)
    for _ in range(rng.randint(1, min(3, n))):
        doc.domains.append(gen_domain(rng, large))
    names = rng.sample(VAR_NAMES, n)
    for i in range(n):
        doc.variables.append((names[i], rng.randrange(len(doc.domains)) if i else 0))
    # keep brute force instant: at most ~40000 assignments (large: pruning has to do)
    while not large and math.prod(len(doc.values(v)) for v in range(n)) > 40000:
        doc.domains = [d[:max(1, len(d) - 1)] for d in doc.domains]
    if rng.random() < 0.05:
        doc.dummies = rng.randint(1, 2)
    weights = [("ext", 0.4), ("int", 0.35), ("alldiff", 0.1), ("wsum", 0.15)]
    if n >= 3 and rng.random() < 0.08:
        doc.constraints += gen_ne_clique(rng, doc)
    if large:
        weights = [("ext", 0.85), ("int", 0.05), ("alldiff", 0.03), ("wsum", 0.07)]
    for _ in range(rng.randint(2 * n, 3 * n) if large else rng.randint(1, n + 1)):
        kind = rng.choices([k for k, _ in weights], [w for _, w in weights])[0]
        doc.constraints.append({"ext": gen_extension, "int": gen_intension,
                                "alldiff": gen_alldiff, "wsum": gen_wsum}[kind](rng, doc))
    if rng.random() < 0.35:
        add_objective(rng, doc)
    return doc




# ---- brute force ---------------------------------------------------------------------

PY_OPS = {"add": "(%s + %s)", "sub": "(%s - %s)", "abs": "abs(%s)", "eq": "(%s == %s)",
          "ne": "(%s != %s)", "lt": "(%s < %s)", "le": "(%s <= %s)", "gt": "(%s > %s)",
          "ge": "(%s >= %s)", "and": "(%s and %s)", "or": "(%s or %s)",
          "xor": "(bool(%s) != bool(%s))", "iff": "(bool(%s) == bool(%s))",
          "not": "(not %s)", "if": "(%s if %s else %s)", "mul": "(%s * %s)",
          "div": "trunc_div(%s, %s)", "mod": "trunc_mod(%s, %s)", "min": "min(%s, %s)", "max": "max(%s, %s)"}


def defined(test):
    """A predicate whose division by 0 happens is not satisfied (a shared predicate
    may get a divisor that can be 0 from another scope; zelk refuses such a
    document, so only the oracle needs an answer)."""
    try:
        return bool(test())
    except ZeroDivisionError:
        return False


def py_expr(e, actual):
    if e[0] == "int":
        return str(e[1])
    if e[0] == "par":
        return actual[e[1]]
    args = [py_expr(a, actual) for a in e[1]]
    if e[0] == "if":
        args = [args[1], args[0], args[2]]
    return PY_OPS[e[0]] % tuple(args)


def constraint_test(doc, c):
    """Python source of a test over the assignment a (a list indexed by variable)."""
    kind = c["kind"]
    if kind == "ext":
        _, semantics, tuples = doc.relations[c["rel"]]
        key = "(%s,)" % ",".join("a[%d]" % v for v in c["scope"])
        return "(%s %s %r)" % (key, "in" if semantics == "supports" else "not in",
                               frozenset(tuples))
    if kind == "int":
        formal, expr = doc.predicates[c["pred"]]
        actual = ["a[%d]" % x if k == "var" else str(x) for k, x in c["args"]]
        return "defined(lambda: %s)" % py_expr(expr, actual)
    if kind == "alldiff":
        return "(len({%s}) == %d)" % (",".join("a[%d]" % v for v in c["scope"]), len(c["scope"]))
    total = " + ".join("%d * a[%d]" % (k, v) for k, v in c["terms"])
    op = {"eq": "==", "ne": "!=", "ge": ">=", "gt": ">", "le": "<=", "lt": "<"}[c["op"]]
    return "(%s %s %d)" % (total, op, c["bound"])


class BruteForce:
    """Backtracking over the declared variables that tests each constraint as soon as
    its scope is assigned. The objective variable comes first, so that its values can
    be tried from the best end."""

    class Enough(Exception):
        pass

    def __init__(self, doc):
        self.doc = doc
        n = len(doc.variables)
        self.order = list(range(n))
        if doc.objective is not None:
            self.order.remove(doc.objective[0])
            self.order.insert(0, doc.objective[0])
        depth_of = {v: d for d, v in enumerate(self.order)}
        self.checks = [[] for _ in range(n)]
        self.tests = []
        for c in doc.constraints:
            scope = doc.scope(c)
            test = eval("lambda a: " + constraint_test(doc, c))
            self.tests.append(test)
            self.checks[max(depth_of[v] for v in scope) if scope else 0].append(test)

    def satisfied(self, values):
        a = list(values)
        return all(a[v] in self.doc.values(v) for v in range(len(a))) and \
            all(t(a) for t in self.tests)

    def solutions(self, limit, first_values=None):
        """Up to limit solutions, as tuples in declaration order; first_values replaces
        the values of the first variable in the order."""
        n = len(self.order)
        a = [0] * n
        found = []

        def extend(d):
            if d == n:
                found.append(tuple(a))
                if len(found) >= limit:
                    raise BruteForce.Enough()
                return
            v = self.order[d]
            for x in first_values if d == 0 and first_values is not None else \
                    self.doc.values(v):
                a[v] = x
                if all(t(a) for t in self.checks[d]):
                    extend(d + 1)

        try:
            extend(0)
        except BruteForce.Enough:
            pass
        return found


def brute_force(bf):
    """(answer, solutions): the answer zelk must give, and every solution when there is
    no objective and they are at most difftest.MAX_ENUMERATED, else None."""
    doc = bf.doc
    if doc.objective is None:
        found = bf.solutions(difftest.MAX_ENUMERATED + 1)
        return ("SAT" if found else "UNSAT", None), \
            found if len(found) <= difftest.MAX_ENUMERATED else None
    v, minimize, _ = doc.objective
    for x in sorted(doc.values(v), reverse=not minimize):
        if bf.solutions(1, [x]):
            return ("OPTIMUM", x), None
    return ("UNSAT", None), None



# ---- zelk ------------------------------------------------------------------------------

def check_run(doc, bf, expected, solutions, p, path, opts, checker):
    """(problems, reason of a refusal or None) for one run of zelk."""
    label = "zelk " + difftest.label(opts)
    if difftest.broken(p, opts):
        return [difftest.broken(p, opts)], None
    status, value, models = difftest.parse(p.stdout)
    models = [tuple(int(w) for w in words) for _, words in models]
    n = len(doc.variables)
    if status == "UNSUPPORTED":
        lines = p.stdout.splitlines()
        after = lines[lines.index("s UNSUPPORTED") + 1:] + [""]
        return [], re.sub(r"\d+", "N", after[0][2:].strip()) or "no reason given"
    problems = []
    if opts == ["-d"]:
        if status == "UNSAT" and not solutions:
            return [], None
        if status not in ("UNKNOWN", "SAT"):
            problems.append("zelk -d: status %s" % status)
        return problems + difftest.compare_solutions(
            models, [s + (0,) * doc.dummies for s in solutions]), None
    if status in ("SAT", "OPTIMUM"):
        c = subprocess.run([sys.executable, checker, path], input=p.stdout,
                           capture_output=True, text=True)
        if c.returncode != 0:
            problems.append("%s: %s" % (label, (c.stdout + c.stderr).strip()[:300]))
        if models and not (len(models[-1]) == n + doc.dummies and bf.satisfied(models[-1][:n])
                           and not any(models[-1][n:])):
            problems.append("%s: last model %s is not a solution" % (label, models[-1]))
    answer = (status, value if status == "OPTIMUM" else None)
    if status == "UNKNOWN":
        problems.append("%s: no answer" % label)
    elif answer != expected:
        problems.append("%s says %s, brute force %s" % (label, difftest.answer_text(answer),
                                                        difftest.answer_text(expected)))
    return problems, None


def test_document(seed, doc, args, tmpdir):
    path = os.path.join(tmpdir, "s%d.xml" % seed)
    with open(path, "w") as f:
        f.write(doc.text())
    bf = BruteForce(doc)
    expected, solutions = brute_force(bf)
    option_sets = OPTION_SETS + ([["-d"]] if solutions is not None else [])
    result = difftest.Result(runs=len(option_sets))
    for opts in option_sets:
        p = difftest.run([args.zelk, "-F", "xcsp", "-s", str(seed)] + opts + [path])
        probs, reason = check_run(doc, bf, expected, solutions, p, path, opts, args.checker)
        result.problems += probs
        result.refused += [reason] if reason else []
    return result


def main():
    ap = difftest.arguments(__doc__, seeds="1:500")
    ap.add_argument("--checker", required=True)
    difftest.large_arguments(ap)
    args = ap.parse_args()
    args.checker = os.path.abspath(args.checker)

    def doc(seed):
        return generate(seed, difftest.is_large(args, seed))
    return difftest.campaign(
        "xcsp differential", args, lambda seed: doc(seed).text(),
        lambda seed, tmpdir: test_document(seed, doc(seed), args, tmpdir),
        lambda seed: "--checker %s%s" % (args.checker, " --large" if difftest.is_large(args, seed)
                                          else ""), max_refused=0.25)


if __name__ == "__main__":
    sys.exit(main())
