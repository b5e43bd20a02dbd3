#include "platform/host/binder_ndk/BufferPool.h"

#include <cstdlib>
#include <mutex>
#include <new>

#include "platform/host/binder_ndk/Limits.h"

namespace zelkor::tessel::binder {
namespace {

// Pooled sizes are rounded up to this, so that a payload of the same size
// finds the buffer of the last call whatever small header came with it.
constexpr size_t kGranule = size_t{64} << 10;
// What stays reserved at most: the two buffers of a round trip of the
// largest parcels (the call written and the reply read, or the call read and
// the reply written).
constexpr size_t kMaxReservedBytes = 2 * (kMaxParcelBytes + kGranule);
constexpr size_t kMaxReservedBuffers = 8;

size_t Rounded(size_t size) {
    return (size + kGranule - 1) / kGranule * kGranule;
}

struct Reserve {
    std::mutex lock;
    struct Entry {
        void* buffer;
        size_t size;
    } entries[kMaxReservedBuffers];
    size_t count = 0;
    size_t bytes = 0;
};

Reserve& TheReserve() {
    static Reserve* reserve = new Reserve;  // outlives every static parcel
    return *reserve;
}

}  // namespace

void* AllocateBuffer(size_t size) {
    if (size < kPooledBufferMin) {
        if (void* buffer = malloc(size == 0 ? 1 : size)) return buffer;
        throw std::bad_alloc();
    }
    const size_t rounded = Rounded(size);
    {
        Reserve& reserve = TheReserve();
        std::lock_guard<std::mutex> guard(reserve.lock);
        for (size_t i = reserve.count; i-- > 0;) {
            if (reserve.entries[i].size != rounded) continue;
            void* buffer = reserve.entries[i].buffer;
            reserve.entries[i] = reserve.entries[--reserve.count];
            reserve.bytes -= rounded;
            return buffer;
        }
    }
    if (void* buffer = malloc(rounded)) return buffer;
    throw std::bad_alloc();
}

void FreeBuffer(void* buffer, size_t size) noexcept {
    if (buffer == nullptr) return;
    if (size >= kPooledBufferMin) {
        const size_t rounded = Rounded(size);
        Reserve& reserve = TheReserve();
        std::lock_guard<std::mutex> guard(reserve.lock);
        if (rounded <= kMaxReservedBytes) {
            // Make room by dropping the oldest entries: recent sizes are the
            // ones the next calls are likely to ask for, and buffers of sizes
            // no longer asked for must not keep the new ones out.
            size_t dropped = 0;
            while (reserve.count - dropped == kMaxReservedBuffers ||
                   reserve.bytes + rounded > kMaxReservedBytes) {
                free(reserve.entries[dropped].buffer);
                reserve.bytes -= reserve.entries[dropped].size;
                ++dropped;
            }
            for (size_t i = dropped; i < reserve.count; ++i) {
                reserve.entries[i - dropped] = reserve.entries[i];
            }
            reserve.count -= dropped;
            reserve.entries[reserve.count++] = {buffer, rounded};
            reserve.bytes += rounded;
            return;
        }
    }
    free(buffer);
}

}  // namespace zelkor::tessel::binder
