"""What the randomised differential tests share: running zelk, reading its answers,
the seed campaign and its failure report. Standard library only."""
import argparse
import collections
import os
import shutil
import subprocess
import sys
import tempfile
import time
from concurrent.futures import ThreadPoolExecutor

OPTION_SETS = [[], ["-G", "-V"], ["-m"], ["-j", "0"], ["-r", "0"]]
RUN_TIMEOUT = 30.0
MAX_ENUMERATED = 400   # each solution found adds a clause: thousands take long with -d
STATUS = {"SATISFIABLE": "SAT", "UNSATISFIABLE": "UNSAT", "OPTIMUM FOUND": "OPTIMUM",
          "UNSUPPORTED": "UNSUPPORTED"}


def run(cmd, timeout=RUN_TIMEOUT):
    try:
        return subprocess.run(cmd, capture_output=True, text=True, timeout=timeout)
    except subprocess.TimeoutExpired:
        return None


def label(opts):
    return " ".join(opts) or "defaults"


def broken(p, opts):
    """The problem of a run that timed out or crashed, else None."""
    if p is None:
        return "zelk %s: no answer within %.0f s" % (label(opts), RUN_TIMEOUT)
    if p.returncode != 0 or p.stderr.strip() or "Exception(" in p.stdout:
        return "zelk %s: exit status %d, stderr %r, output tail %r" % (
            label(opts), p.returncode, p.stderr[-300:], p.stdout[-300:])
    return None


def parse(out):
    """(status, last o value, [(o value before it or None, words)] for each v line).
    An objective whose domain ran out proves the last value optimal without saying so."""
    status, value, proved, models, pending = "UNKNOWN", None, False, [], None
    for line in out.splitlines():
        if line.startswith("s "):
            status = STATUS.get(line[2:].strip(), status)
        elif line.startswith("o "):
            value = pending = int(line.split()[1])
        elif line.startswith("v ") or line.rstrip() == "v":
            models.append((pending, line.split()[1:]))
            pending = None
        elif "==== no more values to try ====" in line:
            proved = True
    if proved and status == "SAT":
        status = "OPTIMUM"
    return status, value, models


def answer_text(ans):
    return ans[0] + ("=%s" % ans[1] if ans[0] == "OPTIMUM" else "")


def compare_solutions(printed, expected, peer="brute force"):
    """Problems of a -d run whose printed solutions are not exactly the expected ones."""
    problems = []
    if len(set(printed)) != len(printed):
        problems.append("zelk -d: %d solutions printed, %d of them distinct"
                        % (len(printed), len(set(printed))))
    missing, wrong = set(expected) - set(printed), set(printed) - set(expected)
    if missing or wrong:
        problems.append("zelk -d: %d solutions printed, %s has %d; missing %s, not solutions %s"
                        % (len(set(printed)), peer, len(set(expected)), sorted(missing)[:3],
                           sorted(wrong)[:3]))
    return problems


def arguments(doc, seeds="1:300"):
    ap = argparse.ArgumentParser(description=doc.split("\n\n")[0])
    ap.add_argument("--zelk", required=True)
    ap.add_argument("--seeds", default=seeds, help="first:last, both included")
    ap.add_argument("--seed", type=int, default=None, help="one seed only")
    ap.add_argument("--jobs", type=int, default=2)
    ap.add_argument("--show", action="store_true", help="print each instance")
    return ap


def large_arguments(ap):
    ap.add_argument("--large", action="store_true", help="only large instances")
    ap.add_argument("--large-every", type=int, default=0, metavar="N",
                    help="a large instance for each seed divisible by N")


def is_large(args, seed):
    return args.large or (args.large_every > 0 and seed % args.large_every == 0)


class Result:
    """What one seed gives: its problems, the reasons of refused runs (counted once
    per seed), how many runs were made, and a note to print."""

    def __init__(self, problems=(), refused=(), runs=0, note=None):
        self.problems, self.refused, self.runs, self.note = list(problems), list(refused), runs, note


def campaign(name, args, text, one, replay, max_refused=None, failed_before=0):
    """Runs one(seed, tmpdir) -> Result for every seed, prints each failure with its
    instance (text(seed)) and the command that replays it, and returns the exit status.
    Refusals beyond the share max_refused fail the run: the test would cover too little."""
    args.zelk = os.path.abspath(args.zelk)
    if args.seed is not None:
        seeds = [args.seed]
    else:
        first, last = (int(x) for x in args.seeds.split(":"))
        seeds = list(range(first, last + 1))
    t0 = time.monotonic()
    tmpdir = tempfile.mkdtemp(prefix="difftest.")
    failures, reasons = [], collections.Counter()
    refused = runs = 0

    def one_shown(seed):
        if args.show:
            print("---- seed %d\n%s" % (seed, text(seed)), end="")
        return seed, one(seed, tmpdir)

    try:
        with ThreadPoolExecutor(max(1, args.jobs)) as pool:
            for seed, r in pool.map(one_shown, seeds):
                runs += r.runs
                refused += bool(r.refused)
                reasons.update(set(r.refused))
                if r.note:
                    print("note seed %d: %s" % (seed, r.note))
                if r.problems:
                    failures.append((seed, r.problems))
    finally:
        shutil.rmtree(tmpdir, ignore_errors=True)
    for seed, problems in failures:
        print("FAIL seed %d\n%s\n  instance:" % (seed, "\n".join("  " + p for p in problems)))
        print("".join("    " + line + "\n" for line in text(seed).splitlines()), end="")
        print("  replay: python3 %s --zelk %s %s --seed %d"
              % (os.path.abspath(sys.argv[0]), args.zelk, replay(seed), seed))
    print("%s: %d seeds, %d..%d, %d zelk runs, %.1f s"
          % (name, len(seeds), seeds[0], seeds[-1], runs, time.monotonic() - t0))
    too_many = False
    if max_refused is not None:
        print("refused: %d of %d" % (refused, len(seeds)))
        for reason, count in reasons.most_common():
            print("  %4d: %s" % (count, reason))
        too_many = refused > max_refused * len(seeds)
        if too_many:
            print("FAIL: more than %d%% refused: the test covers too little" % (max_refused * 100))
    failed = len(failures) + failed_before + too_many
    print("%d passed, %d failed" % (len(seeds) - len(failures), failed))
    return 1 if failed else 0
