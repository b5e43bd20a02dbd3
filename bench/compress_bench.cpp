// "minidump.gz" of a 256 MiB raw dump of mixed content (text, zeros and
// random bytes in 64 KiB pieces), as the boot run writes it, next to what a
// user would reach for: zlib -9 on one thread, and `pigz -9 -z` with as many
// threads as the compressor uses.
//
// Runs are "compress/<raw dump>/halvex", ".../baseline" (zlib -9, one thread)
// and ".../pigz", each with the counters "mib_per_s" (input per second) and
// "size_mib" (output). The size can be lowered with TESSEL_BENCH_RAWDUMP_MB.
#include <android/log.h>
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "BenchImage.h"
#include "BenchMain.h"
#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/minidump/BlockDeflate.h"
#include "platform/Platform.h"

namespace zelkor::tessel::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr char kGz[] = "/data/vendor/diag/minidump.gz";

// A host root whose raw dump partition holds the mixed raw dump; removed at
// exit.
class CompressRoot {
  public:
    static CompressRoot& Get() {
        static CompressRoot root;
        return root;
    }
    ~CompressRoot() {
        std::error_code ignored;
        fs::remove_all(mRoot, ignored);
    }
    const std::string& rawdump() const { return mRawdump; }
    uint64_t size() const { return mSize; }

  private:
    CompressRoot() {
        char tmpl[] = "/tmp/tessel-compress-bench.XXXXXX";
        mRoot = mkdtemp(tmpl);
        platform::SetRoot(mRoot);
        fs::create_directories(mRoot + "/dev/block/by-name");
        fs::create_directories(mRoot + "/data/vendor/diag");
        mSize = RawdumpSizeFromEnv(256);
        mRawdump = platform::DevicePath("/dev/block/by-name/rawdump");
        WriteRawdump(mRawdump, "mixed", mSize);
    }

    std::string mRoot;
    std::string mRawdump;
    uint64_t mSize = 0;
};

void Report(benchmark::State& state, double seconds, uint64_t packed) {
    const double mib = double(CompressRoot::Get().size()) / (1 << 20);
    state.counters["mib_per_s"] = seconds > 0 ? mib * double(state.iterations()) / seconds : 0;
    state.counters["size_mib"] = double(packed) / (1 << 20);
}

void BM_CompressMinidump(benchmark::State& state) {
    CompressRoot::Get();
    double seconds = 0;
    for (auto _ : state) {
        // A new run each time, so the file is not kept from the last one.
        Minidump::reset_minidump_state();
        const auto start = Clock::now();
        if (Minidump::compress_minidump() != 0) state.SkipWithError("compress_minidump failed");
        const double took = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(took);
        seconds += took;
    }
    Report(state, seconds, fs::file_size(platform::DevicePath(kGz)));
}

void BM_ZlibOneThread(benchmark::State& state) {
    const CompressRoot& root = CompressRoot::Get();
    double seconds = 0;
    uint64_t packed = 0;
    for (auto _ : state) {
        const auto start = Clock::now();
        packed = ZlibCompressFile(root.rawdump(), 9, -1);
        const double took = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(took);
        seconds += took;
    }
    Report(state, seconds, packed);
}

void BM_Pigz(benchmark::State& state) {
    const CompressRoot& root = CompressRoot::Get();
    const std::string command = "pigz -9 -z -c -p " +
                                std::to_string(Minidump::DefaultDeflateThreads()) + " " +
                                root.rawdump();
    double seconds = 0;
    uint64_t packed = 0;
    for (auto _ : state) {
        const auto start = Clock::now();
        FILE* pipe = popen(command.c_str(), "r");
        if (pipe == nullptr) {
            state.SkipWithError("pigz not available");
            break;
        }
        static char buf[1 << 16];
        packed = 0;
        for (size_t n; (n = fread(buf, 1, sizeof(buf), pipe)) > 0;) packed += n;
        if (pclose(pipe) != 0) state.SkipWithError("pigz failed");
        const double took = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(took);
        seconds += took;
    }
    Report(state, seconds, packed);
}

void Register() {
    RegisterSingleShots(
            "compress/rawdump:" + std::to_string(CompressRoot::Get().size() >> 20) + "MiB_mixed",
            {{"halvex", BM_CompressMinidump}, {"baseline", BM_ZlibOneThread}, {"pigz", BM_Pigz}});
}

}  // namespace
}  // namespace zelkor::tessel::bench

int main(int argc, char** argv) {
    return zelkor::tessel::bench::RunBenchmarks(argc, argv, zelkor::tessel::bench::Register, true);
}
