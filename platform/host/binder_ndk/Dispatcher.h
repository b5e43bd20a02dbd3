// The process's binder threads and the connections they serve.
//
// Every served socket (a service's listening socket, or one end of a
// connection to a local object) sits in one epoll set in one-shot mode, so a
// connection is handled by at most one thread at a time and its calls run in
// order, while different connections run in parallel on as many threads as
// the pool has.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/types.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <utility>

#include "platform/host/binder_ndk/Binder.h"

namespace zelkor::tessel::binder {

class Dispatcher {
  public:
    static Dispatcher& Get();

    // Serves calls arriving on the connected socket `fd` for `target`, until
    // the peer hangs up. `peerId` (device and inode of the socket's other end)
    // lets the process recognise that end when it comes back in a parcel.
    void serveConnection(android::base::unique_fd fd, BinderRef target, dev_t peerDev,
                         ino_t peerIno);

    // Accepts connections on the listening socket `fd`, each served for
    // `target`. Returns an id for stopListening.
    uint64_t serveListener(android::base::unique_fd fd, BinderRef target);
    void stopListening(uint64_t id);

    // The local object whose connection has the socket (dev, ino) as its
    // other end, or null.
    BinderRef objectForPeer(dev_t dev, ino_t ino);

    void setMaxThreads(uint32_t count);
    // Starts the pool's first thread; later calls do nothing. Also used when
    // the process first hands out a local object, so that callbacks are
    // served even in programs that never start a pool.
    void startPool();
    bool poolStarted() const;
    // Serves on the calling thread for good.
    [[noreturn]] void joinPool();

    // Polling mode: a descriptor that is readable while work is pending, and
    // a call that does the pending work without blocking.
    int pollFd() const { return mEpoll.get(); }
    void handlePending();

  private:
    struct Entry;

    Dispatcher();
    [[noreturn]] void threadLoop();
    void spawnThread();
    // Waits for one event and handles it; false when interrupted.
    bool runOnce(int timeoutMs);
    void handle(const std::shared_ptr<Entry>& entry);
    void acceptAll(const std::shared_ptr<Entry>& entry);
    // Serves one frame; false when the connection is finished.
    bool serveFrame(const std::shared_ptr<Entry>& entry);
    void add(const std::shared_ptr<Entry>& entry);
    void rearm(const std::shared_ptr<Entry>& entry);
    void remove(const std::shared_ptr<Entry>& entry);

    android::base::unique_fd mEpoll;
    mutable std::mutex mLock;
    std::unordered_map<uint64_t, std::shared_ptr<Entry>> mEntries;
    // Entries whose other end the process handed out, by that end's (dev, ino).
    std::map<std::pair<dev_t, ino_t>, uint64_t> mPeerIndex;
    uint64_t mNextId = 1;
    bool mStarted = false;
    uint32_t mMaxThreads;
    uint32_t mSpawned = 0;
    uint32_t mIdle = 0;
    uint32_t mThreadNumber = 0;
};

}  // namespace zelkor::tessel::binder
