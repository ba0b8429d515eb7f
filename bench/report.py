#!/usr/bin/env python3
"""Runs mdh_bench and turns its results into the tables of bench/README.md and the plot of
load time per method against the number of methods.

    python3 bench/report.py run build/release/bench/mdh_bench bench/results.json
    python3 bench/report.py table bench/results.json
    python3 bench/report.py plot bench/results.json bench/load_time_per_method.svg
    python3 bench/report.py compare before.json bench/results.json
    python3 bench/report.py plot-libraries before.json after.json bench/load_time_per_library.svg
    python3 bench/report.py run NEW_BINARY after.json --also OLD_BINARY before.json

`run` runs every benchmark once per round (five rounds), each time in a fresh process, and
writes the median, mean, stddev and cv over the rounds in the benchmark library's own JSON
layout. A fresh process keeps a benchmark from inheriting the heap another one left behind
(a hashed-map insert after a large reload ran three times slower in the same process);
interleaving the rounds spreads the machine's other work over all benchmarks alike. The
plot needs gnuplot; it is installed from Debian (gnuplot-nox) when missing.
"""
import argparse
import json
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile

NS_PER_UNIT = {"ns": 1.0, "us": 1e3, "ms": 1e6, "s": 1e9}
LOAD_SIZES = [10000, 20000, 50000, 100000, 200000, 500000, 1000000]
REFERENCE = 100000
DOUBLINGS = [(10000, 20000), (50000, 100000), (100000, 200000), (500000, 1000000)]


def load_results(path):
    """run name -> aggregate name (median, stddev, cv, mean) -> entry."""
    with open(path) as stream:
        document = json.load(stream)
    runs = {}
    for entry in document["benchmarks"]:
        if entry.get("run_type") == "aggregate":
            runs.setdefault(entry["run_name"], {})[entry["aggregate_name"]] = entry
    return document.get("context", {}), runs


class Figures:
    def __init__(self, runs):
        self.runs = runs

    def run(self, prefix):
        for name in self.runs:
            if name == prefix or name.startswith(prefix + "/"):
                return self.runs[name]
        sys.exit("no aggregates for " + prefix + " in the results")

    def _timed(self, prefix, aggregate):
        entry = self.run(prefix)[aggregate]
        field = "real_time" if entry["run_name"].endswith("real_time") else "cpu_time"
        return entry, entry[field]

    def time(self, prefix, aggregate="median"):
        """The benchmark's own time per iteration, in nanoseconds."""
        entry, value = self._timed(prefix, aggregate)
        return value * NS_PER_UNIT[entry["time_unit"]]

    def cv(self, prefix):
        """Coefficient of variation of the time, in percent."""
        return self._timed(prefix, "cv")[1] * 100.0

    def counter(self, prefix, name, aggregate="median"):
        return self.run(prefix)[aggregate][name]

    def per_unit_ns(self, prefix, name, aggregate="median"):
        """A TimePer counter (seconds per thing) in nanoseconds."""
        return self.counter(prefix, name, aggregate) * 1e9


def nanoseconds(value):
    for unit, scale in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if value >= scale:
            return "%.3g %s" % (value / scale, unit)
    return "%.3g ns" % value


def row(*cells):
    return "| " + " | ".join(str(cell) for cell in cells) + " |"


def measured_rows(figures):
    lines = [row("benchmark", "median", "stddev", "cv", "per unit (median)"),
             row("---", "---:", "---:", "---:", "---:")]
    for name, aggregates in figures.runs.items():
        unit = next((key for key in ("per_method", "per_file") if key in aggregates["median"]),
                    None)
        per_unit = "%s/%s" % (nanoseconds(figures.per_unit_ns(name, unit)),
                              unit[4:]) if unit else ""
        if "heap_bytes_per_method" in aggregates["median"]:
            per_unit = "%.1f B/method" % aggregates["median"]["heap_bytes_per_method"]
        lines.append(row(name, nanoseconds(figures.time(name)),
                         nanoseconds(figures.time(name, "stddev")),
                         "%.1f %%" % figures.cv(name), per_unit))
    return lines


