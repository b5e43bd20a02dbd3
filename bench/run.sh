#!/usr/bin/env bash
# Runs the benchmark programs and prints Halvex side by side with what a user
# would write instead. `make bench` calls it as: bash bench/run.sh BUILD_DIR
# Further arguments go to every benchmark program, after the defaults, so
# they can override them (e.g. --benchmark_filter=latency).
set -euo pipefail

build_dir=${1:?usage: bench/run.sh BUILD_DIR [benchmark flags...]}
shift
here=$(cd "$(dirname "$0")" && pwd)
if [ ! -d "$build_dir/bin" ]; then
    echo "bench: no $build_dir/bin; configure and build first (make build)" >&2
    exit 1
fi
out_dir=$build_dir/bench-results
mkdir -p "$out_dir"

# Short repetitions, reported as their median: on a small shared machine one
# long run can land in a bad patch and skew a whole row, a median of five
# rarely does. The boot run repeats three single runs of its own (each takes
# seconds); the whole set takes about four minutes on two cores.
defaults=(--benchmark_min_time=0.5 --benchmark_repetitions=5
          --benchmark_report_aggregates_only=true)

results=()
for name in message_loop binder compress zip logmanager fs boot_run; do
    bin=$build_dir/bin/bench_$name
    if [ ! -x "$bin" ]; then
        echo "bench: $bin is missing; build the bench_$name target first" >&2
        exit 1
    fi
    json=$out_dir/$name.json
    log=$out_dir/$name.log
    echo "bench: running bench_$name (results in $json)"
    if ! "$bin" --benchmark_format=json "${defaults[@]}" "$@" >"$json" 2>"$log"; then
        echo "bench: bench_$name failed; the end of $log:" >&2
        tail -n 20 "$log" >&2
        exit 1
    fi
    results+=("$json")
done

python3 "$here/compare.py" "${results[@]}"
