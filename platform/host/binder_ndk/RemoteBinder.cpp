// Proxies: connection pool, calls, clone requests, death.
#include "platform/host/binder_ndk/RemoteBinder.h"

#include <android-base/logging.h>

#include "platform/host/binder_ndk/DeathRecipient.h"
#include "platform/host/binder_ndk/ProxyTable.h"
#include "platform/host/binder_ndk/Status.h"
#include "platform/host/binder_ndk/TransactionCodes.h"
#include "platform/host/binder_ndk/Wire.h"

namespace zelkor::tessel::binder {

using android::base::unique_fd;

namespace {

// Idle two-way connections kept per proxy; more are closed after use.
constexpr size_t kMaxIdleConnections = 8;

const std::vector<unique_fd> kNoFds;

}  // namespace

BinderRef RemoteBinder::Create(std::string key, unique_fd control, std::string descriptor) {
    auto* proxy = new RemoteBinder(std::move(key), std::move(control), std::move(descriptor));
    return BinderRef::Adopt(proxy);
}

RemoteBinder::RemoteBinder(std::string key, unique_fd control, std::string descriptor)
    : AIBinder(nullptr),
      mKey(std::move(key)),
      mControl(std::move(control)),
      mDescriptor(std::move(descriptor)) {
    if (mControl.get() < 0) mDead = true;
}

RemoteBinder::~RemoteBinder() {
    std::vector<Link> links;
    {
        std::lock_guard<std::mutex> lock(DeathLinkLock());
        links = std::move(mLinks);
        for (const Link& link : links) ForgetLinkedBinder(link.recipient.get(), weakLink().get());
        if (mWatched) DeathWatcher::Get().unwatch(mWatchId);
    }
    for (const Link& link : links) link.recipient->unlinked(link.cookie);
    ForgetProxy(mKey, weakLink().get());
}

bool RemoteBinder::associateClass(const AIBinder_Class* clazz) {
    if (clazz == nullptr) return false;
    {
        std::lock_guard<std::mutex> lock(mClassLock);
        if (mClass == clazz) return true;
    }
    std::string remoteDescriptor;
    if (descriptor(&remoteDescriptor) != STATUS_OK) return false;
    if (remoteDescriptor != clazz->descriptor) {
        LOG(ERROR) << "binder is a " << remoteDescriptor << ", not a " << clazz->descriptor;
        return false;
    }
    std::lock_guard<std::mutex> lock(mClassLock);
    // The first class associated with a proxy stays its class.
    if (mClass == nullptr) mClass = clazz;
    return true;
}

std::string RemoteBinder::knownDescriptor() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mDescriptor;
}

binder_status_t RemoteBinder::descriptor(std::string* descriptor) {
    *descriptor = knownDescriptor();
    if (!descriptor->empty()) return STATUS_OK;
    AParcel in(this);
    AParcel reply;
    binder_status_t status = transact(kInterfaceTransaction, in, &reply, 0);
    if (status != STATUS_OK) return status;
    bool isNull = false;
    status = ReadString16(&reply, descriptor, &isNull);
    if (status != STATUS_OK) return status;
    std::lock_guard<std::mutex> lock(mLock);
    mDescriptor = *descriptor;
    return STATUS_OK;
}

binder_status_t RemoteBinder::transact(transaction_code_t code, const AParcel& in, AParcel* out,
                                       binder_flags_t flags) {
    if (!isAlive()) return STATUS_DEAD_OBJECT;
    if ((flags & FLAG_ONEWAY) != 0) return callOneway(code, in, flags);
    unique_fd connection;
    binder_status_t status = takeConnection(&connection);
    if (status != STATUS_OK) return status;
    IoStatus io = SendFrame(connection.get(), FrameKind::kCall, code, flags, in.data.data(),
                            in.data.size(), in.fds, std::nullopt);
    if (io != IoStatus::kOk) return failure(io);
    Frame reply;
    io = ReceiveFrame(connection.get(), &reply, std::nullopt);
    if (io == IoStatus::kOk && reply.header.kind != static_cast<uint16_t>(FrameKind::kReply)) {
        io = IoStatus::kMalformed;
    }
    if (io != IoStatus::kOk) return failure(io);
    returnConnection(std::move(connection));
    status = PruneStatus(static_cast<int32_t>(reply.header.code));
    if (status == STATUS_OK) {
        out->data = std::move(reply.data);
        out->fds = std::move(reply.fds);
        out->position = 0;
    }
    return status;
}

binder_status_t RemoteBinder::callOneway(transaction_code_t code, const AParcel& in,
                                         binder_flags_t flags) {
    std::lock_guard<std::mutex> lock(mOnewayLock);
    if (mOneway.get() < 0) {
        binder_status_t status = clone(&mOneway);
        if (status != STATUS_OK) return status;
    }
    IoStatus io = SendFrame(mOneway.get(), FrameKind::kCall, code, flags, in.data.data(),
                            in.data.size(), in.fds, std::nullopt);
    if (io == IoStatus::kOk) return STATUS_OK;
    mOneway.reset();
    return failure(io);
}

