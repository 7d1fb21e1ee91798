#!/usr/bin/env python3
"""zelk as MiniZinc's back end, through the real `minizinc`.

  library   every model of models/ compiles with zelk's library into FlatZinc that
            zelk's reader takes: every integer within 0..31, only predicates of its
            table, and its own propagators where the model names a global that has
            one; every model of refused/ is refused with a message, not answered.
  solve     every model of models/ solved by zelk and by Gecode: the same status, the
            same objective, the same solutions when all are asked for (-a), and each
            solution of zelk accepted by Gecode when fixed as data.
  install   `cmake --install` into a temporary DESTDIR; MiniZinc finds the installed
            configuration there, and a model compiles and solves from it.

usage: minizinc_test.py {library|solve|install} --build DIR [--source DIR]
Exit status 77 (skipped) when minizinc is missing, or, for solve and install, when
this zelk refuses every FlatZinc model.
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile

SKIP = 77
HERE = os.path.dirname(os.path.abspath(__file__))

# The predicate names of zelk's FlatZinc reader.
ZELK_PREDICATES = {
    "all_different_int", "array_bool_and", "array_bool_or", "array_bool_xor",
    "array_bool_element", "array_int_element", "array_var_bool_element",
    "array_var_int_element", "bool2int", "bool_eq", "int_eq", "bool_not", "int_ne",
    "int_le", "int_lt", "bool_and", "bool_or", "bool_xor", "bool_eq_reif", "int_eq_reif",
    "int_ne_reif", "int_le_reif", "int_lt_reif", "int_div", "int_mod", "int_times",
    "int_min", "int_max", "int_plus", "int_abs", "bool_clause", "bool_le", "bool_lt",
    "bool_le_reif", "bool_lt_reif", "bool_lin_eq", "int_lin_eq", "bool_lin_le",
    "int_lin_le", "int_lin_ne", "int_lin_eq_reif", "int_lin_le_reif", "int_lin_ne_reif",
    "zelk_table_bool", "zelk_table_int", "zelk_no_overlap", "zelk_sub_interval",
    "zelk_no_sub_interval", "zelk_no_sub_interval_k",
}

# A global named in a model, and the predicate of zelk that must stand for it.
GLOBAL_PROPAGATORS = {
    "alldifferent": "all_different_int",
    "table": "zelk_table_int",
    "disjunctive": "zelk_no_overlap",
}

TRIVIAL_FZN = "var 0..3: x :: output_var;\nconstraint int_le(2, x);\nsolve satisfy;\n"


def run(cmd, env=None, timeout=120):
    return subprocess.run(cmd, capture_output=True, text=True, env=env, timeout=timeout,
                          check=False)


def zelk_env(solver_dir):
    env = dict(os.environ)
    env["MZN_SOLVER_PATH"] = solver_dir
    env["ASAN_OPTIONS"] = "detect_leaks=0"
    return env


def models(folder):
    return sorted(os.path.join(folder, f) for f in os.listdir(folder) if f.endswith(".mzn"))


def model_flags(path):
    with open(path, encoding="utf-8") as f:
        m = re.search(r"^% flags:(.*)$", f.read(), re.M)
    return m.group(1).split() if m else []


def strip_fzn_strings(text):
    return re.sub(r'"[^"]*"', '""', text)


def check_flatzinc(fzn, model_text):
    """What in a FlatZinc text zelk's reader would refuse or shouldn't get."""
    problems = []
    body = strip_fzn_strings(fzn)
    for line in body.splitlines():
        if line.startswith("predicate "):
            continue
        # Array sizes are no values: the reader takes any there.
        code = re.sub(r"array\s*\[\s*\d+\s*\.\.\s*\d+\s*\]", "array[]", line)
        code = re.sub(r"[A-Za-z_][A-Za-z0-9_]*", "id", code)
        if re.search(r"-\s*\d", code):
            problems.append(f"negative number: {line.strip()[:200]}")
        if re.search(r"\d\.\d", code):
            problems.append(f"float: {line.strip()[:200]}")
        for number in re.findall(r"\d+", code):
            if int(number) > 31:
                problems.append(f"number above 31: {line.strip()[:200]}")
                break
        m = re.match(r"\s*constraint\s+([A-Za-z_][A-Za-z0-9_]*)", line)
        if m and m.group(1) not in ZELK_PREDICATES:
            problems.append(f"predicate zelk doesn't know: {m.group(1)}")
    names = set(re.findall(r"^\s*constraint\s+([A-Za-z_][A-Za-z0-9_]*)", body, re.M))
    for global_name, predicate in GLOBAL_PROPAGATORS.items():
        if re.search(rf"\b{global_name}\s*\(", model_text) and predicate not in names:
            problems.append(f"{global_name} is decomposed instead of posting {predicate}")
    return problems


def compile_model(path, env, out_dir):
    fzn = os.path.join(out_dir, os.path.basename(path)[:-4] + ".fzn")
    result = run(["minizinc", "-c", "--solver", "zelk", path, "-o", fzn], env=env)
    text = ""
    if result.returncode == 0 and os.path.exists(fzn):
        with open(fzn, encoding="utf-8") as f:
            text = f.read()
    return result, text


def test_library(args):
    env = zelk_env(os.path.join(args.build, "mzn"))
    failures = []
    with tempfile.TemporaryDirectory() as out:
        for path in models(os.path.join(HERE, "models")):
            name = os.path.basename(path)
            result, fzn = compile_model(path, env, out)
            if result.returncode != 0:
                failures.append(f"{name}: does not compile:\n{result.stderr}")
                continue
            with open(path, encoding="utf-8") as f:
                model_text = f.read()
            for problem in check_flatzinc(fzn, model_text):
                failures.append(f"{name}: {problem}")
        for path in models(os.path.join(HERE, "refused")):
            name = os.path.basename(path)
            # Refused when compiled, or by the back end before zelk reads it.
            result = run(["minizinc", "--solver", "zelk", path], env=env)
            said = result.stdout + result.stderr
            if result.returncode == 0 or "----------" in result.stdout:
                failures.append(f"{name}: not refused:\n{said}")
            elif "0..31" not in said:
                failures.append(f"{name}: refused without saying why:\n{said}")
    report(failures, "library")
    return 1 if failures else 0


class Answer:
    def __init__(self, output):
        self.output = output
        blocks = output.split("----------\n")
        self.solutions = [b.strip() for b in blocks[:-1]]
        tail = blocks[-1]
        self.status = next((line for line in tail.splitlines() if line.startswith("=====")), "")
        self.objective = None
        if self.solutions:
            m = re.search(r"^_objective = (-?\d+);", self.solutions[-1], re.M)
            if m:
                self.objective = int(m.group(1))

    def summary(self):
        return f"{len(self.solutions)} solutions, status {self.status or '(none)'}, objective {self.objective}"


def solve(solver, path, flags, env, extra=()):
    result = run(["minizinc", "--solver", solver, "--output-objective", *flags, path, *extra],
                 env=env)
    return result, Answer(result.stdout)


def zelk_reads_flatzinc(backend):
    with tempfile.NamedTemporaryFile("w", suffix=".fzn", delete=False) as f:
        f.write(TRIVIAL_FZN)
    try:
        result = run([backend, f.name], env=zelk_env(""))
    finally:
        os.unlink(f.name)
    return "----------" in result.stdout, result.stdout + result.stderr


def accepted_by_gecode(path, solution, out_dir):
    """Whether Gecode finds the model satisfied with zelk's values fixed as data."""
    data = "\n".join(line for line in solution.splitlines() if not line.startswith("_objective"))
    dzn = os.path.join(out_dir, "solution.dzn")
    with open(dzn, "w", encoding="utf-8") as f:
        f.write(data + "\n")
    result, answer = solve("gecode", path, [], None, [dzn])
    return len(answer.solutions) == 1, result.stdout + result.stderr


