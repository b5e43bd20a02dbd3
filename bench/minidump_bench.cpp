// Minidump extraction and "minidump.gz": the boot run's stages on a realistic
// blackbox image (ten stored dumps of twenty sections, 8 MiB kernel logs) and
// the compression of a 256 MiB raw dump of zeros, text or random bytes, next
// to zlib at levels 1, 6 and 9 and to `gzip -9`, which a user would reach for.
//
// Compression runs are named "compress/<kind>/halvex" (compress_minidump) and
// "compress/<kind>/baseline" (gzip -9), with a "ratio" counter each. The raw
// dump size can be lowered with TESSEL_BENCH_RAWDUMP_MB for a quick run.
#include <android/log.h>
#include <benchmark/benchmark.h>
#include <zlib.h>

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "BenchImage.h"
#include "BenchMain.h"
#include "modules/BSPLogProcessor/Minidump.h"
#include "platform/Platform.h"

namespace zelkor::tessel::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

// A host root with a blackbox image holding ten dumps, and raw dumps of each
// kind; built once, removed at exit.
class BenchRoot {
  public:
    static BenchRoot& Get() {
        static BenchRoot root;
        return root;
    }
    ~BenchRoot() {
        std::error_code ignored;
        fs::remove_all(mRoot, ignored);
    }
    const std::string& root() const { return mRoot; }
    uint64_t dumpBytes() const { return mDumpBytes; }
    uint64_t rawdumpSize() const { return mRawdumpSize; }
    std::string rawdump(const std::string& kind) const { return mRoot + "/rawdump." + kind; }

    // Points "/dev/block/by-name/rawdump" at the raw dump of `kind`.
    void UseRawdump(const std::string& kind) const {
        const std::string link = platform::DevicePath("/dev/block/by-name/rawdump");
        fs::remove(link);
        fs::create_symlink(rawdump(kind), link);
    }

  private:
    BenchRoot() {
        char tmpl[] = "/tmp/tessel-bench.XXXXXX";
        mRoot = mkdtemp(tmpl);
        platform::SetRoot(mRoot);
        fs::create_directories(mRoot + "/dev/block/by-name");
        fs::create_directories(mRoot + "/data/vendor/diag");
        mRawdumpSize = RawdumpSizeFromEnv(256);
        mDumpBytes = WriteBenchBlackbox(mRoot + "/dev/block/by-name/blackbox", mRoot);
        for (const char* kind : kRawdumpKinds) WriteRawdump(rawdump(kind), kind, mRawdumpSize);
    }

    std::string mRoot;
    uint64_t mDumpBytes = 0;
    uint64_t mRawdumpSize = 0;
};

// The boot run prints its progress to stdout, where the benchmark's own report
// goes too: keep the run's prints out of it while a benchmark runs.
class QuietStdout {
  public:
    QuietStdout() {
        fflush(stdout);
        mSaved = dup(STDOUT_FILENO);
        int null = open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        close(null);
    }
    ~QuietStdout() {
        fflush(stdout);
        dup2(mSaved, STDOUT_FILENO);
        close(mSaved);
    }
    QuietStdout(const QuietStdout&) = delete;
    QuietStdout& operator=(const QuietStdout&) = delete;

  private:
    int mSaved;
};

void ExtractNewest() {
    Minidump::reset_minidump_state();
    Minidump::handle_mini_lastlog_header();
    Minidump::handle_minidump_partition(0, 0);
}

void BM_DeleteLog(benchmark::State& state) {
    BenchRoot::Get();
    QuietStdout quiet;
    for (auto _ : state) {
        state.PauseTiming();
        ExtractNewest();
        state.ResumeTiming();
        Minidump::delete_log();
    }
}
BENCHMARK(BM_DeleteLog)->Name("extract/delete_log")->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_LastLogHeader(benchmark::State& state) {
    BenchRoot::Get();
    QuietStdout quiet;
    for (auto _ : state) {
        Minidump::reset_minidump_state();
        benchmark::DoNotOptimize(Minidump::handle_mini_lastlog_header());
    }
}
BENCHMARK(BM_LastLogHeader)
        ->Name("extract/lastlog_header")
        ->UseRealTime()
        ->Unit(benchmark::kMicrosecond);

