#!/usr/bin/env python3
"""Pins the search itself: decisions, backtracks and learning counts of fixed runs.

    search_pin.py --zelk BUILD/zelk --bench DIR [--table FILE] [--subset] [--record]

Each row of the table (search_pin.tsv beside this script) names an instance of the
shared benchmark DIR and the options of one run (always with a fixed seed). The run's
status line, last objective, decisions ("d ASSIGNMENTS", "% ASSIGNMENTS" in FlatZinc),
backtracks and restarts ("Solving" line), combines and learned constraints must equal
the recorded ones: a change that keeps every answer but changes the search (a
different decision, propagation order, explanation or learned constraint) shows here.

--record rewrites the figures of every row from the current binary (the path,
options and subset columns stay as they are; a new row can be added with "-" figures
and recorded). --subset runs only the rows marked for it, for slow (sanitizer) builds,
whose counts are the same, only later.
Exits 77 (skipped) with a message when DIR has no manifest.
"""
import argparse
import os
import re
import shlex
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
TABLE = os.path.join(HERE, "search_pin.tsv")

KEYS = ["path", "options", "subset"]
FIGURES = ["status", "objective", "decisions", "backtracks", "restarts", "combines", "learned"]
COLUMNS = KEYS + FIGURES

# "c Solving 12 backtracks"; after an optimisation's progress lines the count
# stands alone ("108 backtracks 2 restarts", "% 0 backtracks"), and FlatZinc
# repeats its prefix ("% Solving % 98 backtracks").
SOLVING = re.compile(r"^(?:[c%] )?(?:Solving )?(?:% )?(\d+) backtracks(?: (\d+) restarts)?\s*$")
COMBINES = re.compile(r"^[c%] (\d+) non-fallback combines out of (\d+) total\s*$")
LEARNED = re.compile(r"^[c%] learned (\d+) non-fallback constraints\s*$")
DECISIONS = re.compile(r"^(?:d|%) ASSIGNMENTS (\d+)\s*$")
OBJECTIVE = re.compile(r"^(?:o|% previous objective)\s+(-?\d+)\s*$")
STATUS = re.compile(r"^(?:% )?s (.+?)\s*$")
FZN_STATUS = re.compile(r"^(=====[A-Z ]+=====|==========)\s*$")


def figures_of(out):
    """The pinned figures of one run's output; absent ones are "-".

    The "Solving" line may come once per optimisation step, so each figure is taken
    from its last line; objectives are kept as their count and last value, which
    catches a changed sequence of improving solutions too."""
    got = {k: "-" for k in FIGURES}
    objectives = []
    fzn_status = None
    for line in out.splitlines():
        m = SOLVING.match(line)
        if m:
            got["backtracks"] = m.group(1)
            got["restarts"] = m.group(2) or "0"
            continue
        m = COMBINES.match(line)
        if m:
            got["combines"] = "%s/%s" % (m.group(1), m.group(2))
            continue
        m = LEARNED.match(line)
        if m:
            got["learned"] = m.group(1)
            continue
        m = DECISIONS.match(line)
        if m:
            got["decisions"] = m.group(1)
            continue
        m = OBJECTIVE.match(line)
        if m:
            objectives.append(m.group(1))
            continue
        m = STATUS.match(line)
        if m:
            got["status"] = m.group(1).replace(" ", "_")
            continue
        m = FZN_STATUS.match(line)
        if m:
            fzn_status = m.group(1)
    if got["status"] == "-" and fzn_status:
        got["status"] = fzn_status
    if objectives:
        got["objective"] = "%d:%s" % (len(objectives), objectives[-1])
    return got


def read_table(path):
    rows = []
    with open(path) as f:
        header = None
        for line in f:
            line = line.rstrip("\n")
            if not line or line.startswith("#"):
                continue
            cells = line.split("\t")
            if header is None:
                header = cells
                if header != COLUMNS:
                    sys.exit("%s: header must be %s" % (path, "\t".join(COLUMNS)))
                continue
            if len(cells) != len(COLUMNS):
                sys.exit("%s: row of %d cells: %s" % (path, len(cells), line))
            rows.append(dict(zip(COLUMNS, cells)))
    return rows


def write_table(path, rows):
    with open(path) as f:
        comments = [l for l in f if l.startswith("#")]
    with open(path, "w") as f:
        f.writelines(comments)
        f.write("\t".join(COLUMNS) + "\n")
        for row in rows:
            f.write("\t".join(row[c] for c in COLUMNS) + "\n")


def run(zelk, row, bench, limit):
    command = [zelk] + shlex.split(row["options"]) + [os.path.join(bench, row["path"])]
    # The driver leaves its last solver to process exit on purpose: in a sanitizer
    # build LeakSanitizer would fail every run, also when run by hand.
    env = dict(os.environ)
    env.setdefault("ASAN_OPTIONS", "detect_leaks=0")
    try:
        p = subprocess.run(command, capture_output=True, text=True, timeout=limit, env=env)
    except subprocess.TimeoutExpired:
        return None, "no answer within %d s" % limit
    # A crash, or an error with a message on standard error, is not a search to
    # compare; nor is an output without the status and decision lines that end
    # every run (a garbled one must not be recorded either).
    if p.returncode < 0 or (p.returncode != 0 and p.stderr.strip()):
        return None, "exit status %d: %s" % (p.returncode, p.stderr.strip()[:300])
    got = figures_of(p.stdout)
    if got["status"] == "-" or got["decisions"] == "-":
        return None, "no status or decision line in the output"
    return got, None


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--zelk", required=True)
    ap.add_argument("--bench", required=True)
    ap.add_argument("--table", default=TABLE)
    ap.add_argument("--limit", type=int, default=60, help="seconds per run")
    ap.add_argument("--subset", action="store_true", help="only the rows marked for slow builds")
    ap.add_argument("--record", action="store_true", help="rewrite the table's figures")
    args = ap.parse_args()

    if not os.path.isfile(os.path.join(args.bench, "MANIFEST.tsv")):
        print("no benchmark manifest in %s: skipped" % args.bench)
        return 77

    rows = read_table(args.table)
    failures = 0
    ran = 0
    for row in rows:
        if args.subset and row["subset"] != "yes":
            continue
        name = "%s [%s]" % (row["path"], row["options"])
        if not os.path.isfile(os.path.join(args.bench, row["path"])):
            print("MISSING %s: not in the benchmark" % name)
            failures += 1
            continue
        got, error = run(args.zelk, row, args.bench, args.limit)
        ran += 1
        if error:
            print("FAIL %s: %s" % (name, error))
            failures += 1
            continue
        if args.record:
            row.update(got)
            print("recorded %s: %s" % (name, " ".join("%s=%s" % (k, got[k]) for k in FIGURES)))
            continue
        diff = [(k, row[k], got[k]) for k in FIGURES if row[k] != got[k]]
        if diff:
            failures += 1
            print("CHANGED %s" % name)
            for k, was, now in diff:
                print("    %-10s recorded %-12s now %s" % (k, was, now))
        else:
            print("ok %s: %s decisions, %s backtracks" % (name, got["decisions"], got["backtracks"]))

    if args.record:
        if failures:
            print("%d runs failed: table not rewritten" % failures)
            return 1
        write_table(args.table, rows)
        print("%d rows recorded in %s" % (ran, args.table))
        return 0
    print("%d runs, %d changed or failed" % (ran, failures))
    if failures:
        print("If the search was meant to change, rerun with --record and commit the table.")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
