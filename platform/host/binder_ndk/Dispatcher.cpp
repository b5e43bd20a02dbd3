// Binder threads: one epoll set, one-shot events, threads added on demand.
#include "platform/host/binder_ndk/Dispatcher.h"

#include <android-base/logging.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <thread>
#include <utility>

#include "platform/host/binder_ndk/CallingContext.h"
#include "platform/host/binder_ndk/Limits.h"
#include "platform/host/binder_ndk/LocalBinder.h"
#include "platform/host/binder_ndk/Parcel.h"
#include "platform/host/binder_ndk/Wire.h"

namespace zelkor::tessel::binder {

using android::base::unique_fd;
using Clock = std::chrono::steady_clock;

struct Dispatcher::Entry {
    uint64_t id = 0;
    unique_fd fd;
    bool listener = false;
    BinderRef target;
    dev_t peerDev = 0;
    ino_t peerIno = 0;
};

namespace {

Deadline ReplyDeadline() {
    return Clock::now() + kFrameCompletionTimeout;
}

// The identity of a request: the credentials it carried, or the socket's
// peer as a fallback.
CallerIdentity CallerOf(const Frame& frame, int fd) {
    if (frame.sender) return {frame.sender->pid, frame.sender->uid};
    ucred cred{};
    if (PeerCredentials(fd, &cred)) return {cred.pid, cred.uid};
    return {0, static_cast<uid_t>(-1)};
}

}  // namespace

Dispatcher& Dispatcher::Get() {
    // Never destroyed: binder threads outlive static destruction.
    static Dispatcher* dispatcher = new Dispatcher();
    return *dispatcher;
}

Dispatcher::Dispatcher() : mEpoll(epoll_create1(EPOLL_CLOEXEC)), mMaxThreads(kDefaultMaxThreads) {
    CHECK(mEpoll.get() >= 0) << "epoll_create1: " << strerror(errno);
}

void Dispatcher::serveConnection(unique_fd fd, BinderRef target, dev_t peerDev, ino_t peerIno) {
    auto entry = std::make_shared<Entry>();
    entry->fd = std::move(fd);
    entry->target = std::move(target);
    entry->peerDev = peerDev;
    entry->peerIno = peerIno;
    add(entry);
}

uint64_t Dispatcher::serveListener(unique_fd fd, BinderRef target) {
    auto entry = std::make_shared<Entry>();
    entry->fd = std::move(fd);
    entry->listener = true;
    entry->target = std::move(target);
    add(entry);
    return entry->id;
}

void Dispatcher::stopListening(uint64_t id) {
    std::shared_ptr<Entry> entry;
    {
        std::lock_guard<std::mutex> lock(mLock);
        auto it = mEntries.find(id);
        if (it == mEntries.end()) return;
        entry = it->second;
    }
    remove(entry);
}

BinderRef Dispatcher::objectForPeer(dev_t dev, ino_t ino) {
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mPeerIndex.find({dev, ino});
    if (it == mPeerIndex.end()) return nullptr;
    auto entry = mEntries.find(it->second);
    return entry != mEntries.end() ? entry->second->target : nullptr;
}

void Dispatcher::add(const std::shared_ptr<Entry>& entry) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        entry->id = mNextId++;
        mEntries[entry->id] = entry;
        if (entry->peerIno != 0) mPeerIndex[{entry->peerDev, entry->peerIno}] = entry->id;
    }
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT;
    event.data.u64 = entry->id;
    if (epoll_ctl(mEpoll.get(), EPOLL_CTL_ADD, entry->fd.get(), &event) != 0) {
        PLOG(ERROR) << "cannot serve binder connection";
        remove(entry);
    }
}

void Dispatcher::rearm(const std::shared_ptr<Entry>& entry) {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP | EPOLLONESHOT;
    event.data.u64 = entry->id;
    epoll_ctl(mEpoll.get(), EPOLL_CTL_MOD, entry->fd.get(), &event);
}

void Dispatcher::remove(const std::shared_ptr<Entry>& entry) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mEntries.erase(entry->id) == 0) return;
        auto peer = mPeerIndex.find({entry->peerDev, entry->peerIno});
        if (peer != mPeerIndex.end() && peer->second == entry->id) mPeerIndex.erase(peer);
    }
    epoll_ctl(mEpoll.get(), EPOLL_CTL_DEL, entry->fd.get(), nullptr);
}

void Dispatcher::setMaxThreads(uint32_t count) {
    std::lock_guard<std::mutex> lock(mLock);
    mMaxThreads = count;
}

void Dispatcher::startPool() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mStarted) return;
        mStarted = true;
    }
    spawnThread();
}

bool Dispatcher::poolStarted() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mStarted;
}

