// The service's thread pool serves calls in parallel up to its cap; one proxy
// used from many threads keeps each call's frames apart; one-way calls do not
// wait for the service.
#include <future>
#include <tuple>

#include "ServiceProcess.h"

namespace zelkor::tessel::testing {
namespace {

using aidl::tessel::test::ITestService;

// Runs `parties` concurrent rendezvous calls; true when all of them met.
bool AllMet(const std::shared_ptr<ITestService>& service, int parties, int timeoutMs) {
    std::vector<std::future<bool>> calls;
    for (int i = 0; i < parties; ++i) {
        calls.push_back(std::async(std::launch::async, [&] {
            bool met = false;
            return service->rendezvous(parties, timeoutMs, &met).isOk() && met;
        }));
    }
    bool all = true;
    for (auto& call : calls) all = call.get() && all;
    return all;
}

using ConcurrencyTest = ServiceTest;
using ThreadPoolTest = HostRootTest;

TEST_F(ThreadPoolTest, ParallelCallsUpToThePoolCap) {
    // With no threads on demand the pool's first thread and the joined main
    // thread serve, so three calls can never be inside at once; two threads
    // on demand make four.
    for (const auto& [maxThreads, parties, met] : std::vector<std::tuple<const char*, int, bool>>{
                 {"0", 2, true}, {"0", 3, false}, {"2", 4, true}}) {
        ServiceProcess process(mRoot.path(), {"--max-threads", maxThreads});
        auto service = process.connect();
        ASSERT_NE(service, nullptr) << process.errors();
        EXPECT_EQ(AllMet(service, parties, met ? 10000 : 300), met) << maxThreads << " " << parties;
    }
}

TEST_F(ConcurrencyTest, ManyThreadsOnOneProxy) {
    std::vector<std::future<bool>> workers;
    for (int t = 0; t < 8; ++t) {
        workers.push_back(std::async(std::launch::async, [this, t] {
            for (int i = 0; i < 100; ++i) {
                std::string sent = std::to_string(t) + ":" + std::to_string(i) +
                                   std::string(static_cast<size_t>(t * 997 + i), 'x');
                std::string received;
                if (!mService->echoUtf8(sent, &received).isOk() || received != sent) return false;
            }
            return true;
        }));
    }
    for (auto& worker : workers) EXPECT_TRUE(worker.get());
}

TEST_F(ConcurrencyTest, OnewayCallReturnsWhileTheServiceIsStillBusy) {
    // blockOneway only ends on release(), which this thread sends after the
    // one-way call has returned.
    ASSERT_TRUE(mService->blockOneway(30000).isOk());
    bool blocked = false;
    ASSERT_TRUE(mService->waitUntilBlocked(10000, &blocked).isOk());
    EXPECT_TRUE(blocked);
    ASSERT_TRUE(mService->release().isOk());
    int32_t value = 0;
    ASSERT_TRUE(mService->echoInt(5, &value).isOk());
    EXPECT_EQ(value, 5);
}

}  // namespace
}  // namespace zelkor::tessel::testing
