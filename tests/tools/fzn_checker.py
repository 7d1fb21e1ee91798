#!/usr/bin/env python3
"""Independent checker of answers to FlatZinc models; shares no code with the solver.

    fzn_checker.py MODEL.fzn < solver_output      fzn_checker.py --self-test

Each solution of the output ("name = value;" lines closed by "----------"; a comment
"% previous objective N" announces the objective of the one after it) must print
every output_var and output_array once, in its domain, and extend to the unprinted
variables so that every constraint holds by its FlatZinc meaning; objectives must
improve strictly. Exits 0 when all holds (also for a bare status line), else 1.
"""
import re
import sys

from check_common import OPERATORS, int_literal, trunc_div, trunc_mod

LO, HI = 0, 31
SEARCH_LIMIT = 200000


class CheckError(Exception):
    pass


def fail(message):
    raise CheckError(message)


# ---- tokens ----------------------------------------------------------------------------

TOKEN_RULES = [
    ("punct", re.compile(r"\.\.|::")),
    ("int", re.compile(r"0x[0-9a-fA-F]+|0[0-9a-fA-F]+|0|[1-9][0-9]*")),
    ("float", re.compile(r"[0-9]*\.[0-9]+")),
    ("ident", re.compile(r"[A-Za-z_][A-Za-z0-9_]*")),
]
SKIP = re.compile(r"(?:[ \t\r\n]+|%[^\n]*)+")


def tokenize(text):
    tokens, pos, line = [], 0, 1
    while pos < len(text):
        m = SKIP.match(text, pos)
        if m:
            line += m.group(0).count("\n")
            pos = m.end()
            continue
        best = None
        for kind, rule in TOKEN_RULES:
            m = rule.match(text, pos)
            if m and (best is None or m.end() > best[1].end()):
                best = (kind, m)
        if best is None:
            tokens.append(("char", text[pos], line))
            pos += 1
        else:
            tokens.append((best[0], best[1].group(0), line))
            pos = best[1].end()
    tokens.append(("eof", "", line))
    return tokens


class Tokens:
    def __init__(self, text):
        self.toks = tokenize(text)
        self.i = 0

    def peek(self, k=0):
        return self.toks[min(self.i + k, len(self.toks) - 1)]

    def text(self, k=0):
        return self.peek(k)[1]

    def take(self, expected=None):
        tok = self.toks[self.i]
        if expected is not None and tok[1] != expected:
            fail("line %d: expected %r, read %r" % (tok[2], expected, tok[1]))
        self.i = min(self.i + 1, len(self.toks) - 1)
        return tok

    def accept(self, text):
        if self.text() == text:
            self.take()
            return True
        return False


# ---- model -----------------------------------------------------------------------------
# A term is ("c", int), ("v", name), ("set", frozenset), ("a", [terms]), ("id", name),
# ("elem", name, index) or ("ann", name, [terms]); names are resolved after reading.

class Var:
    def __init__(self, name, domain, boolean, annotations, line):
        self.name, self.domain, self.boolean = name, domain, boolean
        self.annotations, self.line = annotations, line


class Model:
    def __init__(self):
        self.vars = {}        # name -> Var
        self.params = {}      # name -> resolved term (constant, set or array)
        self.arrays = {}      # name -> (resolved array term, annotations)
        self.constraints = []  # (name, resolved args, line)
        self.objective = None  # (resolved term, "minimize"/"maximize")
        self.output = []      # (name, kind, dims or None) in file order

    def resolve(self, term, line):
        kind = term[0]
        if kind in ("c", "set"):
            return term
        if kind == "a":
            return ("a", [self.resolve(t, line) for t in term[1]])
        if kind == "id":
            name = term[1]
            if name in self.vars:
                return ("v", name)
            if name in self.params:
                return self.params[name]
            if name in self.arrays:
                return self.arrays[name][0]
            fail("line %d: unknown identifier %s" % (line, name))
        if kind == "elem":
            array = self.resolve(("id", term[1]), line)
            if array[0] != "a" or not 1 <= term[2] <= len(array[1]):
                fail("line %d: no element %s[%d]" % (line, term[1], term[2]))
            return array[1][term[2] - 1]
        fail("line %d: unexpected argument" % line)


