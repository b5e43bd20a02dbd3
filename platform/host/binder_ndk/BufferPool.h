// Recycles the large data buffers of parcels and frames.
//
// A transaction with a large payload allocates buffers of about the same size
// on both sides for every call (the parcel written, the frame read). Fresh
// large allocations are fresh pages: each call would fault in and zero the
// whole payload again, which costs more than copying it. Large buffers are
// therefore kept when freed and handed out again for a request of the same
// rounded size, up to a bounded number of bytes held in reserve.
#pragma once

#include <cstddef>

namespace zelkor::tessel::binder {

// Buffers below this size come from and go to malloc directly.
constexpr size_t kPooledBufferMin = size_t{64} << 10;

// `size` bytes (uninitialised); throws std::bad_alloc when none are left.
void* AllocateBuffer(size_t size);
// Gives back a buffer from AllocateBuffer of the same `size`.
void FreeBuffer(void* buffer, size_t size) noexcept;

}  // namespace zelkor::tessel::binder
