#!/usr/bin/env python3
"""Randomised differential test of zelk's answers to C-like models.

Random models of 2 to 5 variables in every declaration form, sometimes an objective,
and expressions over every operator, printed with and without parentheses to exercise
precedence (a text the checker's parser refuses, as a < b < c, must be a syntax error
for zelk too), and the predicates. Brute force with c_like_checker's evaluator on its
own parse gives status, optimum and solutions. Two option sets chosen by the seed, and
-d when there is no objective and few solutions. Refusals (values outside 0..31, a
logical operand that can be neither 0 nor 1) are no failure, but more than 40% are.
--large: 6 or 7 variables and 5 to 9 short constraints, which need real search.
"""
import itertools
import os
import random
import sys

import difftest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tools"))
import c_like_checker as checker  # noqa: E402

NAMES = ["x", "y", "z", "a_1", "B", "t0", "_u"]
# Subtraction and division are often refused (a value below 0, a divisor that can
# be 0): they come less often, so that most models are solved.
BINARY = ["+", "+", "*", "-", "/", "%", "==", "!=", "<", ">", "<=", ">=", "&&", "||", "&&", "||"]


# ---- models ------------------------------------------------------------------------

def declaration(rng, names):
    form = rng.randrange(6)
    if form == 0:
        domain = "bool"
    elif form == 1:
        lo = rng.randrange(0, 4)
        domain = "int {%d:%d}" % (lo, lo + rng.randrange(1, 5))
    elif form == 2:
        lo, step = rng.randrange(0, 3), rng.randrange(1, 3)
        domain = "int {%d:%d:%d}" % (lo, step, lo + step * rng.randrange(1, 3))
    elif form == 3:
        values = sorted(rng.sample(range(0, 7), rng.randrange(1, 4)))
        domain = "int {%s}" % ", ".join(str(v) for v in values)
    elif form == 4:
        domain = "int {0:1, %d}" % rng.randrange(2, 6)
    else:
        domain = "int {%d}" % rng.randrange(0, 4)
    return "%s %s;" % (domain, ", ".join(names))


def expression(rng, names, depth):
    """Text of a random expression; parenthesised or not at random."""
    if depth == 0 or rng.random() < 0.25:
        if rng.random() < 0.7:
            return rng.choice(names)
        return str(rng.randrange(0, 6))
    kind = rng.randrange(11)
    if kind < 6:
        op = rng.choice(BINARY)
        if op in ("&&", "||") and rng.random() < 0.7:
            # Mostly comparisons under a logical operator: an operand that can be
            # neither 0 nor 1 is refused.
            text = "%s %s %s" % (comparison(rng, names, depth - 1), op,
                                 comparison(rng, names, depth - 1))
        else:
            text = "%s %s %s" % (expression(rng, names, depth - 1), op,
                                 expression(rng, names, depth - 1))
    elif kind == 6:
        text = "%s ? %s : %s" % tuple(expression(rng, names, depth - 1) for _ in range(3))
    elif kind == 10:
        # A chain whose reading depends on associativity and on where ! binds.
        parts = [expression(rng, names, 0) for _ in range(5)]
        if rng.random() < 0.5:
            text = "%s ? %s : %s ? %s : %s" % tuple(parts)
        else:
            text = "!%s %s %s %s %s" % (parts[0], rng.choice(["==", "<", "!="]), parts[1],
                                       rng.choice(["&&", "||"]), parts[2])
    elif kind == 7:
        f = rng.choice(["min", "max", "pow"])
        if f == "pow":
            return "pow(%s, %d)" % (expression(rng, names, depth - 1), rng.randrange(0, 3))
        return "%s(%s, %s)" % (f, expression(rng, names, depth - 1), expression(rng, names, depth - 1))
    elif kind == 8:
        return "abs(%s)" % expression(rng, names, depth - 1)
    else:
        text = rng.choice(["!", "-", "+"]) + expression(rng, names, depth - 1)
    return "(%s)" % text if rng.random() < 0.3 else text


def term(rng, names):
    kind = rng.randrange(5)
    x = rng.choice(names)
    if kind == 0:
        return "%s + %d" % (x, rng.randrange(1, 3))
    if kind == 1:
        return "%s * 2" % x
    if kind == 2:
        return "abs(%s - %s)" % (x, rng.choice(names))
    return x


def comparison(rng, names, depth):
    return "(%s %s %s)" % (expression(rng, names, max(depth - 1, 0)),
                           rng.choice(["==", "!=", "<", ">", "<=", ">="]),
                           expression(rng, names, max(depth - 1, 0)))


def constraint(rng, names, depth_limit):
    kind = rng.randrange(12)
    pick = lambda: rng.choice(names)  # noqa: E731
    if kind == 0 and len(names) >= 2:
        return "all_diff(%s);" % ", ".join(rng.sample(names, rng.randrange(2, len(names) + 1)))
    if kind == 1:
        return "!overlap(%s, %d, %s, %d);" % (pick(), rng.randrange(0, 4), pick(), rng.randrange(0, 4))
    if kind == 2:
        lo = rng.randrange(0, 4)
        return "sub_interval(%s, %s, %d, %d);" % (pick(), pick(), lo, lo + rng.randrange(0, 4))
    if kind == 3:
        lo = rng.randrange(0, 4)
        k = ", %d" % rng.randrange(0, 3) if rng.random() < 0.5 else ""
        return "!sub_interval(%s, %s, %d, %d%s);" % (pick(), pick(), lo, lo + rng.randrange(0, 4), k)
    if depth_limit <= 2 and rng.random() < 0.8:
        # Large models: comparisons of short terms, mostly loose ones, so that many
        # models have solutions and the search has work to do.
        op = rng.choice(["!=", "!=", "<=", ">=", "<", "==", "!= "])
        text = "%s %s %s" % (term(rng, names), op.strip(), term(rng, names))
        if rng.random() < 0.3:
            text = "%s %s %s %s %s" % (term(rng, names), rng.choice(["<", "!="]), term(rng, names),
                                       rng.choice(["||", "&&"]), text)
        return text + ";"
    return "%s;" % expression(rng, names, rng.randrange(1, depth_limit))


