// Frame I/O over non-blocking Unix stream sockets.
#include "platform/host/binder_ndk/Wire.h"

#include <errno.h>
#include <poll.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

#include "platform/host/binder_ndk/Limits.h"

namespace zelkor::tessel::binder {
namespace {

using Clock = std::chrono::steady_clock;
using android::base::unique_fd;

constexpr uint32_t kMagic = 0x444e4254;  // "TBND" in memory order
constexpr uint16_t kVersion = 1;

constexpr size_t kControlBytes =
        CMSG_SPACE(sizeof(int) * kMaxParcelFds) + CMSG_SPACE(sizeof(ucred));

// Takes the descriptors and credentials out of a received message.
bool CollectControl(msghdr* msg, Frame* frame) {
    for (cmsghdr* c = CMSG_FIRSTHDR(msg); c != nullptr; c = CMSG_NXTHDR(msg, c)) {
        if (c->cmsg_level != SOL_SOCKET) continue;
        if (c->cmsg_type == SCM_RIGHTS) {
            const size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
            for (size_t i = 0; i < count; ++i) {
                int fd;
                memcpy(&fd, CMSG_DATA(c) + i * sizeof(int), sizeof(int));
                frame->fds.emplace_back(fd);
            }
        } else if (c->cmsg_type == SCM_CREDENTIALS && c->cmsg_len >= CMSG_LEN(sizeof(ucred))) {
            ucred cred;
            memcpy(&cred, CMSG_DATA(c), sizeof(cred));
            frame->sender = cred;
        }
    }
    return (msg->msg_flags & MSG_CTRUNC) == 0 && frame->fds.size() <= kMaxParcelFds;
}

// Reads exactly `size` bytes into `into`. `started` says whether bytes of
// this frame were already read (then a hang-up is a broken frame).
IoStatus ReadExactly(int fd, uint8_t* into, size_t size, Frame* frame, bool started,
                     Deadline firstByte, Clock::time_point* completeBy) {
    size_t got = 0;
    alignas(cmsghdr) uint8_t control[kControlBytes];
    while (got < size) {
        iovec iov{into + got, size - got};
        msghdr msg{};
        msg.msg_iov = &iov;
        msg.msg_iovlen = 1;
        msg.msg_control = control;
        msg.msg_controllen = sizeof(control);
        ssize_t n = recvmsg(fd, &msg, MSG_CMSG_CLOEXEC);
        if (n > 0) {
            if (!started) *completeBy = Clock::now() + kFrameCompletionTimeout;
            started = true;
            got += static_cast<size_t>(n);
            if (!CollectControl(&msg, frame)) return IoStatus::kMalformed;
            continue;
        }
        if (n == 0) return started ? IoStatus::kBroken : IoStatus::kClosed;
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            return started ? IoStatus::kBroken : IoStatus::kClosed;
        }
        if (!WaitReady(fd, POLLIN, started ? Deadline(*completeBy) : firstByte)) {
            return started ? IoStatus::kTimedOut : IoStatus::kNoData;
        }
    }
    return IoStatus::kOk;
}

bool ValidHeader(const FrameHeader& h) {
    return h.magic == kMagic && h.version == kVersion && h.kind >= 1 && h.kind <= 4 &&
           h.dataSize <= kMaxParcelBytes && h.fdCount <= kMaxParcelFds;
}

}  // namespace

bool WaitReady(int fd, short events, Deadline deadline) {
    for (;;) {
        int timeoutMs = -1;
        if (deadline) {
            auto left =
                    std::chrono::duration_cast<std::chrono::milliseconds>(*deadline - Clock::now());
            if (left.count() <= 0) return false;
            timeoutMs = static_cast<int>(std::min<int64_t>(left.count() + 1, 60 * 60 * 1000));
        }
        pollfd p{fd, events, 0};
        int n = poll(&p, 1, timeoutMs);
        if (n > 0) return true;
        if (n < 0 && errno != EINTR) return true;
    }
}

