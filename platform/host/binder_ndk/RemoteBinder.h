// A proxy: an object owned by another process, reached over connections.
//
// Each proxy holds one control connection, used to ask the owner for more
// connections (kClone) and watched for the owner's death, plus a pool of idle
// connections for two-way calls (one per concurrently calling thread) and one
// connection for one-way calls, which keeps them in order. Connections never
// carry two calls at once, so frames of concurrent callers cannot interleave.
#pragma once

#include <android-base/unique_fd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/host/binder_ndk/Binder.h"
#include "platform/host/binder_ndk/Parcel.h"
#include "platform/host/binder_ndk/Wire.h"

namespace zelkor::tessel::binder {

struct RecipientState;

class RemoteBinder : public AIBinder {
  public:
    // `key` names the remote object for the process's proxy table ("" for a
    // proxy that must not be shared); `descriptor` is its interface if the
    // sender said so. Without a control connection the proxy is born dead.
    static BinderRef Create(std::string key, android::base::unique_fd control,
                            std::string descriptor);

    RemoteBinder* asRemote() override { return this; }
    bool associateClass(const AIBinder_Class* clazz) override;

    const std::string& key() const { return mKey; }
    bool isAlive() const { return !mDead.load(); }
    // The interface descriptor, asked from the owner the first time.
    binder_status_t descriptor(std::string* descriptor);
    // What the proxy knows about its descriptor without asking ("" if none).
    std::string knownDescriptor() const;

    // Sends a transaction (any code; the public API checks the range) and,
    // unless one-way, waits for the reply into *out.
    binder_status_t transact(transaction_code_t code, const AParcel& in, AParcel* out,
                             binder_flags_t flags);

    // Adds a connection to the remote object to the idle pool.
    void adoptConnection(android::base::unique_fd fd) { returnConnection(std::move(fd)); }

    // A new connection to the remote object, for handing to another process.
    binder_status_t openConnection(android::base::unique_fd* fd);

    // Death notifications.
    binder_status_t linkToDeath(const std::shared_ptr<RecipientState>& recipient, void* cookie);
    binder_status_t unlinkToDeath(const RecipientState* recipient, void* cookie);
    // Ends every link of `recipient`; returns the cookies to report unlinked.
    std::vector<void*> unlinkAll(const RecipientState* recipient);
    // Records the owner's death (once) and notifies the linked recipients.
    void markDead();

  private:
    struct Link {
        std::shared_ptr<RecipientState> recipient;
        void* cookie;
    };

    RemoteBinder(std::string key, android::base::unique_fd control, std::string descriptor);
    ~RemoteBinder() override;

    binder_status_t takeConnection(android::base::unique_fd* fd);
    void returnConnection(android::base::unique_fd fd);
    binder_status_t clone(android::base::unique_fd* fd);
    binder_status_t callOneway(transaction_code_t code, const AParcel& in, binder_flags_t flags);
    // Maps a failed exchange to a status, noting the owner's death.
    binder_status_t failure(IoStatus io);

    const std::string mKey;
    std::atomic<bool> mDead{false};

    std::mutex mControlLock;  // one clone request at a time
    android::base::unique_fd mControl;
    bool mWatched = false;  // guarded by the death-link lock
    uint64_t mWatchId = 0;

    mutable std::mutex mLock;  // idle pool, descriptor
    std::vector<android::base::unique_fd> mIdle;
    std::string mDescriptor;

    std::mutex mOnewayLock;
    android::base::unique_fd mOneway;

    std::vector<Link> mLinks;  // guarded by the death-link lock
};

}  // namespace zelkor::tessel::binder
