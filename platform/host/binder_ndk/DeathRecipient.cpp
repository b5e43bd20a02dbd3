// AIBinder_DeathRecipient_* and the death watcher thread.
#include "platform/host/binder_ndk/DeathRecipient.h"

#include <android-base/logging.h>
#include <pthread.h>
#include <sys/epoll.h>

#include <algorithm>
#include <cstring>
#include <thread>

#include "platform/host/binder_ndk/RemoteBinder.h"

namespace zelkor::tessel::binder {

std::mutex& DeathLinkLock() {
    static auto* lock = new std::mutex();
    return *lock;
}

void ForgetLinkedBinder(RecipientState* recipient, const WeakLink* binder) {
    auto& list = recipient->binders;
    auto it = std::find_if(list.begin(), list.end(),
                           [binder](const auto& link) { return link.get() == binder; });
    if (it != list.end()) list.erase(it);
}

DeathWatcher& DeathWatcher::Get() {
    static DeathWatcher* watcher = new DeathWatcher();
    return *watcher;
}

DeathWatcher::DeathWatcher() : mEpoll(epoll_create1(EPOLL_CLOEXEC)) {
    CHECK(mEpoll.get() >= 0) << "epoll_create1: " << strerror(errno);
    std::thread([this] {
        pthread_setname_np(pthread_self(), "binder:death");
        run();
    }).detach();
}

uint64_t DeathWatcher::watch(int fd, std::shared_ptr<WeakLink> proxy) {
    std::lock_guard<std::mutex> lock(mLock);
    const uint64_t id = mNextId++;
    mWatched[id] = Watched{fd, std::move(proxy)};
    // Only the hang-up matters; replies to clone requests are read by their
    // requester.
    epoll_event event{};
    event.events = EPOLLRDHUP | EPOLLONESHOT;
    event.data.u64 = id;
    if (epoll_ctl(mEpoll.get(), EPOLL_CTL_ADD, fd, &event) != 0) PLOG(ERROR) << "death watch";
    return id;
}

void DeathWatcher::unwatch(uint64_t id) {
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mWatched.find(id);
    if (it == mWatched.end()) return;
    epoll_ctl(mEpoll.get(), EPOLL_CTL_DEL, it->second.fd, nullptr);
    mWatched.erase(it);
}

void DeathWatcher::run() {
    for (;;) {
        epoll_event events[16];
        int n = epoll_wait(mEpoll.get(), events, 16, -1);
        for (int i = 0; i < n; ++i) {
            std::shared_ptr<WeakLink> link;
            {
                std::lock_guard<std::mutex> lock(mLock);
                auto it = mWatched.find(events[i].data.u64);
                if (it == mWatched.end()) continue;
                epoll_ctl(mEpoll.get(), EPOLL_CTL_DEL, it->second.fd, nullptr);
                link = std::move(it->second.proxy);
                mWatched.erase(it);
            }
            BinderRef proxy = Promote(link);
            if (proxy && proxy->asRemote() != nullptr) proxy->asRemote()->markDead();
        }
    }
}

}  // namespace zelkor::tessel::binder

using namespace zelkor::tessel::binder;

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    if (onBinderDied == nullptr) return nullptr;
    return new AIBinder_DeathRecipient{std::make_shared<RecipientState>(onBinderDied)};
}

void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked) {
    if (recipient != nullptr) recipient->state->onUnlinked.store(onUnlinked);
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient == nullptr) return;
    std::vector<std::shared_ptr<WeakLink>> binders;
    {
        std::lock_guard<std::mutex> lock(DeathLinkLock());
        binders = recipient->state->binders;
    }
    for (const auto& link : binders) {
        BinderRef binder = Promote(link);
        if (!binder || binder->asRemote() == nullptr) continue;
        for (void* cookie : binder->asRemote()->unlinkAll(recipient->state.get())) {
            recipient->state->unlinked(cookie);
        }
    }
    delete recipient;
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    RemoteBinder* remote = binder->asRemote();
    if (remote == nullptr) {
        // A local object cannot die while this process runs.
        recipient->state->unlinked(cookie);
        return STATUS_INVALID_OPERATION;
    }
    return remote->linkToDeath(recipient->state, cookie);
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    RemoteBinder* remote = binder->asRemote();
    if (remote == nullptr) return STATUS_NAME_NOT_FOUND;
    return remote->unlinkToDeath(recipient->state.get(), cookie);
}
