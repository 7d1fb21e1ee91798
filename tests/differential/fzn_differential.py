#!/usr/bin/env python3
"""Randomised differential test of zelk's FlatZinc answers against Gecode.

Random models within 0..31: int and bool variables over ranges and sets, arrays, aliases,
intermediate variables defined by defines_var, and constraints from zelk's predicate
table (comparisons and reified forms, Boolean connectives, linear sums, arithmetic,
element, all_different, tables, zelk's interval predicates), sometimes an objective.
Every variable of the model's own is an output, so solutions compare as sets.
fzn-gecode gets the same model with zelk's predicates rewritten into standard ones.
zelk must agree on status and optimum, -d must print Gecode -a's solutions, each
once, every solution must pass fzn_checker, and every UNSAT is replayed with -G -V;
the checker's enumeration decides a disagreement. "% UNSUPPORTED" is a refusal,
more than a quarter of them fails the run. Models kept in fzn_cases/ run first.
"""
import os
import random
import re
import shutil
import subprocess
import sys
import tempfile

import difftest

HERE = os.path.dirname(os.path.abspath(__file__))
CHECKER = os.path.join(HERE, "..", "tools", "fzn_checker.py")
sys.path.insert(0, os.path.join(HERE, "..", "tools"))
import fzn_checker  # noqa: E402  (the oracle of a disagreement)

# -a twice: no all-different detection; one of them per seed besides the defaults
OPTION_SETS = [[], ["-m"], ["-j", "0"], ["-r", "0"], ["-D"], ["-a", "-a"]]
MAX_ENUMERATED = 300


# ---- models ------------------------------------------------------------------------------

class Gen:
    """One model under construction. Constraints are (zelk text, Gecode lines)."""

    def __init__(self, rng):
        self.rng = rng
        self.decls = []
        self.gecode_decls = []
        self.cons = []
        self.ints = {}        # reference -> (lo, hi) bounds
        self.bools = []
        self.outputs = []     # names of scalar outputs
        self.count = 0
        self.objective = None  # (reference, "minimize"/"maximize")
        self.constants = set()  # variables aliased to a constant: no objective

    def fresh(self, prefix):
        self.count += 1
        return "%s%d" % (prefix, self.count)

    # values and references

    def domain(self):
        rng = self.rng
        if rng.random() < 0.25:
            values = sorted(rng.sample(range(0, 10), rng.randint(1, 4)))
            return "{%s}" % ", ".join(map(str, values)), values[0], values[-1]
        lo = rng.randint(0, 3)
        hi = lo + rng.randint(0, 6)
        return "%d..%d" % (lo, hi), lo, hi

    def int_ref(self, const=0.12):
        if not self.ints or self.rng.random() < const:
            v = self.rng.randint(0, 7)
            return str(v), (v, v)
        ref = self.rng.choice(sorted(self.ints))
        return ref, self.ints[ref]

    def bool_ref(self, const=0.1):
        if not self.bools or self.rng.random() < const:
            return self.rng.choice(["true", "false"])
        return self.rng.choice(self.bools)

    def result_int(self, lo, hi):
        """The result of a function: an existing variable, a constant, or a fresh
        intermediate variable that the constraint defines."""
        rng = self.rng
        lo, hi = max(0, lo), min(31, hi)
        if lo > hi:
            lo, hi = 0, 31
        r = rng.random()
        if r < 0.6:
            ref = self.intermediate("%d..%d" % (lo, min(31, hi + rng.randint(0, 2))))
            self.ints[ref] = (lo, hi)
            return ref, ref
        if r < 0.65:
            return str(rng.randint(lo, hi)), None
        return self.int_ref(0)[0], None

    def result_bool(self):
        r = self.rng.random()
        if r < 0.3:
            ref = self.intermediate("bool")
            self.bools.append(ref)
            return ref, ref
        return self.bool_ref(0.1), None

    def intermediate(self, type_text):
        name = self.fresh("t")
        shown = self.rng.random() < 0.5
        self.decls.append("var %s: %s :: is_defined_var :: var_is_introduced%s;"
                          % (type_text, name, " :: output_var" if shown else ""))
        if shown:
            self.outputs.append(name)
        return name

    def add(self, text, defined=None, gecode=None):
        ann = " :: defines_var(%s)" % defined if defined else ""
        self.cons.append(("constraint %s%s;" % (text, ann),
                          gecode if gecode is not None else ["constraint %s%s;" % (text, ann)]))

    def hidden_bool(self):
        name = self.fresh("g")
        self.gecode_decls.append("var bool: %s :: var_is_introduced;" % name)
        return name


