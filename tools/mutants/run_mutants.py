#!/usr/bin/env python3
"""Plants one-line faults in the sources, one at a time, and tells which ones
the tests catch.

For each mutant of a list (see named.txt for the format) the runner
replaces one exact, unique piece of text in one file, builds the mutant's
targets, runs its ctest regex and restores the file, byte for byte, whatever
happens.
A mutant that does not build is counted apart (it says nothing about the
tests); a test run that fails or times out has caught it.

  tools/mutants/run_mutants.py [--build DIR] [--only NAME_REGEX] [--check] [LIST...]

Lists default to tools/mutants/*.txt. The build directory (default build/)
must be configured already; builds use -j2. --check only tells whether
each mutant's text is found exactly once. Prints one line per mutant and a
summary per list; exits 1 when a mutant survived, 2 when a mutant's text is
not found exactly once (NOT FOUND / AMBIGUOUS, repeated at the end). The sources are left as
they were, so the next build recompiles the files that were planted.
"""

import argparse
import glob
import os
import re
import subprocess
import sys
import time

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))


def parse(path):
    """Mutants of one list: dicts with name, file, test, old, new."""
    mutants, current, defaults = [], None, {}
    with open(path, encoding="utf-8") as f:
        for number, line in enumerate(f, 1):
            line = line.rstrip("\n")
            if not line.strip() or line.lstrip().startswith("#"):
                continue
            if line.startswith("[") and line.endswith("]"):
                current = dict(defaults, name=line[1:-1], where=f"{path}:{number}")
                mutants.append(current)
                continue
            key, sep, value = line.partition(" = ")
            if not sep:
                sys.exit(f"{path}:{number}: expected 'key = value' or '[name]'")
            key = key.strip()
            if key not in ("file", "target", "test", "old", "new", "equivalent"):
                sys.exit(f"{path}:{number}: unknown key {key!r}")
            # Keys before the first mutant are defaults for the list; "\\n"
            # in a value is a line break, so that a fault may span lines.
            value = value.strip().replace("\\n", "\n")
            (current if current is not None else defaults)[key] = value
    for m in mutants:
        missing = [k for k in ("file", "test", "old", "new") if k not in m]
        if missing:
            sys.exit(f"{m['where']}: mutant {m['name']} lacks {', '.join(missing)}")
    return mutants


def run(cmd, cwd, timeout):
    try:
        done = subprocess.run(cmd, cwd=cwd, stdout=subprocess.DEVNULL,
                              stderr=subprocess.DEVNULL, timeout=timeout)
        return done.returncode
    except subprocess.TimeoutExpired:
        return None


def mismatch(count):
    """Outcome of a mutant whose text is not found exactly once."""
    return "NOT FOUND" if count == 0 else f"AMBIGUOUS ({count})"


def try_mutant(m, build, timeout):
    path = os.path.join(ROOT, m["file"])
    with open(path, "rb") as f:
        original = f.read()
    text = original.decode("utf-8")
    count = text.count(m["old"])
    if count != 1:
        return mismatch(count)
    try:
        with open(path, "w", encoding="utf-8") as f:
            f.write(text.replace(m["old"], m["new"]))
        targets = m.get("target", "all").split()
        if run(["cmake", "--build", build, "-j2", "--target", *targets], ROOT, None) != 0:
            return "does not build"
        code = run(["ctest", "-R", m["test"], "-j2", "--timeout", str(timeout)], build,
                   timeout * 4)
        if code != 0:
            return "caught"
        # A fault judged equivalent behaves as the code does; it still runs,
        # so that one a test now catches is seen.
        return "equivalent" if "equivalent" in m else "survived"
    finally:
        with open(path, "wb") as f:
            f.write(original)


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("lists", nargs="*")
    parser.add_argument("--build", default=os.path.join(ROOT, "build"))
    parser.add_argument("--only", default="", help="regex on mutant names")
    parser.add_argument("--timeout", type=int, default=300, help="seconds per test")
    parser.add_argument("--check", action="store_true", help="check the lists, run nothing")
    args = parser.parse_args()
    lists = args.lists or sorted(glob.glob(os.path.join(ROOT, "tools", "mutants", "*.txt")))
    survivors, stale = 0, []
    for path in lists:
        tally = {}
        for m in parse(path):
            if not re.search(args.only, m["name"]):
                continue
            start = time.time()
            if args.check:
                with open(os.path.join(ROOT, m["file"]), encoding="utf-8") as f:
                    count = f.read().count(m["old"])
                outcome = "ok" if count == 1 else mismatch(count)
            else:
                outcome = try_mutant(m, args.build, args.timeout)
            tally[outcome] = tally.get(outcome, 0) + 1
            survivors += outcome == "survived"
            if outcome == "NOT FOUND" or outcome.startswith("AMBIGUOUS"):
                stale.append(f"{m['where']}: {m['name']}: {outcome} in {m['file']}")
            print(f"{outcome:16} {m['name']}  ({time.time() - start:.0f} s)", flush=True)
        summary = ", ".join(f"{n} {k}" for k, n in sorted(tally.items()))
        print(f"== {os.path.relpath(path, ROOT)}: {summary}", flush=True)
    # A mutant whose text the code no longer has tests nothing: say so loudly
    # at the end, where it cannot scroll by, and fail the run.
    for line in stale:
        print(f"!! {line}: fix or drop this mutant", file=sys.stderr, flush=True)
    return 2 if stale else 1 if survivors else 0


if __name__ == "__main__":
    sys.exit(main())
