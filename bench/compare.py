#!/usr/bin/env python3
"""Prints Halvex side by side with the baseline from Google Benchmark JSON.

Runs are paired by name: "<workload>/halvex" against "<workload>/baseline"
(a trailing "/real_time" or "/manual_time" is ignored). With repetitions, the
median aggregate is used; otherwise the single run. A workload without any of
the counters below is shown by its time per iteration.
"""
import json
import sys

# Second baselines, each shown on a row of its own.
EXTRA_BASELINES = ("pigz", "python")
IMPLS = ("halvex", "baseline") + EXTRA_BASELINES

# counter -> (unit heading, higher is better, formatter)
METRICS = {
    "items_per_second": ("msgs/s", True, lambda v: si(v)),
    "median_us": ("us", False, lambda v: f"{v:.1f}"),
    "p99_us": ("us", False, lambda v: f"{v:.1f}"),
    "allocs_per_msg": ("allocs/msg", False, lambda v: f"{v:.3f}"),
    "wall_s": ("s", False, lambda v: f"{v:.2f}"),
    "peak_rss_mib": ("MiB", False, lambda v: f"{v:.1f}"),
    "time_us": ("us", False, lambda v: f"{v:.1f}"),
    "mib_per_s": ("MiB/s", True, lambda v: f"{v:.1f}"),
    "size_mib": ("MiB", False, lambda v: f"{v:.2f}"),
}

# What each benchmark program's baseline is.
BASELINES = [
    ("message loop", "a std::mutex + std::condition_variable + std::deque<std::function<void()>> "
     "queue (the consumer has a core to itself unless noted)"),
    ("binder call", "the same exchange as a bare ping-pong over a Unix socket pair"),
    ("compress", "zlib -9 on one thread, in process; pigz -9 -z with the same thread count"),
    ("zip", "Info-ZIP zip -r -6 of the same folder; Python's zipfile at level 6"),
    ("log manager", "the same deletion by `ls | sort | head -n N | xargs rm -rf` in the folder; "
     "per event: creating the entry and running that pipeline for one entry"),
    ("boot run", "reading the partitions once and compressing the raw dump once with zlib -9, "
     "in process; peak memory is tesseld's VmHWM"),
]

TO_US = {"ns": 1e-3, "us": 1.0, "ms": 1e3, "s": 1e6}

# The rows of the table, in order: workload, label, counter. Workloads not
# listed here still get a row for every counter they report.
ROWS = [
    ("throughput/producers:1", "throughput, 1 producer", "items_per_second"),
    ("throughput/producers:4", "throughput, 4 producers", "items_per_second"),
    ("throughput/producers:1/shared_core", "throughput, 1 producer, one shared core",
     "items_per_second"),
    ("latency", "post-to-run latency, median", "median_us"),
    ("latency", "post-to-run latency, p99", "p99_us"),
    ("latency/shared_core", "post-to-run latency, median, one shared core", "median_us"),
    ("latency/shared_core", "post-to-run latency, p99, one shared core", "p99_us"),
    ("allocations", "allocations after warm-up", "allocs_per_msg"),
    ("round_trip_small", "binder call, small, round trip", "time_us"),
    ("round_trip_64KiB", "binder call, 64 KiB byte[], round trip", "time_us"),
    ("round_trip_1MiB", "binder call, 1 MiB byte[], round trip", "time_us"),
    ("round_trip_16MiB", "binder call, 16 MiB byte[], round trip", "time_us"),
    ("round_trip_64KiB_string", "binder call, 64 KiB String, round trip", "time_us"),
    ("round_trip_1MiB_string", "binder call, 1 MiB String, round trip", "time_us"),
    ("round_trip_16MiB_string", "binder call, 16 MiB String, round trip", "time_us"),
    ("logmgr/clean_10000_to_1000", "log folder check, 10,000 entries to 1,000", "time_us"),
    ("logmgr/event_to_check", "new entry to the end of its check, folder at its limit",
     "time_us"),
]