def parse_set(toks):
    """After '{': the set of ints, ranges and from:step:to items up to '}'."""
    values = set()
    while not toks.accept("}"):
        a = parse_int(toks)
        if toks.accept(".."):
            values.update(range(a, parse_int(toks) + 1))
        elif toks.accept(":"):
            step = int_literal(toks.take()[1])
            if not toks.accept(":"):
                fail("line %d: expected ':' in from:step:to" % toks.peek()[2])
            last = parse_int(toks)
            if step <= 0 or last < a or (last - a) % step:
                fail("line %d: bad from:step:to" % toks.peek()[2])
            values.update(range(a, last + 1, step))
        else:
            values.add(a)
        toks.accept(",")
    return frozenset(values)


def parse_int(toks):
    negative = toks.accept("-")
    tok = toks.take()
    if tok[0] != "int":
        fail("line %d: expected an integer, read %r" % (tok[2], tok[1]))
    return -int_literal(tok[1]) if negative else int_literal(tok[1])


def parse_term(toks):
    tok = toks.peek()
    if tok[1] == "[":
        toks.take()
        return ("a", parse_list(toks, "]"))
    if tok[1] == "{":
        toks.take()
        return ("set", parse_set(toks))
    if tok[1] in ("true", "false"):
        toks.take()
        return ("c", int(tok[1] == "true"))
    if tok[0] == "float":
        toks.take()
        return ("c", int(float(tok[1])))
    if tok[0] == "int" or tok[1] == "-":
        a = parse_int(toks)
        if toks.accept(".."):
            return ("set", frozenset(range(a, parse_int(toks) + 1)))
        return ("c", a)
    if tok[0] == "ident":
        toks.take()
        if toks.text() == "[" and toks.peek(1)[0] == "int" and toks.text(2) == "]":
            toks.take()
            index = int_literal(toks.take()[1])
            toks.take("]")
            return ("elem", tok[1], index)
        if toks.accept("("):
            return ("ann", tok[1], parse_list(toks, ")"))
        return ("id", tok[1])
    fail("line %d: unexpected %r" % (tok[2], tok[1]))


def parse_list(toks, close):
    """The comma-separated terms up to close."""
    items = []
    while not toks.accept(close):
        items.append(parse_term(toks))
        toks.accept(",")
    return items


def parse_annotations(toks):
    anns = []
    while toks.accept("::"):
        anns.append(parse_term(toks))
    return anns


def ann_name(a):
    return a[1] if a[0] in ("id", "ann") else None


def parse_type(toks):
    """(array size or None, is var, domain, boolean, is set) of a declaration's type."""
    is_array = None
    if toks.accept("array"):
        toks.take("[")
        if toks.accept("int"):
            is_array = -1
        else:
            first = parse_int(toks)
            toks.take("..")
            is_array = parse_int(toks) - first + 1
        toks.take("]")
        toks.take("of")
    is_var = toks.accept("var")
    is_set = toks.accept("set")
    if is_set:
        toks.take("of")
    tok = toks.peek()
    if toks.accept("int"):
        return is_array, is_var, frozenset(range(LO, HI + 1)), False, is_set
    if toks.accept("bool"):
        return is_array, is_var, frozenset((0, 1)), True, is_set
    if toks.accept("{"):
        return is_array, is_var, parse_set(toks), False, is_set
    if tok[0] in ("int", "char"):
        a = parse_int(toks)
        toks.take("..")
        return is_array, is_var, frozenset(range(a, parse_int(toks) + 1)), False, is_set
    fail("line %d: unsupported type %r" % (tok[2], tok[1]))


