#!/usr/bin/env python3
"""Random small XCSP 2.1 documents: zelk against enumeration.

    xcsp_differential.py --zelk BUILD/zelk [--seeds A:B] [--keep DIR]

Each seed gives a document of two to four variables over small domains with
relations shaped to hit the loader's shortcuts (a diagonal, all ordered pairs of
distinct values, pairs that are all different, a diagonal with more forbidden
pairs; with either semantics, and domains inside or outside the relation's
values), random binary and ternary tables, predicates with constants,
global:alldifferent and weighted sums with every operator. Every model is found
by enumeration, each judged by tests/tools/xcsp_checker.py (no code shared with
zelk). Satisfaction: `zelk -d` must print exactly that set of models. One seed in
four adds an objective, whose optimum must match. No model: the refutation must
also pass -G -V. A failure prints the seed and the document.
"""
import argparse
import itertools
import os
import random
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tools"))
import xcsp_checker  # noqa: E402

PREDICATES = [
    ("int X int Y", "ne(X,Y)", 2),
    ("int X int Y", "lt(X,Y)", 2),
    ("int X int Y int K", "le(add(X,K),Y)", 3),
    ("int X int Y int K", "or(eq(X,K),ne(X,Y))", 3),
    ("int X int Y int Z", "iff(eq(X,Y),gt(Z,X))", 3),
    ("int X int Y int K", "eq(X,add(Y,K))", 3),
]


def relation_tuples(rng, arity, values):
    if arity == 3:
        return [t for t in itertools.product(values, repeat=3) if rng.random() < 0.4]
    s = sorted(rng.sample(values, rng.randint(1, len(values))))
    shape = rng.randrange(5)
    if shape == 0:
        return [(v, v) for v in s]
    if shape == 1:
        return [(a, b) for a in s for b in s if a != b]
    if shape == 2:
        return [(a, b) for a in s for b in s if a != b and rng.random() < 0.5] or [(s[0], s[-1] + 1)]
    if shape == 3:
        return [(v, v) for v in s] + [(a, b) for a in s for b in s if a < b and rng.random() < 0.5]
    return [t for t in itertools.product(values, repeat=2) if rng.random() < 0.4]


def make_document(rng):
    n = rng.randint(2, 4)
    values = list(range(6))
    domains = []
    for _ in range(n):
        if rng.random() < 0.5:
            lo = rng.randint(0, 3)
            domains.append("%d..%d" % (lo, rng.randint(lo, 5)))
        else:
            domains.append(" ".join(str(v) for v in sorted(rng.sample(values, rng.randint(1, 5)))))
    names = ["v%d" % i for i in range(n)]
    relations, predicates, constraints = [], [], []
    for c in range(rng.randint(1, 4)):
        kind = rng.randrange(5)
        if kind <= 1:
            arity = 3 if n >= 3 and rng.random() < 0.25 else 2
            tuples = relation_tuples(rng, arity, values)
            rname = "R%d" % len(relations)
            semantics = rng.choice(["supports", "conflicts"])
            relations.append('<relation name="%s" arity="%d" nbTuples="%d" semantics="%s">%s</relation>' % (
                rname, arity, len(tuples), semantics, "|".join(" ".join(map(str, t)) for t in tuples)))
            scope = rng.sample(names, arity)
            constraints.append('<constraint name="C%d" arity="%d" scope="%s" reference="%s"/>' % (
                c, arity, " ".join(scope), rname))
        elif kind == 2:
            formal, functional, count = rng.choice(PREDICATES)
            if count == 3 and "K" not in formal and n < 3:
                formal, functional, count = PREDICATES[0]
            pname = "P%d" % len(predicates)
            predicates.append('<predicate name="%s"><parameters>%s</parameters>'
                              '<expression><functional>%s</functional></expression></predicate>' % (
                                  pname, formal, functional))
            variables = rng.sample(names, count if "K" not in formal else 2)
            actual = variables + ([str(rng.randint(0, 3))] if "K" in formal else [])
            constraints.append('<constraint name="C%d" arity="%d" scope="%s" reference="%s">'
                               '<parameters>%s</parameters></constraint>' % (
                                   c, len(variables), " ".join(sorted(set(variables))), pname, " ".join(actual)))
        elif kind == 3:
            scope = rng.sample(names, rng.randint(2, min(3, n)))
            constraints.append('<constraint name="C%d" arity="%d" scope="%s" reference="global:alldifferent"/>' % (
                c, len(scope), " ".join(scope)))
        else:
            scope = rng.sample(names, rng.randint(1, n))
            terms = " ".join("{ %d %s }" % (rng.choice([-3, -2, -1, 1, 2, 3]), v) for v in scope)
            op = rng.choice(["eq", "ge", "gt", "le", "lt"])
            constraints.append('<constraint name="C%d" arity="%d" scope="%s" reference="global:weightedsum">'
                               '<parameters>[ %s ] <%s/> %d</parameters></constraint>' % (
                                   c, len(scope), " ".join(scope), terms, op, rng.randint(-4, 8)))
    objective = rng.random() < 0.25
    if objective:
        target = rng.choice(names)
        constraints.append('<constraint name="Optimize:%s" arity="1" scope="%s" reference="global:weightedsum">'
                           '<parameters>[ { 0 %s } ] <eq/> 0</parameters></constraint>' % (
                               rng.choice(["minimize", "maximize"]), target, target))
    out = ['<?xml version="1.0" encoding="UTF-8"?>', "<instance>", '<presentation format="XCSP 2.1"/>',
           '<domains nbDomains="%d">' % n]
    out += ['<domain name="D%d" nbValues="1">%s</domain>' % (i, d) for i, d in enumerate(domains)]
    out += ["</domains>", '<variables nbVariables="%d">' % n]
    out += ['<variable name="%s" domain="D%d"/>' % (v, i) for i, v in enumerate(names)]
    out.append("</variables>")
    if relations:
        out += ['<relations nbRelations="%d">' % len(relations)] + relations + ["</relations>"]
    if predicates:
        out += ['<predicates nbPredicates="%d">' % len(predicates)] + predicates + ["</predicates>"]
    out += ['<constraints nbConstraints="%d">' % len(constraints)] + constraints + ["</constraints>", "</instance>"]
    return "\n".join(out) + "\n", objective


