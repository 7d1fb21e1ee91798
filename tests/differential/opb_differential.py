#!/usr/bin/env python3
"""Randomised differential test of zelk's OPB answers.

    opb_differential.py --zelk ZELK --checker OPB_CHECKER [--seeds 1:300]
                        [--seed N] [--peer clasp|none] [--jobs 2]
                        [--show]

Each seed gives one small random instance in zelk's dialect (clauses,
cardinalities, small weighted sums, all five relations, negations, products of
two literals, names, with or without a "max:" or "min:" objective whose
coefficients may be negative, mostly within what zelk can hold and sometimes
beyond it), with extra weight on the shapes that once gave wrong answers. zelk solves it under several option
sets; the answer is compared with brute force over all assignments (up to
BRUTE_MAX_VARS variables), with clasp on a normalised standard-OPB twin when
clasp is installed, and with the other option sets. Every model zelk prints
must satisfy the file (own evaluation and opb_checker), and the "o" line before
it must be the objective of that model. An objective whose normal form (c ~x
written c - c x, equal products merged) has positive coefficients summing above
31 must be refused with the range error, and every other one optimised.

A failure prints the seed, the instance and the command that replays it.
Standard library only; the last line reads "N passed, N failed".
"""
import argparse
import os
import random
import shutil
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor

BRUTE_MAX_VARS = 14
OPTION_SETS = [[], ["-G", "-V"], ["-m"], ["-j", "0"], ["-r", "0"]]
RUN_TIMEOUT = 30.0
RELATIONS = [">=", "<=", "=", "<", ">"]
NAMES = ["x1", "x2", "x3", "x4", "x5", "x6", "x7", "x8", "x9", "x10", "x11", "x12",
         "a", "b", "c", "y_2", "Q", "min1", "max_v", "_z", "p0", "q9x", "long_name",
         "B7", "k", "t3"]


# ---- instances ------------------------------------------------------------------
# A literal is (negated, variable index); a term is (coefficient, [literals]);
# a constraint is (name or None, [terms], relation, rhs); the objective is None
# or a list of terms, maximised or minimised as `direction` ("max" or "min") says.

class Instance:
    def __init__(self, names, constraints, objective, direction="max"):
        self.names = names
        self.constraints = constraints
        self.objective = objective
        self.direction = direction

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

    def used_variables(self):
        used = set()
        for _, terms, _, _ in self.constraints:
            for _, lits in terms:
                used.update(v for _, v in lits)
        for _, lits in self.objective or []:
            used.update(v for _, v in lits)
        return sorted(used)


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
    out = []
    for c, lits in terms:
        pos = neg = 0
        for negated, v in lits:
            if negated:
                neg |= 1 << v
            else:
                pos |= 1 << v
        out.append((c, pos, neg))
    return out


def term_sum(compiled, a):
    return sum(c for c, pos, neg in compiled if a & pos == pos and not a & neg)


def holds(rel, s, rhs):
    if rel == ">=":
        return s >= rhs
    if rel == "<=":
        return s <= rhs
    if rel == "=":
        return s == rhs
    if rel == "<":
        return s < rhs
    return s > rhs


class Evaluator:
    def __init__(self, inst):
        self.constraints = [(compile_terms(t), rel, rhs) for _, t, rel, rhs in inst.constraints]
        self.objective = compile_terms(inst.objective) if inst.objective is not None else None

    def satisfied(self, a):
        return all(holds(rel, term_sum(t, a), rhs) for t, rel, rhs in self.constraints)

    def value(self, a):
        return term_sum(self.objective, a) if self.objective is not None else None


def brute_force(inst):
    """(status, optimum): SAT, UNSAT or OPTIMUM over all assignments."""
    ev = Evaluator(inst)
    better = (lambda v, b: v > b) if inst.direction == "max" else (lambda v, b: v < b)
    best = None
    for a in range(1 << len(inst.names)):
        if ev.satisfied(a):
            if ev.objective is None:
                return "SAT", None
            v = ev.value(a)
            if best is None or better(v, best):
                best = v
    if best is None:
        return "UNSAT", None
    return "OPTIMUM", best


# ---- standard OPB for the peer ---------------------------------------------------------

def merge(terms):
    """The sum with c ~x written c - c x and equal products merged: ({product:
    coefficient}, constant), no coefficient 0."""
    merged = {}
    const = 0
    for c, lits in terms:
        lits = sorted(set(lits), key=lambda l: (l[1], l[0]))
        if len({v for _, v in lits}) < len(lits):
            continue                           # x and ~x: always 0
        if len(lits) == 1 and lits[0][0]:      # c ~x = c - c x
            const += c
            key = ((False, lits[0][1]),)
            c = -c
        else:
            key = tuple(lits)
        merged[key] = merged.get(key, 0) + c
    return {k: c for k, c in merged.items() if c != 0}, const


def objective_fits(inst):
    """Whether zelk can hold the objective: in normal form every coefficient is
    made positive (-c A = c ~A - c), and those must sum to 31 at most."""
    if inst.objective is None:
        return True
    merged, _ = merge(inst.objective)
    return sum(abs(c) for c in merged.values()) <= 31