def read_model(text):
    toks = Tokens(text)
    model = Model()
    while toks.peek()[0] != "eof":
        line = toks.peek()[2]
        if toks.accept("predicate"):
            depth = 0
            while not (depth == 0 and toks.text() == ";"):
                depth += {"(": 1, ")": -1}.get(toks.take()[1], 0)
            toks.take(";")
        elif toks.accept("constraint"):
            name = toks.take()[1]
            toks.take("(")
            args = [model.resolve(t, line) for t in parse_list(toks, ")")]
            parse_annotations(toks)
            toks.take(";")
            model.constraints.append((name, args, line))
        elif toks.accept("solve"):
            parse_annotations(toks)
            goal = toks.take()[1]
            if goal in ("minimize", "maximize"):
                model.objective = (model.resolve(parse_term(toks), line), goal)
            elif goal != "satisfy":
                fail("line %d: unknown solve goal %s" % (line, goal))
            toks.take(";")
        else:
            is_array, is_var, domain, boolean, is_set = parse_type(toks)
            toks.take(":")
            names = [toks.take()[1]]
            while toks.accept(","):
                names.append(toks.take()[1])
            anns = parse_annotations(toks)
            value = model.resolve(parse_term(toks), line) if toks.accept("=") else None
            toks.take(";")
            for name in names:
                if name in model.vars or name in model.params or name in model.arrays:
                    fail("line %d: %s declared twice" % (line, name))
                if not is_var:
                    if value is None:
                        fail("line %d: parameter %s has no value" % (line, name))
                    model.params[name] = value
                    continue
                if is_set:
                    fail("line %d: set variables are not in the dialect" % line)
                if is_array is not None:
                    if value is None:
                        # no literal: the array's elements are variables of their own
                        value = ("a", [])
                        for k in range(1, max(is_array, 0) + 1):
                            elem = "%s[%d]" % (name, k)
                            model.vars[elem] = Var(elem, domain, boolean, [], line)
                            value[1].append(("v", elem))
                    elif value[0] != "a":
                        fail("line %d: array %s given a scalar" % (line, name))
                    elems = []
                    for t in value[1]:
                        # the array's element type restricts what it holds: a constant
                        # outside it leaves the model without solutions
                        if t[0] not in ("v", "c"):
                            fail("line %d: array %s holds a non-integer" % (line, name))
                        if t[0] == "v" or t[1] not in domain:
                            model.constraints.append(("zelk_checker_in", [t, ("set", domain)], line))
                        elems.append(t)
                    model.arrays[name] = (("a", elems), anns)
                else:
                    model.vars[name] = Var(name, domain, boolean, anns, line)
                    if value is not None:
                        model.constraints.append(("int_eq", [("v", name), value], line))
                for a in anns:
                    if ann_name(a) == "output_var" and is_array is None:
                        model.output.append((name, "var", None))
                    elif ann_name(a) == "output_array" and is_array is not None:
                        dims = None
                        if a[0] == "ann" and a[2] and a[2][0][0] == "a":
                            dims = [(min(s[1]), max(s[1])) if s[1] else (1, 0) for s in a[2][0][1]]
                        model.output.append((name, "array", dims))
    return model


# ---- meaning of the predicates -----------------------------------------------------------

def lin(cs, xs):
    return sum(c * x for c, x in zip(cs, xs))


def element(i, array, r):
    return 1 <= i <= len(array) and array[i - 1] == r


def table(xs, flat):
    n = len(xs)
    return n > 0 and len(flat) % n == 0 and \
        any(list(flat[k:k + n]) == list(xs) for k in range(0, len(flat), n))


def no_sub_interval(x, y, a, b, k=0):
    return x <= y - k and (x < a or y - k > b)


