#include "framework/HalvexMessage.h"

#include "framework/HalvexRunnable.h"

namespace zelkor::tessel {

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
    msg->name = "Undef";
    msg->flags = HalvexMessage::FLAG_DEFAULT;
    msg->target = nullptr;
    delete msg->obj;
    msg->obj = nullptr;
    delete msg->runnable;
    msg->runnable = nullptr;
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
    msg->name = "Undef";
    return msg;
}

void HalvexMessage::recycle(HalvexMessage* msg) {
    if (msg != nullptr) HalvexMessageManager::getInstance().recycle(msg);
}

HalvexMessage::~HalvexMessage() {
    delete obj;
    delete runnable;
}

}  // namespace zelkor::tessel
