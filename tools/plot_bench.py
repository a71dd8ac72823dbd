#!/usr/bin/python3
"""Plots what `make scale` measured: load rate, review rate and bytes per route
against table size, one line per VRF spread, from the newest run of each size
in bench/results/scale-*.json, into docs/bench.png. Needs python3-matplotlib
(Debian's, hence the interpreter /usr/bin/python3); installs nothing.

Usage: tools/plot_bench.py [--results DIR] [--out FILE]
"""

import argparse
import glob
import json
import os
import sys

try:
    import matplotlib
    matplotlib.use("Agg")
    import matplotlib.pyplot as plt
    from matplotlib.ticker import FuncFormatter
except ImportError:
    sys.exit("plot_bench: needs matplotlib: sudo apt-get install -y python3-matplotlib")


def size_label(n, _pos=None):
    for div, unit in ((1e6, "M"), (1e3, "K")):
        if n >= div:
            return f"{n / div:g}{unit}"
    return f"{n:g}"


def newest_runs(results):
    """{(family, vrfs, tracker): {routes: (context, run)}}, the newest file winning."""
    series = {}
    for path in sorted(glob.glob(os.path.join(results, "scale-*.json"))):
        with open(path) as f:
            data = json.load(f)
        for run in data.get("scale", []):
            key = (run["family"], run["vrfs"], run.get("tracker", True))
            series.setdefault(key, {})[run["routes"]] = (data.get("context", {}), run)
    return series


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--results", default="bench/results")
    parser.add_argument("--out", default="docs/bench.png")
    parser.add_argument("--cpu", action="store_true",
                        help="rates from processor time (a shared, loaded machine)")
    options = parser.parse_args()
    series = newest_runs(options.results)
    if not series:
        sys.exit(f"plot_bench: no scale-*.json in {options.results}: run `make scale` first")
    rate = "_cpu_routes_per_s" if options.cpu else "_routes_per_s"
    clock = ", processor time" if options.cpu else ""
    panels = [("load" + rate, f"initial load (M routes/s{clock})", 1e-6),
              ("review" + rate, f"full review (M routes/s{clock})", 1e-6),
              ("bytes_per_route", "memory (bytes per route)", 1)]
    fig, axes = plt.subplots(1, 3, figsize=(13, 4))
    loads, cores = [], set()
    for (family, vrfs, tracker), runs in sorted(series.items()):
        sizes = sorted(runs)
        label = f"{family}, {vrfs:,} VRF{'s' if vrfs > 1 else ''}" + ("" if tracker else ", no tracker")
        for ax, (field, _title, scale) in zip(axes, panels):
            ax.plot(sizes, [runs[n][1][field] * scale for n in sizes], marker="o", label=label)
        for n in sizes:
            context = runs[n][0]
            cores.add(context.get("cores"))
            if context.get("load_avg"):
                loads.append(context["load_avg"][0])
    for ax, (_field, title, _scale) in zip(axes, panels):
        ax.set_xscale("log")
        ax.xaxis.set_major_formatter(FuncFormatter(size_label))
        ax.set_xlabel("routes in the table")
        ax.set_title(title)
        ax.set_ylim(bottom=0)
        ax.grid(True, alpha=0.3)
    axes[0].legend(fontsize="small")
    note = f"cores: {', '.join(str(c) for c in sorted(c for c in cores if c))}"
    if loads:
        note += f"; 1-minute load at the runs' start: {min(loads):.1f} to {max(loads):.1f}"
    fig.text(0.01, 0.01, note, fontsize="small", color="gray")
    fig.tight_layout(rect=(0, 0.04, 1, 1))
    os.makedirs(os.path.dirname(options.out) or ".", exist_ok=True)
    fig.savefig(options.out, dpi=100)
    print(f"plot_bench: {options.out}")


if __name__ == "__main__":
    main()