PREDICATES = {
    "int_plus": lambda a, b, c: a + b == c,
    "int_times": lambda a, b, c: a * b == c,
    "int_div": lambda a, b, c: b != 0 and trunc_div(a, b) == c,
    "int_mod": lambda a, b, c: b != 0 and trunc_mod(a, b) == c,
    "int_min": lambda a, b, c: min(a, b) == c,
    "int_max": lambda a, b, c: max(a, b) == c,
    "int_abs": lambda a, b: abs(a) == b,
    "bool_and": lambda a, b, r: r == (a and b),
    "bool_or": lambda a, b, r: r == (a or b),
    "bool_xor": lambda a, b, r: r == (a != b),
    "array_bool_and": lambda xs, r: r == all(xs),
    "array_bool_or": lambda xs, r: r == any(xs),
    "array_bool_xor": lambda xs: sum(xs) % 2 == 1,
    "bool_clause": lambda pos, neg: any(pos) or not all(neg),
    "all_different_int": lambda xs: len(set(xs)) == len(xs),
    "zelk_no_overlap": lambda x, a, y, b: x + a <= y or y + b <= x,
    "zelk_sub_interval": lambda x, y, a, b: x > y or (a <= x and y <= b),
    "zelk_checker_in": lambda x, s: x in s,
}
for op, plain, reified in (("==", "int_eq bool_eq bool2int", "int_eq_reif bool_eq_reif"),
                           ("!=", "int_ne bool_not", "int_ne_reif"),
                           ("<=", "int_le bool_le", "int_le_reif bool_le_reif"),
                           ("<", "int_lt bool_lt", "int_lt_reif bool_lt_reif")):
    PREDICATES.update({n: OPERATORS[op] for n in plain.split()})
    PREDICATES.update({n: lambda a, b, r, f=OPERATORS[op]: r == f(a, b) for n in reified.split()})
for op, plain, reified in (("==", "int_lin_eq bool_lin_eq", "int_lin_eq_reif"),
                           ("<=", "int_lin_le bool_lin_le", "int_lin_le_reif"),
                           ("!=", "int_lin_ne", "int_lin_ne_reif")):
    PREDICATES.update({n: lambda cs, xs, c, f=OPERATORS[op]: f(lin(cs, xs), c)
                       for n in plain.split()})
    PREDICATES.update({n: lambda cs, xs, c, r, f=OPERATORS[op]: r == f(lin(cs, xs), c)
                       for n in reified.split()})
PREDICATES.update({n: element for n in ("array_int_element", "array_bool_element",
                                         "array_var_int_element", "array_var_bool_element")})
PREDICATES.update({n: table for n in ("zelk_table_int", "zelk_table_bool")})
PREDICATES.update({n: no_sub_interval for n in ("zelk_no_sub_interval",
                                                 "zelk_no_sub_interval_k")})


def scope_of(args):
    names = []
    for a in args:
        if a[0] == "v":
            names.append(a[1])
        elif a[0] == "a":
            names += scope_of(a[1])
    return names


def value_of(term, values):
    kind = term[0]
    if kind == "c":
        return term[1]
    if kind == "v":
        return values[term[1]]
    if kind == "set":
        return term[1]
    return [value_of(t, values) for t in term[1]]


class Constraint:
    def __init__(self, name, args, line):
        if name not in PREDICATES:
            fail("line %d: predicate %s has no meaning known to the checker" % (line, name))
        self.name, self.args, self.line = name, args, line
        self.scope = sorted(set(scope_of(args)))
        self.test = PREDICATES[name]

    def holds(self, values):
        try:
            return bool(self.test(*[value_of(a, values) for a in self.args]))
        except TypeError:
            fail("line %d: %s with arguments of the wrong kind or number" % (self.line, self.name))

    def text(self, values):
        shown = ", ".join("%s=%d" % (v, values[v]) for v in self.scope if v in values)
        return "%s (line %d)%s" % (self.name, self.line, " with " + shown if shown else "")


# ---- extension of a printed solution ------------------------------------------------------

