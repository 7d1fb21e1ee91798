#!/usr/bin/env python3
"""Whole runs of zelk-interpolate, each answer checked by enumeration.

  interpolate_check.py --program ZELK_INTERPOLATE --examples DIR [--seeds FIRST:LAST]

The example pair of DIR both ways, fixed pairs, then random pairs of small OPB files
over overlapping variables. An "i" formula must, over every assignment, be implied by
A, contradict B and name only shared variables, and A and B must have no common
model; a "v" line must satisfy both.
"""
import argparse
import itertools
import os
import random
import re
import subprocess
import sys
import tempfile


# ---- OPB: constraints as (terms, relation, rhs), a term (coefficient, [(name, negated)])

def parse_opb(text):
    constraints = []
    for line in text.splitlines():
        line = line.strip()
        if not line or line.startswith('*'):
            continue
        body, relation, rhs = re.match(r'(.*?)(>=|=)\s*(-?\d+)\s*;', line).groups()
        rhs = int(rhs)
        terms = [(int(c), [(n, neg == '~') for neg, n in re.findall(r'(~?)([A-Za-z_]\w*)', product)])
                 for c, product in re.findall(r'([+-]\d+)((?:\s+~?[A-Za-z_]\w*)+)', body)]
        constraints.append((terms, relation, rhs))
    return constraints


def holds(constraints, values):
    for terms, relation, rhs in constraints:
        total = sum(c * all(values[n] != neg for n, neg in product) for c, product in terms)
        if (relation == '>=' and total < rhs) or (relation == '=' and total != rhs):
            return False
    return True


def names(constraints):
    return {n for terms, _, _ in constraints for _, product in terms for n, _ in product}


# ---- the printed formula

def parse_set(text):
    values = set()
    for item in filter(None, text.split(',')):
        if ':' in item:
            lo, hi = item.split(':')
            values.update(range(int(lo), int(hi) + 1))
        else:
            values.add(int(item))
    return values


def parse_literal(text):
    m = re.fullmatch(r'([A-Za-z_]\w*)(=|!=|<=|>=|:)(.*)', text.strip())
    if not m:
        raise ValueError('bad literal ' + text)
    name, op, rest = m.groups()
    everything = set(range(32))
    if op == ':':
        values = parse_set(rest.strip('{}'))
    else:
        k = int(rest)
        values = {'=': {k}, '!=': everything - {k}, '<=': set(range(0, k + 1)),
                  '>=': set(range(k, 32))}[op]
    return name, values


def parse_formula(text):
    """A function of an assignment, and the names the formula uses."""
    tokens = re.findall(r'\[[^\]]*\]|&&|\|\||not\(|\(|\)|true|false', text)
    if ''.join(tokens) != text:
        raise ValueError('unreadable formula ' + text)
    used = set()
    pos = [0]

    def peek():
        return tokens[pos[0]] if pos[0] < len(tokens) else None

    def take():
        pos[0] += 1
        return tokens[pos[0] - 1]

    def primary():
        t = take()
        if t == 'true':
            return lambda v: True
        if t == 'false':
            return lambda v: False
        if t in ('(', 'not('):
            inner = disjunction()
            if take() != ')':
                raise ValueError('missing ) in ' + text)
            return (lambda v: not inner(v)) if t == 'not(' else inner
        literals = [parse_literal(l) for l in t[1:-1].split(', ') if l]
        used.update(n for n, _ in literals)
        return lambda v: any(v[n] in s for n, s in literals)

    def conjunction():
        parts = [primary()]
        while peek() == '&&':
            take()
            parts.append(primary())
        return lambda v: all(p(v) for p in parts)

    def disjunction():
        parts = [conjunction()]
        while peek() == '||':
            take()
            parts.append(conjunction())
        return lambda v: any(p(v) for p in parts)

    f = disjunction()
    if pos[0] != len(tokens):
        raise ValueError('trailing text in ' + text)
    return f, used


# ---- one run

def check(program, text_a, text_b, label, tmp):
    """(failure or None, whether A and B were refuted) of one run on a pair of texts."""
    paths = [os.path.join(tmp, name) for name in ('a.opb', 'b.opb')]
    for path, text in zip(paths, (text_a, text_b)):
        with open(path, 'w') as f:
            f.write(text)
    out = subprocess.run([program] + paths, capture_output=True, text=True, timeout=120)
    failure = verify(parse_opb(text_a), parse_opb(text_b), out, label)
    if failure and not label.startswith('example'):
        failure += '\n--- A\n%s--- B\n%s' % (text_a, text_b)
    return failure, 's UNSATISFIABLE' in out.stdout.splitlines()


