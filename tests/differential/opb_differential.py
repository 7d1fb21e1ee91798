#!/usr/bin/env python3
"""Randomised differential test of zelk's OPB answers.

Random instances in zelk's dialect (clauses, cardinalities, weighted sums, all five
relations, negations, products, names, objectives with negative coefficients, some
beyond the 31 zelk holds), weighted towards shapes that once gave wrong answers.
Each is solved under the option sets of difftest and compared with brute force, with
clasp on a standard-OPB twin when installed, and across option sets; every model
must satisfy the file (own evaluation and opb_checker) and follow its "o" line. An
objective whose normal form has positive coefficients summing above 31 must be
refused with the range error.
"""
import os
import random
import shutil
import subprocess
import sys

import difftest

BRUTE_MAX_VARS = 14
RELATIONS = [">=", "<=", "=", "<", ">"]
NAMES = ["x1", "x2", "x3", "x4", "x5", "x6", "x7", "x8", "x9", "x10", "x11", "x12",
         "a", "b", "c", "y_2", "Q", "min1", "max_v", "_z", "p0", "q9x", "long_name",
         "B7", "k", "t3"]


# A literal is (negated, variable index); a term is (coefficient, [literals]);
# a constraint is (name or None, [terms], relation, rhs).
class Instance:
    def __init__(self, names, constraints, objective, direction="max"):
        self.names, self.constraints = names, constraints
        self.objective, self.direction = objective, direction

    def text(self):
        def terms_text(terms):
            return " ".join("%+d %s" % (c, " ".join(("~" if n else "") + self.names[v]
                                                    for n, v in lits))
                            for c, lits in terms)
        out = []
        if self.objective is not None:
            out.append("%s: %s ;" % (self.direction, terms_text(self.objective)))
        for i, (name, terms, rel, rhs) in enumerate(self.constraints):
            # the sign of a right-hand side is optional: write both forms
            rhs_text = ("%+d" % rhs) if rhs < 0 or i % 3 == 1 else str(rhs)
            out.append("%s%s %s %s ;" % (name + ": " if name else "", terms_text(terms),
                                         rel, rhs_text))
        return "\n".join(out) + "\n"


def random_literal(rng, n):
    return (rng.random() < 0.35, rng.randrange(n))


def random_conjunction(rng, n, product_rate):
    if n >= 2 and rng.random() < product_rate:
        a, b = random_literal(rng, n), random_literal(rng, n)
        return [a, b]
    return [random_literal(rng, n)]


def sum_range(terms):
    lo = sum(c for c, _ in terms if c < 0)
    hi = sum(c for c, _ in terms if c > 0)
    return lo, hi


def random_rhs(rng, terms):
    lo, hi = sum_range(terms)
    r = rng.random()
    if r < 0.1:
        return lo - rng.randint(1, 3)
    if r < 0.2:
        return hi + rng.randint(0, 2)
    return rng.randint(lo, hi)


def gen_clause(rng, n):
    terms = [(1, [random_literal(rng, n)]) for _ in range(rng.randint(1, 4))]
    if rng.random() < 0.8:
        return terms, ">=", 1
    return terms, ">", 0


def gen_cardinality(rng, n):
    k = rng.randint(2, min(6, max(2, n)))
    sign = 1 if rng.random() < 0.75 else -1
    terms = [(sign, [random_literal(rng, n)]) for _ in range(k)]
    return terms, rng.choice(RELATIONS), random_rhs(rng, terms)


def gen_weighted(rng, n, product_rate):
    budget = 31
    terms = []
    for _ in range(rng.randint(1, 5)):
        c = rng.randint(1, min(8, budget))
        budget -= c
        terms.append((c if rng.random() < 0.7 else -c, random_conjunction(rng, n, product_rate)))
        if budget <= 0:
            break
    return terms, rng.choice(RELATIONS), random_rhs(rng, terms)


