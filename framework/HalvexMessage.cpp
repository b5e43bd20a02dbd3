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

void HalvexMessageList::pushBack(HalvexMessage* msg) {
    msg->mPrev = nullptr;
    msg->mNext = nullptr;
    (tail != nullptr ? tail->mNext : head) = msg;
    tail = msg;
    ++count;
}

HalvexMessage* HalvexMessageList::popFront() {
    HalvexMessage* msg = head;
    if (msg == nullptr) return nullptr;
    head = msg->mNext;
    if (head == nullptr) tail = nullptr;
    msg->mNext = nullptr;
    --count;
    return msg;
}

void HalvexMessageList::moveFront(size_t n, HalvexMessageList& to) {
    while (n-- > 0 && head != nullptr) to.pushBack(popFront());
}

namespace {

constexpr size_t kThreadCacheMax = 64;  // idle records one thread keeps
constexpr size_t kBatch = 32;           // records traded with the shared pool at once

}  // namespace

// A thread's own idle records; handed back to the shared pool when the thread ends.
struct ThreadMessageCache {
    HalvexMessageList records;
    ~ThreadMessageCache() { HalvexMessageManager::getInstance().giveBack(records, records.count); }
};

namespace {
thread_local ThreadMessageCache tCache;
}  // namespace

HalvexMessageManager& HalvexMessageManager::getInstance() {
    // Never destroyed: handler threads may still recycle while the process exits.
    static auto* instance = new HalvexMessageManager;
    return *instance;
}

HalvexMessage* HalvexMessageManager::obtain() {
    HalvexMessageList& own = tCache.records;
    if (own.count == 0) {
        std::lock_guard<std::mutex> lock(mLock);
        mIdle.moveFront(kBatch, own);
    }
    if (HalvexMessage* msg = own.popFront()) return msg;
    return new HalvexMessage;
}

void HalvexMessageManager::giveBack(HalvexMessageList& records, size_t n) {
    if (n == 0) return;
    std::lock_guard<std::mutex> lock(mLock);
    records.moveFront(n, mIdle);
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

    HalvexMessageList& own = tCache.records;
    own.pushBack(msg);
    if (own.count > kThreadCacheMax) giveBack(own, kBatch);
}

size_t HalvexMessageManager::idleCount() {
    std::lock_guard<std::mutex> lock(mLock);
    return mIdle.count + tCache.records.count;
}

HalvexMessage* HalvexMessage::obtain(int what, Object* obj, short flags) {
    // A record comes new or recycled, and recycling already cleared the
    // arguments, name, payload and job; only the due time is left to reset.
    HalvexMessage* msg = HalvexMessageManager::getInstance().obtain();
    msg->what = what;
    msg->obj = obj;
    msg->flags = flags;
    msg->when = 0;
    return msg;
}

void HalvexMessage::recycle(HalvexMessage* msg) {
    if (msg != nullptr) HalvexMessageManager::getInstance().recycle(msg);
}

void HalvexMessage::emplaceRunnable(HalvexJob&& job) {
    releaseRunnable();
    runnable = new (mRunnableStorage) HalvexRunnable(std::move(job));
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
