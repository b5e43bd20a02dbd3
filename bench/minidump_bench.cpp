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
#include <random>
#include <string>
#include <vector>

#include "modules/BSPLogProcessor/Minidump.h"
#include "platform/Platform.h"
#include "tools/tessel-image/dump/DumpImage.h"

namespace zelkor::tessel::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kKinds[] = {"zeros", "text", "random"};

std::string LE(uint64_t v, int width) {
    std::string bytes;
    for (int i = 0; i < width; ++i) bytes.push_back(static_cast<char>(v >> (8 * i)));
    return bytes;
}

// Kernel log lines as printk records, `size` bytes of them.
std::string PrintkRecords(uint64_t size, std::mt19937_64& random) {
    std::string out;
    for (uint64_t ts = 1000000; out.size() + 128 < size; ts += random() % 5000000) {
        std::string text = "cpu" + std::to_string(random() % 8) + ": driver event " +
                           std::to_string(random()) + " handled in " +
                           std::to_string(random() % 1000) + " us";
        size_t len = (16 + text.size() + 3) / 4 * 4;
        out += LE(ts, 8) + LE(len, 2) + LE(text.size(), 2) + LE(0, 2) + LE(0, 1) + LE(6, 1);
        out += text + std::string(len - 16 - text.size(), '\0');
    }
    return out;
}

std::string PmsgRecords(uint64_t size, std::mt19937_64& random) {
    std::string out;
    while (out.size() + 256 < size) {
        std::string payload = std::string(1, 4) + "ActivityManager" + '\0' + "Start proc " +
                              std::to_string(random() % 30000) + '\0';
        out += "l" + LE(18 + payload.size(), 2) + LE(1000, 2) + LE(random() % 30000, 2) + LE(0, 1) +
               LE(random() % 30000, 2) + LE(1700000000 + out.size(), 4) + LE(0, 4) + payload;
    }
    return out;
}

std::string TextLines(uint64_t size, const std::string& line) {
    std::string out;
    for (int i = 0; out.size() + line.size() + 12 < size; ++i) {
        out += line + " " + std::to_string(i) + "\n";
    }
    return out;
}

// The trust-zone diagnostic area: header, boot and reset tables, a full ring.
std::string TzDiag(const std::string& ring) {
    std::string area(0x400, '\0');
    auto put = [&](size_t at, uint32_t v) { area.replace(at, 4, LE(v, 4)); };
    put(0, 0x747A6461);
    put(4, 0x00030000);
    put(8, 8);
    put(16, 168);
    put(20, 360);
    put(28, 0x400);
    put(32, ring.size());
    area.replace(0x3FE, 2, LE(ring.size() - 1, 2));
    return area + ring;
}