def gen_special(rng, n):
    """Shapes that once gave wrong answers, and the peers' known faults."""
    x = rng.randrange(n)
    y = rng.randrange(n)
    k = rng.randint(0, 9)
    c = rng.randint(2, 9)
    if k == 0:      # single atom, 0 < rhs < coefficient
        return [(c, [(rng.random() < 0.3, x)])], ">=", rng.randint(1, c - 1)
    if k == 1:      # product, 0 < rhs < coefficient
        return [(c, [(rng.random() < 0.3, x), (rng.random() < 0.3, y)])], ">=", \
            rng.randint(1, c - 1)
    if k == 2:      # negated product
        return [(-1, [(False, x), (False, y)])], rng.choice([">=", ">"]), \
            rng.choice([0, -1, -2])
    if k == 3:      # right-hand side below 0
        terms = [(rng.randint(1, 5), [random_literal(rng, n)]) for _ in range(rng.randint(1, 3))]
        return terms, rng.choice([">=", ">", "="]), -rng.randint(1, 4)
    if k == 4:      # equality nothing reaches (clasp's fault)
        return [(c, [random_literal(rng, n)]), (c, [random_literal(rng, n)])], "=", c + 1
    if k == 5:      # plain and negated in one sum (sat4j's fault)
        return [(2, [(False, x)]), (4, [(True, y)]), (-1, [(False, y)])], ">=", \
            rng.randint(0, 3)
    if k == 6:      # always-false product
        return [(c, [(False, x), (True, x)])] + \
            ([(1, [random_literal(rng, n)])] if rng.random() < 0.5 else []), \
            rng.choice(RELATIONS), rng.randint(-1, 2)
    if k == 7:      # coefficients that cancel
        return [(c, [(False, x)]), (-c, [(False, x)])] + \
            ([(1, [random_literal(rng, n)])] if rng.random() < 0.5 else []), \
            rng.choice(RELATIONS), rng.randint(-1, 1)
    if k == 8:      # the same product twice, other literal order
        return [(c, [(False, x), (False, y)]), (2, [(False, y), (False, x)])], \
            rng.choice(RELATIONS), rng.randint(0, c + 2)
    # k == 9: upper bound on a single negated literal
    return [(c, [(True, x)])], rng.choice(["<=", "<"]), rng.randint(0, c)


def gen_objective(rng, n, product_rate):
    # Mostly within the 31 zelk can hold, sometimes beyond it; negative terms,
    # and a term with its complement, merge into a constant.
    budget = 31 if rng.random() < 0.85 else rng.randint(32, 48)
    negative_rate = rng.choice([0.0, 0.3, 0.6, 1.0])
    terms = []
    for _ in range(rng.randint(1, 6) if budget <= 31 else 20):
        if budget <= 0:
            break
        c = rng.randint(1, min(12, budget))
        budget -= c
        sign = -1 if rng.random() < negative_rate else 1
        r = rng.random()
        if r < 0.1 and budget >= c:     # a literal and its complement: the constant c
            budget -= c
            v = rng.randrange(n)
            terms += [(sign * c, [(False, v)]), (sign * c, [(True, v)])]
            continue
        if r < 0.1:         # always false
            v = rng.randrange(n)
            lits = [(False, v), (True, v)]
        elif r < 0.3:       # single negated literal
            lits = [(True, rng.randrange(n))]
        else:
            lits = random_conjunction(rng, n, product_rate)
        terms.append((sign * c, lits))
        if budget > c and rng.random() < 0.1:   # the same term again
            budget -= c
            terms.append((sign * c, list(lits)))
        if budget <= 0:
            break
    return terms


