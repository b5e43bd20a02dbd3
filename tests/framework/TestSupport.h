// Helpers for message-loop tests: waiting on a condition instead of sleeping.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <vector>

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

// Polls until `done` holds; false when the time limit passes first.
template <typename Pred>
bool WaitUntil(Pred done, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::yield();
    }
    return true;
}

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

// Waits until every job queued on the "ModuleManager" thread so far has run,
// broadcast deliveries included; each further round also waits for what the
// jobs of the round before queued. Immediate jobs run newest first, so the
// marker is a due-now delayed job.
inline bool DrainManagerThread(int rounds = 1) {
    for (int round = 0; round < rounds; ++round) {
        Latch done;
        ModuleManager::GetManagerHandler()->postDelayed([&done] { done.open(); }, 0);
        if (!done.wait()) return false;
    }
    return true;
}

}  // namespace zelkor::tessel::testing
