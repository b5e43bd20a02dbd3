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
    pthread_mutex_init(&mMutex, nullptr);
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
        if (msg->when == 0 || msg->when < mNextWakeTime) {
            linkAt(&mHead, msg);
            if (msg->when != 0) mNextWakeTime = msg->when;
        } else {
            HalvexMessage** link = &mHead;
            while (*link != nullptr && (*link)->when <= msg->when) link = &(*link)->mNext;
            linkAt(link, msg);
        }
        wake = mWaiters > 0 && !mWakePending;
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
            mNextWakeTime = -1;
            if (mNonBlock) return nullptr;
            if (wait(nullptr) != 0 || mHead == nullptr) return nullptr;
            continue;
        }
        if (ignoreTime) break;
        if (mNextWakeTime > 0 && mHead->when != 0) {
            timespec deadline = TimeUtil::ms2ts(mNextWakeTime);
            wait(&deadline);
            if (mHead == nullptr || mQuit || mInterrupted) continue;
        }
        // An immediate message is always due: no clock read for it.
        if (mHead->when == 0 || UptimeMs() >= mHead->when) break;
        mNextWakeTime = mHead->when;
        // A non-blocking queue never sleeps, not even until a due time, so a
        // looper asked to quit is never held back by a delayed message.
        if (mNonBlock) return nullptr;
    }
    mNextWakeTime = -1;
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

void HalvexMessageQueue::clear() {
    pthread_cond_broadcast(&mCond);
    MutexLock lock(&mMutex);
    while (mHead != nullptr) delete unlinkAt(&mHead);
}

}  // namespace zelkor::tessel
