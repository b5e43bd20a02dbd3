#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <thread>
#include <tuple>
#include <vector>

#include "TestSupport.h"
#include "framework/HalvexMessageQueue.h"
#include "framework/HalvexRunnable.h"
#include "utils/TimeUtil.h"

namespace zelkor::tessel {
namespace {

// A payload that reports its own destruction.
class Tracked : public Object {
  public:
    explicit Tracked(bool* destroyed) : mDestroyed(destroyed) {}
    ~Tracked() override { *mDestroyed = true; }

  private:
    bool* mDestroyed;
};

int64_t Now() {
    return static_cast<int64_t>(TimeUtil::getUptimeMillis());
}

HalvexMessage* Timed(int what, int64_t when) {
    HalvexMessage* msg = HalvexMessage::obtain(what);
    msg->when = when;
    return msg;
}

int TakeWhat(HalvexMessageQueue& queue, bool ignoreTime = false) {
    HalvexMessage* msg = queue.take(ignoreTime);
    if (msg == nullptr) return -100;
    int what = msg->what;
    HalvexMessage::recycle(msg);
    return what;
}

TEST(MessageQueueTest, ImmediateMessagesRunLastInFirstOutThenTimedOnesByDueTimeAndArrival) {
    HalvexMessageQueue queue;
    const int64_t base = Now() - 1000;
    // Timed messages offered after immediate ones, all already due, still
    // queue behind them (when 0: immediate).
    for (auto [what, when] :
         {std::pair{10, 30}, {1, 0}, {20, 10}, {30, 30}, {2, 0}, {40, 20}, {3, 0}, {50, 10}}) {
        queue.offer(when == 0 ? HalvexMessage::obtain(what) : Timed(what, base + when));
    }
    EXPECT_EQ(queue.size(), 8u);
    for (int expected : {3, 2, 1, 20, 50, 40, 10, 30}) EXPECT_EQ(TakeWhat(queue), expected);
    EXPECT_TRUE(queue.empty());
}

TEST(MessageQueueTest, TakerSleepsUntilTheEarliestDueTimeUnlessTimeIsIgnored) {
    HalvexMessageQueue queue;
    queue.offer(Timed(1, Now() + 60 * 1000));
    const int64_t start = Now();
    std::thread producer([&] {
        // Lands while the taker sleeps until the far due time.
        queue.offer(Timed(2, Now() + 50));
    });
    EXPECT_EQ(TakeWhat(queue), 2);
    EXPECT_GE(Now() - start, 50);
    producer.join();
    // Not due: a non-blocking take comes back empty-handed, the message stays.
    queue.setNonBlockWhenTake(true);
    EXPECT_EQ(queue.take(), nullptr);
    EXPECT_EQ(queue.size(), 1u);
    EXPECT_EQ(TakeWhat(queue, /*ignoreTime=*/true), 1);
}

TEST(MessageQueueTest, BurstsOfferedToASleepingTakerAllArrive) {
    // Only the first offer of a burst wakes the taker; the rest find it woken
    // but not yet running. None of them may be stranded.
    HalvexMessageQueue queue;
    std::atomic<int> taken{0};
    std::atomic<bool> stop{false};
    std::thread taker([&] {
        while (!stop) {
            HalvexMessage* msg = queue.take();
            if (msg == nullptr) continue;  // woken with nothing to return
            HalvexMessage::recycle(msg);
            ++taken;
        }
    });
    constexpr int kBurst = 50;
    bool allArrived = true;
    for (int round = 1; round <= 200 && allArrived; ++round) {
        // The taker has drained the last burst and is going back to sleep.
        for (int i = 0; i < kBurst; ++i) queue.offer(HalvexMessage::obtain(i));
        allArrived = testing::WaitFor([&] { return taken == round * kBurst; });
    }
    stop = true;
    // Releases the taker blocked on the empty queue (and one that missed a
    // wake-up): without it the join below never returns.
    queue.setNonBlockWhenTake(true);
    taker.join();
    EXPECT_TRUE(allArrived) << "taken " << taken;
}

TEST(MessageQueueTest, RemoveKeepsOrDestroysAndIgnoresStrangersClearAndQuitDestroyEverything) {
    HalvexMessageQueue queue;
    bool destroyed[7] = {};
    const auto tracked = [&destroyed](int what) {
        return HalvexMessage::obtain(what, new Tracked(&destroyed[what]), 1);
    };
    HalvexMessage* kept = tracked(1);
    HalvexMessage* dropped = tracked(2);
    HalvexMessage* stranger = tracked(3);
    queue.offer(kept);
    queue.offer(dropped);
    EXPECT_TRUE(queue.hasMessages(1) && queue.hasMessage(dropped));
    EXPECT_FALSE(queue.hasMessage(stranger));

    queue.removeMessage(kept, /*keep=*/true);
    EXPECT_FALSE(queue.hasMessages(1));
    queue.removeMessage(dropped, /*keep=*/false);
    queue.removeMessage(stranger, false);
    EXPECT_EQ(std::vector<bool>(destroyed + 1, destroyed + 4),
              (std::vector<bool>{false, true, false}));
    queue.offer(nullptr);  // nothing to queue
    EXPECT_TRUE(queue.empty());
    HalvexMessage::recycle(kept);
    HalvexMessage::recycle(stranger);

    // Clearing and quitting destroy everything queued; a stopped queue drops
    // what it is offered.
    queue.offer(tracked(4));
    queue.offer(Timed(2, Now() + 100000));
    queue.clear();
    EXPECT_TRUE(destroyed[4] && queue.empty());
    queue.offer(tracked(5));
    queue.quit();
    EXPECT_TRUE(destroyed[5]);
    queue.offer(tracked(6));
    EXPECT_TRUE(destroyed[6]);
    EXPECT_EQ(queue.take(true), nullptr);
    EXPECT_FALSE(queue.hasMessages(6));
}

TEST(MessagePoolTest, RecycledRecordComesBackClean) {
    bool payloadDestroyed = false;
    int ran = 0;
    HalvexMessage* msg = HalvexMessage::obtain(5, new Tracked(&payloadDestroyed), 4);
    msg->name = "a label longer than the small string buffer";
    msg->arg1 = msg->arg2 = msg->arg3 = 1;
    msg->when = 99;
    msg->runnable = new HalvexRunnable([&ran] { ++ran; });
    auto shared = std::make_shared<Object>();
    msg->sharedPayload = shared;
    HalvexMessage::recycle(msg);
    EXPECT_TRUE(payloadDestroyed);
    EXPECT_EQ(ran, 0) << "recycling must not run the job";
    EXPECT_EQ(msg->sharedPayload, shared) << "a payload the sender still holds stays";

    // The last record given back is reused first, unless the thread's own
    // cache overflowed into the shared pool; take records until ours is back.
    HalvexMessage* again = nullptr;
    std::vector<HalvexMessage*> others;
    while ((again = HalvexMessage::obtain(8, nullptr, 2)) != msg) others.push_back(again);
    for (HalvexMessage* other : others) HalvexMessage::recycle(other);
    EXPECT_EQ(
            std::make_tuple(again->what, again->flags, again->name, again->when, again->arg1,
                            again->arg2, again->arg3, again->obj, again->runnable),
            std::make_tuple(8, short{2}, std::string("Undef"), int64_t{0}, 0, 0, 0,
                            static_cast<Object*>(nullptr), static_cast<HalvexRunnable*>(nullptr)));
    again->sharedPayload.reset();
    HalvexMessage::recycle(again);
}

TEST(MessagePoolTest, RecordsOfAnEndedThreadGoBackToTheSharedPool) {
    HalvexMessageManager& pool = HalvexMessageManager::getInstance();
    // Empty the pool, so every record the worker uses is one it made.
    std::vector<HalvexMessage*> held;
    while (pool.idleCount() > 0) held.push_back(HalvexMessage::obtain(0));

    std::thread worker([] {
        std::vector<HalvexMessage*> records;
        for (int i = 0; i < 50; ++i) records.push_back(HalvexMessage::obtain(i));
        // Fewer than a thread keeps for itself: all stay in its own cache...
        for (HalvexMessage* msg : records) HalvexMessage::recycle(msg);
    });
    worker.join();
    // ...until it ends, when they must reach the shared pool rather than be lost.
    EXPECT_EQ(pool.idleCount(), 50u);
    for (HalvexMessage* msg : held) HalvexMessage::recycle(msg);
}

TEST(RunnableTest, RunsOnceThenIsSpentAndFreesALargeCapture) {
    auto token = std::make_shared<int>(42);
    std::array<char, 200> big{};
    big[199] = 'x';
    int ran = 0;
    Object arg;
    Object* seen = nullptr;
    HalvexRunnable runnable([token, big, &ran, &seen](Object* o) {
        ran += *token + big[199];
        seen = o;
    });
    EXPECT_EQ(token.use_count(), 2);
    runnable.run(&arg);
    EXPECT_EQ(token.use_count(), 1) << "a spent job releases its captures";
    runnable.run(&arg);
    EXPECT_EQ(ran, 42 + 'x');
    EXPECT_EQ(seen, &arg);
}

}  // namespace
}  // namespace zelkor::tessel
