#define LOG_TAG "Halvex-HalvexLooper"

#include "framework/HalvexLooper.h"

#include "framework/HalvexHandler.h"
#include "framework/HalvexRunnable.h"
#include "framework/Thread.h"
#include "platform/HalvexLog.h"
#include "utils/TimeUtil.h"

namespace zelkor::tessel {

HalvexLooperManager& HalvexLooperManager::getInstance() {
    // Never destroyed: handler threads outlive static destruction at exit.
    static auto* instance = new HalvexLooperManager;
    return *instance;
}

HalvexLooper* HalvexLooperManager::create(long tid) {
    std::lock_guard<std::mutex> lock(mLock);
    auto& slot = mLoopers[tid];
    if (slot) return nullptr;
    slot = std::make_unique<HalvexLooper>();
    return slot.get();
}

void HalvexLooperManager::remove(long tid) {
    std::unique_ptr<HalvexLooper> looper;
    {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mLoopers.find(tid);
        if (it == mLoopers.end()) return;
        looper = std::move(it->second);
        mLoopers.erase(it);
    }
    // Destroyed outside the lock: leftover payloads may run arbitrary destructors.
}

HalvexLooper* HalvexLooperManager::get(long tid) {
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mLoopers.find(tid);
    return it != mLoopers.end() ? it->second.get() : nullptr;
}

void HalvexLooper::prepare() {
    if (HalvexLooperManager::getInstance().create(Thread::currentThreadId()) == nullptr) {
        HLOGE("HalvexLooper::prepare has been called.");
    }
}

HalvexLooper* HalvexLooper::myLooper() {
    HalvexLooper* looper = HalvexLooperManager::getInstance().get(Thread::currentThreadId());
    if (looper == nullptr) HLOGE("Call HalvexLooper::prepare first pls.");
    return looper;
}

HalvexMessageQueue* HalvexLooper::myQueue() {
    HalvexLooper* looper = myLooper();
    return looper != nullptr ? looper->getQueue() : nullptr;
}

void HalvexLooper::loop() {
    if (HalvexLooper* looper = myLooper()) looper->_loop();
}

void HalvexLooper::exit() {
    HalvexLooperManager::getInstance().remove(Thread::currentThreadId());
}

HalvexMessage* HalvexLooper::nextMessage() {
    if (!mPriorityQueue.empty()) return mPriorityQueue.take(true);
    // While a safe quit drains the queue, delayed messages run before their time.
    return mQueue.take(mQuitting && mSafe);
}

void HalvexLooper::_loop() {
    if (mLooping || (mQuitting && !mSafe) || mQuitted) return;
    if (mQuitting && mSafe && mQueue.empty() && mPriorityQueue.empty()) return;

    mLooping = true;
    for (;;) {
        if (HalvexMessage* msg = nextMessage()) {
            if (msg->target != nullptr) msg->target->dispatchMessage(msg);
            if (msg->runnable != nullptr) msg->runnable->run(nullptr);
            HalvexMessage::recycle(msg);
        }
        if (mQuitting && (!mSafe || mQueue.empty())) break;
    }

    const int64_t start = TimeUtil::getCurrentTimeUS();
    const bool safe = mSafe;
    while (!mQueue.empty()) {
        HalvexMessage* msg = mQueue.take(!safe);
        if (msg == nullptr) break;
        delete msg;
    }
    mQueue.clear();
    HALVEX_LOG_FN(ANDROID_LOG_INFO, LOG_TAG, "_loop", "%s(%d) clear message cost %lld us.", "_loop",
                  123, static_cast<long long>(TimeUtil::getCurrentTimeUS() - start));

    mQuitting = false;
    mQuitted = true;
    mLooping = false;
}

void HalvexLooper::quit(bool safely) {
    if (mQuitting || mQuitted) return;
    HLOGD("Looper quiting...");
    mSafe = safely;
    mQuitting = true;
    mQueue.setNonBlockWhenTake(true);
    HLOGD("queue notified..");
}

void HalvexLooper::sendMessage(HalvexMessage* msg) {
    if (msg == nullptr) return;
    if (mQuitting || mQuitted) {
        delete msg;
        return;
    }
    if (msg->flags & HalvexMessage::FLAG_PRIORITY) {
        mPriorityQueue.offer(msg);
        // The loop may be asleep on the main queue; make it look again.
        mQueue.interruptTake();
    } else {
        mQueue.offer(msg);
    }
}

}  // namespace zelkor::tessel