def make_model(seed, large=False):
    """A large model has 6 or 7 variables and 5 to 9 short constraints: more search."""
    rng = random.Random(seed)
    names = rng.sample(NAMES, rng.randrange(6, 8) if large else rng.randrange(2, 6))
    lines, i = [], 0
    while i < len(names):
        n = rng.randrange(1, 3)
        if large:
            lo = rng.randrange(0, 3)
            lines.append("int {%d:%d} %s;" % (lo, lo + rng.randrange(3, 5), ", ".join(names[i:i + n])))
        else:
            lines.append(declaration(rng, names[i:i + n]))
        i += n
    if rng.random() < 0.3:
        lines.append("%s(%s);" % (rng.choice(["minimize", "maximize"]),
                                  expression(rng, names, rng.randrange(0, 3))))
    for _ in range(rng.randrange(5, 10) if large else rng.randrange(1, 6)):
        lines.append(constraint(rng, names, 2 if large else 4))
    if rng.random() < 0.2:
        lines.insert(rng.randrange(1, len(lines) + 1), "// a comment /* within */")
    return "\n".join(lines) + "\n"


# ---- brute force -------------------------------------------------------------------

def brute_force(text):
    variables, objective, constraints = checker.parse_model(text)
    names = [n for n, _ in variables]
    solutions, best = [], None
    for values in itertools.product(*[sorted(d) for _, d in variables]):
        assignment = dict(zip(names, values))
        if all(checker.evaluate(c, assignment) == 1 for c in constraints):
            solutions.append(values)
            if objective is not None:
                v = checker.evaluate(objective[1], assignment)
                better = best is None or (v < best if objective[0] == "minimize" else v > best)
                best = v if better else best
    return solutions, objective, best


# ---- runs --------------------------------------------------------------------------

def run(zelk, options, path):
    p = difftest.run([zelk, "-F", "c", "-s", "1"] + options + [path])
    return (None, "") if p is None else (p.returncode, p.stdout + p.stderr)


def refused(code, out):
    # "s UNSUPPORTED", or the exception that refuses an operand of a logical
    # operator that can be neither 0 nor 1.
    return ((code == 0 and difftest.parse(out)[0] == "UNSUPPORTED")
            or (code == 1 and "in a boolean context" in out))


def check_seed(zelk, seed, directory, large):
    text = make_model(seed, large)
    path = os.path.join(directory, "m%d.c" % seed)
    with open(path, "w") as f:
        f.write(text)
    try:
        solutions, objective, best = brute_force(text)
    except checker.ModelError as e:
        # Text outside the language (a < b < c, --x): zelk must refuse it as well.
        code, out = run(zelk, [], path)
        if code == 1 and "syntax error" in out and "Parsing failed" in out:
            return difftest.Result(runs=1)
        # Building goes along with parsing: an earlier statement may be refused first.
        if refused(code, out):
            return difftest.Result(refused=["refused"], runs=1)
        return difftest.Result(["the checker reads no model (%s), zelk answers with exit "
                                "status %s:\n%s" % (e, code, out.strip()[-300:])], runs=1)
    option_sets = random.Random(seed * 7919).sample(difftest.OPTION_SETS, 2)
    if objective is None and len(solutions) <= difftest.MAX_ENUMERATED:
        option_sets.append(["-d"])
    result = difftest.Result(runs=len(option_sets))
    for options in option_sets:
        code, out = run(zelk, options, path)
        where = "with %s" % (" ".join(options) or "no option")
        if code is None:
            result.problems.append("%s: no answer within %d s" % (where, difftest.RUN_TIMEOUT))
            continue
        if refused(code, out):
            return difftest.Result(refused=["refused"], runs=result.runs)
        if code != 0:
            result.problems.append("%s: exit status %d: %s" % (where, code, out.strip()[-300:]))
            continue
        status, value, models = difftest.parse(out)
        result.problems += ["%s: %s" % (where, w) for w in checker.check(text, out)]
        if options == ["-d"]:
            result.problems += difftest.compare_solutions(
                [tuple(int(w) for w in words) for _, words in models], solutions)
        elif not solutions:
            if status != "UNSAT":
                result.problems.append("%s: %s, brute force finds no solution" % (where, status))
        elif objective is None:
            if status != "SAT":
                result.problems.append("%s: %s, brute force finds %d solutions"
                                       % (where, status, len(solutions)))
        elif status != "OPTIMUM" or value != best:
            result.problems.append("%s: %s, last o line %s, brute force's optimum is %d"
                                   % (where, status, value, best))
    return result


def main():
    ap = difftest.arguments(__doc__, seeds="1:200")
    difftest.large_arguments(ap)
    args = ap.parse_args()
    return difftest.campaign(
        "c-like differential", args,
        lambda seed: make_model(seed, difftest.is_large(args, seed)),
        lambda seed, tmpdir: check_seed(args.zelk, seed, tmpdir, difftest.is_large(args, seed)),
        lambda seed: "--large" if difftest.is_large(args, seed) else "", max_refused=0.40)


if __name__ == "__main__":
    sys.exit(main())
