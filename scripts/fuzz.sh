#!/usr/bin/env bash
# Builds the fuzzers of fuzz/ with clang and libFuzzer (ASan + UBSan) in
# BUILD_DIR, writes their seed corpora with the project's encoders and runs
# each for FUZZ_SECONDS (60 by default). A finding stops the run with the
# fuzzer's report; its input is kept under BUILD_DIR/artifacts/.
#   bash scripts/fuzz.sh [BUILD_DIR]   (make fuzz)
set -euo pipefail

here=$(cd "$(dirname "$0")/.." && pwd)
dir=${1:-build-fuzz}
seconds=${FUZZ_SECONDS:-60}
# One fixed mutation sequence by default, so that a run repeats what the last
# one did; FUZZ_SEED=0 lets libFuzzer pick a new one (long runs).
seed=${FUZZ_SEED:-1}
if [ ! -f "$dir/CMakeCache.txt" ]; then
    CC=clang CXX=clang++ cmake -S "$here" -B "$dir" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DTESSEL_FUZZ=ON -DTESSEL_BUILD_BENCH=OFF ${CMAKE_FLAGS:-}
fi
cmake --build "$dir" --target fuzzers -j "$(nproc)"

corpus=$dir/corpus
rm -rf "$corpus/seeds"
"$dir/bin/make_seeds" "$corpus/seeds"
mkdir -p "$dir/artifacts"

declare -A dicts=([section]=dump [dump_partition]=dump [image_inspect]=dump
                  [crash_parse]=logs [kmsg]=logs [intent_json]=json [logconfig]=logconfig)
for name in section dump_partition crash_parse kmsg parcel frame intent_json image_inspect \
            tzlog_dict logconfig; do
    mkdir -p "$corpus/$name"
    if [ -d "$corpus/seeds/$name" ]; then cp -n "$corpus/seeds/$name"/* "$corpus/$name"/; fi
    # Standard output closed: the dump code prints a line or two per input.
    args=(-max_total_time="$seconds" -seed="$seed" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1
          -close_fd_mask=1 -artifact_prefix="$dir/artifacts/$name-")
    if [ -n "${dicts[$name]:-}" ]; then args+=(-dict="$here/fuzz/dict/${dicts[$name]}.dict"); fi
    log=$dir/fuzz-$name.log
    echo "fuzz: $name for ${seconds}s"
    if ! "$dir/bin/${name}_fuzzer" "${args[@]}" "$corpus/$name" >"$log" 2>&1; then
        echo "fuzz: $name found a problem; the end of $log:" >&2
        tail -n 60 "$log" >&2
        exit 1
    fi
    runs=$(grep -o 'stat::number_of_executed_units: [0-9]*' "$log" | grep -o '[0-9]*$' || true)
    speed=$(grep -o 'stat::average_exec_per_sec: *[0-9]*' "$log" | grep -o '[0-9]*$' || true)
    cov=$(grep -o 'cov: [0-9]*' "$log" | tail -n 1 | grep -o '[0-9]*$' || true)
    echo "fuzz: $name: ${runs:-?} runs, ${speed:-?}/s, coverage ${cov:-?} edges, nothing found"
done