def gen_variables(g):
    rng = g.rng
    for _ in range(rng.randint(2, 5)):
        text, lo, hi = g.domain()
        name = g.fresh("x")
        g.decls.append("var %s: %s :: output_var;" % (text, name))
        g.ints[name] = (lo, hi)
        g.outputs.append(name)
    for _ in range(rng.randint(0, 3)):
        name = g.fresh("b")
        g.decls.append("var bool: %s :: output_var;" % name)
        g.bools.append(name)
        g.outputs.append(name)
    if rng.random() < 0.3:
        k = rng.randint(1, 3)
        name = g.fresh("A")
        text, lo, hi = g.domain()
        g.decls.append("array [1..%d] of var %s: %s :: output_array([1..%d]);" % (k, text, name, k))
        for i in range(1, k + 1):
            g.ints["%s[%d]" % (name, i)] = (lo, hi)
    if rng.random() < 0.2:
        k = rng.randint(1, 3)
        name = g.fresh("B")
        elems = [g.int_ref(0.3)[0] for _ in range(k)]
        text = rng.choice(["0..31", "int", "int", "0..6"])
        g.decls.append("array [1..%d] of var %s: %s :: output_array([1..%d]) = [%s];"
                       % (k, text, name, k, ", ".join(elems)))
    if rng.random() < 0.2:
        text, lo, hi = g.domain()
        name = g.fresh("z")
        if rng.random() < 0.6:
            target = rng.choice(sorted(r for r in g.ints if "[" not in r))
        else:
            # mostly inside the declared domain: outside, the model has no solution
            target = str(rng.randint(lo, hi) if rng.random() < 0.8 else rng.randint(0, 9))
        g.decls.append("var %s: %s :: output_var = %s;" % (text, name, target))
        g.ints[name] = (lo, hi)
        g.outputs.append(name)
        if target.isdigit():
            g.constants.add(name)


def gen_compare(g):
    op = g.rng.choice(["int_eq", "int_ne", "int_ne", "int_le", "int_le", "int_lt"])
    a, b = g.int_ref()[0], g.int_ref()[0]
    if g.rng.random() < 0.5:
        g.add("%s(%s, %s)" % (op, a, b))
    else:
        r, d = g.result_bool()
        g.add("%s_reif(%s, %s, %s)" % (op, a, b, r), d)


def gen_bool(g):
    rng = g.rng
    k = rng.randint(0, 5)
    if k == 0:
        op = rng.choice(["bool_eq", "bool_not", "bool_le", "bool_lt"])
        g.add("%s(%s, %s)" % (op, g.bool_ref(), g.bool_ref()))
    elif k == 1:
        op = rng.choice(["bool_and", "bool_or", "bool_xor", "bool_eq_reif", "bool_le_reif",
                         "bool_lt_reif"])
        a, b = g.bool_ref(), g.bool_ref()
        r, d = g.result_bool()
        g.add("%s(%s, %s, %s)" % (op, a, b, r), d)
    elif k == 2:
        op = rng.choice(["array_bool_and", "array_bool_or"])
        xs = [g.bool_ref() for _ in range(rng.randint(0, 3))]
        r, d = g.result_bool()
        g.add("%s([%s], %s)" % (op, ", ".join(xs), r), d)
    elif k == 3:
        xs = [g.bool_ref(0.15) for _ in range(rng.randint(1, 3))]
        g.add("array_bool_xor([%s])" % ", ".join(xs))
    elif k == 4:
        pos = [g.bool_ref(0.05) for _ in range(rng.randint(0, 2))]
        neg = [g.bool_ref(0.05) for _ in range(rng.randint(0 if pos else 1, 2))]
        g.add("bool_clause([%s], [%s])" % (", ".join(pos), ", ".join(neg)))
    else:
        b = g.bool_ref(0)
        small = [r for r, (lo, hi) in g.ints.items() if lo <= 1 and hi >= 0]
        if small and rng.random() < 0.6:
            g.add("bool2int(%s, %s)" % (b, rng.choice(sorted(small))))
        else:
            r, d = g.result_int(0, 1)
            g.add("bool2int(%s, %s)" % (b, r), d)