def plant(rng, terms, rel, rhs, planted):
    """Moves the right-hand side so that the planted assignment satisfies the
    constraint; a clause gets one literal flipped if none holds."""
    if rel in (">=", ">") and rhs in (0, 1) and all(c == 1 and len(l) == 1 for c, l in terms):
        if not any(planted[v] != n for c, l in terms for n, v in l):
            c, [(n, v)] = terms[0]
            terms = [(c, [(not n, v)])] + terms[1:]
        return terms, rel, rhs
    s = sum(c for c, lits in terms if all(planted[v] != n for n, v in lits))
    slack = rng.choice([0, 0, 1, 2])
    rhs = {">=": s - slack, ">": s - 1 - slack, "<=": s + slack, "<": s + 1 + slack,
           "=": s}[rel]
    return terms, rel, rhs


def generate(seed):
    rng = random.Random("opb-differential/%d" % seed)
    big = seed % 10 == 0
    n = rng.randint(15, 26) if big else rng.choice([1, 2, 3, 3, 4, 5, 6, 7, 8, 9, 10, 12, 14])
    names = ["v%d" % i for i in range(n)] if big else rng.sample(NAMES, n)
    product_rate = rng.choice([0.0, 0.2, 0.5])
    planted = [rng.random() < 0.5 for _ in range(n)] if rng.random() < (0.8 if big else 0.6) \
        else None
    if big:
        m = rng.randint(n, 3 * n)
    elif planted:
        m = rng.randint(1, 2 * n + 1)
    else:
        m = rng.randint(1, n + 2)
    constraints = []
    for _ in range(m):
        r = rng.random()
        special = False
        if r < 0.3:
            terms, rel, rhs = gen_clause(rng, n)
        elif r < 0.5:
            terms, rel, rhs = gen_cardinality(rng, n)
        elif r < 0.85 or big:
            terms, rel, rhs = gen_weighted(rng, n, product_rate)
        else:
            terms, rel, rhs = gen_special(rng, n)
            special = True
        if planted and not (special and rng.random() < 0.5):
            terms, rel, rhs = plant(rng, terms, rel, rhs, planted)
        name = "c%d" % (len(constraints) + 1) if rng.random() < 0.2 else None
        constraints.append((name, terms, rel, rhs))
    objective = gen_objective(rng, n, product_rate) if rng.random() < 0.5 else None
    return Instance(names, constraints, objective, rng.choice(["max", "min"]))


# ---- semantics --------------------------------------------------------------------

def compile_terms(terms):
    """Each term as (coefficient, mask of plain literals, mask of negated ones)."""
    return [(c, sum(1 << v for n, v in set(lits) if not n), sum(1 << v for n, v in set(lits) if n))
            for c, lits in terms]


HOLDS = {">=": lambda s, r: s >= r, "<=": lambda s, r: s <= r, "=": lambda s, r: s == r,
         "<": lambda s, r: s < r, ">": lambda s, r: s > r}


class Evaluator:
    def __init__(self, inst):
        self.constraints = [(compile_terms(t), rel, rhs) for _, t, rel, rhs in inst.constraints]
        self.objective = compile_terms(inst.objective) if inst.objective is not None else None

    @staticmethod
    def sum(compiled, a):
        return sum(c for c, pos, neg in compiled if a & pos == pos and not a & neg)

    def satisfied(self, a):
        return all(HOLDS[rel](self.sum(t, a), rhs) for t, rel, rhs in self.constraints)

    def value(self, a):
        return self.sum(self.objective, a) if self.objective is not None else None


def brute_force(inst):
    """(status, optimum) over all assignments, as bit masks."""
    ev = Evaluator(inst)
    sign = 1 if inst.direction == "max" else -1
    best = None
    for a in range(1 << len(inst.names)):
        if ev.satisfied(a):
            if ev.objective is None:
                return "SAT", None
            v = ev.value(a)
            if best is None or sign * v > sign * best:
                best = v
    return ("UNSAT", None) if best is None else ("OPTIMUM", best)


# ---- standard OPB for clasp -------------------------------------------------------------

