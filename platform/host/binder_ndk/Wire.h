// Framing of transactions on a connection (a Unix stream socket).
//
// Every message is a 24-byte header, `dataSize` bytes of parcel data, and
// `fdCount` descriptors carried by SCM_RIGHTS with the first bytes. The
// serving end of a connection asks for credentials (SO_PASSCRED), so the
// kernel attaches the sender's own pid, uid and gid to every request it
// reads; that is where the calling pid and uid come from.
#pragma once

#include <android-base/unique_fd.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/host/binder_ndk/Parcel.h"

namespace zelkor::tessel::binder {

enum class FrameKind : uint16_t {
    kCall = 1,        // code = transaction code, flags = binder_flags_t
    kReply = 2,       // code = binder_status_t; data and fds only when STATUS_OK
    kClone = 3,       // ask for one more connection to the same object
    kCloneReply = 4,  // code = binder_status_t; one fd on success
};

struct FrameHeader {
    uint32_t magic;
    uint16_t version;
    uint16_t kind;
    uint32_t code;
    uint32_t flags;
    uint32_t dataSize;
    uint32_t fdCount;
};
static_assert(sizeof(FrameHeader) == 24, "the header is part of the wire format");

struct Frame {
    FrameHeader header{};
    ByteBuffer data;
    std::vector<android::base::unique_fd> fds;
    std::optional<ucred> sender;  // present on requests
};

enum class IoStatus {
    kOk,
    kNoData,     // nothing arrived before the first-byte deadline
    kClosed,     // the peer hung up between frames
    kBroken,     // the peer hung up or reset the connection mid-frame
    kMalformed,  // bad header, limits exceeded, descriptor count mismatch
    kTimedOut,   // a started frame did not complete in time
};

using Deadline = std::optional<std::chrono::steady_clock::time_point>;

// Waits until `fd` reports one of `events` (or an error, which the next call
// on it reports); false when `deadline` (none: for good) passed first.
bool WaitReady(int fd, short events, Deadline deadline);

// Sends one frame. Waits for buffer space until `deadline` (none: for good).
IoStatus SendFrame(int fd, FrameKind kind, uint32_t code, uint32_t flags, const uint8_t* data,
                   size_t dataSize, const std::vector<android::base::unique_fd>& fds,
                   Deadline deadline);

// Receives one frame: waits for its first byte until `firstByte` (none: for
// good), then gives the rest kFrameCompletionTimeout. The data buffer is
// sized from the checked header but left untouched until bytes arrive, so a
// header that promises more than it sends costs no resident memory.
IoStatus ReceiveFrame(int fd, Frame* frame, Deadline firstByte);

// A connected pair of non-blocking stream sockets; the first end receives
// sender credentials.
bool MakeConnectionPair(android::base::unique_fd* serving, android::base::unique_fd* peer);

// Sets up one end of a connection (MakeConnectionPair does both): every end
// asks for kConnectionSendBuffer, and the serving end asks the kernel for the
// credentials of each request's sender (SO_PASSCRED).
enum class ConnectionEnd { kServing, kCalling };
void SetUpConnectionEnd(int fd, ConnectionEnd end);

// The kernel-checked credentials of the process at the other end of the
// connected socket `fd`; false when the socket has none.
bool PeerCredentials(int fd, ucred* cred);

}  // namespace zelkor::tessel::binder
