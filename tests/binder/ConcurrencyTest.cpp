// The service's thread pool serves calls in parallel up to its cap; one proxy
// used from many threads keeps each call's frames apart; one-way calls do not
// wait for the service.
#include <future>
#include <thread>

#include "HostRootTest.h"
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

class ConcurrencyTest : public HostRootTest {};

TEST_F(ConcurrencyTest, TwoSlowCallsOverlap) {
    ServiceProcess process(mRoot.path());
    auto service = process.connect();
    ASSERT_NE(service, nullptr) << process.errors();
    EXPECT_TRUE(AllMet(service, 2, 10000));
}

TEST_F(ConcurrencyTest, PoolCapLimitsParallelCalls) {
    // No threads on demand: the pool's first thread and the joined main
    // thread serve, so three calls can never be inside at once.
    ServiceProcess capped(mRoot.path(), {"--max-threads", "0"});
    auto service = capped.connect();
    ASSERT_NE(service, nullptr) << capped.errors();
    EXPECT_TRUE(AllMet(service, 2, 10000));
    EXPECT_FALSE(AllMet(service, 3, 300));
}

TEST_F(ConcurrencyTest, ThreadsOnDemandGoBeyondTwo) {
    ServiceProcess process(mRoot.path(), {"--max-threads", "2"});
    auto service = process.connect();
    ASSERT_NE(service, nullptr) << process.errors();
    EXPECT_TRUE(AllMet(service, 4, 10000));
}

TEST_F(ConcurrencyTest, ManyThreadsOnOneProxy) {
    ServiceProcess process(mRoot.path());
    auto service = process.connect();
    ASSERT_NE(service, nullptr) << process.errors();
    std::vector<std::future<bool>> workers;
    for (int t = 0; t < 8; ++t) {
        workers.push_back(std::async(std::launch::async, [&service, t] {
            for (int i = 0; i < 100; ++i) {
                std::string sent = std::to_string(t) + ":" + std::to_string(i) +
                                   std::string(static_cast<size_t>(t * 997 + i), 'x');
                std::string received;
                if (!service->echoString(sent, &received).isOk() || received != sent) return false;
            }
            return true;
        }));
    }
    for (auto& worker : workers) EXPECT_TRUE(worker.get());
}

TEST_F(ConcurrencyTest, OnewayCallReturnsWhileTheServiceIsStillBusy) {
    ServiceProcess process(mRoot.path());
    auto service = process.connect();
    ASSERT_NE(service, nullptr) << process.errors();
    // blockOneway only ends on release(), which this thread sends after the
    // one-way call has returned.
    ASSERT_TRUE(service->blockOneway(30000).isOk());
    bool blocked = false;
    ASSERT_TRUE(service->waitUntilBlocked(10000, &blocked).isOk());
    EXPECT_TRUE(blocked);
    ASSERT_TRUE(service->release().isOk());
    int32_t value = 0;
    ASSERT_TRUE(service->echoInt(5, &value).isOk());
    EXPECT_EQ(value, 5);
}

}  // namespace
}  // namespace zelkor::tessel::testing
