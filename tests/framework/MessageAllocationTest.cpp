// A steady flow of posted jobs must not allocate once the pools are warm. This
// binary counts every global allocation to prove it.
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>

#include "AllocationCounter.h"
#include "TestSupport.h"
#include "framework/HalvexHandler.h"
#include "framework/HalvexHandlerThread.h"

namespace zelkor::tessel {
namespace {

constexpr int kBatch = 64;

// Posts one batch of small jobs, of the kinds modules post, and waits until
// all of them ran. A job due now queues behind everything sent before it, so
// the last one sees the whole batch done.
void PostBatch(HalvexHandler& handler, const std::shared_ptr<HalvexHandler>& shared,
               std::atomic<int>& ran) {
    const int before = ran.load();
    for (int i = 1; i < kBatch; i += 2) {
        handler.post([&ran] { ran.fetch_add(1); });
        handler.postDelayed([shared, &ran, i] { ran.fetch_add(i % 2); }, 0);
    }
    int seen = -1;
    handler.postDelayed([&ran, &seen] { seen = ran.load(); }, 0);
    ASSERT_TRUE(testing::Drain(handler));
    ASSERT_EQ(seen - before, kBatch);
}

TEST(MessageAllocationTest, SteadyPostingAllocatesNothingAfterWarmUp) {
    std::unique_ptr<HalvexHandlerThread> thread(HalvexHandlerThread::create("alloc-test"));
    HalvexHandler handler(thread->getLooper());
    auto shared = std::make_shared<HalvexHandler>(thread->getLooper());
    std::atomic<int> ran{0};

    // Warm-up with the looper held, so that enough records are in flight at
    // once: a batch, plus what the posting and the looping thread may each
    // keep in their own caches (64 at most) while the batch runs.
    {
        testing::Hold hold(handler);
        for (int i = 0; i < 4 * kBatch; ++i) handler.postDelayed([&ran] { ran.fetch_add(1); }, 0);
    }
    ASSERT_TRUE(testing::Drain(handler));
    PostBatch(handler, shared, ran);
    const int warm = ran.load();

    uint64_t allocations;
    {
        testing::AllocationCounter counter;
        for (int i = 0; i < 200; ++i) PostBatch(handler, shared, ran);
        allocations = counter.count();
    }
    EXPECT_EQ(ran.load() - warm, 200 * kBatch);
    EXPECT_EQ(allocations, 0u);
}

TEST(MessageAllocationTest, CounterSeesAllocations) {
    // Guards the test above against a counter that never counts.
    testing::AllocationCounter counter;
    auto p = std::make_unique<std::array<char, 64>>();
    EXPECT_EQ(counter.count(), 1u);
}

}  // namespace
}  // namespace zelkor::tessel
