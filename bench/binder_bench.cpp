// A binder call over the host runtime side by side with what a user would
// write instead: a bare ping-pong over a Unix socket pair, for a small call
// and for payloads of 64 KiB, 1 MiB and 16 MiB as byte[] and as String (the
// socket carries the same number of payload bytes). Both servers run in a
// child process. Also the runtime's copy of array data at a distance where
// memcpy stalls, against memcpy. Runs are named "<workload>/halvex" (host
// binder) and "<workload>/baseline" (socket or memcpy) so that
// bench/compare.py can pair them.

#include <android-base/file.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "platform/Platform.h"
#include "platform/host/binder_ndk/BulkCopy.h"
#include "platform/host/binder_ndk/ServiceRegistry.h"
#include "tests/TempRoot.h"
#include "tests/binder/TestService.h"

namespace zelkor::tessel::bench {
namespace {

using aidl::tessel::test::ITestService;

std::shared_ptr<ITestService> gService;

// Page-aligned bytes for the baseline, so that its socket copies run at
// their best whatever the allocator's layout (the kernel's copies slow down
// at some distances between the user buffer and its page-aligned socket
// buffers); the baseline is then the fastest a user's ping-pong could be.
struct PageBuffer {
    explicit PageBuffer(size_t size, char fill)
        : bytes(static_cast<char*>(aligned_alloc(4096, (size + 4095) / 4096 * 4096))) {
        if (bytes != nullptr) memset(bytes, fill, size);
    }
    ~PageBuffer() { free(bytes); }
    PageBuffer(const PageBuffer&) = delete;
    PageBuffer& operator=(const PageBuffer&) = delete;
    char* bytes;
};

// Echo server for the baseline: a 4-byte length, then that many bytes, sent
// back unchanged.
[[noreturn]] void EchoServer(int fd) {
    PageBuffer buffer(size_t{16} << 20, 0);
    uint32_t size = 0;
    while (buffer.bytes != nullptr && android::base::ReadFully(fd, &size, sizeof(size))) {
        if (size > (size_t{16} << 20) || !android::base::ReadFully(fd, buffer.bytes, size) ||
            !android::base::WriteFully(fd, &size, sizeof(size)) ||
            !android::base::WriteFully(fd, buffer.bytes, size)) {
            break;
        }
    }
    _exit(0);
}

int gEchoFd = -1;

void SocketRoundTrip(benchmark::State& state, size_t size) {
    PageBuffer payload(size, 'p');
    PageBuffer back(size, 0);
    if (payload.bytes == nullptr || back.bytes == nullptr) {
        state.SkipWithError("no memory");
        return;
    }
    for (auto _ : state) {
        uint32_t length = static_cast<uint32_t>(size);
        if (!android::base::WriteFully(gEchoFd, &length, sizeof(length)) ||
            !android::base::WriteFully(gEchoFd, payload.bytes, size) ||
            !android::base::ReadFully(gEchoFd, &length, sizeof(length)) ||
            !android::base::ReadFully(gEchoFd, back.bytes, size)) {
            state.SkipWithError("echo server failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size * 2));
}

void BinderSmallCall(benchmark::State& state) {
    int32_t out = 0;
    for (auto _ : state) {
        if (!gService->echoInt(42, &out).isOk()) {
            state.SkipWithError("call failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * 4 * 2));
}

void BinderBytesCall(benchmark::State& state, size_t size) {
    std::vector<int8_t> payload(size, 'p');
    std::vector<int8_t> back;
    for (auto _ : state) {
        if (!gService->echoBytes(payload, &back).isOk() || back.size() != size) {
            state.SkipWithError("call failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size * 2));
}

void BinderStringCall(benchmark::State& state, size_t size) {
    std::string payload(size, 'p');
    std::string back;
    for (auto _ : state) {
        if (!gService->echoUtf8(payload, &back).isOk() || back.size() != size) {
            state.SkipWithError("call failed");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size * 2));
}

// A 64 KiB array copied into or out of a parcel whose data lies 8 bytes
// before it modulo 4 KiB, as the runtime copies it and as a plain memcpy
// would. Where buffers land is up to the allocator, so a call meets this
// case now and then; here it is met on purpose.
void ShortDistanceCopy(benchmark::State& state, bool runtime) {
    constexpr size_t kSize = size_t{64} << 10;
    std::vector<uint8_t> from(kSize + 8192, 1);
    std::vector<uint8_t> to(kSize + 8192, 2);
    const uintptr_t fromAt = reinterpret_cast<uintptr_t>(from.data()) % 4096;
    const uintptr_t toAt = reinterpret_cast<uintptr_t>(to.data()) % 4096;
    uint8_t* dst = to.data() + (fromAt + 8 + 4096 - toAt) % 4096;
    for (auto _ : state) {
        if (runtime) {
            binder::CopyBytes(dst, from.data(), kSize);
        } else {
            memcpy(dst, from.data(), kSize);
        }
        benchmark::DoNotOptimize(dst);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kSize));
}

// The binder service, served from a child process on the bench's root.
[[noreturn]] void BinderServer() {
    auto service = ndk::SharedRefBase::make<testing::TestService>();
    if (AServiceManager_addService(service->asBinder().get(),
                                   testing::TestServiceInstance().c_str()) != EX_NONE) {
        _exit(1);
    }
    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
    _exit(1);
}

}  // namespace
}  // namespace zelkor::tessel::bench

int main(int argc, char** argv) {
    using namespace zelkor::tessel;
    benchmark::Initialize(&argc, argv);
    // A baseline write to an echo server that died reports an error instead
    // of ending the bench.
    signal(SIGPIPE, SIG_IGN);
    // Set up as the daemon and its tools are (root, log, allocator), before
    // the servers are forked so that they are set up the same way.
    testing::TempRoot root;
    setenv("TESSEL_ROOT", root.path().c_str(), 1);
    if (!platform::InitPlatform(&argc, argv)) return 1;

    // Both servers are forked before this process touches the binder
    // runtime, so neither inherits its threads.
    int sockets[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) return 1;
    pid_t echo = fork();
    if (echo == 0) {
        close(sockets[0]);
        bench::EchoServer(sockets[1]);
    }
    close(sockets[1]);
    bench::gEchoFd = sockets[0];
    pid_t server = fork();
    if (server == 0) bench::BinderServer();

    ndk::SpAIBinder binder(
            binder::WaitForService(testing::TestServiceInstance(),
                                   std::chrono::steady_clock::now() + std::chrono::seconds(10))
                    .release());
    bench::gService = aidl::tessel::test::ITestService::fromBinder(binder);
    if (bench::gService == nullptr) {
        kill(server, SIGKILL);
        kill(echo, SIGKILL);
        return 1;
    }

    benchmark::RegisterBenchmark("round_trip_small/halvex", bench::BinderSmallCall);
    benchmark::RegisterBenchmark("round_trip_small/baseline",
                                 [](benchmark::State& state) { bench::SocketRoundTrip(state, 4); });
    for (auto [label, size] :
         {std::pair{"64KiB", size_t{64} << 10}, std::pair{"1MiB", size_t{1} << 20},
          std::pair{"16MiB", size_t{16} << 20}}) {
        const std::string name = std::string("round_trip_") + label;
        benchmark::RegisterBenchmark((name + "/halvex").c_str(), bench::BinderBytesCall, size);
        benchmark::RegisterBenchmark((name + "_string/halvex").c_str(), bench::BinderStringCall,
                                     size);
        benchmark::RegisterBenchmark((name + "/baseline").c_str(), bench::SocketRoundTrip, size);
        benchmark::RegisterBenchmark((name + "_string/baseline").c_str(), bench::SocketRoundTrip,
                                     size);
    }
    benchmark::RegisterBenchmark("copy_64KiB_8_bytes_apart/halvex", bench::ShortDistanceCopy, true);
    benchmark::RegisterBenchmark("copy_64KiB_8_bytes_apart/baseline", bench::ShortDistanceCopy,
                                 false);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();

    bench::gService.reset();
    close(bench::gEchoFd);
    kill(server, SIGKILL);
    waitpid(server, nullptr, 0);
    waitpid(echo, nullptr, 0);
    return 0;
}