def merge(terms):
    """The sum with c ~x written c - c x and equal products merged: ({product:
    coefficient}, constant), no coefficient 0."""
    merged, const = {}, 0
    for c, lits in terms:
        lits = sorted(set(lits), key=lambda l: (l[1], l[0]))
        if len({v for _, v in lits}) < len(lits):
            continue                           # x and ~x: always 0
        if len(lits) == 1 and lits[0][0]:      # c ~x = c - c x
            const += c
            key, c = ((False, lits[0][1]),), -c
        else:
            key = tuple(lits)
        merged[key] = merged.get(key, 0) + c
    return {k: c for k, c in merged.items() if c != 0}, const


def objective_fits(inst):
    """In normal form every coefficient is made positive (-c A = c ~A - c); zelk holds
    a sum of at most 31."""
    return inst.objective is None or sum(abs(c) for c in merge(inst.objective)[0].values()) <= 31


def to_standard(inst):
    """A twin in clasp's subset: x1..xn, only >=, each product once per constraint,
    "max:" as "min:". Returns (text, offset, sign): zelk's objective = offset + sign * o."""
    def terms_text(merged):
        return " ".join("%+d %s" % (c, " ".join(("~" if l[0] else "") + "x%d" % (l[1] + 1)
                                                for l in key))
                        for key, c in sorted(merged.items()))
    products, lines = [], []
    for _, terms, rel, rhs in inst.constraints:
        neg = [(-c, l) for c, l in terms]
        forms = {">=": [(terms, rhs)], ">": [(terms, rhs + 1)], "<=": [(neg, -rhs)],
                 "<": [(neg, 1 - rhs)], "=": [(terms, rhs), (neg, -rhs)]}[rel]
        for t, r in forms:
            merged, const = merge(t)
            r -= const
            if not merged:
                if r > 0:
                    lines.append("+1 x1 >= 2 ;")
                continue
            products += [k for k in merged if len(k) > 1]
            lines.append("%s >= %d ;" % (terms_text(merged), r))
    offset, sign, head_obj = 0, -1 if inst.direction == "max" else 1, []
    if inst.objective is not None:
        merged, offset = merge(inst.objective)
        if merged:
            products += [k for k in merged if len(k) > 1]
            head_obj.append("min: %s ;" % terms_text({k: sign * c for k, c in merged.items()}))
    head = "* #variable= %d #constraint= %d" % (len(inst.names), len(lines))
    if products:
        head += " #product= %d sizeproduct= %d" % (len(products), sum(len(k) for k in products))
    return "\n".join([head] + head_obj + lines) + "\n", offset, sign


def run_clasp(inst, tmpdir, tag):
    """(status, objective in zelk's terms, model as a bit mask or None)."""
    text, offset, sign = to_standard(inst)
    path = os.path.join(tmpdir, tag + ".std.opb")
    with open(path, "w") as f:
        f.write(text)
    p = difftest.run(["clasp", "--quiet=1,1", path])
    if p is None:
        return "UNKNOWN", None, None
    status, value, models = difftest.parse(p.stdout)
    words = [w for _, ws in models for w in ws]
    a = sum(1 << (int(w[1:]) - 1) for w in set(words) if w.startswith("x"))
    if inst.objective is not None and status in ("SAT", "OPTIMUM"):
        if status == "SAT" and value is None:
            status = "OPTIMUM"                     # objective constant after merging
        value = offset + sign * (value or 0)
    return status, value, a if models else None


# ---- zelk ------------------------------------------------------------------------------

