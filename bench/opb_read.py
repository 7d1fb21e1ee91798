#!/usr/bin/env python3
"""Reading speed of zelk's OPB reader on large files.

    bench/opb_read.py [--zelk build/zelk] [--mb 100] [--runs 3] [--keep]

Writes two inputs into /tmp/zelk_opb_read (never into the checkout):

- constraints.opb: about MB megabytes of constraints over 2000 variables (clauses,
  cardinalities, small weighted sums with negations and products, names,
  comments), all satisfied by x_i = 1, so that nothing fails while building;
- comment.opb: one comment line of MB megabytes, then one constraint.

Each file is given to zelk (-F opb -s 1), and the time from the start of the
process to its line "c with N constraints", when the whole model is read and
built, is taken; the process is then stopped before the search. The best of
RUNS runs is reported in MB/s. A comment line of a tenth of the size is timed
too: reading is linear when both give about the same MB/s.
Standard library only.
"""
import argparse
import os
import random
import subprocess
import time

WORK = "/tmp/zelk_opb_read"
VARIABLES = 2000


def write_constraints(path, size):
    rng = random.Random(24)
    written = 0
    with open(path, "w") as f:
        f.write("* reading benchmark: every constraint holds with all variables 1\n")
        lines = []
        while written < size:
            r = rng.random()
            vs = rng.sample(range(1, VARIABLES + 1), rng.randint(2, 6))
            if r < 0.4:
                line = " ".join("+1 %sx%d" % ("~" if i else "", v) for i, v in enumerate(vs)) + " >= 1 ;"
            elif r < 0.6:
                line = " ".join("+1 x%d" % v for v in vs) + " >= %d ;" % rng.randint(1, len(vs))
            elif r < 0.9:
                # at most 31 in all; the negated terms count 0 at x = 1
                terms = ["+%d x%d" % (rng.randint(1, 5), v) for v in vs[:-1]]
                terms.append("-%d ~x%d x%d" % (rng.randint(1, 3), vs[-1], vs[0]))
                line = "c%d: %s >= %d ;" % (written, " ".join(terms), rng.randint(0, len(vs) - 1))
            else:
                line = "* " + "comment " * rng.randint(1, 8)
            lines.append(line + "\n")
            written += len(lines[-1])
            if len(lines) >= 10000:
                f.write("".join(lines))
                lines = []
        f.write("".join(lines))


def write_comment(path, size):
    with open(path, "w") as f:
        f.write("*")
        chunk = "a comment that never ends " * 40000
        left = size
        while left > 0:
            f.write(chunk[:left])
            left -= min(left, len(chunk))
        f.write("\n+1 x >= 1 ;\n")


def time_to_model(zelk, path):
    """Seconds from the start of zelk to its constraint count line."""
    start = time.monotonic()
    p = subprocess.Popen([zelk, "-F", "opb", "-s", "1", path], stdout=subprocess.PIPE,
                         stderr=subprocess.PIPE, text=True)
    try:
        seen = ""
        while True:
            ch = p.stdout.read(1)
            if not ch:
                raise RuntimeError("zelk ended before its model was built: %s"
                                   % p.stderr.read()[-500:])
            seen += ch
            if seen.endswith(" constraints\n"):
                return time.monotonic() - start
            if len(seen) > 4096:
                seen = seen[-64:]
    finally:
        p.kill()
        p.wait()


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--zelk", default="build/zelk")
    ap.add_argument("--mb", type=int, default=100)
    ap.add_argument("--runs", type=int, default=3)
    ap.add_argument("--keep", action="store_true", help="keep the inputs in " + WORK)
    args = ap.parse_args()
    zelk = os.path.abspath(args.zelk)
    os.makedirs(WORK, exist_ok=True)
    size = args.mb * 1000 * 1000
    inputs = [("constraints", os.path.join(WORK, "constraints.opb"), write_constraints, size),
              ("one comment line", os.path.join(WORK, "comment.opb"), write_comment, size),
              ("one comment line, a tenth", os.path.join(WORK, "comment10.opb"), write_comment,
               size // 10)]
    try:
        for label, path, write, n in inputs:
            write(path, n)
            mb = os.path.getsize(path) / 1e6
            best = min(time_to_model(zelk, path) for _ in range(args.runs))
            print("%-26s %8.1f MB  %7.2f s  %7.1f MB/s" % (label, mb, best, mb / best))
    finally:
        if not args.keep:
            for _, path, _, _ in inputs:
                if os.path.exists(path):
                    os.remove(path)


if __name__ == "__main__":
    main()
