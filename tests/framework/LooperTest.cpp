#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>

#include "LogCapture.h"
#include "TestSupport.h"
#include "framework/HalvexHandler.h"
#include "framework/HalvexHandlerThread.h"

namespace zelkor::tessel {
namespace {

using testing::Hold;
using testing::LogCapture;
using testing::Recorder;
using testing::WaitFor;

constexpr int64_t kHour = 60 * 60 * 1000;

class LooperTest : public ::testing::Test {
  protected:
    void SetUp() override {
        mThread.reset(HalvexHandlerThread::create("looper-test"));
        mHandler = std::make_unique<HalvexHandler>(mThread->getLooper());
    }
    void TearDown() override {
        mThread.reset();
        mHandler.reset();
    }

    void sync(long delayMs = 0) { ASSERT_TRUE(testing::Drain(*mHandler, 1, delayMs)); }

    std::unique_ptr<HalvexHandlerThread> mThread;
    std::unique_ptr<HalvexHandler> mHandler;
};

TEST_F(LooperTest, QuitDropsPendingJobsButSafeQuitRunsThemAll) {
    for (bool safely : {false, true}) {
        SCOPED_TRACE(safely);
        if (safely) SetUp();  // a fresh looper
        Recorder ran;
        Hold hold(*mHandler);
        for (int i = 0; i < 10; ++i) mHandler->post([&ran, i] { ran.add(i); });
        mHandler->postDelayed([&ran] { ran.add(100); }, kHour);
        if (safely) {
            EXPECT_TRUE(mThread->quitSafely());
            EXPECT_FALSE(mThread->quitSafely()) << "a second request is refused";
            // Sent while the looper is still alive but quitting: dropped.
            mHandler->post([&ran] { ran.add(200); });
        } else {
            mThread->quit();
        }
        hold.release();
        mThread.reset();  // joins
        // Immediate jobs run newest first; the delayed one runs before its time.
        const std::vector<int> all = {9, 8, 7, 6, 5, 4, 3, 2, 1, 0, 100};
        EXPECT_EQ(ran.values(), safely ? all : std::vector<int>{});
    }
}

TEST_F(LooperTest, PriorityMessagesOvertakeOlderOnesAndWakeTheLoopAndCallbackGetsPlainOnes) {
    Recorder order;
    HalvexHandler handler(mThread->getLooper(), [&](HalvexMessage* msg) { order.add(msg->what); });
    {
        Hold hold(*mHandler);
        handler.sendMessage(HalvexMessage::obtain(1));
        handler.post([] {});
        handler.sendMessage(HalvexMessage::obtain(2));
        handler.sendMessage(HalvexMessage::obtain(3, nullptr, HalvexMessage::FLAG_PRIORITY));
    }
    sync();
    EXPECT_EQ(order.values(), (std::vector<int>{3, 2, 1}));

    // One also wakes a loop asleep until a delayed job is due; it is sent
    // only once the loop sleeps, or it would be seen without any wake-up.
    mHandler->postDelayed([] {}, kHour);
    ASSERT_TRUE(WaitFor([&] { return mThread->getLooper()->getQueue()->isPolling(); }));
    handler.sendMessage(HalvexMessage::obtain(4, nullptr, HalvexMessage::FLAG_PRIORITY));
    EXPECT_TRUE(WaitFor([&] { return order.values().size() == 4; }));
}

TEST_F(LooperTest, GetLooperAfterQuitWaitsForTheThreadsEndThenGetsNullAtOnce) {
    LogCapture log;
    Hold hold(*mHandler);
    mThread->quit();
    // The thread cannot end while the job in hand holds it: the caller waits.
    auto looper = std::async(std::launch::async, [this] { return mThread->getLooper(); });
    EXPECT_TRUE(WaitFor(
            [&] { return log.contains("Halvex-HandlerThread", "[getLooper] getLooper() wait."); }));
    hold.release();
    EXPECT_EQ(looper.get(), nullptr);
    // Once the thread has ended a call answers at once.
    EXPECT_TRUE(mThread->hasExited());
    EXPECT_EQ(mThread->getLooper(), nullptr);
    EXPECT_TRUE(log.contains("Halvex-HandlerThread", "[getLooper] getLooper() thread had exit."));
    EXPECT_FALSE(mThread->quitSafely());
}

TEST_F(LooperTest, DelayedJobsRunInDueOrderAndCanBeRemoved) {
    Recorder order;
    // The looper is held until the removal is done, so however slow the
    // machine, the job to remove cannot have run (and been recycled) first.
    Hold hold(*mHandler);
    HalvexMessage* removed = mHandler->postDelayed([&] { order.add(99); }, 20);
    mHandler->postDelayed([&] { order.add(2); }, 40);
    mHandler->postDelayed([&] { order.add(1); }, 10);
    // A negative delay is due before what is due now.
    mHandler->postDelayed([&] { order.add(0); }, 0);
    mHandler->postDelayed([&] { order.add(-1); }, -1000);
    EXPECT_TRUE(mHandler->hasMessage(removed));
    mHandler->removeMessage(removed, false);
    EXPECT_FALSE(mHandler->hasMessage(removed));
    hold.release();
    sync(60);
    EXPECT_EQ(order.values(), (std::vector<int>{-1, 0, 1, 2}));
}

TEST(LooperLifecycleTest, HandlerWithoutLooperWarnsAndDrops) {
    LogCapture log;
    HalvexHandler handler(nullptr);
    int ran = 0;
    handler.post([&] { ++ran; });
    EXPECT_EQ(ran, 0);
    EXPECT_TRUE(log.contains("Halvex-Handler", "[_enqueueMessage] Looper is null!"));
}

}  // namespace
}  // namespace zelkor::tessel
