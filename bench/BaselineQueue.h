#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace zelkor::tessel::bench {

// What one would write instead of a looper: a locked deque of std::function
// drained in arrival order by one consumer thread. Kept deliberately plain, as
// the yardstick the message loop is measured against.
class BaselineQueue {
  public:
    BaselineQueue() : mThread([this] { drain(); }) {}
    // Like a safe quit: runs everything already queued, then joins.
    ~BaselineQueue() {
        {
            std::lock_guard<std::mutex> lock(mLock);
            mStopping = true;
        }
        mCond.notify_one();
        mThread.join();
    }
    BaselineQueue(const BaselineQueue&) = delete;
    BaselineQueue& operator=(const BaselineQueue&) = delete;

    // Nothing to grow ahead: every post allocates its own job and node.
    static void prewarm() {}

    void post(std::function<void()> job) {
        {
            std::lock_guard<std::mutex> lock(mLock);
            mJobs.push_back(std::move(job));
        }
        mCond.notify_one();
    }

  private:
    void drain() {
        std::unique_lock<std::mutex> lock(mLock);
        for (;;) {
            mCond.wait(lock, [this] { return mStopping || !mJobs.empty(); });
            if (mJobs.empty()) return;
            std::function<void()> job = std::move(mJobs.front());
            mJobs.pop_front();
            lock.unlock();
            job();
            job = nullptr;  // frees the callable outside the lock, as a careful user would
            lock.lock();
        }
    }

    std::mutex mLock;
    std::condition_variable mCond;
    std::deque<std::function<void()>> mJobs;  // guarded by mLock
    bool mStopping = false;                   // guarded by mLock
    std::thread mThread;                      // last: started once the members above exist
};

}  // namespace zelkor::tessel::bench
