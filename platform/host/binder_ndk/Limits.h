// Bounds the host binder runtime enforces on everything it reads from a peer.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace zelkor::tessel::binder {

// Data bytes of one parcel, in either direction. A device's binder buffer is
// 1 MiB per process; the host allows more so that bulk transfers through byte
// arrays are not the limit, and still refuses anything a buggy or hostile
// peer could use to make the receiver allocate without bound. A String
// travels as UTF-16: this is room for one of 16 MiB and its call's header.
constexpr size_t kMaxParcelBytes = (size_t{32} << 20) + (size_t{64} << 10);

// File descriptors in one parcel. All of a frame's descriptors travel in one
// SCM_RIGHTS message, whose kernel limit (SCM_MAX_FD) this is.
constexpr size_t kMaxParcelFds = 253;

// Send buffer asked for on every connection. With the kernel's default
// (about 200 KiB) a frame of a few MiB is sent in many rounds, each one a
// sleep of the sender and a wake-up of both sides; a larger buffer lets the
// whole frame be queued at once. It is a limit, not an allocation: memory is
// taken only for bytes in flight.
constexpr size_t kConnectionSendBuffer = size_t{4} << 20;

// Length of the identity key and interface descriptor in a binder record.
constexpr size_t kMaxBinderTextBytes = 1024;

// Once the first byte of a frame has arrived, the rest must follow within
// this time, or the connection is dropped: a peer that stalls mid-frame must
// not tie up a binder thread for good.
constexpr std::chrono::milliseconds kFrameCompletionTimeout{10000};

// How long AServiceManager_getService waits, as on a device.
constexpr std::chrono::milliseconds kGetServiceTimeout{5000};

// Threads started on demand after ABinderProcess_startThreadPool, unless set.
constexpr uint32_t kDefaultMaxThreads = 15;

}  // namespace zelkor::tessel::binder