def to_standard(inst):
    """A twin in the peers' subset: x1..xn, only >=, each variable and each product
    once per constraint (~x = 1 - x merged in), "=" as two ">=", "max:" as "min:".
    Returns (text, offset, sign): zelk's objective = offset + sign * clasp's "o"."""
    def lit_text(lit):
        return ("~" if lit[0] else "") + "x%d" % (lit[1] + 1)

    def terms_text(merged):
        return " ".join("%+d %s" % (c, " ".join(lit_text(l) for l in key))
                        for key, c in sorted(merged.items()))

    products = []
    lines = []
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
    offset = 0
    sign = -1 if inst.direction == "max" else 1
    head_obj = []
    if inst.objective is not None:
        merged, offset = merge(inst.objective)
        if merged:
            products += [k for k in merged if len(k) > 1]
            head_obj.append("min: %s ;" % terms_text({k: sign * c for k, c in merged.items()}))
    head = "* #variable= %d #constraint= %d" % (len(inst.names), len(lines))
    if products:
        head += " #product= %d sizeproduct= %d" % (len(products),
                                                    sum(len(k) for k in products))
    return "\n".join([head] + head_obj + lines) + "\n", offset, sign


def run_clasp(inst, tmpdir, tag):
    text, offset, sign = to_standard(inst)
    path = os.path.join(tmpdir, tag + ".std.opb")
    with open(path, "w") as f:
        f.write(text)
    status, value, model = "UNKNOWN", None, None
    try:
        p = subprocess.run(["clasp", "--quiet=1,1", path], capture_output=True, text=True,
                           timeout=RUN_TIMEOUT)
    except subprocess.TimeoutExpired:
        return status, value, None
    for line in p.stdout.splitlines():
        if line.startswith("s "):
            status = {"SATISFIABLE": "SAT", "UNSATISFIABLE": "UNSAT",
                      "OPTIMUM FOUND": "OPTIMUM"}.get(line[2:].strip(), "UNKNOWN")
        elif line.startswith("o "):
            value = int(line.split()[1])
        elif line.startswith("v "):
            model = (model or []) + line[2:].split()
    a = 0
    for w in model or []:
        if not w.startswith("-") and w.startswith("x"):
            a |= 1 << (int(w[1:]) - 1)
    if inst.objective is not None and status in ("SAT", "OPTIMUM"):
        if status == "SAT" and value is None:
            status = "OPTIMUM"                     # objective constant after merging
        value = offset + sign * (value or 0)
    return status, value, a if model is not None else None


# ---- zelk ------------------------------------------------------------------------------

def parse_zelk(out, names):
    """Status, last objective value, and the (o value, assignment) of each v line."""
    index = {n: i for i, n in enumerate(names)}
    status, value, proved = "UNKNOWN", None, False
    models = []
    pending = None
    for line in out.splitlines():
        if line.startswith("s "):
            w = line[2:].strip()
            if w == "SATISFIABLE":
                status = "SAT"
            elif w == "UNSATISFIABLE":
                status = "UNSAT"
            elif w == "OPTIMUM FOUND":
                status = "OPTIMUM"
        elif line.startswith("o "):
            value = pending = int(line.split()[1])
        elif line.startswith("v "):
            a = 0
            for w in line[2:].split():
                if not w.startswith("-") and w in index:
                    a |= 1 << index[w]
            models.append((pending, a))
            pending = None
        elif "==== no more values to try ====" in line:
            proved = True
    if proved and status == "SAT":
        status = "OPTIMUM"
    return status, value, models


def check_zelk_run(inst, ev, path, out, err, rc, checker):
    """Problems of one run, as strings, and its (status, value)."""
    problems = []
    if not objective_fits(inst):
        # The range error, and no answer before it; or UNSAT, when a constraint
        # fails before the objective is built (compared with the oracle below).
        if rc == 0 and "\ns UNSATISFIABLE\n" in out:
            pass
        else:
            if rc != 1 or "Exception(St12out_of_range)" not in out or "\ns " in out:
                problems.append("an objective beyond 31 not refused by the range error: "
                                "exit status %d, output tail %r" % (rc, out[-300:]))
            return problems, ("ERROR", None)
    if rc != 0 or err.strip() or "Exception(" in out:
        problems.append("exit status %d, stderr %r, output tail %r" % (rc, err[-300:],
                                                                         out[-300:]))
        return problems, ("ERROR", None)
    status, value, models = parse_zelk(out, inst.names)
    if status in ("SAT", "OPTIMUM"):
        if not models:
            problems.append("no v line after %s" % status)
        for o, a in models:
            if not ev.satisfied(a):
                problems.append("model %s breaks the file" % " ".join(
                    ("" if a >> i & 1 else "-") + n for i, n in enumerate(inst.names)))
            if ev.objective is not None:
                if o is None:
                    problems.append("v line without an o line before it")
                elif o != ev.value(a):
                    problems.append("o %d before a model whose objective is %d" %
                                    (o, ev.value(a)))
        if status == "OPTIMUM" and models and models[-1][0] != value:
            problems.append("last o %s is not the last model's" % value)
        c = subprocess.run([checker, path], input=out, capture_output=True, text=True)
        if c.returncode != 0:
            problems.append("opb_checker: " + (c.stdout + c.stderr).strip()[:300])
    return problems, (status, value if status == "OPTIMUM" else None)


