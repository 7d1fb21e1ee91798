#!/usr/bin/env python3
"""Solves the FlatZinc instances of the shared benchmark and compares with its manifest.

    fzn_bench.py --zelk BUILD/zelk --bench DIR [--limit SECONDS]

DIR holds MANIFEST.tsv (columns path, format, expected, optimum, ...). For every
instance of format fzn, run with -F fzn:
  - SAT: at least one solution ("----------") and no status line against it;
  - OPTIMUM: "==========" after the solutions, the last solution's objective (the
    last "% previous objective" line) equal to the manifest's optimum;
  - UNSAT: "=====UNSATISFIABLE=====", then again with -G -V, which checks the
    refutation (a bad one ends the run with an exception and exit status 1).
Every solution printed is checked by tests/tools/fzn_checker.py, which also
holds each announced objective to the value of the solution after it.
Each run is stopped after 60 s (--limit: a sanitizer build with audits is
many times slower).
Exits 77 (skipped) with a message when DIR has no manifest.
"""
import argparse
import os
import re
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
CHECKER = os.path.join(HERE, "..", "tools", "fzn_checker.py")

LIMIT = [60]
STATUS_LINES = ("==========", "=====UNSATISFIABLE=====", "=====UNKNOWN=====")


def run(zelk, options, path):
    try:
        p = subprocess.run([zelk, "-F", "fzn"] + options + [path], capture_output=True, text=True,
                           timeout=LIMIT[0])
    except subprocess.TimeoutExpired:
        return None, "", "no answer within %d s" % LIMIT[0]
    return p.returncode, p.stdout, p.stderr


def summary(out):
    """(number of solutions, last status line or None, last announced objective or None)."""
    lines = [l.strip() for l in out.splitlines()]
    status = [l for l in lines if l in STATUS_LINES]
    announced = [int(m.group(1)) for m in (re.fullmatch(r"%\s*previous objective\s+(-?\d+)", l)
                                            for l in lines) if m]
    return (lines.count("----------"), status[-1] if status else None,
            announced[-1] if announced else None)


def check_solutions(path, out):
    p = subprocess.run([sys.executable, CHECKER, path], input=out, capture_output=True, text=True)
    return None if p.returncode == 0 else (p.stdout + p.stderr).strip()


def check_instance(zelk, bench, entry):
    rel, expected, optimum = entry["path"], entry["expected"], entry["optimum"]
    path = os.path.join(bench, rel)
    code, out, err = run(zelk, ["-s", "1"], path)
    if code is None:
        return err
    if code != 0 or err.strip():
        return "exit status %d: %s" % (code, (out + err).strip()[-300:])
    solutions, status, announced = summary(out)
    if expected == "SAT":
        if not solutions or status is not None:
            return "expected a solution, got %d solution(s) and status %s" % (solutions, status)
        return check_solutions(path, out)
    if expected == "OPTIMUM":
        if not solutions or status != "==========":
            return "expected an optimum, got %d solution(s) and status %s" % (solutions, status)
        if announced is None or announced != int(optimum):
            return "optimum %s, last announced objective %s" % (optimum, announced)
        return check_solutions(path, out)
    if expected == "UNSAT":
        if solutions or status != "=====UNSATISFIABLE=====":
            return "expected =====UNSATISFIABLE=====, got %d solution(s) and status %s" \
                % (solutions, status)
        code, out, err = run(zelk, ["-s", "1", "-G", "-V"], path)
        if code != 0 or summary(out)[1] != "=====UNSATISFIABLE=====":
            return "refutation not validated by -G -V: %s" % (err or out.strip()[-300:])
        return None
    return "unknown expected answer %s" % expected


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--zelk", required=True)
    parser.add_argument("--bench", required=True)
    parser.add_argument("--limit", type=int, default=60, help="seconds for one run")
    args = parser.parse_args()
    LIMIT[0] = args.limit
    manifest = os.path.join(args.bench, "MANIFEST.tsv")
    if not os.path.isfile(manifest):
        print("skipped: no benchmark manifest at %s" % manifest)
        return 77
    with open(manifest) as f:
        header = f.readline().rstrip("\n").split("\t")
        entries = [dict(zip(header, line.rstrip("\n").split("\t"))) for line in f if line.strip()]
    entries = [e for e in entries if e["format"] == "fzn"]
    failures = 0
    for e in entries:
        problem = check_instance(args.zelk, args.bench, e)
        print("%s %s" % ("ok  " if problem is None else "FAIL", e["path"])
              + ("" if problem is None else ": " + problem))
        sys.stdout.flush()
        failures += problem is not None
    print("%d of %d instance(s) failed" % (failures, len(entries)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
