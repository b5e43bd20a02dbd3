// The main() of a benchmark program whose runs are registered at start.
#pragma once

#include <android/log.h>
#include <benchmark/benchmark.h>

#include <initializer_list>
#include <string>
#include <utility>

namespace zelkor::tessel::bench {

// Registers "<workload>/<impl>" for each implementation as runs that take
// seconds each: three single-iteration repetitions of manually timed work.
inline void RegisterSingleShots(
        const std::string& workload,
        std::initializer_list<std::pair<const char*, void (*)(benchmark::State&)>> impls) {
    for (const auto& [impl, fn] : impls) {
        benchmark::RegisterBenchmark((workload + "/" + impl).c_str(), fn)
                ->UseManualTime()
                ->Iterations(1)
                ->Repetitions(3)
                ->Unit(benchmark::kMillisecond);
    }
}

// Registers the runs with `registerRuns` and runs those the command line
// selects. `quiet` drops the process's log lines: the steps being timed log
// as they go, and the numbers are what matters here.
inline int RunBenchmarks(int argc, char** argv, void (*registerRuns)(), bool quiet) {
    if (quiet) __android_log_set_logger([](const __android_logger_data*, const char*) {});
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    registerRuns();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}

}  // namespace zelkor::tessel::bench