binder_status_t RemoteBinder::openConnection(unique_fd* fd) {
    if (!isAlive()) return STATUS_DEAD_OBJECT;
    return clone(fd);
}

binder_status_t RemoteBinder::takeConnection(unique_fd* fd) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (!mIdle.empty()) {
            *fd = std::move(mIdle.back());
            mIdle.pop_back();
            return STATUS_OK;
        }
    }
    return clone(fd);
}

void RemoteBinder::returnConnection(unique_fd fd) {
    std::lock_guard<std::mutex> lock(mLock);
    if (isAlive() && mIdle.size() < kMaxIdleConnections) mIdle.push_back(std::move(fd));
}

binder_status_t RemoteBinder::clone(unique_fd* fd) {
    IoStatus io;
    Frame reply;
    {
        std::lock_guard<std::mutex> lock(mControlLock);
        if (mControl.get() < 0) return STATUS_DEAD_OBJECT;
        io = SendFrame(mControl.get(), FrameKind::kClone, 0, 0, nullptr, 0, kNoFds, std::nullopt);
        if (io == IoStatus::kOk) io = ReceiveFrame(mControl.get(), &reply, std::nullopt);
    }
    if (io == IoStatus::kOk && reply.header.kind != static_cast<uint16_t>(FrameKind::kCloneReply)) {
        io = IoStatus::kMalformed;
    }
    // Death callbacks may call back into this proxy: report failures only
    // after the control lock is released.
    if (io != IoStatus::kOk) return failure(io);
    binder_status_t status = PruneStatus(static_cast<int32_t>(reply.header.code));
    if (status != STATUS_OK) return status;
    if (reply.fds.size() != 1) return STATUS_FAILED_TRANSACTION;
    *fd = std::move(reply.fds[0]);
    return STATUS_OK;
}

binder_status_t RemoteBinder::failure(IoStatus io) {
    switch (io) {
        case IoStatus::kClosed:
        case IoStatus::kBroken:
            markDead();
            return STATUS_DEAD_OBJECT;
        case IoStatus::kTimedOut:
            return STATUS_TIMED_OUT;
        default:
            LOG(ERROR) << "malformed reply from binder " << mKey;
            return STATUS_FAILED_TRANSACTION;
    }
}

binder_status_t RemoteBinder::linkToDeath(const std::shared_ptr<RecipientState>& recipient,
                                          void* cookie) {
    {
        std::lock_guard<std::mutex> lock(DeathLinkLock());
        if (isAlive()) {
            mLinks.push_back({recipient, cookie});
            recipient->binders.push_back(weakLink());
            if (!mWatched) {
                mWatched = true;
                mWatchId = DeathWatcher::Get().watch(mControl.get(), weakLink());
            }
            return STATUS_OK;
        }
    }
    recipient->unlinked(cookie);
    return STATUS_DEAD_OBJECT;
}

binder_status_t RemoteBinder::unlinkToDeath(const RecipientState* recipient, void* cookie) {
    std::shared_ptr<RecipientState> found;
    {
        std::lock_guard<std::mutex> lock(DeathLinkLock());
        for (auto it = mLinks.begin(); it != mLinks.end(); ++it) {
            if (it->recipient.get() == recipient && it->cookie == cookie) {
                found = it->recipient;
                ForgetLinkedBinder(found.get(), weakLink().get());
                mLinks.erase(it);
                break;
            }
        }
    }
    if (!found) return STATUS_NAME_NOT_FOUND;
    found->unlinked(cookie);
    return STATUS_OK;
}

std::vector<void*> RemoteBinder::unlinkAll(const RecipientState* recipient) {
    std::vector<void*> cookies;
    std::lock_guard<std::mutex> lock(DeathLinkLock());
    for (auto it = mLinks.begin(); it != mLinks.end();) {
        if (it->recipient.get() == recipient) {
            cookies.push_back(it->cookie);
            ForgetLinkedBinder(it->recipient.get(), weakLink().get());
            it = mLinks.erase(it);
        } else {
            ++it;
        }
    }
    return cookies;
}

void RemoteBinder::markDead() {
    if (mDead.exchange(true)) return;
    std::vector<Link> links;
    {
        std::lock_guard<std::mutex> lock(DeathLinkLock());
        links = std::move(mLinks);
        mLinks.clear();
        for (const Link& link : links) ForgetLinkedBinder(link.recipient.get(), weakLink().get());
    }
    {
        std::lock_guard<std::mutex> lock(mLock);
        mIdle.clear();
    }
    for (const Link& link : links) {
        link.recipient->onDied(link.cookie);
        link.recipient->unlinked(link.cookie);
    }
}

}  // namespace zelkor::tessel::binder
