#!/usr/bin/env python3
"""Runs every benchmark program of a build and writes the run's results as one
JSON file, bench/results/bench-<UTC time>.json: Google Benchmark's own output
of each program (each benchmark tagged with its program), under a context that
names the machine's core count, its load average when the run started and
ended, and the commit measured. Arguments after the options go to every
program (say --benchmark_repetitions=5). The programs' console output passes
through.

Usage: tools/run_bench.py [--build DIR] [--out DIR] [-- PROGRAM ARGS...]
"""

import argparse
import datetime
import glob
import json
import os
import subprocess
import sys
import tempfile


def load_avg():
    return [round(x, 2) for x in os.getloadavg()]


def git_commit():
    try:
        return subprocess.run(["git", "rev-parse", "--short", "HEAD"], capture_output=True,
                              text=True, check=True).stdout.strip()
    except (OSError, subprocess.CalledProcessError):
        return "unknown"


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default="build-bench")
    parser.add_argument("--out", default="bench/results")
    parser.add_argument("args", nargs="*")
    options = parser.parse_args()
    programs = sorted(glob.glob(os.path.join(options.build, "bench", "*_benchmark")))
    if not programs:
        sys.exit(f"run_bench: no benchmark programs in {options.build}/bench")
    os.makedirs(options.out, exist_ok=True)
    started = datetime.datetime.now(datetime.timezone.utc)
    cores = os.cpu_count()
    context = {"date": started.strftime("%Y-%m-%dT%H:%M:%SZ"), "cores": cores,
               "load_avg_start": load_avg(), "commit": git_commit()}
    benchmarks = []
    failed = []
    for program in programs:
        name = os.path.basename(program)
        with tempfile.NamedTemporaryFile(suffix=".json") as out:
            load = "/".join(str(x) for x in load_avg())
            result = subprocess.run([program, *options.args, f"--benchmark_out={out.name}",
                                     "--benchmark_out_format=json",
                                     f"--benchmark_context=cores={cores},load_avg={load}"])
            if result.returncode != 0:
                failed.append(name)
            try:
                data = json.load(open(out.name))
            except ValueError:
                continue
        context.setdefault("library", data.get("context", {}))
        for b in data.get("benchmarks", []):
            b["program"] = name
            benchmarks.append(b)
    context["load_avg_end"] = load_avg()
    path = os.path.join(options.out, "bench-" + started.strftime("%Y%m%dT%H%M%SZ") + ".json")
    with open(path, "w") as f:
        json.dump({"context": context, "benchmarks": benchmarks}, f, indent=1)
    print(f"run_bench: {len(benchmarks)} results in {path}")
    if failed:
        sys.exit("run_bench: failed: " + ", ".join(failed))


if __name__ == "__main__":
    main()
