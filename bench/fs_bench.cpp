// Reads through the daemon's file-system service side by side with what a
// process that could open the file itself would do: read(2) from the page
// cache into memory it owns. ReadFromFile of 128 MB (the most one call
// moves) lands in a shared-memory region the client keeps, or makes for each
// call (against a buffer allocated for each read); the
// TesselReadBuffer of 500 KiB comes back in the binder reply. Runs are named
// "<workload>/halvex" and "<workload>/baseline" for bench/compare.py.
#include <aidl/vendor/zelkor/hardware/tessel/common/ITesselImpl.h>
#include <android-base/file.h>
#include <android-base/unique_fd.h>
#include <android/binder_manager.h>
#include <benchmark/benchmark.h>
#include <cutils/ashmem.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

#include "BenchMain.h"
#include "DaemonRoot.h"
#include "TempRoot.h"
#include "platform/Platform.h"

namespace zelkor::tessel::bench {
namespace {

using ::aidl::vendor::zelkor::hardware::tessel::common::Ashmem;
using ::aidl::vendor::zelkor::hardware::tessel::common::ITesselImpl;

constexpr size_t kBig = 134217728;
constexpr size_t kSmall = 500 * 1024;

struct Setup {
    testing::TempRoot root;
    std::unique_ptr<testing::Subprocess> daemon;
    std::shared_ptr<ITesselImpl> service;
    std::string host(const std::string& path) const { return root.path() + path; }
};
Setup* gSetup = nullptr;

void MakeFile(const std::string& path, size_t size) {
    std::vector<char> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 131 + (i >> 12));
    std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(size));
}

// The whole file into `buffer` with read(2), as the baseline does it.
bool PlainRead(const std::string& path, char* buffer, size_t size) {
    android::base::unique_fd fd(open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return fd.ok() && android::base::ReadFully(fd.get(), buffer, size);
}

// One ReadFromFile into `region`, checked through the client's own mapping.
bool ReadInto(const Ashmem& region) {
    if (!gSetup->service->ReadFromFile(region, "/data", "big").isOk()) return false;
    void* mapped = mmap(nullptr, kBig, PROT_READ, MAP_SHARED, region.fd.get(), 0);
    if (mapped == MAP_FAILED) return false;
    char last = static_cast<const volatile char*>(mapped)[kBig - 1];
    benchmark::DoNotOptimize(last);
    munmap(mapped, kBig);
    return true;
}

Ashmem NewRegion() {
    Ashmem region;
    region.fd = ndk::ScopedFileDescriptor(ashmem_create_region("bench", kBig));
    region.mSize = kBig;
    return region;
}

// A client that keeps its region from call to call: the first call, which
// brings the region's pages in, is not timed.
void BM_ReadFromFile(benchmark::State& state) {
    Ashmem region = NewRegion();
    bool ok = ReadInto(region);
    for (auto _ : state) {
        if (!ok || !(ok = ReadInto(region))) break;
    }
    if (!ok) state.SkipWithError("ReadFromFile failed");
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBig));
}

// A client that makes a region for each call, as tesselctl fs get does.
void BM_ReadFromFileFresh(benchmark::State& state) {
    for (auto _ : state) {
        if (!ReadInto(NewRegion())) {
            state.SkipWithError("ReadFromFile failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBig));
}

// read(2) of the big file into memory allocated for each read.
void BM_PlainReadFresh(benchmark::State& state) {
    for (auto _ : state) {
        std::unique_ptr<char[]> buffer(new char[kBig]);
        if (!PlainRead(gSetup->host("/data/big"), buffer.get(), kBig)) {
            state.SkipWithError("read failed");
            break;
        }
        benchmark::DoNotOptimize(buffer.get());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kBig));
}

// read(2) of a file of the root from the page cache into a buffer of its own.
void BM_PlainRead(benchmark::State& state, const char* devicePath, size_t size) {
    std::vector<char> buffer(size, 1);
    for (auto _ : state) {
        if (!PlainRead(gSetup->host(devicePath), buffer.data(), size)) {
            state.SkipWithError("read failed");
            break;
        }
        benchmark::DoNotOptimize(buffer.data());
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}

void BM_ReadBuffer(benchmark::State& state) {
    std::vector<int8_t> bytes;
    for (auto _ : state) {
        if (!gSetup->service->TesselReadBuffer("/data", "small", &bytes).isOk() ||
            bytes.size() != kSmall) {
            state.SkipWithError("TesselReadBuffer failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSmall));
}

void Register() {
    for (auto* run : {
                 benchmark::RegisterBenchmark("fs/read_128MB/halvex", BM_ReadFromFile),
                 benchmark::RegisterBenchmark("fs/read_128MB/baseline", BM_PlainRead, "/data/big",
                                              kBig),
                 benchmark::RegisterBenchmark("fs/read_128MB_new_region/halvex",
                                              BM_ReadFromFileFresh),
                 benchmark::RegisterBenchmark("fs/read_128MB_new_region/baseline",
                                              BM_PlainReadFresh),
                 benchmark::RegisterBenchmark("fs/read_500KiB/halvex", BM_ReadBuffer),
                 benchmark::RegisterBenchmark("fs/read_500KiB/baseline", BM_PlainRead,
                                              "/data/small", kSmall),
         }) {
        run->Unit(benchmark::kMillisecond)->UseRealTime();
    }
}

}  // namespace
}  // namespace zelkor::tessel::bench

int main(int argc, char** argv) {
    using namespace zelkor::tessel;
    bench::Setup setup;
    bench::gSetup = &setup;
    testing::InstallDaemonManifest(setup.root.path());
    std::filesystem::create_directories(setup.host("/data"));
    bench::MakeFile(setup.host("/data/big"), bench::kBig);
    bench::MakeFile(setup.host("/data/small"), bench::kSmall);
    setup.daemon = std::make_unique<testing::Subprocess>(
            std::vector<std::string>{"tesseld", "--root", setup.root.path()},
            setup.host("/tesseld"), std::vector<std::string>{"TESSEL_LOG_LEVEL=i"});
    if (!platform::SetRoot(setup.root.path()) || !testing::WaitFor([&] {
            return setup.daemon->err().find("Tessel is started!") != std::string::npos;
        })) {
        fprintf(stderr, "bench_fs: the daemon did not start\n");
        return 1;
    }
    const std::string instance = std::string(bench::ITesselImpl::descriptor) + "/default";
    setup.service = bench::ITesselImpl::fromBinder(
            ndk::SpAIBinder(AServiceManager_checkService(instance.c_str())));
    if (setup.service == nullptr) {
        fprintf(stderr, "bench_fs: no %s\n", instance.c_str());
        return 1;
    }
    return bench::RunBenchmarks(argc, argv, bench::Register, true);
}
