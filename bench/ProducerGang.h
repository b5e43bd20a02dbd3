#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace zelkor::tessel::bench {

// A fixed set of producer threads that each run their share of a round when
// released. They live across rounds, so a timed round measures posting and
// contention, not thread start-up.
class ProducerGang {
  public:
    using Work = std::function<void(int index)>;

    ProducerGang(int count, Work work) : mWork(std::move(work)) {
        for (int i = 0; i < count; ++i) mThreads.emplace_back([this, i] { run(i); });
    }
    ~ProducerGang() {
        {
            std::lock_guard<std::mutex> lock(mLock);
            mStopping = true;
        }
        mCond.notify_all();
        for (std::thread& thread : mThreads) thread.join();
    }
    ProducerGang(const ProducerGang&) = delete;
    ProducerGang& operator=(const ProducerGang&) = delete;

    // Starts one round on every thread and returns at once. The caller learns
    // that a round is over from what the producers posted, and must not
    // release the next one before that.
    void release() {
        {
            std::lock_guard<std::mutex> lock(mLock);
            ++mRound;
        }
        mCond.notify_all();
    }

  private:
    void run(int index) {
        uint64_t done = 0;
        for (;;) {
            {
                std::unique_lock<std::mutex> lock(mLock);
                mCond.wait(lock, [&] { return mStopping || mRound != done; });
                if (mStopping) return;
                done = mRound;
            }
            mWork(index);
        }
    }

    const Work mWork;
    std::mutex mLock;
    std::condition_variable mCond;
    uint64_t mRound = 0;     // guarded by mLock
    bool mStopping = false;  // guarded by mLock
    std::vector<std::thread> mThreads;
};

}  // namespace zelkor::tessel::bench
