#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>

#include "framework/HalvexMessageQueue.h"
#include "framework/Object.h"

namespace zelkor::tessel {

// A per-thread message loop with a main queue and a priority queue that is
// always served first.
class HalvexLooper : public Object {
  public:
    HalvexLooper() = default;
    ~HalvexLooper() override = default;

    // Creates the calling thread's looper; a second call logs and keeps the first.
    static void prepare();
    // The calling thread's looper, or null (logged) when prepare() was not called.
    static HalvexLooper* myLooper();
    static HalvexMessageQueue* myQueue();
    // Runs the calling thread's loop until it is told to quit.
    static void loop();
    // Removes and destroys the calling thread's looper.
    static void exit();

    // Asks the loop to end. A normal quit ends after the message in hand and
    // throws away everything still queued; a safe quit first runs the main
    // queue down to empty, delayed messages included.
    void quit(bool safely);
    // Queues msg (taking ownership), or drops it once the looper is quitting.
    void sendMessage(HalvexMessage* msg);
    HalvexMessageQueue* getQueue() { return &mQueue; }

  private:
    void _loop();
    HalvexMessage* nextMessage();

    std::atomic<bool> mQuitting{false};
    std::atomic<bool> mQuitted{false};
    std::atomic<bool> mSafe{false};
    std::atomic<bool> mLooping{false};
    HalvexMessageQueue mQueue;
    HalvexMessageQueue mPriorityQueue;
};

// Process-wide registry of loopers by kernel thread id.
class HalvexLooperManager {
  public:
    static HalvexLooperManager& getInstance();

    // Adds a looper for tid; null if that thread has one already.
    HalvexLooper* create(long tid);
    void remove(long tid);
    HalvexLooper* get(long tid);

  private:
    HalvexLooperManager() = default;

    std::mutex mLock;
    std::map<long, std::unique_ptr<HalvexLooper>> mLoopers;
};

}  // namespace zelkor::tessel