def check_zelk_run(inst, ev, path, p, opts, checker):
    """Problems of one run, and its (status, value)."""
    label = "zelk " + difftest.label(opts)
    if p is None:
        return [difftest.broken(p, opts)], ("ERROR", None)
    out = p.stdout
    if not objective_fits(inst) and not (p.returncode == 0 and "\ns UNSATISFIABLE\n" in out):
        # The range error and no answer before it; UNSAT is compared with the oracle.
        if p.returncode != 1 or "Exception(St12out_of_range)" not in out or "\ns " in out:
            return ["%s: an objective beyond 31 not refused by the range error: exit status "
                    "%d, output tail %r" % (label, p.returncode, out[-300:])], ("ERROR", None)
        return [], ("ERROR", None)
    if difftest.broken(p, opts):
        return [difftest.broken(p, opts)], ("ERROR", None)
    status, value, models = difftest.parse(out)
    index = {n: i for i, n in enumerate(inst.names)}
    problems = []
    if status in ("SAT", "OPTIMUM"):
        if not models:
            problems.append("no v line after %s" % status)
        for o, words in models:
            a = sum(1 << index[w] for w in set(words) if w in index)
            if not ev.satisfied(a):
                problems.append("model %s breaks the file" % " ".join(words))
            if ev.objective is not None:
                if o is None:
                    problems.append("v line without an o line before it")
                elif o != ev.value(a):
                    problems.append("o %d before a model whose objective is %d" % (o, ev.value(a)))
        if status == "OPTIMUM" and models and models[-1][0] != value:
            problems.append("last o %s is not the last model's" % value)
        c = subprocess.run([checker, path], input=out, capture_output=True, text=True)
        if c.returncode != 0:
            problems.append("opb_checker: " + (c.stdout + c.stderr).strip()[:300])
    return ["%s: %s" % (label, x) for x in problems], \
        (status, value if status == "OPTIMUM" else None)


def test_instance(seed, inst, args, tmpdir):
    path = os.path.join(tmpdir, "s%d.opb" % seed)
    with open(path, "w") as f:
        f.write(inst.text())
    ev = Evaluator(inst)
    problems, oracle = [], None
    if len(inst.names) <= BRUTE_MAX_VARS:
        oracle = ("brute force", brute_force(inst))
    if args.peer == "clasp" and objective_fits(inst):
        st, val, a = run_clasp(inst, tmpdir, "s%d" % seed)
        peer = ("clasp", (st, val if st == "OPTIMUM" else None))
        if st == "UNKNOWN":
            problems.append("clasp gave no answer")
        if st in ("SAT", "OPTIMUM") and (a is None or not ev.satisfied(a)):
            problems.append("clasp's model breaks the file (normalisation fault?)")
        if oracle is None:
            oracle = peer
        elif peer[1] != oracle[1]:
            problems.append("clasp says %s, brute force %s"
                            % (difftest.answer_text(peer[1]), difftest.answer_text(oracle[1])))
    for opts in difftest.OPTION_SETS:
        p = difftest.run([args.zelk, "-F", "opb", "-s", str(seed)] + opts + [path])
        probs, ans = check_zelk_run(inst, ev, path, p, opts, args.checker)
        problems += probs
        label = "zelk " + difftest.label(opts)
        if ans[0] == "ERROR":
            continue
        if ans[0] == "UNKNOWN":
            problems.append("%s: no answer" % label)
        elif oracle is None:
            oracle = (label, ans)
        elif ans != oracle[1]:
            problems.append("%s says %s, %s says %s" % (label, difftest.answer_text(ans),
                                                        oracle[0], difftest.answer_text(oracle[1])))
    return difftest.Result(problems, runs=len(difftest.OPTION_SETS))


def main():
    ap = difftest.arguments(__doc__)
    ap.add_argument("--checker", required=True)
    ap.add_argument("--peer", default=None, help="clasp or none (default: clasp when installed)")
    args = ap.parse_args()
    if args.peer is None:
        args.peer = "clasp" if shutil.which("clasp") else "none"
    args.checker = os.path.abspath(args.checker)
    return difftest.campaign(
        "opb differential, peer " + args.peer, args, lambda seed: generate(seed).text(),
        lambda seed, tmpdir: test_instance(seed, generate(seed), args, tmpdir),
        lambda seed: "--checker %s --peer %s" % (args.checker, args.peer))


if __name__ == "__main__":
    sys.exit(main())