def models(path):
    m = xcsp_checker.instance(path)
    domains = [sorted(m.domains[d]) for _, d in m.variables]
    found = [vals for vals in itertools.product(*domains) if m.check(list(vals)) is None]
    return m, found


def run(zelk, options, path):
    p = subprocess.run([zelk] + options + [path], capture_output=True, text=True, timeout=60)
    return p.returncode, p.stdout


def check_seed(zelk, seed, directory):
    rng = random.Random(seed)
    text, objective = make_document(rng)
    path = os.path.join(directory, "seed%d.xml" % seed)
    with open(path, "w") as f:
        f.write(text)
    m, expected = models(path)
    options = ["-s", str(seed)] + ([] if objective else ["-d"])
    code, out = run(zelk, options, path)
    if code != 0:
        return "exit status %d:\n%s" % (code, out[-500:])
    status = [l for l in out.splitlines() if l.startswith("s ")]
    got = [tuple(int(w) for w in l.split()[1:]) for l in out.splitlines() if l.startswith("v")]
    if not expected:
        if status != ["s UNSATISFIABLE"]:
            return "expected UNSATISFIABLE, got %s" % status
        code, out = run(zelk, ["-s", str(seed), "-G", "-V"], path)
        if code != 0 or "s UNSATISFIABLE" not in out.splitlines():
            return "refutation not validated by -G -V:\n%s" % out[-500:]
        return None
    if not objective:
        if sorted(got) != sorted(expected) or len(set(got)) != len(got):
            return "models differ: zelk %s, enumeration %s" % (sorted(got), sorted(expected))
        return None
    m.check(list(expected[0]))  # reads the objective declaration
    var, minimize = m.objective
    index = [n for n, _ in m.variables].index(var)
    best = (min if minimize else max)(vals[index] for vals in expected)
    claimed = [int(l.split()[1]) for l in out.splitlines() if l.startswith("o ")]
    if not claimed or claimed[-1] != best:
        return "optimum %d, o lines %s" % (best, claimed)
    if not got or got[-1][index] != best or tuple(got[-1]) not in expected:
        return "last model %s is not an optimal model" % (got[-1:],)
    return None


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--zelk", required=True)
    parser.add_argument("--seeds", default="1:200")
    parser.add_argument("--keep", help="directory for the documents (default: a temporary one)")
    args = parser.parse_args()
    first, last = (int(x) for x in args.seeds.split(":"))
    directory = args.keep or tempfile.mkdtemp(prefix="xcsp_differential")
    failures = 0
    for seed in range(first, last + 1):
        problem = check_seed(args.zelk, seed, directory)
        if problem:
            failures += 1
            path = os.path.join(directory, "seed%d.xml" % seed)
            print("FAIL seed %d: %s\n%s" % (seed, problem, open(path).read()))
            print("replay: %s --zelk %s --seeds %d:%d" % (sys.argv[0], args.zelk, seed, seed))
    print("%d of %d seed(s) failed" % (failures, last - first + 1))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
