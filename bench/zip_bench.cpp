// Zipping a dated log folder the way the log manager does ("entry.zip" of one
// folder, names kept whole), next to what a user would reach for: Info-ZIP
// `zip -r -6` and Python's zipfile at the same level.
//
// The folder holds a few hundred files, about 64 MiB in all: logcat-style
// text logs in two sub-folders and binary dumps (random bytes, zeros and
// structured records). Runs are "zip/<folder>/halvex", ".../baseline" (zip)
// and ".../python", each with "mib_per_s" (input per second) and "size_mib"
// (the archive). TESSEL_BENCH_ZIP_MB changes the folder's size.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "BenchMain.h"
#include "platform/Platform.h"
#include "utils/ZipFile.h"

namespace zelkor::tessel::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr char kEntry[] = "/data/vendor/log/2026-11-25_10-00-00";
constexpr char kZip[] = "/data/vendor/log/entry.zip";

// Deterministic bytes for the folder's files.
class Lcg {
  public:
    uint32_t next() {
        return static_cast<uint32_t>(
                (mState = mState * 6364136223846793005ull + 1442695040888963407ull) >> 33);
    }

  private:
    uint64_t mState = 42;
};

std::string TextLog(Lcg& rng, size_t size) {
    static const char* const kTags[] = {"ActivityManager", "kernel",        "WifiHAL",
                                        "CameraService",   "audio_hw",      "thermal-engine",
                                        "Tessel",          "SurfaceFlinger"};
    static const char* const kWords[] = {
            "start",   "stop",  "state", "changed", "to",       "from",   "failed",      "ok",
            "timeout", "value", "uid",   "pid",     "received", "binder", "transaction", "buffer"};
    std::string out;
    out.reserve(size + 256);
    char line[256];
    while (out.size() < size) {
        const uint32_t r = rng.next();
        int n = snprintf(line, sizeof(line), "11-25 10:%02u:%02u.%03u %5u %5u %c %s: ", r % 60,
                         (r >> 6) % 60, (r >> 12) % 1000, 1000 + r % 3000, 1000 + (r >> 8) % 9000,
                         "VDIWE"[(r >> 20) % 5], kTags[(r >> 24) % 8]);
        for (uint32_t w = 0, words = 4 + rng.next() % 10; w < words; ++w) {
            const uint32_t x = rng.next();
            n += snprintf(line + n, sizeof(line) - n, (x & 3) ? "%s " : "%s=%u ", kWords[x % 16],
                          x >> 16);
        }
        line[n - 1] = '\n';
        out.append(line, n);
    }
    out.resize(size);
    return out;
}

std::string Dump(Lcg& rng, size_t size, int kind) {
    std::string out(size, '\0');
    if (kind == 0) {
        for (auto& c : out) c = static_cast<char>(rng.next());
    } else if (kind == 2) {
        // Records: a counter, a few flags and mostly-empty payloads.
        for (size_t i = 0; i + 64 <= size; i += 64) {
            const uint32_t r = rng.next();
            memcpy(&out[i], &i, sizeof(i));
            memcpy(&out[i + 8], &r, sizeof(r));
        }
    }
    return out;
}

// The folder, built once per process under a scratch root; removed at exit.
class ZipRoot {
  public:
    static ZipRoot& Get() {
        static ZipRoot root;
        return root;
    }
    ~ZipRoot() {
        std::error_code ignored;
        fs::remove_all(mRoot, ignored);
    }
    uint64_t size() const { return mSize; }
    std::string host(const char* devicePath) const { return platform::DevicePath(devicePath); }

  private:
    ZipRoot() {
        char tmpl[] = "/tmp/tessel-zip-bench.XXXXXX";
        mRoot = mkdtemp(tmpl);
        platform::SetRoot(mRoot);
        const char* env = getenv("TESSEL_BENCH_ZIP_MB");
        const uint64_t target = (env != nullptr ? strtoull(env, nullptr, 10) : 64) << 20;
        const std::string dir = host(kEntry);
        for (const char* sub : {"/logcat", "/kernel", "/dumps"}) fs::create_directories(dir + sub);
        Lcg rng;
        // Three text logs of 40-440 KiB for every dump of 0.5-1.5 MiB.
        for (int i = 0; mSize < target; ++i) {
            std::string path, data;
            if (i % 4 != 3) {
                data = TextLog(rng, (40 << 10) + rng.next() % (400 << 10));
                path = dir + (i % 2 ? "/logcat/logcat." : "/kernel/kmsg.") + std::to_string(i);
            } else {
                data = Dump(rng, (512 << 10) + rng.next() % (1 << 20), (i / 4) % 3);
                path = dir + "/dumps/dump_" + std::to_string(i) + ".bin";
            }
            std::ofstream(path, std::ios::binary) << data;
            mSize += data.size();
        }
    }

    std::string mRoot;
    uint64_t mSize = 0;
};

void Report(benchmark::State& state, double seconds) {
    const ZipRoot& root = ZipRoot::Get();
    const double mib = double(root.size()) / (1 << 20);
    state.counters["mib_per_s"] = seconds > 0 ? mib * double(state.iterations()) / seconds : 0;
    state.counters["size_mib"] = double(fs::file_size(root.host(kZip))) / (1 << 20);
}

template <typename Fn>
void Timed(benchmark::State& state, Fn&& zipOnce) {
    const ZipRoot& root = ZipRoot::Get();
    double seconds = 0;
    for (auto _ : state) {
        fs::remove(root.host(kZip));
        const auto start = Clock::now();
        if (!zipOnce()) {
            state.SkipWithError("zipping failed");
            return;
        }
        const double took = std::chrono::duration<double>(Clock::now() - start).count();
        state.SetIterationTime(took);
        seconds += took;
    }
    Report(state, seconds);
}

void BM_ZipFile(benchmark::State& state) {
    Timed(state, [] {
        ZipFile zip({kEntry}, 0);
        return zip.create(kZip) && zip.close();
    });
}

bool Shell(const std::string& command) {
    return system(command.c_str()) == 0;
}

void BM_InfoZip(benchmark::State& state) {
    const ZipRoot& root = ZipRoot::Get();
    Timed(state,
          [&] { return Shell("zip -q -r -6 " + root.host(kZip) + " " + root.host(kEntry)); });
}

void BM_Python(benchmark::State& state) {
    const ZipRoot& root = ZipRoot::Get();
    const std::string script =
            "import os, sys, zipfile\n"
            "with zipfile.ZipFile(sys.argv[1], 'w', zipfile.ZIP_DEFLATED, compresslevel=6) as z:\n"
            "    for d, _, files in os.walk(sys.argv[2]):\n"
            "        z.write(d)\n"
            "        for f in files: z.write(os.path.join(d, f))\n";
    Timed(state, [&] {
        return Shell("python3 -c \"" + script + "\" " + root.host(kZip) + " " + root.host(kEntry));
    });
}

void Register() {
    RegisterSingleShots("zip/log_folder:" + std::to_string(ZipRoot::Get().size() >> 20) + "MiB",
                        {{"halvex", BM_ZipFile}, {"baseline", BM_InfoZip}, {"python", BM_Python}});
}

}  // namespace
}  // namespace zelkor::tessel::bench

int main(int argc, char** argv) {
    return zelkor::tessel::bench::RunBenchmarks(argc, argv, zelkor::tessel::bench::Register, true);
}