def si(value):
    for factor, suffix in ((1e9, "G"), (1e6, "M"), (1e3, "k")):
        if value >= factor:
            return f"{value / factor:.2f}{suffix}"
    return f"{value:.0f}"


def split_name(run_name):
    """("throughput/producers:1", "halvex") from "throughput/producers:1/halvex/real_time"."""
    parts = [p for p in run_name.split("/") if p not in ("real_time", "manual_time")
             and not p.startswith(("iterations:", "repeats:"))]
    impl = next((p for p in parts if p in IMPLS), None)
    if impl is None:
        return None, None
    return "/".join(p for p in parts if p != impl), impl


def load(paths):
    """{workload: {impl: run}}, and the context of the first file."""
    runs, context = {}, None
    for path in paths:
        with open(path) as f:
            doc = json.load(f)
        context = context or doc.get("context", {})
        for run in doc.get("benchmarks", []):
            is_aggregate = run.get("run_type") == "aggregate"
            if is_aggregate and run.get("aggregate_name") != "median":
                continue
            workload, impl = split_name(run.get("run_name", run["name"]))
            if workload is None:
                continue
            if not any(c in run for c in METRICS) and "real_time" in run:
                run["time_us"] = run["real_time"] * TO_US.get(run.get("time_unit", "ns"), 1e-3)
            slot = runs.setdefault(workload, {})
            # A median beats a single run of the same benchmark.
            if is_aggregate or impl not in slot:
                slot[impl] = run
    return runs, context


def figure(run, counter):
    if run is None:
        return None, "-"
    if run.get("error_occurred"):
        return None, "error"
    value = run.get(counter)
    if value is None:
        return None, "-"
    return value, METRICS[counter][2](value)


def ratio(counter, halvex, baseline):
    if halvex is None or baseline is None or halvex == 0 or baseline == 0:
        return "-"
    higher_is_better = METRICS[counter][1]
    return f"{(halvex / baseline if higher_is_better else baseline / halvex):.2f}x"


def main(paths):
    runs, context = load(paths)
    rows = [r for r in ROWS if r[0] in runs]
    listed = {r[0] for r in ROWS}
    for workload in sorted(runs):
        if workload in listed:
            continue
        for impl_run in runs[workload].values():
            for counter in METRICS:
                if counter in impl_run and (workload, workload, counter) not in rows:
                    rows.append((workload, workload, counter))

    table = [("workload", "unit", "halvex", "baseline", "halvex vs baseline")]
    for workload, label, counter in rows:
        pair = runs[workload]
        h_value, h_text = figure(pair.get("halvex"), counter)
        b_value, b_text = figure(pair.get("baseline"), counter)
        table.append((label, METRICS[counter][0], h_text, b_text,
                      ratio(counter, h_value, b_value)))
        for extra in EXTRA_BASELINES:
            if extra in pair:
                e_value, e_text = figure(pair.get(extra), counter)
                table.append((f"{label}, vs {extra}", METRICS[counter][0], h_text, e_text,
                              ratio(counter, h_value, e_value)))

    widths = [max(len(row[i]) for row in table) for i in range(len(table[0]))]
    print()
    print("Halvex side by side with what a user would pick instead:")
    for name, baseline in BASELINES:
        print(f"  {name}: {baseline}")
    print(f"({context.get('num_cpus', '?')} CPUs; medians where a benchmark repeats)")
    print()
    for i, row in enumerate(table):
        print("  ".join(cell.ljust(w) if c == 0 else cell.rjust(w)
                        for c, (cell, w) in enumerate(zip(row, widths))))
        if i == 0:
            print("  ".join("-" * w for w in widths))
    print()
    print("halvex vs baseline: > 1.00x means Halvex is better (more msgs/s, "
          "fewer us, s or MiB); '-' where a figure is zero or missing.")


if __name__ == "__main__":
    if len(sys.argv) < 2:
        sys.exit("usage: compare.py RESULT.json...")
    main(sys.argv[1:])
