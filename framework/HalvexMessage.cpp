#include "framework/HalvexMessage.h"

namespace zelkor::tessel {
namespace {

// Most records keep the default label: compare before writing, a write of a
// string costs more than the check.
void resetName(HalvexMessage* msg) {
    static const std::string kUndef = "Undef";
    if (msg->name != kUndef) msg->name = kUndef;
}

}  // namespace

HalvexMessageManager& HalvexMessageManager::getInstance() {
    // Never destroyed: handler threads may still recycle while the process exits.
    static auto* instance = new HalvexMessageManager;
    return *instance;
}

HalvexMessage* HalvexMessageManager::obtain() {
    {
        std::lock_guard<std::mutex> lock(*mLock);
        if (HalvexMessage* msg = mHead) {
            mHead = msg->mNext;
            if (mHead == nullptr) mTail = nullptr;
            msg->mNext = nullptr;
            --mCount;
            return msg;
        }
    }
    return new HalvexMessage;
}

void HalvexMessageManager::recycle(HalvexMessage* msg) {
    msg->what = -1;
    msg->arg1 = 0;
    msg->arg2 = 0;
    msg->arg3 = 0;
    resetName(msg);
    msg->flags = HalvexMessage::FLAG_DEFAULT;
    msg->target = nullptr;
    delete msg->obj;
    msg->obj = nullptr;
    msg->releaseRunnable();
    // A payload the sender still shares stays with the record until reuse.
    if (msg->sharedPayload && msg->sharedPayload.use_count() == 1) msg->sharedPayload.reset();

    std::lock_guard<std::mutex> lock(*mLock);
    msg->mPrev = nullptr;
    msg->mNext = nullptr;
    if (mTail != nullptr) {
        mTail->mNext = msg;
    } else {
        mHead = msg;
    }
    mTail = msg;
    ++mCount;
}

size_t HalvexMessageManager::idleCount() {
    std::lock_guard<std::mutex> lock(*mLock);
    return mCount;
}

HalvexMessage* HalvexMessage::obtain(int what, Object* obj, short flags) {
    HalvexMessage* msg = HalvexMessageManager::getInstance().obtain();
    msg->what = what;
    msg->obj = obj;
    msg->flags = flags;
    msg->when = 0;
    msg->arg1 = 0;
    msg->arg2 = 0;
    msg->arg3 = 0;
    msg->runnable = nullptr;
    msg->target = nullptr;
    resetName(msg);
    return msg;
}

void HalvexMessage::recycle(HalvexMessage* msg) {
    if (msg != nullptr) HalvexMessageManager::getInstance().recycle(msg);
}

HalvexRunnable* HalvexMessage::emplaceRunnable(HalvexJob&& job) {
    releaseRunnable();
    runnable = new (mRunnableStorage) HalvexRunnable(std::move(job));
    return runnable;
}

void HalvexMessage::releaseRunnable() {
    if (runnable == reinterpret_cast<HalvexRunnable*>(mRunnableStorage)) {
        runnable->~HalvexRunnable();
    } else {
        delete runnable;
    }
    runnable = nullptr;
}

HalvexMessage::~HalvexMessage() {
    delete obj;
    releaseRunnable();
}

}  // namespace zelkor::tessel