def compare(path, env, out_dir):
    flags = model_flags(path)
    name = os.path.basename(path)
    problems = []
    zelk_run, zelk = solve("zelk", path, flags, env)
    gecode_run, gecode = solve("gecode", path, flags, None)
    if zelk_run.returncode != 0:
        return [f"{name}: minizinc with zelk exited with {zelk_run.returncode}:\n"
                f"{zelk_run.stdout}{zelk_run.stderr}"]
    if gecode_run.returncode != 0:
        return [f"{name}: minizinc with gecode exited with {gecode_run.returncode}:\n"
                f"{gecode_run.stderr}"]
    same = (zelk.status == gecode.status and zelk.objective == gecode.objective
            and (len(zelk.solutions) == len(gecode.solutions) if "-a" in flags
                 else bool(zelk.solutions) == bool(gecode.solutions)))
    if not same:
        problems.append(f"{name}: zelk {zelk.summary()}; gecode {gecode.summary()}")
    if "-a" in flags and gecode.objective is None:
        missing = set(gecode.solutions) - set(zelk.solutions)
        extra = set(zelk.solutions) - set(gecode.solutions)
        if missing or extra or len(set(zelk.solutions)) != len(zelk.solutions):
            problems.append(f"{name}: solutions differ: {len(missing)} missing, {len(extra)} "
                            f"extra, {len(zelk.solutions) - len(set(zelk.solutions))} repeated")
    for solution in zelk.solutions[-1:] if "-a" not in flags else zelk.solutions[:5]:
        ok, said = accepted_by_gecode(path, solution, out_dir)
        if not ok:
            problems.append(f"{name}: Gecode refuses zelk's solution\n{solution}\n{said}")
    return problems