class Extension:
    """Finds values for the unprinted variables under which every constraint holds:
    a constraint with one open variable filters its values, the rest is search."""

    def __init__(self, model, constraints):
        self.model = model
        self.constraints = constraints
        self.watch = {name: [] for name in model.vars}
        for c in constraints:
            for v in c.scope:
                self.watch[v].append(c)
        self.nodes = 0
        self.culprit = None   # the first constraint that failed, for the message

    def propagate(self, values, domains, queue):
        """False on a violated constraint; (values, domains) updated in place."""
        while queue:
            c = queue.pop()
            open_vars = [v for v in c.scope if v not in values]
            if not open_vars:
                if not c.holds(values):
                    self.culprit = self.culprit or c.text(values)
                    return False
            elif len(open_vars) == 1:
                v = open_vars[0]
                kept = []
                for x in domains[v]:
                    values[v] = x
                    if c.holds(values):
                        kept.append(x)
                del values[v]
                if not kept:
                    self.culprit = self.culprit or "%s, which no value of %s satisfies" % (
                        c.text(values), v)
                    return False
                domains[v] = kept
                if len(kept) == 1:
                    values[v] = kept[0]
                    queue.extend(self.watch[v])
        return True

    def solve(self, values, domains, queue):
        self.nodes += 1
        if self.nodes > SEARCH_LIMIT:
            raise CheckError("the unprinted variables need more than %d search nodes"
                             % SEARCH_LIMIT)
        if not self.propagate(values, domains, queue):
            return None
        open_vars = [v for v in domains if v not in values]
        if not open_vars:
            return values
        v = min(open_vars, key=lambda u: (len(domains[u]), u))
        for x in domains[v]:
            vals = dict(values)
            doms = dict(domains)
            vals[v] = x
            doms[v] = [x]
            found = self.solve(vals, doms, list(self.watch[v]))
            if found is not None:
                return found
        return None


# ---- output --------------------------------------------------------------------------------

def parse_value(toks):
    """A printed value: an int, true/false, or arrayNd(ranges..., [values])."""
    tok = toks.peek()
    if tok[0] == "ident" and re.fullmatch(r"array\d+d", tok[1]):
        toks.take()
        toks.take("(")
        dims = []
        while toks.text() != "[":
            a = parse_int(toks)
            toks.take("..")
            dims.append((a, parse_int(toks)))
            toks.take(",")
        items = parse_term(toks)
        toks.take(")")
        return ("array", dims, items)
    term = parse_term(toks)
    if term[0] == "a":
        return ("array", None, term)
    return ("scalar", tok[1], term)


def read_output(text):
    """(solutions, announced objectives, status lines): a solution is a list of
    (name, value, line number); announced[i] is the value announced before solution i."""
    solutions, announced, statuses = [], [], []
    current, pending = [], None
    for number, raw in enumerate(text.splitlines(), 1):
        line = raw.strip()
        m = re.fullmatch(r"%\s*previous objective\s+(-?\d+)", line)
        if m:
            pending = int(m.group(1))
        elif not line or line.startswith("%"):
            continue
        elif line == "----------":
            if statuses:
                fail("output line %d: a solution after %s" % (number, statuses[-1]))
            solutions.append(current)
            announced.append(pending)
            current, pending = [], None
        elif line in ("==========", "=====UNSATISFIABLE=====", "=====UNKNOWN====="):
            statuses.append(line)
        else:
            m = re.fullmatch(r"([A-Za-z_][A-Za-z0-9_]*)\s*=\s*(.*);", line)
            if not m:
                fail("output line %d: unreadable: %r" % (number, raw))
            try:
                toks = Tokens(m.group(2))
                value = parse_value(toks)
                if toks.peek()[0] != "eof":
                    raise CheckError("trailing text")
            except CheckError:
                fail("output line %d: unreadable value: %r" % (number, raw))
            current.append((m.group(1), value, number))
    if current:
        fail("output line %d: assignments without a closing ----------" % current[-1][2])
    return solutions, announced, statuses


def printed_scalar(var, value, where):
    kind, text, term = value
    if kind != "scalar" or term[0] != "c":
        fail("%s: %s = %r is not a value" % (where, var.name, text))
    if var.boolean and text not in ("true", "false"):
        fail("%s: Boolean %s printed as %r" % (where, var.name, text))
    if not var.boolean and text in ("true", "false"):
        fail("%s: integer %s printed as %r" % (where, var.name, text))
    if term[1] not in var.domain:
        fail("%s: %s = %d outside its domain" % (where, var.name, term[1]))
    return term[1]


def bind(model, target, x, values, where, label):
    """Sets the term printed for target (a variable or a constant) to x."""
    if target[0] == "c":
        if target[1] != x:
            fail("%s: %s printed as %d, but it is the constant %d" % (where, label, x, target[1]))
    elif values.setdefault(target[1], x) != x:
        fail("%s: %s printed as %d, but %s is %d" % (where, label, x, target[1],
                                                        values[target[1]]))


