#include "framework/HalvexMessageQueue.h"

#include "utils/TimeUtil.h"

namespace zelkor::tessel {
namespace {

class MutexLock {
  public:
    explicit MutexLock(pthread_mutex_t* mutex) : mMutex(mutex) { pthread_mutex_lock(mMutex); }
    ~MutexLock() { pthread_mutex_unlock(mMutex); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

  private:
    pthread_mutex_t* mMutex;
};

int64_t UptimeMs() {
    return static_cast<int64_t>(TimeUtil::getUptimeMillis());
}

}  // namespace

HalvexMessageQueue::HalvexMessageQueue() {
    // Held for a few instructions at a time by many producers and one taker:
    // a contended lock is usually free again within a spin, far sooner than
    // a sleep and wake-up in the kernel would hand it over. glibc spins only
    // when asked to; bionic has no such type and its normal mutex is used.
    pthread_mutexattr_t mutexAttr;
    pthread_mutexattr_init(&mutexAttr);
#if defined(__GLIBC__)
    pthread_mutexattr_settype(&mutexAttr, PTHREAD_MUTEX_ADAPTIVE_NP);
#endif
    pthread_mutex_init(&mMutex, &mutexAttr);
    pthread_mutexattr_destroy(&mutexAttr);
    // Due times are uptime, so timed waits must run on the monotonic clock.
    pthread_condattr_t attr;
    pthread_condattr_init(&attr);
    pthread_condattr_setclock(&attr, CLOCK_MONOTONIC);
    pthread_cond_init(&mCond, &attr);
    pthread_condattr_destroy(&attr);
}

HalvexMessageQueue::~HalvexMessageQueue() {
    clear();
    pthread_cond_destroy(&mCond);
    pthread_mutex_destroy(&mMutex);
}

void HalvexMessageQueue::linkAt(HalvexMessage** link, HalvexMessage* msg) {
    msg->mNext = *link;
    *link = msg;
    // A plain store, not a locked add: only holders of mMutex write the count.
    mCount.store(mCount.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
}

HalvexMessage* HalvexMessageQueue::unlinkAt(HalvexMessage** link) {
    HalvexMessage* msg = *link;
    *link = msg->mNext;
    msg->mNext = nullptr;
    mCount.store(mCount.load(std::memory_order_relaxed) - 1, std::memory_order_relaxed);
    return msg;
}

HalvexMessage** HalvexMessageQueue::findLink(HalvexMessage* msg) {
    for (HalvexMessage** link = &mHead; *link != nullptr; link = &(*link)->mNext) {
        if (*link == msg) return link;
    }
    return nullptr;
}

template <typename Pred>
bool HalvexMessageQueue::anyQueued(Pred pred) const {
    for (HalvexMessage* it = mHead; it != nullptr; it = it->mNext) {
        if (pred(it)) return true;
    }
    return false;
}

int HalvexMessageQueue::wait(const timespec* deadline) {
    ++mWaiters;
    mWakePending = false;
    int rc = deadline != nullptr ? pthread_cond_timedwait(&mCond, &mMutex, deadline)
                                 : pthread_cond_wait(&mCond, &mMutex);
    --mWaiters;
    return rc;
}

void HalvexMessageQueue::offer(HalvexMessage* msg) {
    if (msg == nullptr) return;
    bool wake;
    {
        MutexLock lock(&mMutex);
        if (mQuit) {
            // Dropped: the record is not returned to the pool, but its memory
            // and payload are released rather than leaked.
            delete msg;
            return;
        }
        // The chain is the only record of order: immediate messages (when 0)
        // first, newest first, then timed ones by due time, equal due times in
        // arrival order. So a message due now is never overtaken by a timed
        // one offered while the taker sleeps, even if its due time has passed
        // by the time the taker looks.
        HalvexMessage** link = &mHead;
        if (msg->when != 0) {
            while (*link != nullptr && (*link)->when <= msg->when) link = &(*link)->mNext;
        }
        linkAt(link, msg);
        // A taker sleeps until the head is due (or for any message when the
        // queue is empty), so only a new head changes what it waits for.
        wake = link == &mHead && mWaiters > 0 && !mWakePending;
        if (wake) mWakePending = true;
    }
    if (wake) pthread_cond_broadcast(&mCond);
}

HalvexMessage* HalvexMessageQueue::take(bool ignoreTime) {
    MutexLock lock(&mMutex);
    for (;;) {
        if (mQuit) return nullptr;
        if (mInterrupted) {
            mInterrupted = false;
            return nullptr;
        }
        if (mHead == nullptr) {
            if (mNonBlock) return nullptr;
            if (wait(nullptr) != 0 || mHead == nullptr) return nullptr;
            continue;
        }
        // An immediate message is always due: no clock read for it.
        if (ignoreTime || mHead->when == 0) break;
        // The wake time is always the head's own due time, read afresh after
        // every wake-up: an offer or removal may have changed the head.
        const int64_t due = mHead->when;
        if (UptimeMs() >= due) break;
        // A non-blocking queue never sleeps, not even until a due time, so a
        // looper asked to quit is never held back by a delayed message.
        if (mNonBlock) return nullptr;
        const timespec deadline = TimeUtil::ms2ts(due);
        wait(&deadline);
    }
    return unlinkAt(&mHead);
}

void HalvexMessageQueue::setNonBlockWhenTake(bool nonBlock) {
    {
        MutexLock lock(&mMutex);
        mNonBlock = nonBlock;
    }
    if (nonBlock) pthread_cond_broadcast(&mCond);
}

void HalvexMessageQueue::interruptTake() {
    {
        MutexLock lock(&mMutex);
        mInterrupted = true;
    }
    pthread_cond_broadcast(&mCond);
}

void HalvexMessageQueue::quit() {
    {
        MutexLock lock(&mMutex);
        mQuit = true;
    }
    clear();
}

void HalvexMessageQueue::removeMessage(HalvexMessage* msg, bool keep) {
    MutexLock lock(&mMutex);
    if (mQuit || msg == nullptr) return;
    HalvexMessage** link = findLink(msg);
    if (link == nullptr) return;
    unlinkAt(link);
    if (!keep) delete msg;
}

bool HalvexMessageQueue::hasMessages(int what) {
    MutexLock lock(&mMutex);
    return !mQuit && anyQueued([what](HalvexMessage* it) { return it->what == what; });
}

bool HalvexMessageQueue::hasMessage(HalvexMessage* msg) {
    MutexLock lock(&mMutex);
    return !mQuit && findLink(msg) != nullptr;
}

bool HalvexMessageQueue::isPolling() {
    MutexLock lock(&mMutex);
    return mWaiters > 0;
}

void HalvexMessageQueue::clear() {
    pthread_cond_broadcast(&mCond);
    MutexLock lock(&mMutex);
    while (mHead != nullptr) delete unlinkAt(&mHead);
}

}  // namespace zelkor::tessel
