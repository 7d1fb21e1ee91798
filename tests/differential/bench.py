#!/usr/bin/env python3
"""Solves the instances of one format of the shared benchmark and compares with its manifest.

    bench.py --format xcsp|c|fzn --zelk BUILD/zelk --bench DIR [--limit SECONDS]

Each instance of DIR/MANIFEST.tsv, run with -s 1, must give the manifest's answer (an
optimum also proved by "==== no more values to try ===="), every model must pass the
format's checker in tests/tools, and every UNSAT is replayed with -G -V, which checks
the refutation. Exit status 77 without a manifest.
"""
import argparse
import os
import re
import subprocess
import sys

import difftest

HERE = os.path.dirname(os.path.abspath(__file__))
TOOLS = os.path.join(HERE, "..", "tools")
CHECKERS = {"xcsp": "xcsp_checker.py", "c": "c_like_checker.py", "fzn": "fzn_checker.py"}
FZN_STATUS = ("==========", "=====UNSATISFIABLE=====", "=====UNKNOWN=====")


def run(args, options, path):
    command = [args.zelk] + ([] if args.format == "xcsp" else ["-F", args.format])
    try:
        p = subprocess.run(command + ["-s", "1"] + options + [path], capture_output=True,
                           text=True, timeout=args.limit)
    except subprocess.TimeoutExpired:
        return None, "", "no answer within %d s" % args.limit
    return p.returncode, p.stdout, p.stderr


def summary(fmt, out):
    """(has a solution, status in the competition words, last objective value or None)."""
    lines = [l.strip() for l in out.splitlines()]
    if fmt == "fzn":
        status = [l for l in lines if l in FZN_STATUS]
        status = status[-1] if status else None
        words = {"==========": "OPTIMUM FOUND", "=====UNSATISFIABLE=====": "UNSATISFIABLE",
                 "=====UNKNOWN=====": "UNKNOWN", None: None}[status]
        solutions = lines.count("----------")
        if solutions and words is None:
            words = "SATISFIABLE"
        values = [m.group(1) for m in (re.fullmatch(r"%\s*previous objective\s+(-?\d+)", l)
                                       for l in lines) if m]
        return solutions > 0, words, int(values[-1]) if values else None
    status, value, _ = difftest.parse(out)
    status = {v: k for k, v in difftest.STATUS.items()}.get(status)
    return status in ("SATISFIABLE", "OPTIMUM FOUND"), status, value


def check_models(args, path, out):
    p = subprocess.run([sys.executable, os.path.join(TOOLS, CHECKERS[args.format]), path],
                       input=out, capture_output=True, text=True)
    return None if p.returncode == 0 else (p.stdout + p.stderr).strip()


def check_instance(args, entry):
    expected, optimum = entry["expected"], entry["optimum"]
    path = os.path.join(args.bench, entry["path"])
    code, out, err = run(args, [], path)
    if code is None:
        return err
    if code != 0 or (args.format == "fzn" and err.strip()):
        return "exit status %d: %s" % (code, (out + err).strip()[-300:])
    solved, status, value = summary(args.format, out)
    if expected in ("SAT", "OPTIMUM"):
        wanted = "SATISFIABLE" if expected == "SAT" else "OPTIMUM FOUND"
        if status != wanted or not solved:
            return "expected %s, got %s" % (wanted, status)
        if expected == "OPTIMUM" and value != int(optimum):
            return "optimum %s, last objective value %s" % (optimum, value)
        return check_models(args, path, out)
    if expected == "UNSAT":
        if status != "UNSATISFIABLE" or solved:
            return "expected UNSATISFIABLE, got %s" % status
        code, out, err = run(args, ["-G", "-V"], path)
        if code != 0 or summary(args.format, out)[1] != "UNSATISFIABLE":
            return "refutation not validated by -G -V: %s" % (err or out.strip()[-300:])
        return None
    return "unknown expected answer %s" % expected


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--format", required=True, choices=sorted(CHECKERS))
    parser.add_argument("--zelk", required=True)
    parser.add_argument("--bench", required=True)
    parser.add_argument("--limit", type=int, default=60, help="seconds for one run")
    args = parser.parse_args()
    manifest = os.path.join(args.bench, "MANIFEST.tsv")
    if not os.path.isfile(manifest):
        print("skipped: no benchmark manifest at %s" % manifest)
        return 77
    with open(manifest) as f:
        header = f.readline().rstrip("\n").split("\t")
        entries = [dict(zip(header, line.rstrip("\n").split("\t"))) for line in f if line.strip()]
    entries = [e for e in entries if e["format"] == args.format]
    failures = 0
    for e in entries:
        problem = check_instance(args, e)
        print("%s %s" % ("ok  " if problem is None else "FAIL", e["path"])
              + ("" if problem is None else ": " + problem), flush=True)
        failures += problem is not None
    print("%d of %d instance(s) failed" % (failures, len(entries)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
