#include "framework/HalvexMessage.h"

#include <algorithm>

namespace zelkor::tessel {
namespace {

constexpr size_t kThreadCacheMax = 64;  // idle records one thread keeps
constexpr size_t kBatch = 32;           // records traded with the shared pool at once

}  // namespace

// A thread's own idle records, a stack whose top is the last one given back;
// handed back to the shared pool when the thread ends.
struct ThreadMessageCache {
    HalvexMessage* records[kThreadCacheMax + 1];
    size_t count = 0;

    ~ThreadMessageCache() { HalvexMessageManager::getInstance().giveBack(records, count); }

    // The per-message paths: they touch the shared pool, and its lock, only
    // once per batch.
    HalvexMessage* take() {
        if (count == 0) count = HalvexMessageManager::getInstance().takeIdle(records, kBatch);
        if (count == 0) return HalvexMessageManager::getInstance().create();
        return records[--count];
    }
    void put(HalvexMessage* msg) {
        msg->clear();
        records[count++] = msg;
        if (count > kThreadCacheMax) {
            count -= kBatch;
            HalvexMessageManager::getInstance().giveBack(records + count, kBatch);
        }
    }
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
    return tCache.take();
}

void HalvexMessageManager::recycle(HalvexMessage* msg) {
    tCache.put(msg);
}

size_t HalvexMessageManager::takeIdle(HalvexMessage** to, size_t n) {
    std::lock_guard<std::mutex> lock(mLock);
    n = std::min(n, mIdle.size());
    std::copy(mIdle.end() - n, mIdle.end(), to);
    mIdle.resize(mIdle.size() - n);
    return n;
}

void HalvexMessageManager::giveBack(HalvexMessage* const* records, size_t n) {
    if (n == 0) return;
    std::lock_guard<std::mutex> lock(mLock);
    mIdle.insert(mIdle.end(), records, records + n);
}

HalvexMessage* HalvexMessageManager::create() {
    const size_t alive = ++mAlive;
    {
        // Grown here, with the record, rather than when records come back.
        std::lock_guard<std::mutex> lock(mLock);
        if (mIdle.capacity() < alive) mIdle.reserve(2 * alive);
    }
    return new HalvexMessage;
}

size_t HalvexMessageManager::idleCount() {
    std::lock_guard<std::mutex> lock(mLock);
    return mIdle.size() + tCache.count;
}

HalvexMessage* HalvexMessage::obtain(int what, Object* obj, short flags) {
    // A record comes new or recycled, and recycling already cleared the
    // arguments, name, payload and job; only the due time is left to reset.
    HalvexMessage* msg = tCache.take();
    msg->what = what;
    msg->obj = obj;
    msg->flags = flags;
    msg->when = 0;
    return msg;
}

void HalvexMessage::recycle(HalvexMessage* msg) {
    if (msg != nullptr) tCache.put(msg);
}

void HalvexMessage::clear() {
    what = -1;
    arg1 = 0;
    arg2 = 0;
    arg3 = 0;
    // Most records keep the default label: compare before writing, a write of
    // a string costs more than the check.
    if (name != kDefaultName) name = kDefaultName;
    flags = FLAG_DEFAULT;
    target = nullptr;
    if (obj != nullptr) {
        delete obj;
        obj = nullptr;
    }
    if (runnable != nullptr) releaseRunnable();
    // A payload the sender still shares stays with the record until reuse.
    if (sharedPayload && sharedPayload.use_count() == 1) sharedPayload.reset();
}

void HalvexMessage::releaseRunnable() {
    if (runnable == reinterpret_cast<HalvexRunnable*>(mRunnableStorage)) {
        // Built here by emplaceRunnable(), so exactly a HalvexRunnable: no
        // virtual call needed to destroy it.
        runnable->HalvexRunnable::~HalvexRunnable();
    } else {
        delete runnable;
    }
    runnable = nullptr;
}

HalvexMessage::~HalvexMessage() {
    delete obj;
    releaseRunnable();
    --HalvexMessageManager::getInstance().mAlive;
}

}  // namespace zelkor::tessel