IoStatus SendFrame(int fd, FrameKind kind, uint32_t code, uint32_t flags, const uint8_t* data,
                   size_t dataSize, const std::vector<unique_fd>& fds, Deadline deadline) {
    if (dataSize > kMaxParcelBytes || fds.size() > kMaxParcelFds) return IoStatus::kMalformed;
    FrameHeader header{kMagic,
                       kVersion,
                       static_cast<uint16_t>(kind),
                       code,
                       flags,
                       static_cast<uint32_t>(dataSize),
                       static_cast<uint32_t>(fds.size())};
    const size_t total = sizeof(header) + dataSize;
    size_t sent = 0;
    bool controlSent = false;
    alignas(cmsghdr) uint8_t control[kControlBytes];
    while (sent < total) {
        iovec iov[2];
        int iovCount = 0;
        if (sent < sizeof(header)) {
            iov[iovCount++] = {reinterpret_cast<uint8_t*>(&header) + sent, sizeof(header) - sent};
            if (dataSize > 0) iov[iovCount++] = {const_cast<uint8_t*>(data), dataSize};
        } else {
            const size_t offset = sent - sizeof(header);
            iov[iovCount++] = {const_cast<uint8_t*>(data) + offset, dataSize - offset};
        }
        msghdr msg{};
        msg.msg_iov = iov;
        msg.msg_iovlen = static_cast<size_t>(iovCount);
        if (!controlSent && !fds.empty()) {
            const size_t used = CMSG_SPACE(sizeof(int) * fds.size());
            memset(control, 0, used);
            msg.msg_control = control;
            msg.msg_controllen = used;
            cmsghdr* c = CMSG_FIRSTHDR(&msg);
            c->cmsg_level = SOL_SOCKET;
            c->cmsg_type = SCM_RIGHTS;
            c->cmsg_len = CMSG_LEN(sizeof(int) * fds.size());
            for (size_t i = 0; i < fds.size(); ++i) {
                int raw = fds[i].get();
                memcpy(CMSG_DATA(c) + i * sizeof(int), &raw, sizeof(int));
            }
        }
        ssize_t n = sendmsg(fd, &msg, MSG_NOSIGNAL);
        if (n >= 0) {
            controlSent = true;
            sent += static_cast<size_t>(n);
            continue;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) return IoStatus::kBroken;
        if (!WaitReady(fd, POLLOUT, deadline)) return IoStatus::kTimedOut;
    }
    return IoStatus::kOk;
}

IoStatus ReceiveFrame(int fd, Frame* frame, Deadline firstByte) {
    *frame = Frame();
    Clock::time_point completeBy{};
    IoStatus status = ReadExactly(fd, reinterpret_cast<uint8_t*>(&frame->header),
                                  sizeof(frame->header), frame, false, firstByte, &completeBy);
    if (status != IoStatus::kOk) return status;
    const FrameHeader& header = frame->header;
    if (!ValidHeader(header)) return IoStatus::kMalformed;
    frame->data.resize(header.dataSize);
    status = ReadExactly(fd, frame->data.data(), header.dataSize, frame, true, firstByte,
                         &completeBy);
    if (status != IoStatus::kOk) return status;
    return frame->fds.size() == header.fdCount ? IoStatus::kOk : IoStatus::kMalformed;
}

bool PeerCredentials(int fd, ucred* cred) {
    socklen_t length = sizeof(*cred);
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, cred, &length) == 0;
}

bool MakeConnectionPair(unique_fd* serving, unique_fd* peer) {
    int sv[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, sv) != 0) return false;
    serving->reset(sv[0]);
    peer->reset(sv[1]);
    SetUpConnectionEnd(serving->get(), ConnectionEnd::kServing);
    SetUpConnectionEnd(peer->get(), ConnectionEnd::kCalling);
    return true;
}

void SetUpConnectionEnd(int fd, ConnectionEnd end) {
    if (end == ConnectionEnd::kServing) {
        int one = 1;
        setsockopt(fd, SOL_SOCKET, SO_PASSCRED, &one, sizeof(one));
    }
    // The kernel caps the value at net.core.wmem_max without an error; a
    // host with a low cap keeps working, only with more wake-ups per frame.
    int bytes = static_cast<int>(kConnectionSendBuffer);
    setsockopt(fd, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof(bytes));
}

}  // namespace zelkor::tessel::binder
