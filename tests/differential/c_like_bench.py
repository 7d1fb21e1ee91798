#!/usr/bin/env python3
"""Solves the C-like instances of the shared benchmark and compares with its manifest.

    c_like_bench.py --zelk BUILD/zelk --bench DIR

DIR holds MANIFEST.tsv (columns path, format, expected, optimum, ...). For every
instance of format c:
  - SAT: "s SATISFIABLE", the model checked by tests/tools/c_like_checker.py;
  - OPTIMUM: "s OPTIMUM FOUND", or the ending of an objective whose domain ran out
    of values ("==== no more values to try ====", which proves the last value
    optimal but prints no such line), the last "o" line equal to the manifest's
    optimum, every model checked;
  - UNSAT: "s UNSATISFIABLE", then again with -G -V, which checks the refutation
    (a bad one ends the run with an exception and exit status 1).
Each run is stopped after 60 s (--limit: a sanitizer build with audits is
many times slower).
Exits 77 (skipped) with a message when DIR has no manifest.
"""
import argparse
import os
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
CHECKER = os.path.join(HERE, "..", "tools", "c_like_checker.py")

LIMIT = [60]


def run(zelk, options, path):
    try:
        p = subprocess.run([zelk] + options + [path], capture_output=True, text=True, timeout=LIMIT[0])
    except subprocess.TimeoutExpired:
        return None, "", "no answer within %d s" % LIMIT[0]
    return p.returncode, p.stdout, p.stderr


def status_of(out):
    lines = [l for l in out.splitlines() if l.startswith("s ")]
    return lines[-1][2:].strip() if lines else None


def check_model(path, out):
    p = subprocess.run([sys.executable, CHECKER, path], input=out, capture_output=True, text=True)
    return None if p.returncode == 0 else p.stdout.strip()


def check_instance(zelk, bench, entry):
    rel, expected, optimum = entry["path"], entry["expected"], entry["optimum"]
    path = os.path.join(bench, rel)
    code, out, err = run(zelk, ["-F", "c", "-s", "1"], path)
    if code is None:
        return err
    if code != 0:
        return "exit status %d: %s" % (code, (out + err).strip()[-300:])
    status = status_of(out)
    if expected == "SAT":
        if status != "SATISFIABLE":
            return "expected SATISFIABLE, got %s" % status
        return check_model(path, out)
    if expected == "OPTIMUM":
        exhausted = "==== no more values to try ====" in out
        if status != "OPTIMUM FOUND" and not exhausted:
            return "expected OPTIMUM FOUND, got %s" % status
        values = [l.split()[1] for l in out.splitlines() if l.startswith("o ")]
        if not values or int(values[-1]) != int(optimum):
            return "optimum %s, last o line %s" % (optimum, values[-1] if values else "missing")
        return check_model(path, out)
    if expected == "UNSAT":
        if status != "UNSATISFIABLE":
            return "expected UNSATISFIABLE, got %s" % status
        code, out, err = run(zelk, ["-F", "c", "-s", "1", "-G", "-V"], path)
        if code != 0 or status_of(out) != "UNSATISFIABLE":
            return "refutation not validated by -G -V: %s" % (err or (out.strip()[-300:]))
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
    entries = [e for e in entries if e["format"] == "c"]
    failures = 0
    for e in entries:
        problem = check_instance(args.zelk, args.bench, e)
        print("%s %s" % ("ok  " if problem is None else "FAIL", e["path"]) + ("" if problem is None else ": " + problem))
        sys.stdout.flush()
        failures += problem is not None
    print("%d of %d instance(s) failed" % (failures, len(entries)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