def goal_rows(figures):
    def load(kind, size):
        return figures.time("%s/%d" % (kind, size))

    def verdict(value, limit):
        return "met" if value <= limit else "missed"

    lines = [row("goal", "measured", "limit", "status"), row("---", "---:", "---:", "---")]
    reload_ratio = load("LibraryReloaded", REFERENCE) / load("LibraryLoaded", REFERENCE)
    lines.append(row("reload / first load, 100k methods", "%.2f" % reload_ratio, "1.5",
                     verdict(reload_ratio, 1.5)))
    for small, large in DOUBLINGS:
        ratio = load("LibraryLoaded", large) / load("LibraryLoaded", small)
        lines.append(row("first load %dk -> %dk methods" % (small // 1000, large // 1000),
                         "%.2f" % ratio, "2.3", verdict(ratio, 2.3)))
    floor_ratio = load("LibraryLoaded", REFERENCE) / load("LoadFloor", REFERENCE)
    lines.append(row("first load / hashed-map floor, 100k methods", "%.2f" % floor_ratio, "4",
                     verdict(floor_ratio, 4.0)))
    fetch = figures.per_unit_ns("FetchMethods", "per_method")
    writer_floor = figures.per_unit_ns("FetchMethodsFloor/fresh_records:0", "per_method")
    fresh_floor = figures.per_unit_ns("FetchMethodsFloor/fresh_records:1", "per_method")
    lines.append(row("QuarnFetchMethods / writer floor, per method",
                     "%.2f" % (fetch / writer_floor), "2", verdict(fetch / writer_floor, 2.0)))
    lines.append(row("QuarnFetchMethods / writer floor with fresh records, per method",
                     "%.2f" % (fetch / fresh_floor), "(2)", verdict(fetch / fresh_floor, 2.0) + " (for reference)"))
    heap = figures.counter("HeapPerLoadedMethod/%d" % REFERENCE, "heap_bytes_per_method")
    lines.append(row("heap per loaded method, 100k methods", "%.1f B" % heap, "200 B",
                     verdict(heap, 200.0)))
    lines.extend(session_goal_rows(figures, verdict))
    return lines


def session_goal_rows(figures, verdict):
    """The many-libraries session and the long-session memory goals."""
    session = "HostSession/libraries:2000"
    lines = []
    for kind in ("load", "unload"):
        first = figures.counter(session, kind + "_first_tenth_us")
        last = figures.counter(session, kind + "_last_tenth_us")
        spread = max(first, last) / min(first, last)
        lines.append(row("2000 libraries: %s, slower tenth / faster tenth (%.1f / %.1f us)"
                         % (kind, first, last), "%.2f" % spread, "2", verdict(spread, 2.0)))
    one_by_one = figures.time("LoadOneByOne/libraries:2000") / figures.time(
        "LoadAsOneLibrary/libraries:2000")
    lines.append(row("2000 libraries one by one / the same methods as one library",
                     "%.2f" % one_by_one, "3", verdict(one_by_one, 3.0)))
    reload = figures.time("ReloadAmong/loaded:2000") / figures.time("LoadAmong/loaded:0")
    lines.append(row("reload one library among 2000 / its load into an empty handle",
                     "%.2f" % reload, "2", verdict(reload, 2.0)))
    for name, title in (("ResidentAfterMethodLists", "1000 method lists of 100k methods"),
                        ("ResidentAfterReloads", "1000 reloads of 100k methods")):
        growth = figures.counter(name, "rss_growth_MB")
        lines.append(row("resident memory growth over " + title, "%.1f MB" % growth, "32 MB",
                         verdict(growth, 32.0)))
    return lines


def other_ratio_rows(figures):
    lines = [row("comparison", "ratio", "detail"), row("---", "---:", "---")]
    trampoline = figures.time("TrampolineCall")
    direct = figures.time("DirectWrapperCall")
    lines.append(row("trampoline / direct wrapper call", "%.2f" % (trampoline / direct),
                     "+%.2f ns per call" % (trampoline - direct)))
    for small, large in ((10000, 100000), (100000, 1000000)):
        ratio = figures.time("LibraryLoaded/%d" % large) / figures.time("LibraryLoaded/%d" % small)
        lines.append(row("first load %dk -> %dk methods" % (small // 1000, large // 1000),
                         "%.1f" % ratio, "10x the methods"))
    for query, floor, unit in (("FetchFiles", "FetchFilesFloor", "per_file"),
                               ("FetchDebugInfo", "FetchDebugInfoFloor", None)):
        value = figures.per_unit_ns(query, unit) if unit else figures.time(query)
        bound = figures.per_unit_ns(floor, unit) if unit else figures.time(floor)
        lines.append(row("%s / its writer floor" % query, "%.2f" % (value / bound),
                         "%s vs %s %s" % (nanoseconds(value), nanoseconds(bound),
                                          unit or "per call")))
    for bare in (0, 1):
        small = figures.time("IsFileQuarned/files:100/bare_name:%d" % bare)
        large = figures.time("IsFileQuarned/files:10000/bare_name:%d" % bare)
        lines.append(row("IsFileQuarned 100 -> 10k files (%s)" %
                         ("bare file name" if bare else "path with directory"),
                         "%.0f" % (large / small), "%s -> %s per call" %
                         (nanoseconds(small), nanoseconds(large))))
    return lines


def print_tables(context, figures):
    print("Machine: %s CPUs at %s MHz, %s" % (context.get("num_cpus"), context.get("mhz_per_cpu"),
                                            context.get("date", "")))
    for title, lines in (("Measured (median of the rounds; CPU time of the benchmark thread)", measured_rows(figures)),
                         ("Goals", goal_rows(figures)),
                         ("Other comparisons", other_ratio_rows(figures))):
        print("\n### " + title + "\n")
        print("\n".join(lines))


def ensure_gnuplot():
    if shutil.which("gnuplot") is None:
        subprocess.run(["apt-get", "install", "-y", "gnuplot-nox"], check=True)


def plot(figures, output):
    ensure_gnuplot()
    series = (("LibraryLoaded", "first load"), ("LibraryReloaded", "reload (every item replaced)"),
              ("LoadFloor", "floor: reserved hashed map"))
    with tempfile.TemporaryDirectory() as directory:
        data = os.path.join(directory, "load.dat")
        with open(data, "w") as stream:
            for kind, _ in series:
                for size in LOAD_SIZES:
                    prefix = "%s/%d" % (kind, size)
                    stream.write("%d %f %f\n" % (
                        size, figures.per_unit_ns(prefix, "per_method"),
                        figures.per_unit_ns(prefix, "per_method", "stddev")))
                stream.write("\n\n")
        plots = ", ".join("'%s' index %d using 1:2:3 with yerrorlines pointtype 7 pointsize 0.6 title '%s'" %
                          (data, index, title) for index, (_, title) in enumerate(series))
        script = "\n".join([
            "set terminal svg size 800,480 dynamic background rgb 'white'",
            "set output '%s'" % output,
            "set title 'library\\_loaded: time per method (median, error bars: stddev)'",
            "set xlabel 'methods in the library'",
            "set ylabel 'ns per method'",
            "set logscale x",
            "set xrange [7000:1400000]",
            "set xtics (10000, 20000, 50000, 100000, 200000, 500000, 1000000)",
            "set format x '%.0s%c'",
            "set yrange [0:*]",
            "set key top left",
            "set grid",
            "plot " + plots,
        ])
        subprocess.run(["gnuplot"], input=script, text=True, check=True)


LOADED = [0, 10, 100, 1000, 4000]


def plot_libraries(before, after, output):
    """Time of one more library load against the number of libraries already loaded, before and
    after a change, log-log."""
    ensure_gnuplot()
    with tempfile.TemporaryDirectory() as directory:
        data = os.path.join(directory, "libraries.dat")
        with open(data, "w") as stream:
            for figures in (before, after):
                for loaded in LOADED:
                    # The x axis is logarithmic: "0 loaded" is drawn at 1.
                    stream.write("%d %f\n" % (max(loaded, 1),
                                              figures.time("LoadAmong/loaded:%d" % loaded) / 1e3))
                stream.write("\n\n")
        script = "\n".join([
            "set terminal svg size 800,480 dynamic background rgb 'white'",
            "set output '%s'" % output,
            "set title 'library\\_loaded of one more library of 100 methods (median)'",
            "set xlabel 'libraries already loaded (0 drawn at 1)'",
            "set ylabel 'microseconds per load'",
            "set logscale xy",
            "set xrange [0.7:6000]",
            "set key top left",
            "set grid",
            "plot '%s' index 0 using 1:2 with linespoints pointtype 7 title 'before', "
            "'%s' index 1 using 1:2 with linespoints pointtype 7 title 'after'" % (data, data),
        ])
        subprocess.run(["gnuplot"], input=script, text=True, check=True)


def print_comparison(before, after):
    """Medians of the benchmarks both runs have, before and after a change."""
    print(row("benchmark", "before", "after", "after / before"))
    print(row("---", "---:", "---:", "---:"))
    for name in after.runs:
        if name in before.runs:
            old, new = before.time(name), after.time(name)
            print(row(name, nanoseconds(old), nanoseconds(new), "%.2f" % (new / old)))


# Fields of a benchmark entry that describe the run rather than measure it.
RUN_FIELDS = {"family_index", "per_family_instance_index", "repetitions", "repetition_index",
              "threads", "iterations"}


def aggregate(entries):
    """The median, mean, stddev and cv entries of one benchmark's rounds, as the benchmark
    library itself writes them with --benchmark_report_aggregates_only=true."""
    measured = [key for key, value in entries[0].items()
                if isinstance(value, (int, float)) and key not in RUN_FIELDS]
    summaries = {
        "median": statistics.median,
        "mean": statistics.mean,
        "stddev": lambda values: statistics.stdev(values) if len(values) > 1 else 0.0,
        "cv": lambda values: (statistics.stdev(values) / statistics.mean(values)
                              if len(values) > 1 and statistics.mean(values) else 0.0),
    }
    result = []
    for name, summary in summaries.items():
        entry = dict(entries[0], run_type="aggregate", aggregate_name=name,
                     name=entries[0]["run_name"] + "_" + name, repetitions=len(entries))
        for key in measured:
            entry[key] = summary([each[key] for each in entries])
        result.append(entry)
    return result


def run(binaries, outputs, rounds, selected=None):
    """Runs every benchmark of every binary once per round, each time in a fresh process, and
    writes per binary the median, mean, stddev and cv over the rounds. Interleaving the rounds
    (and the binaries) spreads whatever else the machine does over all of them alike, so ratios
    between benchmarks, and between two builds, stay meaningful."""
    names = [[name for name in subprocess.run([binary, "--benchmark_list_tests"], check=True,
                                              text=True, capture_output=True).stdout.split()
              if selected is None or re.search(selected, name)] for binary in binaries]
    contexts = [None] * len(binaries)
    measured = [{name: [] for name in listed} for listed in names]
    with tempfile.TemporaryDirectory() as directory:
        part = os.path.join(directory, "part.json")
        for round_number in range(1, rounds + 1):
            for name in names[0]:
                for index, binary in enumerate(binaries):
                    if name not in measured[index]:
                        continue
                    print("round %d: %s %s" % (round_number, binary, name), file=sys.stderr)
                    subprocess.run([binary, "--benchmark_filter=^%s$" % re.escape(name),
                                    "--benchmark_out=" + part, "--benchmark_out_format=json"],
                                   check=True, stdout=subprocess.DEVNULL)
                    with open(part) as stream:
                        document = json.load(stream)
                    contexts[index] = contexts[index] or document["context"]
                    measured[index][name].extend(document["benchmarks"])
    for index, output in enumerate(outputs):
        benchmarks = [entry for name, entries in measured[index].items() if entries
                      for entry in aggregate(entries)]
        with open(output, "w") as stream:
            json.dump({"context": contexts[index], "benchmarks": benchmarks}, stream, indent=1)


def main():
    parser = argparse.ArgumentParser(description="Runs mdh_bench and reports its results.")
    commands = parser.add_subparsers(dest="command", required=True)
    run_command = commands.add_parser("run", help="run every benchmark, write their JSON")
    run_command.add_argument("binary")
    run_command.add_argument("output")
    run_command.add_argument("--rounds", type=int, default=5)
    run_command.add_argument("--filter", help="run only the benchmarks whose name matches")
    run_command.add_argument("--also", nargs=2, action="append", default=[],
                             metavar=("BINARY", "OUTPUT"),
                             help="another build to run in the same rounds (say, the one before "
                                  "a change), with its own output")
    table_command = commands.add_parser("table", help="print the markdown tables")
    table_command.add_argument("results")
    plot_command = commands.add_parser("plot", help="write the load-time plot (SVG)")
    plot_command.add_argument("results")
    plot_command.add_argument("output")
    compare_command = commands.add_parser("compare", help="medians before and after a change")
    compare_command.add_argument("before")
    compare_command.add_argument("results")
    libraries_command = commands.add_parser("plot-libraries",
                                            help="plot per-load time against libraries loaded")
    libraries_command.add_argument("before")
    libraries_command.add_argument("results")
    libraries_command.add_argument("output")
    arguments = parser.parse_args()
    if arguments.command == "run":
        binaries = [arguments.binary] + [binary for binary, _ in arguments.also]
        outputs = [arguments.output] + [output for _, output in arguments.also]
        run(binaries, outputs, arguments.rounds, arguments.filter)
        return
    context, runs = load_results(arguments.results)
    if arguments.command == "table":
        print_tables(context, Figures(runs))
    elif arguments.command == "compare":
        print_comparison(Figures(load_results(arguments.before)[1]), Figures(runs))
    elif arguments.command == "plot-libraries":
        plot_libraries(Figures(load_results(arguments.before)[1]), Figures(runs), arguments.output)
    else:
        plot(Figures(runs), arguments.output)


if __name__ == "__main__":
    main()
