// Helpers for message-loop tests: waiting on a condition instead of sleeping.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

#include "WaitFor.h"
#include "framework/ModuleManager.h"

namespace zelkor::tessel::testing {

// A one-shot gate: jobs block on wait() until the test opens it.
class Latch {
  public:
    // Notifies under the lock: the waiter may destroy the latch as soon as
    // it can take the lock again.
    void open() {
        std::lock_guard<std::mutex> lock(mMutex);
        mOpen = true;
        mCond.notify_all();
    }
    // False when the time limit passes first (a generous one: it only guards
    // against a hang, it never paces the test).
    bool wait(std::chrono::milliseconds limit = std::chrono::seconds(10)) {
        std::unique_lock<std::mutex> lock(mMutex);
        return mCond.wait_for(lock, limit, [this] { return mOpen; });
    }

  private:
    std::mutex mMutex;
    std::condition_variable mCond;
    bool mOpen = false;
};

// Records the order in which jobs ran, from any thread.
class Recorder {
  public:
    void add(int value) {
        std::lock_guard<std::mutex> lock(mMutex);
        mValues.push_back(value);
    }
    std::vector<int> values() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mValues;
    }

  private:
    std::mutex mMutex;
    std::vector<int> mValues;
};

// Waits until every job queued on `handler`'s looper so far has run; each
// further round also waits for what the jobs of the round before queued.
// Immediate jobs run newest first, so the marker is a delayed job, due
// `delayMs` from now.
inline bool Drain(HalvexHandler& handler, int rounds = 1, long delayMs = 0) {
    for (int round = 0; round < rounds; ++round) {
        Latch done;
        handler.postDelayed([&done] { done.open(); }, delayMs);
        if (!done.wait()) return false;
    }
    return true;
}

// The same for the "ModuleManager" thread, broadcast deliveries included.
inline bool DrainManagerThread(int rounds = 1) {
    return Drain(*ModuleManager::GetManagerHandler(), rounds);
}

// Keeps `handler`'s looper busy in one job from construction until release()
// or the end of the scope, so that what is sent meanwhile piles up.
class Hold {
  public:
    explicit Hold(HalvexHandler& handler) {
        handler.postDelayed(
                [this] {
                    mEntered.open();
                    mRelease.wait();
                    mDone.open();
                },
                0);
        EXPECT_TRUE(mEntered.wait());
    }
    // The job refers to this object: wait until it has ended.
    ~Hold() {
        release();
        mDone.wait();
    }
    void release() { mRelease.open(); }

  private:
    Latch mEntered, mRelease, mDone;
};

}  // namespace zelkor::tessel::testing