def verify(a, b, out, label):
    if out.returncode != 0:
        return '%s: exit status %d\n%s%s' % (label, out.returncode, out.stdout, out.stderr)
    lines = out.stdout.splitlines()
    status = [l for l in lines if l.startswith('s ')]
    variables = sorted(names(a) | names(b))
    assignments = [dict(zip(variables, bits))
                   for bits in itertools.product((0, 1), repeat=len(variables))]
    both = [v for v in assignments if holds(a, v) and holds(b, v)]
    if status == ['s SATISFIABLE']:
        v_line = [l for l in lines if l.startswith('v ')]
        if not both or len(v_line) != 1:
            return '%s: SATISFIABLE without a model of A and B\n%s' % (label, out.stdout)
        values = {w.lstrip('-'): 0 if w.startswith('-') else 1 for w in v_line[0].split()[1:]}
        if not holds(a, values) or not holds(b, values):
            return '%s: the printed solution violates A or B\n%s' % (label, out.stdout)
        return None
    if status != ['s UNSATISFIABLE']:
        return '%s: no answer\n%s' % (label, out.stdout)
    if both:
        return '%s: UNSATISFIABLE, but %s satisfies A and B' % (label, both[0])
    i_line = [l[2:] for l in lines if l.startswith('i ')]
    if len(i_line) != 1:
        return '%s: no interpolant line\n%s' % (label, out.stdout)
    try:
        f, used = parse_formula(i_line[0])
    except (ValueError, IndexError) as e:
        return '%s: %s' % (label, e)
    shared = names(a) & names(b)
    if not used <= shared:
        return '%s: %s names %s, which A and B do not share' % (label, i_line[0], used - shared)
    for v in assignments:
        if holds(a, v) and not f(v):
            return '%s: %s is false on %s, a model of A' % (label, i_line[0], v)
        if holds(b, v) and f(v):
            return '%s: %s is true on %s, a model of B' % (label, i_line[0], v)
    return None


def random_file(rng, variables, count):
    lines = []
    for _ in range(count):
        k = rng.randint(1, 3)
        # a term is a literal, or now and then a product of two
        terms = [(rng.randint(1, 3), [(n, rng.random() < 0.4)
                                      for n in rng.sample(variables, 1 + (rng.random() < 0.2))])
                 for _ in range(k)]
        total = sum(c for c, _ in terms)
        relation = '=' if rng.random() < 0.15 else '>='
        rhs = rng.randint(1, total)
        lines.append(' '.join('+%d %s' % (c, ' '.join(('~' if neg else '') + n for n, neg in product))
                              for c, product in terms) + ' %s %d;' % (relation, rhs))
    return '\n'.join(lines) + '\n'


FIXED = [
    ('+1 x1 = 1;\n+1 x1 +1 x2 >= 1;\n', '+1 ~x1 +1 x2 >= 2;\n'),
    ('+2 x1 = 2;\n+1 ~x1 +1 x3 >= 1;\n', '+2 ~x3 +1 x2 >= 2;\n+1 x1 x2 >= 1;\n'),
    ('+1 x1 x2 = 1;\n+1 x3 >= 1;\n', '+1 x1 x2 +1 ~x3 >= 2;\n'),
    ('+1 x1 x2 +1 x3 >= 2;\n', '+1 ~x1 +1 ~x3 >= 1;\n+1 x1 x2 +1 ~x2 >= 1;\n'),
]


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument('--program', required=True)
    parser.add_argument('--examples', required=True)
    parser.add_argument('--seeds', default='1:200')
    args = parser.parse_args()
    first, last = (int(x) for x in args.seeds.split(':'))
    examples = [open(os.path.join(args.examples, 'interpolant_%s.opb' % x)).read() for x in 'ab']
    failures, unsat = [], 0
    with tempfile.TemporaryDirectory() as tmp:
        # Fixed pairs: a unit equality of A fixes a shared variable while the model is
        # built, a fact of A that B must not take for its own; products of each part.
        pairs = [('example', examples)] + [('fixed pair %d' % k, p) for k, p in enumerate(FIXED)]
        for label, (text_a, text_b) in pairs:
            for x, y in ((text_a, text_b), (text_b, text_a)):
                failures.append(check(args.program, x, y, label, tmp)[0])
        for seed in range(first, last + 1):
            rng = random.Random(seed)
            names_all = ['x%d' % i for i in range(1, 9)]
            split = rng.randint(3, 5)
            text_a = random_file(rng, names_all[:split + 1], rng.randint(2, 7))
            text_b = random_file(rng, names_all[split - 2:], rng.randint(2, 7))
            failure, refuted = check(args.program, text_a, text_b, 'seed %d' % seed, tmp)
            failures.append(failure)
            unsat += refuted and not failure
    failures = [f for f in failures if f]
    for failure in failures:
        print(failure)
    print('%d failures; %d refuted pairs among seeds %d to %d' % (len(failures), unsat, first, last))
    # A campaign that never reaches a refutation checks nothing.
    return 1 if failures or unsat == 0 else 0


if __name__ == '__main__':
    sys.exit(main())
