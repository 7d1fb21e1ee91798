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
RUNS runs is reported in MB/s, of wall time and of CPU time. A comment line of a tenth of the size is timed
too: reading is linear when both give about the same MB/s.
Standard library only.
"""
import argparse
import os
import random
import signal
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
    """(wall, CPU) seconds from the start of zelk to its constraint count line;
    the CPU time (user and system) is the figure to trust on a loaded machine."""
    start = time.monotonic()
    p = subprocess.Popen([zelk, "-F", "opb", "-s", "1", path], stdout=subprocess.PIPE,
                         stderr=subprocess.DEVNULL)
    seen = b""
    try:
        while True:
            chunk = p.stdout.read1(4096)
            if not chunk:
                raise RuntimeError("zelk ended before its model was built")
            seen = (seen + chunk)[-4096:]
            if b" constraints\n" in seen:
                wall = time.monotonic() - start
                break
    finally:
        # Popen.kill would reap a child that has already ended, and its CPU time with it.
        os.kill(p.pid, signal.SIGKILL)
        _, _, usage = os.wait4(p.pid, 0)
        p.returncode = -signal.SIGKILL
        p.stdout.close()
    return wall, usage.ru_utime + usage.ru_stime


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--zelk", default="build/zelk")
    ap.add_argument("--mb", type=float, default=100)
    ap.add_argument("--runs", type=int, default=3)
    ap.add_argument("--keep", action="store_true", help="keep the inputs in " + WORK)
    args = ap.parse_args()
    zelk = os.path.abspath(args.zelk)
    os.makedirs(WORK, exist_ok=True)
    size = int(args.mb * 1000 * 1000)
    inputs = [("constraints", os.path.join(WORK, "constraints.opb"), write_constraints, size),
              ("one comment line", os.path.join(WORK, "comment.opb"), write_comment, size),
              ("one comment line, a tenth", os.path.join(WORK, "comment10.opb"), write_comment,
               size // 10)]
    try:
        for label, path, write, n in inputs:
            write(path, n)
            mb = os.path.getsize(path) / 1e6
            times = [time_to_model(zelk, path) for _ in range(args.runs)]
            wall = min(t[0] for t in times)
            cpu = min(t[1] for t in times)
            print("%-26s %8.1f MB  wall %7.2f s %7.1f MB/s  CPU %7.2f s %7.1f MB/s"
                  % (label, mb, wall, mb / wall, cpu, mb / cpu))
    finally:
        if not args.keep:
            for _, path, _, _ in inputs:
                if os.path.exists(path):
                    os.remove(path)


if __name__ == "__main__":
    main()