def check_solution(model, extension, solution, where, fixed_objective):
    """The values of all variables in one printed solution."""
    printed = {}
    for name, value, number in solution:
        if name in printed:
            fail("%s: %s printed twice" % (where, name))
        printed[name] = value
    values = {}
    for name, kind, dims in model.output:
        if name not in printed:
            fail("%s: output %s %s not printed" % (where, "array" if kind == "array" else
                                                   "variable", name))
        value = printed.pop(name)
        if kind == "var":
            x = printed_scalar(model.vars[name], value, where)
            values[name] = x
            continue
        elems = model.arrays[name][0][1]
        if value[0] != "array":
            fail("%s: output array %s printed as a scalar" % (where, name))
        if dims is not None and value[1] != dims:
            fail("%s: %s printed with dimensions %s, annotated %s" % (where, name, value[1], dims))
        items = value[2][1]
        if len(items) != len(elems):
            fail("%s: %s printed with %d elements, declared %d"
                 % (where, name, len(items), len(elems)))
        for k, (item, elem) in enumerate(zip(items, elems)):
            if item[0] != "c":
                fail("%s: %s[%d] is not a value" % (where, name, k + 1))
            if elem[0] == "v" and item[1] not in model.vars[elem[1]].domain:
                fail("%s: %s[%d] = %d outside the domain of %s"
                     % (where, name, k + 1, item[1], elem[1]))
            bind(model, elem, item[1], values, where, "%s[%d]" % (name, k + 1))
    if printed:
        fail("%s: %s printed but not an output of the model" % (where, sorted(printed)[0]))
    known = dict(values)
    if fixed_objective is not None and model.objective[0][0] == "v":
        bind(model, model.objective[0], fixed_objective, known, where, "the objective")
    for c in extension.constraints:
        if all(v in values for v in c.scope) and not c.holds(values):
            fail("%s: constraint %s is violated" % (where, c.text(values)))
    domains = {name: sorted(var.domain) for name, var in model.vars.items()}
    for name, x in known.items():
        domains[name] = [x] if x in domains[name] else []
        if not domains[name]:
            fail("%s: %s = %d outside its domain" % (where, name, x))
    extension.nodes, extension.culprit = 0, None
    full = extension.solve(known, domains, list(extension.constraints))
    if full is None:
        hidden = sorted(set(model.vars) - set(values))
        fail("%s: no values of the unprinted variables (%s) satisfy all constraints%s; "
             "first failed: %s"
             % (where, ", ".join(hidden[:8]) + (", ..." if len(hidden) > 8 else ""),
                " with the announced objective %d" % fixed_objective
                if fixed_objective is not None else "", extension.culprit))
    return full


def check(model_text, output_text):
    """The message of the first fault, or None; a note goes to standard output."""
    model = read_model(model_text)
    extension = Extension(model, [Constraint(*c) for c in model.constraints])
    solutions, announced, statuses = read_output(output_text)
    if len(statuses) > 1:
        fail("several status lines: %s" % ", ".join(statuses))
    if not solutions and not statuses:
        fail("no solution and no status line")
    if solutions and statuses and statuses[0] == "=====UNSATISFIABLE=====":
        fail("=====UNSATISFIABLE===== after %d solution(s)" % len(solutions))
    if statuses and statuses[0] == "==========" and not solutions and model.objective:
        fail("========== for an objective without a solution")
    previous = None
    for k, (solution, ann) in enumerate(zip(solutions, announced)):
        where = "solution %d" % (k + 1)
        if ann is not None and model.objective is None:
            fail("%s: an objective announced for a model without one" % where)
        values = check_solution(model, extension, solution, where, ann)
        if model.objective is None:
            continue
        obj = value_of(model.objective[0], values)
        if ann is not None and ann != obj:
            fail("%s: announced objective %d, the solution's is %d" % (where, ann, obj))
        if previous is not None:
            better = obj < previous if model.objective[1] == "minimize" else obj > previous
            if not better:
                fail("%s: objective %d does not improve on %d" % (where, obj, previous))
        previous = obj
    print("fzn_checker: %d solution(s) checked%s%s"
          % (len(solutions), ", status " + statuses[0] if statuses else "",
             ", last objective %d" % previous if previous is not None else ""))


