#pragma once

#include <cstdint>
#include <functional>

#include "framework/HalvexJob.h"
#include "framework/HalvexLooper.h"
#include "framework/HalvexMessage.h"
#include "framework/Object.h"

namespace zelkor::tessel {

// Sends messages and jobs to one looper. The handler must outlive the messages
// it sent: the looper dispatches them back to it.
class HalvexHandler : public Object {
  public:
    using Callback = std::function<void(HalvexMessage*)>;

    explicit HalvexHandler(HalvexLooper* looper, Callback callback = nullptr)
        : mLooper(looper), mCallback(std::move(callback)) {}

    // Sends msg (taking ownership) to run as soon as possible.
    void sendMessage(HalvexMessage* msg);
    // Runs job once on the looper's thread, as soon as possible.
    void post(HalvexJob&& job);
    // Runs job once after delayMs; the returned message may be passed to
    // removeMessage() while it is still queued.
    HalvexMessage* postDelayed(HalvexJob&& job, long delayMs);
    // A pooled message (what 0) whose runnable runs job.
    HalvexMessage* getPostMessage(HalvexJob&& job);

    void removeMessage(HalvexMessage* msg, bool keep);
    bool hasMessages(int what);
    bool hasMessage(HalvexMessage* msg);

    // Hands msg to the callback unless it carries a job of its own.
    virtual void dispatchMessage(HalvexMessage* msg);
    HalvexLooper* getLooper() const { return mLooper; }

  private:
    void _enqueueMessage(HalvexMessage* msg);

    HalvexLooper* mLooper;
    Callback mCallback;
};

}  // namespace zelkor::tessel
