#!/usr/bin/env python3
"""The manual page and `zelk -h` tell the same options in the same words.

usage: man_page_check.py ZELK PAGE
"""
import re
import subprocess
import sys

# Options that exist but that the usage text doesn't show.
PAGE_ONLY = {"d", "D"}


def usage_entries(text):
    """The long entries as (letter, words) and the letters of the short usage."""
    entries, short = [], set()
    current = None
    for line in text.splitlines():
        m = re.match(r"^  -([A-Za-z])\b(.*)$", line)
        if m:
            current = [m.group(1), "-" + m.group(1) + m.group(2)]
            entries.append(current)
        elif current is not None and re.match(r"^\s{3,}\S", line):
            current[1] += " " + line
        else:
            current = None
        short.update(re.findall(r"\[-([A-Za-z]) [^]|]+\]", line))
    return [(letter, " ".join(words.split())) for letter, words in entries], short


def roff_to_text(page):
    """The running text of a man page written with the usual macros."""
    out = []
    for line in page.splitlines():
        if line.startswith('.\\"'):
            continue
        m = re.match(r"^\.(B|I|BI|IB|BR|RB|IR|RI|TP|IP|PP|SH|SS|TH)\b\s*(.*)$", line)
        if m:
            macro, rest = m.groups()
            args = re.findall(r'"([^"]*)"|(\S+)', rest)
            args = [a or b for a, b in args]
            if macro in ("B", "I"):
                out.append(" ".join(args))
            elif macro in ("BI", "IB", "BR", "RB", "IR", "RI"):
                out.append("".join(args))
            continue
        if line.startswith("."):
            continue
        out.append(line)
    text = "\n".join(out)
    text = re.sub(r"\\f[BIRP]", "", text)
    text = text.replace("\\-", "-").replace("\\&", "").replace("\\e", "\\")
    return " ".join(text.split())


def page_options(page):
    """The letters the page documents as options (the tags of its option list)."""
    letters = set()
    for m in re.finditer(r"^\.TP\n\.B[IR]?\s+\\-([A-Za-z])\b", page, re.M):
        letters.add(m.group(1))
    return letters


def main():
    zelk, page_path = sys.argv[1], sys.argv[2]
    run = subprocess.run([zelk, "-h"], capture_output=True, text=True, check=False)
    if run.returncode != 0:
        print(f"zelk -h exited with {run.returncode}")
        return 1
    entries, short = usage_entries(run.stdout)
    with open(page_path, encoding="utf-8") as f:
        page = f.read()
    text = roff_to_text(page)
    documented = page_options(page)
    known = {letter for letter, _ in entries} | short

    failures = []
    if not entries:
        failures.append("no option entries found in the output of -h")
    for letter, words in entries:
        if words not in text:
            failures.append(f"the page lacks the words of -h for -{letter}: {words!r}")
    for letter in sorted(short - documented):
        failures.append(f"-{letter} is in the usage of -h but not documented on the page")
    for letter in sorted(documented - known - PAGE_ONLY):
        failures.append(f"the page documents -{letter}, which -h doesn't know")
    for letter in sorted(PAGE_ONLY & known):
        failures.append(f"-h now shows -{letter}: take it out of PAGE_ONLY")
    for letter in sorted(known - documented):
        failures.append(f"-{letter} is shown by -h but has no entry on the page")
    for failure in failures:
        print(failure)
    if not failures:
        print(f"{len(entries)} entries of -h found on the page; {len(documented)} options documented")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