void BM_NewestDump(benchmark::State& state) {
    const BenchRoot& root = BenchRoot::Get();
    QuietStdout quiet;
    for (auto _ : state) ExtractNewest();
    state.SetBytesProcessed(state.iterations() * root.dumpBytes());
}
BENCHMARK(BM_NewestDump)->Name("extract/newest_dump")->UseRealTime()->Unit(benchmark::kMillisecond);

void BM_StoredDumps(benchmark::State& state) {
    const BenchRoot& root = BenchRoot::Get();
    QuietStdout quiet;
    for (auto _ : state) {
        Minidump::reset_minidump_state();
        Minidump::handle_mini_lastlog_header();
        Minidump::handle_stored_minidumps();
    }
    state.SetBytesProcessed(state.iterations() * root.dumpBytes() * 9);
}
BENCHMARK(BM_StoredDumps)
        ->Name("extract/stored_dumps_x9")
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);

void SetRatio(benchmark::State& state, uint64_t raw, uint64_t packed) {
    state.SetBytesProcessed(state.iterations() * raw);
    state.counters["ratio"] = packed > 0 ? double(raw) / double(packed) : 0;
}

void BM_CompressMinidump(benchmark::State& state, const char* kind) {
    const BenchRoot& root = BenchRoot::Get();
    root.UseRawdump(kind);
    QuietStdout quiet;
    for (auto _ : state) {
        if (Minidump::compress_minidump() != 0) state.SkipWithError("compress_minidump failed");
    }
    SetRatio(state, root.rawdumpSize(),
             fs::file_size(platform::DevicePath("/data/vendor/diag/minidump.gz")));
}

// gzip -9 of the same file, output counted through a pipe.
void BM_Gzip(benchmark::State& state, const char* kind) {
    const BenchRoot& root = BenchRoot::Get();
    uint64_t packed = 0;
    for (auto _ : state) {
        auto start = Clock::now();
        FILE* pipe = popen(("gzip -9 -c " + root.rawdump(kind)).c_str(), "r");
        if (pipe == nullptr) {
            state.SkipWithError("gzip not available");
            break;
        }
        static char buf[1 << 16];
        packed = 0;
        for (size_t n; (n = fread(buf, 1, sizeof(buf), pipe)) > 0;) packed += n;
        if (pclose(pipe) != 0) state.SkipWithError("gzip failed");
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
    SetRatio(state, root.rawdumpSize(), packed);
}

// zlib at `level` with the same window and buffers as compress_minidump.
void BM_ZlibLevel(benchmark::State& state, const char* kind) {
    const BenchRoot& root = BenchRoot::Get();
    const int level = static_cast<int>(state.range(0));
    uint64_t packed = 0;
    for (auto _ : state) {
        packed = ZlibCompressFile(root.rawdump(kind), level, -1);
        if (packed == 0) {
            state.SkipWithError("raw dump missing");
            break;
        }
    }
    SetRatio(state, root.rawdumpSize(), packed);
}

void RegisterCompression() {
    for (const char* kind : kRawdumpKinds) {
        const std::string name = std::string("compress/") + kind;
        benchmark::RegisterBenchmark((name + "/halvex").c_str(), BM_CompressMinidump, kind)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((name + "/baseline").c_str(), BM_Gzip, kind)
                ->UseManualTime()
                ->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((name + "/zlib").c_str(), BM_ZlibLevel, kind)
                ->ArgName("level")
                ->Arg(1)
                ->Arg(6)
                ->Arg(9)
                ->UseRealTime()
                ->Unit(benchmark::kMillisecond);
    }
}

}  // namespace
}  // namespace zelkor::tessel::bench

int main(int argc, char** argv) {
    return zelkor::tessel::bench::RunBenchmarks(argc, argv,
                                                zelkor::tessel::bench::RegisterCompression, true);
}
