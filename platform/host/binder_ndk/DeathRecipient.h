// Death recipients and the thread that notices a proxy's owner has died.
#pragma once

#include <android-base/unique_fd.h>
#include <android/binder_ibinder.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "platform/host/binder_ndk/Binder.h"

namespace zelkor::tessel::binder {

struct RecipientState {
    explicit RecipientState(AIBinder_DeathRecipient_onBinderDied died) : onDied(died) {}

    const AIBinder_DeathRecipient_onBinderDied onDied;
    std::atomic<AIBinder_DeathRecipient_onBinderUnlinked> onUnlinked{nullptr};
    // One entry per link, guarded by DeathLinkLock().
    std::vector<std::shared_ptr<WeakLink>> binders;

    void unlinked(void* cookie) const {
        if (AIBinder_DeathRecipient_onBinderUnlinked callback = onUnlinked.load()) callback(cookie);
    }
};

// Guards every proxy's links and every recipient's binder list. Never held
// while a callback runs.
std::mutex& DeathLinkLock();

// Removes one entry for `binder` from a recipient's list (lock held).
void ForgetLinkedBinder(RecipientState* recipient, const WeakLink* binder);

// Watches proxies' control connections for the owner hanging up.
class DeathWatcher {
  public:
    static DeathWatcher& Get();
    // Returns an id for unwatch.
    uint64_t watch(int fd, std::shared_ptr<WeakLink> proxy);
    void unwatch(uint64_t id);

  private:
    DeathWatcher();
    [[noreturn]] void run();

    struct Watched {
        int fd;
        std::shared_ptr<WeakLink> proxy;
    };

    android::base::unique_fd mEpoll;
    // Descriptors leave the epoll set under this lock, so one is never
    // closed (and its number reused) while still registered.
    std::mutex mLock;
    std::unordered_map<uint64_t, Watched> mWatched;
    uint64_t mNextId = 1;
};

}  // namespace zelkor::tessel::binder

struct AIBinder_DeathRecipient {
    std::shared_ptr<zelkor::tessel::binder::RecipientState> state;
};
