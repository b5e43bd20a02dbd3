#pragma once

#include <pthread.h>

#include <atomic>
#include <cstdint>

#include "framework/HalvexMessage.h"

namespace zelkor::tessel {

// Time-ordered blocking queue drained by one looper thread. Any thread may
// offer, remove or ask. Times are uptime milliseconds.
class HalvexMessageQueue {
  public:
    HalvexMessageQueue();
    ~HalvexMessageQueue();
    HalvexMessageQueue(const HalvexMessageQueue&) = delete;
    HalvexMessageQueue& operator=(const HalvexMessageQueue&) = delete;

    // Takes ownership. A message with when 0 goes ahead of everything queued,
    // other immediate messages included: immediate messages run last-in
    // first-out. Equal due times keep arrival order.
    void offer(HalvexMessage* msg);

    HalvexMessage* take() { return take(false); }
    // Removes and returns the head once it is due (at once with ignoreTime).
    // Null when woken with nothing to return: quit, non-blocking mode, clear(),
    // interruptTake() or a wake-up that found the queue empty.
    HalvexMessage* take(bool ignoreTime);

    // When set, take() never sleeps; setting it wakes every sleeping taker.
    void setNonBlockWhenTake(bool nonBlock);
    // Wakes the taker once, so that it can look at another queue.
    void interruptTake();
    // Stops the queue for good: offers are dropped and it reports empty.
    void quit();

    // Unlinks msg if queued; destroys it too unless keep is true.
    void removeMessage(HalvexMessage* msg, bool keep);
    bool hasMessages(int what);
    bool hasMessage(HalvexMessage* msg);
    size_t size() const { return mCount.load(std::memory_order_relaxed); }
    bool empty() const { return size() == 0; }
    // Whether a taker is asleep in take(), waiting for a message or a due time.
    bool isPolling();
    // Wakes all takers, then destroys every queued message.
    void clear();
    void dump() {}

  private:
    // The queue is a chain through the records' own links; `link` is mHead or
    // the link field of a queued record.
    void linkAt(HalvexMessage** link, HalvexMessage* msg);
    HalvexMessage* unlinkAt(HalvexMessage** link);
    // The link that points at msg, or null when msg is not queued.
    HalvexMessage** findLink(HalvexMessage* msg);
    template <typename Pred>
    bool anyQueued(Pred pred) const;
    int wait(const timespec* deadline);  // null: no time limit

    pthread_mutex_t mMutex;
    pthread_cond_t mCond;
    HalvexMessage* mHead = nullptr;
    // Written under mMutex only; atomic so that size() may be read without it.
    std::atomic<size_t> mCount{0};
    bool mQuit = false;
    bool mNonBlock = false;
    bool mInterrupted = false;
    int mWaiters = 0;  // takers inside a wait; offers skip the wake-up without them
    // Every taker inside a wait has been woken since it began waiting and will
    // look at the queue again before it sleeps: further offers need not wake
    // it. Without this, a producer that outruns a woken but not yet running
    // taker (always the case when both share a core) pays a wake-up per offer.
    bool mWakePending = false;
};

}  // namespace zelkor::tessel