def gen_linear(g):
    rng = g.rng
    k = rng.randint(1, 3)
    terms = [g.int_ref(0.1) for _ in range(k)]
    coefs = [rng.randint(0, 3) for _ in range(k)]
    top = sum(c * t[1][1] for c, t in zip(coefs, terms))
    bottom = sum(c * t[1][0] for c, t in zip(coefs, terms))
    const = min(31, rng.randint(bottom, max(bottom, min(top, 31))))
    op = rng.choice(["eq", "le", "ne"])
    text = "int_lin_%s([%s], [%s], %d" % (op, ", ".join(map(str, coefs)),
                                           ", ".join(t[0] for t in terms), const)
    if rng.random() < 0.4:
        r, d = g.result_bool()
        g.add("%s, %s)" % (text.replace("int_lin_%s" % op, "int_lin_%s_reif" % op), r), d)
    else:
        g.add(text + ")")
    if g.bools and rng.random() < 0.3:
        bs = [g.bool_ref(0) for _ in range(rng.randint(1, 3))]
        cs = [rng.randint(0, 3) for _ in bs]
        g.add("bool_lin_%s([%s], [%s], %d)" % (rng.choice(["eq", "le"]), ", ".join(map(str, cs)),
                                                ", ".join(bs), rng.randint(0, sum(cs))))