SELF_TEST_MODEL = """
predicate zelk_table_int(array [int] of var int: x, array [int] of int: t);
array [1..3] of int: T = [5, 7, 9];
var 1..3: i :: output_var;
var {5, 7, 9}: v :: output_var;
var bool: b :: output_var;
var 0..4: h;
var 0..9: w :: output_var = h;
array [1..2] of var 0..9: A :: output_array([1..2]) = [h, 3];
var 0..20: s :: var_is_introduced :: is_defined_var;
constraint array_int_element(i, T, v);
constraint int_le_reif(i, 1, b);
constraint int_plus(i, h, s) :: defines_var(s);
constraint int_lin_le([1, 1], [s, v], 13);
constraint zelk_table_int([i, h], [1, 2, 2, 2, 3, 1, 1, 4]);
solve maximize s;
"""


def self_test():
    """Plants faults in a right answer: each must be refused, the answer itself not.
    The answer: i=1 v=5 b=true h=w=2 (s=3), then i=1 h=w=4 (s=5)."""
    first = "i = 1;\nv = 5;\nb = true;\nw = 2;\nA = array1d(1..2, [2, 3]);\n----------\n"
    best = "i = 1;\nv = 5;\nb = true;\nw = 4;\nA = array1d(1..2, [4, 3]);\n----------\n"
    zelk = ("% best result so far:\n% previous objective 3\n" + first +
            "% previous objective 5\n" + best + "==========\n")
    good = [zelk, first + best + "==========\n", "=====UNSATISFIABLE=====\n",
            "=====UNKNOWN=====\n", best]
    bad = [
        ("domain", best.replace("v = 5", "v = 6")),
        ("element", best.replace("v = 5", "v = 7")),
        ("reified", best.replace("b = true", "b = false")),
        ("Boolean text", best.replace("b = true", "b = 1")),
        ("alias", best.replace("w = 4", "w = 3")),
        ("array element", best.replace("[4, 3]", "[4, 4]")),
        ("array dimensions", best.replace("1..2, [4, 3]", "1..3, [4, 3]")),
        ("no extension", first.replace("w = 2", "w = 3").replace("[2, 3]", "[3, 3]")),
        ("missing output", best.replace("b = true;\n", "")),
        ("printed twice", best.replace("b = true;\n", "b = true;\nb = true;\n")),
        ("not an output", best.replace("i = 1;\n", "i = 1;\nh = 4;\n")),
        ("worse objective", best + first),
        ("announced value", zelk.replace("objective 5", "objective 6")),
        ("unterminated", best[:-len("----------\n")]),
        ("after a status", best + "==========\n" + first),
        ("UNSAT after a solution", best + "=====UNSATISFIABLE=====\n"),
        ("no status", ""),
    ]
    failures = 0
    for k, out in enumerate(good):
        try:
            check(SELF_TEST_MODEL, out)
        except CheckError as e:
            print("self-test: right answer %d refused: %s" % (k, e))
            failures += 1
    for label, out in bad:
        try:
            check(SELF_TEST_MODEL, out)
            print("self-test: fault not found: %s" % label)
            failures += 1
        except CheckError:
            pass
    print("self-test: %d of %d cases failed" % (failures, len(good) + len(bad)))
    return 1 if failures else 0


def main():
    sys.setrecursionlimit(20000)   # the search over unprinted variables goes one level each
    if sys.argv[1:] == ["--self-test"]:
        return self_test()
    if len(sys.argv) != 2:
        print("usage: fzn_checker.py MODEL.fzn < solver_output")
        print("       fzn_checker.py --self-test")
        return 2
    try:
        with open(sys.argv[1]) as f:
            model_text = f.read()
        check(model_text, sys.stdin.read())
    except CheckError as e:
        print("fzn_checker: %s" % e)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
