#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "framework/HalvexLooper.h"
#include "framework/Object.h"

namespace zelkor::tessel {

// A named thread running a looper of its own until it is told to quit. It must
// be destroyed from another thread, which joins it.
class HalvexHandlerThread : public Object {
  public:
    static HalvexHandlerThread* create(std::string name);

    explicit HalvexHandlerThread(std::string name);
    ~HalvexHandlerThread() override;
    HalvexHandlerThread(const HalvexHandlerThread&) = delete;
    HalvexHandlerThread& operator=(const HalvexHandlerThread&) = delete;

    // Waits until the thread's looper exists; null once the thread has exited.
    HalvexLooper* getLooper();
    // True when this call asked the looper to quit.
    bool quit() { return requestQuit(false); }
    bool quitSafely() { return requestQuit(true); }

    const std::string& getName() const { return mName; }
    bool hasExited() const { return mExited.load(); }

  private:
    void run();
    bool requestQuit(bool safely);

    const std::string mName;
    std::mutex mLock;
    std::condition_variable mCond;
    HalvexLooper* mLooper = nullptr;  // guarded by mLock
    std::atomic<bool> mQuitRequested{false};
    std::atomic<bool> mExited{false};
    std::thread mThread;  // last: started once everything above is ready
};

}  // namespace zelkor::tessel
