#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "framework/HalvexRunnable.h"
#include "framework/Object.h"

namespace zelkor::tessel {

class HalvexHandler;

// One unit of work on a looper. Records are pooled: obtain() takes one from the
// process-wide pool and recycle() gives it back with its payload destroyed.
class HalvexMessage : public Object {
  public:
    // Flags bit that routes a message to its looper's priority queue.
    static constexpr short FLAG_PRIORITY = 4;
    static constexpr short FLAG_DEFAULT = 1;

    static HalvexMessage* obtain(int what) { return obtain(what, nullptr, FLAG_DEFAULT); }
    static HalvexMessage* obtain(int what, Object* obj, short flags);
    static void recycle(HalvexMessage* msg);

    ~HalvexMessage() override;

    // Builds the job's runnable inside this record, so a posted job costs no
    // allocation and no second pool; `runnable` then points into the record.
    void emplaceRunnable(HalvexJob&& job) {
        if (runnable != nullptr) releaseRunnable();
        runnable = new (mRunnableStorage) HalvexRunnable(std::move(job));
    }

    int what = 0;
    int64_t when = 0;  // uptime ms; 0 is "now", ahead of everything queued
    // Free for senders; the loop never reads them.
    int32_t arg1 = 0;
    int64_t arg2 = 0;
    int64_t arg3 = 0;
    std::string name{kDefaultName};
    Object* obj = nullptr;                  // owned payload
    HalvexRunnable* runnable = nullptr;     // owned job of a posted message
    std::shared_ptr<Object> sharedPayload;  // shared with the sender
    short flags = FLAG_DEFAULT;
    HalvexHandler* target = nullptr;  // not owned

  private:
    friend class HalvexMessageQueue;
    friend class HalvexMessageManager;
    friend struct ThreadMessageCache;

    static constexpr std::string_view kDefaultName = "Undef";

    HalvexMessage() = default;
    // Destroys the payload and the job and puts every field but the due time
    // back to its default, ready for the pool.
    void clear();
    // Destroys the owned runnable, in place or on the heap, and clears it.
    void releaseRunnable();

    // Intrusive link: a record is in at most one queue, so the queue needs no
    // nodes of its own and queueing a record allocates nothing.
    HalvexMessage* mNext = nullptr;
    alignas(HalvexRunnable) unsigned char mRunnableStorage[sizeof(HalvexRunnable)];
};

// The process-wide pool of idle message records. It has no bound and never
// frees a record while the process runs.
//
// Each thread keeps a few idle records of its own and trades them with the
// shared pool in batches: a looper thread that recycles and a thread that
// posts then meet on the pool's lock once per batch, not once per message.
// Both reuse the most recently returned record first. Handing out the oldest
// instead would cycle through every record the pool ever grew to, and at a
// few cache lines per record a busy loop would then miss the cache on each
// message.
//
// Idle records are held by pointer, not linked through the records: a batch
// changes hands by copying pointers. Walking a chain of records instead costs
// a cache miss per record once the pool outgrows the cache, one after the
// other, as each link is only known once the record before it has loaded.
class HalvexMessageManager {
  public:
    static HalvexMessageManager& getInstance();

    HalvexMessage* obtain();
    void recycle(HalvexMessage* msg);
    // Idle records in the shared pool and in the calling thread's own cache.
    size_t idleCount();

  private:
    friend class HalvexMessage;
    friend struct ThreadMessageCache;
    HalvexMessageManager() = default;

    // Moves up to n idle records from the shared pool to `to`; returns how many.
    size_t takeIdle(HalvexMessage** to, size_t n);
    void giveBack(HalvexMessage* const* records, size_t n);
    // A record for when the pool has none idle.
    HalvexMessage* create();

    std::mutex mLock;
    // Its capacity never falls below the number of records alive, so giving
    // records back never allocates.
    std::vector<HalvexMessage*> mIdle;  // guarded by mLock
    std::atomic<size_t> mAlive{0};
};

}  // namespace zelkor::tessel