def gen_arith(g):
    rng = g.rng
    op = rng.choice(["int_plus", "int_plus", "int_times", "int_div", "int_mod", "int_min",
                     "int_max", "int_abs"])
    (a, (alo, ahi)), (b, (blo, bhi)) = g.int_ref(), g.int_ref()
    if op in ("int_div", "int_mod") and blo == 0:
        b, blo, bhi = str(rng.randint(1, 4)), 1, 4
        blo = bhi = int(b)
    bounds = {"int_plus": (alo + blo, ahi + bhi), "int_times": (alo * blo, ahi * bhi),
              "int_div": (alo // max(bhi, 1), ahi // max(blo, 1)),
              "int_mod": (0, min(ahi, bhi - 1)), "int_min": (min(alo, blo), min(ahi, bhi)),
              "int_max": (max(alo, blo), max(ahi, bhi)), "int_abs": (alo, ahi)}[op]
    if op == "int_plus" and rng.random() < 0.3 and a in g.ints and "[" not in a:
        # the definition may stand on an operand: a = c - b
        c, _ = g.int_ref(0)
        g.add("int_plus(%s, %s, %s)" % (a, b, c), a if rng.random() < 0.5 else None)
        return
    r, d = g.result_int(*bounds)
    if op == "int_abs":
        g.add("int_abs(%s, %s)" % (a, r), d)
    else:
        g.add("%s(%s, %s, %s)" % (op, a, b, r), d)


def gen_element(g):
    rng = g.rng
    n = rng.randint(2, 7)
    i = g.int_ref(0.1)[0]
    if rng.random() < 0.3 and g.bools:
        if rng.random() < 0.5:
            arr = [rng.choice(["true", "false"]) for _ in range(n)]
            op = "array_bool_element"
        else:
            arr = [g.bool_ref(0.2) for _ in range(n)]
            op = "array_var_bool_element"
        r, d = g.result_bool()
    elif rng.random() < 0.5:
        arr = [str(rng.randint(0, 9)) for _ in range(n)]
        op = "array_int_element"
        r, d = g.result_int(0, 9)
    else:
        arr = [g.int_ref(0.2)[0] for _ in range(n)]
        op = "array_var_int_element"
        r, d = g.result_int(0, 9)
    if op == "array_int_element" and rng.random() < 0.4:
        name = g.fresh("T")
        g.decls.insert(0, "array [1..%d] of int: %s = [%s];" % (n, name, ", ".join(arr)))
        g.add("%s(%s, %s, %s)" % (op, i, name, r), d)
    else:
        g.add("%s(%s, [%s], %s)" % (op, i, ", ".join(arr), r), d)


def gen_alldiff(g):
    xs = sorted({g.int_ref(0.1)[0] for _ in range(g.rng.randint(2, 4))})
    g.rng.shuffle(xs)
    g.add("all_different_int([%s])" % ", ".join(xs))


def gen_table(g):
    rng = g.rng
    if g.bools and rng.random() < 0.3:
        xs = [g.bool_ref(0) for _ in range(rng.randint(1, 3))]
        rows = [[rng.choice(["true", "false"]) for _ in xs] for _ in range(rng.randint(1, 4))]
        name = "table_bool"
    else:
        refs = [g.int_ref(0.1) for _ in range(rng.randint(1, 3))]
        xs = [r for r, _ in refs]
        rows = [[str(rng.randint(b[0], min(31, b[1] + 1))) for _, b in refs]
                for _ in range(rng.randint(3, 10))]
        name = "table_int"
    flat = ", ".join(v for row in rows for v in row)
    text = "(%s, [%s])" % ("[" + ", ".join(xs) + "]", flat)
    g.add("zelk_" + name + text, gecode=["constraint gecode_" + name + text + ";"])


def gen_interval(g):
    """zelk's interval predicates; Gecode gets them as reified linear constraints."""
    rng = g.rng
    x, y = g.int_ref(0.1)[0], g.int_ref(0.1)[0]
    kind = rng.randint(0, 2)
    if kind == 0:
        a, b = rng.randint(0, 4), rng.randint(0, 4)
        r1, r2 = g.hidden_bool(), g.hidden_bool()
        g.add("zelk_no_overlap(%s, %d, %s, %d)" % (x, a, y, b), gecode=[
            "constraint int_lin_le_reif([1, -1], [%s, %s], %d, %s);" % (x, y, -a, r1),
            "constraint int_lin_le_reif([-1, 1], [%s, %s], %d, %s);" % (x, y, -b, r2),
            "constraint bool_clause([%s, %s], []);" % (r1, r2)])
    elif kind == 1:
        a = rng.randint(0, 5)
        b = a + rng.randint(0, 5)
        r1, r2, r3 = g.hidden_bool(), g.hidden_bool(), g.hidden_bool()
        g.add("zelk_sub_interval(%s, %s, %d, %d)" % (x, y, a, b), gecode=[
            "constraint int_lt_reif(%s, %s, %s);" % (y, x, r1),
            "constraint int_le_reif(%d, %s, %s);" % (a, x, r2),
            "constraint int_le_reif(%s, %d, %s);" % (y, b, r3),
            "constraint bool_clause([%s, %s], []);" % (r1, r2),
            "constraint bool_clause([%s, %s], []);" % (r1, r3)])
    else:
        a = rng.randint(0, 5)
        b = a + rng.randint(0, 5)
        k = rng.randint(0, 2)
        r1, r2 = g.hidden_bool(), g.hidden_bool()
        text = "zelk_no_sub_interval(%s, %s, %d, %d)" % (x, y, a, b) if k == 0 and \
            rng.random() < 0.5 else "zelk_no_sub_interval_k(%s, %s, %d, %d, %d)" % (x, y, a, b, k)
        g.add(text, gecode=[
            "constraint int_lin_le([1, -1], [%s, %s], %d);" % (x, y, -k),
            "constraint int_lt_reif(%s, %d, %s);" % (x, a, r1),
            "constraint int_lt_reif(%d, %s, %s);" % (b + k, y, r2),
            "constraint bool_clause([%s, %s], []);" % (r1, r2)])


GENERATORS = [(gen_compare, 0.2), (gen_bool, 0.15), (gen_linear, 0.15), (gen_arith, 0.18),
              (gen_element, 0.1), (gen_alldiff, 0.07), (gen_table, 0.08), (gen_interval, 0.035)]


def generate(seed):
    rng = random.Random(seed)
    g = Gen(rng)
    gen_variables(g)
    for _ in range(rng.randint(1, len(g.ints))):
        fn = rng.choices([f for f, _ in GENERATORS], [w for _, w in GENERATORS])[0]
        fn(g)
    if rng.random() < 0.35:
        candidates = sorted(r for r in g.ints if "[" not in r and r not in g.constants)
        g.objective = (rng.choice(candidates), rng.choice(["minimize", "maximize"]))
    return g


def model_text(g, gecode=False):
    lines = ["% zelk differential model"]
    decls = list(g.decls)
    if gecode and g.objective and g.objective[0] not in g.outputs:
        # Gecode must print the objective, zelk announces it in its comments
        decls = [d.replace(": %s ::" % g.objective[0], ": %s :: output_var ::"
                           % g.objective[0]) for d in decls]
    lines += decls
    if gecode:
        lines += g.gecode_decls
    for zelk_line, gecode_lines in g.cons:
        lines += gecode_lines if gecode else [zelk_line]
    if g.objective:
        lines.append("solve %s %s;" % (g.objective[1], g.objective[0]))
    else:
        lines.append("solve satisfy;")
    return "\n".join(lines) + "\n"



# ---- answers -------------------------------------------------------------------------------

def parse_answer(out, objective):
    """(status, optimum, solutions as sorted tuples of assignment lines, reason of a refusal)."""
    status, solutions, current, announced = "UNKNOWN", [], [], None
    lines = out.splitlines()
    for k, line in enumerate(lines):
        s = line.strip()
        if s == "% UNSUPPORTED":
            reason = lines[k + 1][1:].strip() if k + 1 < len(lines) else ""
            return "REFUSED", None, [], re.sub(r"\d+", "N", reason) or "no reason given"
        m = re.fullmatch(r"%\s*previous objective\s+(\d+)", s)
        if m:
            announced = int(m.group(1))
        elif s == "----------":
            solutions.append(tuple(sorted(current)))
            current, status = [], "SAT"
        elif s == "==========":
            status = "OPTIMUM" if objective else "SAT"
        elif s == "=====UNSATISFIABLE=====":
            status = "UNSAT"
        elif s and not s.startswith("%"):
            current.append(s)
    optimum = None
    if objective and solutions:
        for assignment in solutions[-1]:
            if assignment.startswith(objective[0] + " = "):
                optimum = int(assignment.split("=")[1].strip(" ;"))
        if announced is not None:
            optimum = announced
    return status, optimum, solutions, None


def checker_model(text):
    model = fzn_checker.read_model(text)
    return model, fzn_checker.Extension(model, [fzn_checker.Constraint(*c)
                                                for c in model.constraints])


def oracle(text):
    """(status, optimum, number of solutions) by the checker's enumeration of the model."""
    model, ext = checker_model(text)
    found = []

    def walk(values, domains, queue):
        if not ext.propagate(values, domains, queue):
            return
        open_vars = [v for v in domains if v not in values]
        if not open_vars:
            found.append(dict(values))
            return
        v = min(open_vars, key=lambda u: (len(domains[u]), u))
        for x in domains[v]:
            vals, doms = dict(values), dict(domains)
            vals[v], doms[v] = x, [x]
            walk(vals, doms, list(ext.watch[v]))

    walk({}, {n: sorted(v.domain) for n, v in model.vars.items()}, list(ext.constraints))
    if not found:
        return "UNSAT", None, 0
    if model.objective:
        objs = [fzn_checker.value_of(model.objective[0], s) for s in found]
        return "OPTIMUM", (min if model.objective[1] == "minimize" else max)(objs), len(found)
    return "SAT", None, len(found)


def objective_by_checker(text, out):
    """The objective of the last printed solution, when the model keeps it unprinted
    (-D announces no value): intermediate variables are functions of the outputs."""
    model, ext = checker_model(text)
    full = fzn_checker.check_solution(model, ext, fzn_checker.read_output(out)[0][-1],
                                      "last solution", None)
    return fzn_checker.value_of(model.objective[0], full)


def test_texts(tag, seed, ztext, gtext, objective, args, tmpdir):
    """(Result, Gecode's status) of a model given as zelk's and as Gecode's text."""
    zpath, gpath = (os.path.join(tmpdir, tag + ext) for ext in (".fzn", ".gecode.fzn"))
    for path, text in ((zpath, ztext), (gpath, gtext)):
        with open(path, "w") as f:
            f.write(text)
    gp = difftest.run([args.gecode, gpath])
    if gp is None or gp.returncode != 0:
        return difftest.Result(["gecode failed: %s" % (gp.stderr.strip()[:300] if gp
                                                       else "timeout")]), "NONE"
    gstatus, gopt, _, _ = parse_answer(gp.stdout, objective)
    gsols = None
    if not objective and gstatus == "SAT":
        ga = difftest.run([args.gecode, "-a", gpath])
        if ga is not None and ga.returncode == 0:
            sols = parse_answer(ga.stdout, None)[2]
            gsols = sols if len(sols) <= MAX_ENUMERATED else None
    expected = (gstatus, gopt)
    extra = OPTION_SETS[seed % len(OPTION_SETS)]
    option_sets = [[]] + ([extra] if extra else []) + ([["-d"]] if gsols is not None else [])
    result, disagreements = difftest.Result(), []
    for opts in option_sets:
        label = "zelk " + difftest.label(opts)
        zelk = [args.zelk, "-F", "fzn", "-s", str(seed)]
        p = difftest.run(zelk + opts + [zpath])
        result.runs += 1
        if difftest.broken(p, opts):
            result.problems.append(difftest.broken(p, opts))
            continue
        status, opt, sols, reason = parse_answer(p.stdout, objective)
        if status == "REFUSED":
            result.refused.append(reason)
            return result, gstatus
        if sols:
            c = subprocess.run([sys.executable, CHECKER, zpath], input=p.stdout,
                               capture_output=True, text=True)
            if c.returncode != 0:
                result.problems.append("%s: %s" % (label, (c.stdout + c.stderr).strip()[:400]))
        if opts == ["-d"]:
            found = difftest.compare_solutions(sols, gsols, "Gecode -a")
            result.problems += [x for x in found if "distinct" in x]
            disagreements += [(x, ("SAT" if sols else "UNSAT", None, len(set(sols))))
                              for x in found if "distinct" not in x]
            continue
        if status == "OPTIMUM" and opt is None and sols:
            try:
                opt = objective_by_checker(ztext, p.stdout)
            except fzn_checker.CheckError as e:
                result.problems.append("%s: no objective value: %s" % (label, e))
        if status == "UNSAT":
            v = difftest.run(zelk + ["-G", "-V", zpath])
            result.runs += 1
            if v is None or v.returncode != 0 or "=====UNSATISFIABLE=====" not in v.stdout:
                result.problems.append("zelk -G -V: refutation not validated: %s" % (
                    (v.stdout + v.stderr).strip()[-300:] if v else "timeout"))
        if (status, opt) != expected:
            disagreements.append(("%s says %s, Gecode %s" % (
                label, difftest.answer_text((status, opt)), difftest.answer_text(expected)),
                (status, opt, None)))
    if disagreements:
        # the checker's own enumeration decides; zelk is at fault only where it differs
        try:
            truth = oracle(ztext)
        except fzn_checker.CheckError as e:
            truth = None
            result.problems.append("checker's enumeration failed: %s" % e)
        if truth is None or any(answer[:2] != truth[:2] or answer[2] not in (None, truth[2])
                                for _, answer in disagreements):
            result.problems += [message for message, _ in disagreements]
            if truth is not None:
                result.problems.append("checker's enumeration: %s %s, %d solution(s)" % truth)
        elif not result.problems:
            result.note = "Gecode's answer differs from the checker's enumeration, zelk's agrees"
    return result, gstatus


def test_model(seed, g, args, tmpdir):
    return test_texts("s%d" % seed, seed, model_text(g), model_text(g, gecode=True),
                      g.objective, args, tmpdir)[0]


def test_case(path, args, tmpdir):
    """A model kept under fzn_cases/: a fault found here once, compared in the same way."""
    with open(path) as f:
        ztext = f.read()
    model = fzn_checker.read_model(ztext)
    objective = (model.objective[0][1], model.objective[1]) if model.objective else None
    gtext = ztext.replace("zelk_table_int(", "gecode_table_int(").replace(
        "zelk_table_bool(", "gecode_table_bool(")
    tag = os.path.splitext(os.path.basename(path))[0]
    return test_texts(tag, 1, ztext, gtext, objective, args, tmpdir)[0]


def main():
    ap = difftest.arguments(__doc__)
    ap.add_argument("--gecode", default="fzn-gecode")
    ap.add_argument("--cases", default=os.path.join(HERE, "fzn_cases"),
                    help="folder of kept models, each run before the random ones")
    args = ap.parse_args()
    args.zelk = os.path.abspath(args.zelk)
    if shutil.which(args.gecode) is None:
        print("skipped: %s not found" % args.gecode)
        return 77
    failed_cases = 0
    if args.seed is None and os.path.isdir(args.cases):
        tmpdir = tempfile.mkdtemp(prefix="fzn_cases.")
        for name in sorted(f for f in os.listdir(args.cases) if f.endswith(".fzn")):
            r = test_case(os.path.join(args.cases, name), args, tmpdir)
            print("%s case %s%s" % ("FAIL" if r.problems else "ok  ", name,
                                    " (refused: %s)" % r.refused[0] if r.refused else ""))
            for p in r.problems:
                print("  " + p)
            failed_cases += bool(r.problems)
        shutil.rmtree(tmpdir, ignore_errors=True)
    return difftest.campaign(
        "fzn differential", args, lambda seed: model_text(generate(seed)),
        lambda seed, tmpdir: test_model(seed, generate(seed), args, tmpdir),
        lambda seed: "--gecode %s" % args.gecode, max_refused=0.25, failed_before=failed_cases)


if __name__ == "__main__":
    sys.exit(main())
