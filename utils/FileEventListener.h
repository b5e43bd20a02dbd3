// Watches folders with inotify and reports every event to a virtual callback
// on a thread of its own. Subclasses (the log manager's listener) override
// OnFileEvent. Paths are device paths: they are watched under the host root
// and reported to the callback as they were given.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace zelkor::tessel {

class HalvexHandler;
class HalvexHandlerThread;

class FileEventListener {
  public:
    // The read loop starts at once; it delivers events once the object is
    // whole: at the end of this constructor, or, when `deliverNow` is false,
    // when the subclass's constructor calls startListening().
    FileEventListener(std::string name, const std::vector<std::string>& paths, uint32_t mask,
                      bool deliverNow = true);
    virtual ~FileEventListener();
    FileEventListener(const FileEventListener&) = delete;
    FileEventListener& operator=(const FileEventListener&) = delete;

    // Runs on the listener's thread, once per event, in the kernel's order.
    // `name` is the entry's name when the event carries one.
    virtual void OnFileEvent(uint32_t mask, std::optional<std::string> name,
                             const std::string& watchedPath);

    // Runs on the listener's thread when the kernel's event queue overflowed:
    // events were lost, for any watched folder.
    virtual void OnQueueOverflow() {}

    // 0, -9 without an inotify descriptor, -114 when `path` is already
    // watched, or the errno of inotify_add_watch.
    int addWatching(std::string path, unsigned mask);
    bool removeWatching(std::string path);
    bool removeWatching(int wd);
    bool isWatching(const std::string& path);

    static void listenLoop(FileEventListener* listener);

  protected:
    // Lets the loop deliver events. A subclass whose OnFileEvent reads its own
    // members builds the base with `deliverNow` false and calls this last in
    // its constructor, so no callback meets a half-built object.
    void startListening();
    // Ends the read loop and waits for its thread's task to finish. A subclass
    // whose OnFileEvent reads its own members calls this first in its
    // destructor, so that no callback runs while those members go away. Safe to
    // call more than once.
    void stopListening();

  private:
    bool descriptorValid() const { return mFd.load() >= 0; }
    std::optional<std::string> watchedPathOf(int wd);
    // One read's worth of events; false when the loop must end.
    bool deliver(const char* buf, size_t len);

    const std::string mName;
    std::atomic<int> mFd{-1};
    // Wakes the loop out of its wait when the descriptor is being closed:
    // closing an inotify descriptor does not end a read already waiting on it.
    int mWakeFd = -1;
    std::mutex mWatchesLock;  // the loop reads the map while the owner changes it
    std::unordered_map<std::string, int> mWatches;
    std::unique_ptr<HalvexHandlerThread> mThread;
    std::unique_ptr<HalvexHandler> mHandler;
    std::mutex mStopLock;
    bool mLoopRunning = false;  // guarded by mStopLock
    bool mStopped = false;      // guarded by mStopLock
    bool mDelivering = false;   // guarded by mStopLock
    std::condition_variable mStateChanged;
};

}  // namespace zelkor::tessel