void Dispatcher::joinPool() {
    threadLoop();
}

void Dispatcher::spawnThread() {
    uint32_t number;
    {
        std::lock_guard<std::mutex> lock(mLock);
        number = mThreadNumber++;
    }
    std::thread([this, number] {
        std::string name = "binder:" + std::to_string(getpid()) + "_" + std::to_string(number);
        pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
        threadLoop();
    }).detach();
}

void Dispatcher::threadLoop() {
    for (;;) runOnce(-1);
}

void Dispatcher::handlePending() {
    while (runOnce(0)) {
    }
}

bool Dispatcher::runOnce(int timeoutMs) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        ++mIdle;
    }
    epoll_event event{};
    int n = epoll_wait(mEpoll.get(), &event, 1, timeoutMs);
    std::shared_ptr<Entry> entry;
    bool spawn = false;
    {
        std::lock_guard<std::mutex> lock(mLock);
        --mIdle;
        if (n > 0) {
            auto it = mEntries.find(event.data.u64);
            if (it != mEntries.end()) entry = it->second;
            // Every thread is busy now: add one for the next caller, as the
            // driver does, up to the cap.
            if (mStarted && mIdle == 0 && mSpawned < mMaxThreads) {
                ++mSpawned;
                spawn = true;
            }
        }
    }
    if (spawn) spawnThread();
    if (n <= 0) return false;
    if (entry) handle(entry);
    return true;
}

void Dispatcher::handle(const std::shared_ptr<Entry>& entry) {
    if (entry->listener) {
        acceptAll(entry);
        rearm(entry);
    } else if (serveFrame(entry)) {
        rearm(entry);
    } else {
        remove(entry);
    }
}

void Dispatcher::acceptAll(const std::shared_ptr<Entry>& entry) {
    for (;;) {
        unique_fd connection(
                accept4(entry->fd.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
        if (connection.get() < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno != EAGAIN && errno != EWOULDBLOCK) PLOG(ERROR) << "binder accept";
            return;
        }
        SetUpConnectionEnd(connection.get(), ConnectionEnd::kServing);
        serveConnection(std::move(connection), entry->target, 0, 0);
    }
}

bool Dispatcher::serveFrame(const std::shared_ptr<Entry>& entry) {
    Frame frame;
    IoStatus io = ReceiveFrame(entry->fd.get(), &frame, Clock::now());
    if (io == IoStatus::kNoData) return true;
    if (io == IoStatus::kMalformed || io == IoStatus::kTimedOut) {
        LOG(WARNING) << "dropping binder connection: "
                     << (io == IoStatus::kMalformed ? "malformed frame" : "incomplete frame");
    }
    if (io != IoStatus::kOk) return false;
    LocalBinder* target = entry->target->asLocal();
    const int fd = entry->fd.get();
    switch (static_cast<FrameKind>(frame.header.kind)) {
        case FrameKind::kCall: {
            const bool oneway = (frame.header.flags & FLAG_ONEWAY) != 0;
            CallerIdentity caller = CallerOf(frame, fd);
            // As on a device, one-way calls do not say who sent them.
            if (oneway) caller.pid = 0;
            AParcel in(target);
            in.data = std::move(frame.data);
            in.fds = std::move(frame.fds);
            AParcel out(target);
            binder_status_t status;
            {
                ScopedCaller scope(caller);
                status = target->dispatch(frame.header.code, in, &out);
            }
            if (oneway) return true;
            const bool ok = status == STATUS_OK;
            static const std::vector<unique_fd> kNoFds;
            return SendFrame(fd, FrameKind::kReply, static_cast<uint32_t>(status), 0,
                             ok ? out.data.data() : nullptr, ok ? out.data.size() : 0,
                             ok ? out.fds : kNoFds, ReplyDeadline()) == IoStatus::kOk;
        }
        case FrameKind::kClone: {
            unique_fd serving, peer;
            std::vector<unique_fd> fds;
            binder_status_t status = STATUS_NO_MEMORY;
            struct stat peerStat {};
            if (MakeConnectionPair(&serving, &peer) && fstat(peer.get(), &peerStat) == 0) {
                serveConnection(std::move(serving), entry->target, peerStat.st_dev,
                                peerStat.st_ino);
                fds.push_back(std::move(peer));
                status = STATUS_OK;
            }
            return SendFrame(fd, FrameKind::kCloneReply, static_cast<uint32_t>(status), 0, nullptr,
                             0, fds, ReplyDeadline()) == IoStatus::kOk;
        }
        default:
            LOG(WARNING) << "dropping binder connection: unexpected frame kind";
            return false;
    }
}

}  // namespace zelkor::tessel::binder