def answer_text(ans):
    return ans[0] + ("=%d" % ans[1] if ans[0] == "OPTIMUM" else "")


def test_instance(seed, inst, args, tmpdir, tag=None):
    """A list of problems; empty when every answer agrees."""
    tag = tag or "s%d" % seed
    path = os.path.join(tmpdir, tag + ".opb")
    with open(path, "w") as f:
        f.write(inst.text())
    ev = Evaluator(inst)
    problems = []
    oracle = None
    if len(inst.names) <= BRUTE_MAX_VARS:
        oracle = ("brute force", brute_force(inst))
    if args.peer == "clasp" and objective_fits(inst):
        st, val, a = run_clasp(inst, tmpdir, tag)
        peer = ("clasp", (st, val if st == "OPTIMUM" else None))
        if st == "UNKNOWN":
            problems.append("clasp gave no answer")
        if st in ("SAT", "OPTIMUM") and (a is None or not ev.satisfied(a)):
            problems.append("clasp's model breaks the file (normalisation fault?)")
        if oracle is None:
            oracle = peer
        elif peer[1] != oracle[1]:
            problems.append("clasp says %s, brute force %s" % (answer_text(peer[1]),
                                                               answer_text(oracle[1])))
    for opts in OPTION_SETS:
        cmd = [args.zelk, "-F", "opb", "-s", str(seed)] + opts + [path]
        try:
            p = subprocess.run(cmd, capture_output=True, text=True, timeout=RUN_TIMEOUT)
        except subprocess.TimeoutExpired:
            problems.append("%s: no answer within %.0f s" % (" ".join(opts) or "defaults",
                                                            RUN_TIMEOUT))
            continue
        probs, ans = check_zelk_run(inst, ev, path, p.stdout, p.stderr, p.returncode,
                                    args.checker)
        label = " ".join(opts) or "defaults"
        problems += ["zelk %s: %s" % (label, x) for x in probs]
        if ans[0] == "ERROR":
            continue
        if ans[0] == "UNKNOWN":
            problems.append("zelk %s: no answer" % label)
        elif oracle is None:
            oracle = ("zelk " + label, ans)
        elif ans != oracle[1]:
            problems.append("zelk %s says %s, %s says %s" % (label, answer_text(ans),
                                                             oracle[0],
                                                             answer_text(oracle[1])))
    return problems


# ---- main ------------------------------------------------------------------------------

def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--zelk", required=True)
    ap.add_argument("--checker", required=True)
    ap.add_argument("--seeds", default="1:300", help="first:last, both included")
    ap.add_argument("--seed", type=int, default=None, help="one seed only")
    ap.add_argument("--peer", default=None, help="clasp or none (default: clasp when "
                    "installed)")
    ap.add_argument("--jobs", type=int, default=2)
    ap.add_argument("--show", action="store_true", help="print each instance")
    args = ap.parse_args()
    if args.peer is None:
        args.peer = "clasp" if shutil.which("clasp") else "none"
    args.zelk = os.path.abspath(args.zelk)
    args.checker = os.path.abspath(args.checker)
    if args.seed is not None:
        seeds = [args.seed]
    else:
        first, last = (int(x) for x in args.seeds.split(":"))
        seeds = list(range(first, last + 1))

    t0 = time.monotonic()
    tmpdir = tempfile.mkdtemp(prefix="opb_differential.")
    failures = []
    try:
        def one(seed):
            inst = generate(seed)
            if args.show:
                print("---- seed %d\n%s" % (seed, inst.text()), end="")
            return seed, inst, test_instance(seed, inst, args, tmpdir)

        with ThreadPoolExecutor(max(1, args.jobs)) as pool:
            for seed, inst, problems in pool.map(one, seeds):
                if problems:
                    failures.append((seed, inst, problems))
        for seed, inst, problems in failures:
            print("FAIL seed %d" % seed)
            for p in problems:
                print("  " + p)
            print("  instance:")
            print("".join("    " + line + "\n" for line in inst.text().splitlines()), end="")
            print("  replay: python3 %s --zelk %s --checker %s --peer %s --seed %d"
                  % (os.path.abspath(__file__), args.zelk, args.checker,
                     args.peer, seed))
    finally:
        shutil.rmtree(tmpdir, ignore_errors=True)
    print("opb differential: %d instances, seeds %d..%d, peer %s, %d option sets, %.1f s"
          % (len(seeds), seeds[0], seeds[-1], args.peer, len(OPTION_SETS),
             time.monotonic() - t0))
    print("%d passed, %d failed" % (len(seeds) - len(failures), len(failures)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
