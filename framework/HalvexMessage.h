#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

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
    void emplaceRunnable(HalvexJob&& job);

    int what = 0;
    int64_t when = 0;  // uptime ms; 0 is "now", ahead of everything queued
    // Free for senders; the loop never reads them.
    int32_t arg1 = 0;
    int64_t arg2 = 0;
    int64_t arg3 = 0;
    std::string name = "Undef";
    Object* obj = nullptr;                  // owned payload
    HalvexRunnable* runnable = nullptr;     // owned job of a posted message
    std::shared_ptr<Object> sharedPayload;  // shared with the sender
    short flags = FLAG_DEFAULT;
    HalvexHandler* target = nullptr;  // not owned

  private:
    friend class HalvexMessageQueue;
    friend class HalvexMessageManager;
    friend struct HalvexMessageList;

    HalvexMessage() = default;
    // Destroys the owned runnable, in place or on the heap, and clears it.
    void releaseRunnable();

    // Intrusive links: a record is in at most one queue or in the pool, so the
    // lists need no nodes of their own and moving a record allocates nothing.
    HalvexMessage* mPrev = nullptr;
    HalvexMessage* mNext = nullptr;
    alignas(HalvexRunnable) unsigned char mRunnableStorage[sizeof(HalvexRunnable)];
};

// A first-in first-out chain of idle records, linked through the records.
struct HalvexMessageList {
    HalvexMessage* head = nullptr;
    HalvexMessage* tail = nullptr;
    size_t count = 0;

    void pushBack(HalvexMessage* msg);
    HalvexMessage* popFront();
    // Moves up to n records from the front of this list to the back of `to`.
    void moveFront(size_t n, HalvexMessageList& to);
};

// The process-wide pool of idle message records. It has no bound and never
// frees a record while the process runs.
//
// Each thread keeps a few idle records of its own and trades them with the
// shared pool in batches: a looper thread that recycles and a thread that
// posts then meet on the pool's lock once per batch, not once per message.
// Within a thread, records are reused in the order they came back.
class HalvexMessageManager {
  public:
    static HalvexMessageManager& getInstance();

    HalvexMessage* obtain();
    void recycle(HalvexMessage* msg);
    // Idle records in the shared pool and in the calling thread's own cache.
    size_t idleCount();

  private:
    friend struct ThreadMessageCache;
    HalvexMessageManager() = default;
    void giveBack(HalvexMessageList& records, size_t n);

    std::mutex mLock;
    HalvexMessageList mIdle;  // guarded by mLock
};

}  // namespace zelkor::tessel