def test_solve(args):
    backend = os.path.join(args.build, "mzn", "fzn-zelk")
    reads, said = zelk_reads_flatzinc(backend)
    if not reads:
        print("SKIPPED: this zelk does not solve FlatZinc yet; its answer to a trivial model:")
        print(said)
        return SKIP
    env = zelk_env(os.path.join(args.build, "mzn"))
    failures = []
    with tempfile.TemporaryDirectory() as out:
        for path in models(os.path.join(HERE, "models")):
            failures += compare(path, env, out)
    report(failures, "solve")
    return 1 if failures else 0


def test_install(args):
    failures = []
    with tempfile.TemporaryDirectory() as root:
        env = dict(os.environ, DESTDIR=root)
        result = run(["cmake", "--install", args.build, "--prefix", "/usr/local"], env=env)
        if result.returncode != 0:
            print(f"cmake --install failed:\n{result.stdout}{result.stderr}")
            return 1
        prefix = os.path.join(root, "usr", "local")
        for rel in ("bin/zelk", "share/man/man1/zelk.1", "share/minizinc/solvers/zelk.msc",
                    "share/minizinc/zelk/redefinitions.mzn", "libexec/zelk/fzn-zelk"):
            if not os.path.exists(os.path.join(prefix, rel)):
                failures.append(f"not installed: {rel}")
        if failures:
            report(failures, "install")
            return 1
        solvers = os.path.join(prefix, "share", "minizinc", "solvers")
        env = zelk_env(solvers)
        listed = run(["minizinc", "--solvers"], env=env)
        if "org.zelk.zelk" not in listed.stdout:
            failures.append(f"minizinc does not list the installed configuration:\n{listed.stdout}")
        model = os.path.join(HERE, "models", "queens_alldiff.mzn")
        with tempfile.TemporaryDirectory() as out:
            compiled, fzn = compile_model(model, env, out)
        if compiled.returncode != 0 or "all_different_int" not in fzn:
            failures.append(f"the installed library does not compile {model}:\n{compiled.stderr}")
        # Nothing of the build tree may be needed by the installed files.
        for rel in ("share/minizinc/solvers/zelk.msc", "libexec/zelk/fzn-zelk"):
            with open(os.path.join(prefix, rel), encoding="utf-8") as f:
                if os.path.abspath(args.build) in f.read():
                    failures.append(f"{rel} refers to the build tree")
        if failures:
            report(failures, "install")
            return 1
        reads, said = zelk_reads_flatzinc(os.path.join(prefix, "libexec", "zelk", "fzn-zelk"))
        if not reads:
            print("installed and compiled; SKIPPED the solve: this zelk does not solve FlatZinc "
                  "yet; its answer to a trivial model:")
            print(said)
            return SKIP
        result, answer = solve("zelk", model, ["-a"], env)
        if len(answer.solutions) != 92 or answer.status != "==========":
            failures.append(f"installed zelk: {answer.summary()} for eight queens, "
                            f"expected 92 solutions and ==========\n{result.stderr}")
    report(failures, "install")
    return 1 if failures else 0


def report(failures, what):
    for failure in failures:
        lines = [line if len(line) <= 300 else line[:300] + " ..." for line in failure.splitlines()]
        print("FAIL", "\n".join(lines[:40]))
    if not failures:
        print(f"{what}: all checks passed")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("test", choices=["library", "solve", "install"])
    parser.add_argument("--build", required=True)
    args = parser.parse_args()
    if shutil.which("minizinc") is None:
        print("SKIPPED: minizinc is not installed (make deps installs it)")
        return SKIP
    return {"library": test_library, "solve": test_solve, "install": test_install}[args.test](args)


if __name__ == "__main__":
    sys.exit(main())
