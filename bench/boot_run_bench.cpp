// The whole boot run: tesseld started on a root holding the benchmark
// partitions (a blackbox with a new raw dump and nine stored ones, a raw dump
// partition of mixed content), timed from its start until the processing
// module has removed itself, with the daemon's peak resident memory. The
// baseline is the least any boot run has to do: read the partitions once and
// compress the raw dump once, in process.
//
// Runs are "boot_run/<raw dump>/halvex" and ".../baseline", with the
// counters "wall_s" and "peak_rss_mib" (tesseld's VmHWM). A second halvex run
// on a far larger raw dump shows that memory does not grow with it. Sizes:
// TESSEL_BENCH_RAWDUMP_MB (256 by default) and four times that for the large
// one.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "BenchImage.h"
#include "BenchMain.h"
#include "DaemonRoot.h"

namespace zelkor::tessel::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using testing::Subprocess;

constexpr char kByName[] = "/dev/block/by-name";

// Copies `from` over `to` keeping holes: 1 MiB blocks of zeros are skipped.
void SparseCopy(const std::string& from, const std::string& to) {
    const int in = open(from.c_str(), O_RDONLY | O_CLOEXEC);
    const int out = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (in < 0 || out < 0 || ftruncate(out, static_cast<off_t>(fs::file_size(from))) != 0) {
        fprintf(stderr, "bench: cannot copy %s to %s\n", from.c_str(), to.c_str());
        abort();
    }
    std::vector<char> block(1 << 20);
    const std::vector<char> zeros(block.size(), '\0');
    off_t at = 0;
    for (ssize_t n; (n = read(in, block.data(), block.size())) > 0; at += n) {
        if (memcmp(block.data(), zeros.data(), size_t(n)) == 0) continue;
        if (pwrite(out, block.data(), size_t(n), at) != n) abort();
    }
    close(in);
    close(out);
}

// Reads a whole file through a 1 MiB buffer; its size.
uint64_t ReadAll(const std::string& path) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return 0;
    std::vector<char> buffer(1 << 20);
    uint64_t total = 0;
    for (ssize_t n; (n = read(fd, buffer.data(), buffer.size())) > 0;) total += uint64_t(n);
    close(fd);
    return total;
}

// The peak resident set of a live process in KiB, from /proc.
uint64_t PeakRssKib(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::stoull(line.substr(6));
    }
    return 0;
}

// A host root with the daemon's manifest, boot reasons, the benchmark
// blackbox kept pristine aside, and raw dumps of both sizes; built once.
class BootRoot {
  public:
    static BootRoot& Get() {
        static BootRoot root;
        return root;
    }
    ~BootRoot() {
        std::error_code ignored;
        fs::remove_all(mRoot, ignored);
    }
    const std::string& root() const { return mRoot; }
    std::string blackbox() const { return mRoot + kByName + "/blackbox"; }
    std::string rawdump() const { return mRoot + kByName + "/rawdump"; }
    uint64_t rawdumpSize(bool large) const { return large ? mLargeSize : mSize; }

    // The blackbox as the boot loader left it, and the raw dump of the size
    // asked for behind the by-name link.
    void Prepare(bool large) const {
        SparseCopy(mPristine, blackbox());
        fs::remove(rawdump());
        fs::create_symlink(mRoot + (large ? "/rawdump.large" : "/rawdump.mixed"), rawdump());
        for (const auto& entry : fs::directory_iterator(mRoot + "/data/vendor/diag")) {
            fs::remove_all(entry.path());
        }
    }

  private:
    BootRoot() {
        char tmpl[] = "/tmp/tessel-bootrun.XXXXXX";
        mRoot = mkdtemp(tmpl);
        testing::PrepareBootRoot(mRoot);
        mPristine = mRoot + "/blackbox.pristine";
        WriteBenchBlackbox(mPristine, mRoot);
        mSize = RawdumpSizeFromEnv(256);
        mLargeSize = 4 * mSize;
        WriteRawdump(mRoot + "/rawdump.mixed", "mixed", mSize);
        WriteRawdump(mRoot + "/rawdump.large", "zeros", mLargeSize);
    }

    std::string mRoot, mPristine;
    uint64_t mSize = 0, mLargeSize = 0;
};

void BM_BootRun(benchmark::State& state, bool large) {
    const BootRoot& root = BootRoot::Get();
    const std::unique_ptr<Subprocess> peer = testing::StartPeer(root.root());
    if (!testing::PeerServing(*peer)) {
        state.SkipWithError("tessel-peer did not start");
        return;
    }
    uint64_t peakKib = 0;
    double wall = 0;
    for (auto _ : state) {
        root.Prepare(large);
        const auto start = Clock::now();
        Subprocess daemon({"tesseld", "--root", root.root()}, root.root() + "/tesseld");
        const bool ended = testing::WaitFor(
                [&] { return daemon.err().find("Bye~ BSPLogProcessor") != std::string::npos; },
                std::chrono::minutes(10));
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        peakKib = std::max(peakKib, PeakRssKib(daemon.pid()));
        daemon.signal(SIGTERM);
        daemon.wait();
        if (!ended) {
            state.SkipWithError("the boot run did not end");
            break;
        }
        state.SetIterationTime(seconds);
        wall += seconds;
    }
    state.counters["wall_s"] = wall / double(std::max<int64_t>(state.iterations(), 1));
    state.counters["peak_rss_mib"] = double(peakKib) / 1024;
    state.SetBytesProcessed(state.iterations() * int64_t(root.rawdumpSize(large)));
}

void BM_ReadAndCompressOnce(benchmark::State& state) {
    const BootRoot& root = BootRoot::Get();
    root.Prepare(false);
    double wall = 0;
    for (auto _ : state) {
        const auto start = Clock::now();
        benchmark::DoNotOptimize(ReadAll(root.blackbox()) + ReadAll(root.rawdump()));
        const int out = open((root.root() + "/baseline.gz").c_str(),
                             O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        const uint64_t packed = ZlibCompressFile(root.rawdump(), 9, out);
        close(out);
        if (packed == 0) {
            state.SkipWithError("compression failed");
            break;
        }
        const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(seconds);
        wall += seconds;
    }
    state.counters["wall_s"] = wall / double(std::max<int64_t>(state.iterations(), 1));
    state.SetBytesProcessed(state.iterations() * int64_t(root.rawdumpSize(false)));
}

void Register() {
    const std::string mb = std::to_string(BootRoot::Get().rawdumpSize(false) >> 20);
    const std::string largeMb = std::to_string(BootRoot::Get().rawdumpSize(true) >> 20);
    const std::string name = "boot_run/rawdump:" + mb + "MiB_mixed";
    // Each run takes seconds: a few single-iteration repetitions are enough.
    benchmark::RegisterBenchmark((name + "/halvex").c_str(), BM_BootRun, false)
            ->UseManualTime()
            ->Iterations(1)
            ->Repetitions(3)
            ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark((name + "/baseline").c_str(), BM_ReadAndCompressOnce)
            ->UseManualTime()
            ->Iterations(1)
            ->Repetitions(3)
            ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark(("boot_run/rawdump:" + largeMb + "MiB_zeros/halvex").c_str(),
                                 BM_BootRun, true)
            ->UseManualTime()
            ->Iterations(1)
            ->Repetitions(1)
            ->Unit(benchmark::kMillisecond);
}

}  // namespace
}  // namespace zelkor::tessel::bench

int main(int argc, char** argv) {
    return zelkor::tessel::bench::RunBenchmarks(argc, argv, zelkor::tessel::bench::Register, false);
}