// The hypervisor diagnostic area: header for 8 CPUs, then a ring that has not
// wrapped yet.
std::string HypDiag(const std::string& ring) {
    std::string area(88, '\0');
    area.replace(0, 4, LE(0x6879706D, 4));  // "hypm"
    area.replace(4, 4, LE(8, 4));
    area.replace(8, 4, LE(area.size(), 4));   // ring offset
    area.replace(14, 2, LE(ring.size(), 2));  // next write offset
    return area + ring;
}

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
        const char* mb = getenv("TESSEL_BENCH_RAWDUMP_MB");
        mRawdumpSize = uint64_t(mb != nullptr ? atoi(mb) : 256) << 20;
        BuildBlackbox();
        BuildRawdumps();
    }

    void BuildBlackbox() {
        std::mt19937_64 random(1);
        std::vector<std::pair<std::string, std::string>> sections = {
                {"md_kmsg", PrintkRecords(8 << 20, random)},
                {"md_KMDT0x110.BIN", PrintkRecords(256 << 10, random)},
                {"md_pmsg", PmsgRecords(512 << 10, random)},
                {"md_cpusys", TextLines(64 << 10, "edac_ppi_interrupt_handler status")},
                {"md_TZ_DIAG", TzDiag(TextLines(16 << 10, "[12.3](42 1 2)"))},
                {"md_ltz", TextLines(64 << 10, "[12.3](7 3 9)")},
                {"md_HYP_DIAG", HypDiag(TextLines(8 << 10, "hyp"))},
                {"md_XBL_LOG", TextLines(128 << 10, "XBL boot step")},
                {"md_TZ_IMEM", std::string(4096, '\x5a')},
                {"md_TZ_AES_KEY", std::string(256, 'k')},
                {"md_TZ_AES_IV", std::string(16, 'i')},
                {"md_TZ_HMAC", std::string(32, 'h')},
                {"md_encr_key_aes", std::string(256, 'k')},
                {"md_encr_key_iv", std::string(16, 'i')},
                {"md_encr_key_mac", std::string(32, 'm')},
                {"md_TZ_DUMP", std::string(4096, 'd')},
                {"md_MDMP_LOG", TextLines(16 << 10, "mdmp")},
                {"load.cmm", TextLines(4 << 10, "d.load.elf")},
                {"md_shrm", std::string(4096, 's')},
                {"md_aop", std::string(4096, 'a')},
        };
        image::DumpAddOptions options;
        options.image = mRoot + "/dev/block/by-name/blackbox";
        options.time = "2024-05-06 7:08:09";
        for (auto& [name, data] : sections) {
            std::string file = mRoot + "/section." + name;
            std::ofstream(file, std::ios::binary) << data;
            options.sections.push_back({name, file});
            mDumpBytes += data.size();
        }
        // Slots 1 .. 9 first, then the newest in slot 0: a raw dump with nine
        // stored ones behind it.
        for (uint32_t slot : {1, 2, 3, 4, 5, 6, 7, 8, 9, 0}) {
            options.slot = slot;
            std::string error;
            if (!image::WriteDump(options, &error)) {
                fprintf(stderr, "bench: %s\n", error.c_str());
                abort();
            }
        }
    }

    void BuildRawdumps() {
        std::ofstream(rawdump("zeros")).close();
        fs::resize_file(rawdump("zeros"), mRawdumpSize);
        std::mt19937_64 random(2);
        std::ofstream text(rawdump("text"), std::ios::binary);
        std::ofstream noise(rawdump("random"), std::ios::binary);
        std::string chunk;
        for (uint64_t done = 0; done < mRawdumpSize; done += chunk.size()) {
            chunk = PrintkRecords(1 << 20, random);
            chunk.resize(std::min<uint64_t>(1 << 20, mRawdumpSize - done), '\0');
            text << chunk;
            for (size_t i = 0; i + 8 <= chunk.size(); i += 8) {
                uint64_t v = random();
                memcpy(&chunk[i], &v, 8);
            }
            noise << chunk;
        }
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
    std::vector<unsigned char> in(512 << 10), out(512 << 10);
    uint64_t packed = 0;
    for (auto _ : state) {
        FILE* file = fopen(root.rawdump(kind).c_str(), "rb");
        if (file == nullptr) {
            state.SkipWithError("raw dump missing");
            break;
        }
        z_stream zs{};
        deflateInit2(&zs, level, Z_DEFLATED, MAX_WBITS, MAX_MEM_LEVEL, Z_DEFAULT_STRATEGY);
        packed = 0;
        int flush = Z_NO_FLUSH;
        do {
            size_t n = fread(in.data(), 1, in.size(), file);
            flush = n < in.size() ? Z_FINISH : Z_NO_FLUSH;
            zs.next_in = in.data();
            zs.avail_in = static_cast<uInt>(n);
            do {
                zs.next_out = out.data();
                zs.avail_out = static_cast<uInt>(out.size());
                deflate(&zs, flush);
                packed += out.size() - zs.avail_out;
            } while (zs.avail_out == 0);
        } while (flush != Z_FINISH);
        deflateEnd(&zs);
        fclose(file);
    }
    SetRatio(state, root.rawdumpSize(), packed);
}

void RegisterCompression() {
    for (const char* kind : kKinds) {
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
    // The boot run logs every step; the numbers are what matters here.
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    zelkor::tessel::bench::RegisterCompression();
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
