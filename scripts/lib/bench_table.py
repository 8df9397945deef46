"""Prints what scripts/bench measured as tables of ratios, in Markdown.

A benchmark is compared with every other one that has the same arguments and a name that continues
its own: traceVlog/addresses:100 with traceVlogCopyOnly/addresses:100. What others are compared with
shows in their rows only.
"""
import json
import pathlib
import re
import statistics
import sys

STANDARD_FIELDS = {
    "name", "family_index", "per_family_instance_index", "run_name", "run_type", "repetitions",
    "repetition_index", "threads", "iterations", "real_time", "cpu_time", "time_unit",
    "items_per_second", "bytes_per_second", "label", "error_occurred", "error_message",
}
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


class Benchmark:
    """One benchmark with one set of arguments; each figure is the median of its repetitions."""

    def __init__(self, name, runs):
        self.family, _, self.arguments = name.partition("/")
        self.failure = next((run.get("error_message", "failed") for run in runs
                             if run.get("error_occurred")), None)
        if self.failure:
            return
        def median(field):
            return statistics.median(run[field] for run in runs)
        if "items_per_second" in runs[0]:
            self.nanoseconds = 1e9 / median("items_per_second")
        else:
            self.nanoseconds = median("real_time") * NANOSECONDS[runs[0]["time_unit"]]
        self.counters = {field: median(field) for field in runs[0]
                         if field not in STANDARD_FIELDS}

    def peers(self, others):
        return [other for other in others
                if other.family != self.family and other.family.startswith(self.family)
                and other.arguments == self.arguments]

    def compared_with(self, peer):
        name = peer.family[len(self.family):]
        if peer.failure:
            return f"**{name} failed: {peer.failure}**"
        return f"{self.nanoseconds / peer.nanoseconds:.2f} {name} ({figure(peer.nanoseconds)})"


def benchmarks_in(path):
    by_name = {}
    for run in json.loads(path.read_text(encoding="utf-8"))["benchmarks"]:
        if run["run_type"] == "iteration":
            by_name.setdefault(re.sub(r"/repeats:\d+", "", run["run_name"]), []).append(run)
    return [Benchmark(name, runs) for name, runs in by_name.items()]


def figure(value):
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def print_row(*cells):
    print("| " + " | ".join(cells) + " |")


def print_benchmarks(title, benchmarks):
    print(f"## {title}\n")
    print_row("benchmark", "arguments", "ns an item", "times that of (ns an item)", "counters")
    print_row("---", "---", "---:", "---", "---")
    peers = {id(peer) for one in benchmarks if not one.failure for peer in one.peers(benchmarks)}
    for one in benchmarks:
        if id(one) in peers:
            continue
        if one.failure:
            print_row(one.family, one.arguments, "**failed**", one.failure, "")
            continue
        ratios = ", ".join(one.compared_with(peer) for peer in one.peers(benchmarks))
        counters = ", ".join(f"{name} {figure(value)}" for name, value in one.counters.items())
        print_row(one.family, one.arguments, figure(one.nanoseconds), ratios, counters)
    print()


def print_measured(path):
    """The programs that ran as a whole: what, wall, user, system, KiB, bytes in, bytes out."""
    rounds = {}
    for line in path.read_text(encoding="utf-8").splitlines():
        what, *figures = line.split("\t")
        rounds.setdefault(what, []).append([float(value) for value in figures])
    medians = {what: [statistics.median(column) for column in zip(*rows)]
               for what, rows in rounds.items()}
    imports = {what: values for what, values in medians.items() if values[4] > 0}
    ours = imports["wdb import"]

    print(f"## Import of a value-change dump of {ours[4] / 1e6:,.0f} MB\n")
    print_row("program", "MB/s", "processor s", "peak MB", "file MB", "times our speed",
              "times our processor time", "times our memory", "times our file")
    print_row("---", *["---:"] * 8)
    for what, (wall, user, system, peak, in_bytes, out_bytes) in imports.items():
        print_row(what, f"{in_bytes / 1e6 / wall:.1f}", f"{user + system:.2f}",
                  f"{peak / 1024:.1f}", f"{out_bytes / 1e6:.2f}", f"{ours[0] / wall:.2f}",
                  f"{(user + system) / (ours[1] + ours[2]):.2f}", f"{peak / ours[3]:.2f}", f"{out_bytes / ours[5]:.2f}")
    print("\n## Peak memory of the benchmarks\n")
    print_row("program", "MB")
    print_row("---", "---:")
    for what, values in medians.items():
        if what not in imports:
            print_row(what, f"{values[3] / 1024:.0f}")


def main():
    folder = pathlib.Path(sys.argv[1])
    for path in sorted(folder.glob("*.json")):
        if path.stat().st_size:  # a filter may leave a program nothing to run
            print_benchmarks(path.stem, benchmarks_in(path))
    print_measured(folder / "measured.tsv")


if __name__ == "__main__":
    main()
