// The bytes of a parcel or a frame: a growable array like std::vector<uint8_t>
// with two differences. Growing leaves the new bytes uninitialised, as they
// are about to be written, and no step of growing or freeing walks the bytes
// one by one (a vector with an uninitialising allocator still runs an empty
// loop per byte, which only an optimising build removes: sanitizer and fuzz
// builds paid for every byte a 32 MiB frame header promised). Large buffers
// are recycled (BufferPool.h) rather than faulted in afresh for every call.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zelkor::tessel::binder {

class ByteBuffer {
  public:
    ByteBuffer() = default;
    ByteBuffer(ByteBuffer&& other) noexcept;
    ByteBuffer& operator=(ByteBuffer&& other) noexcept;
    ByteBuffer(const ByteBuffer&) = delete;
    ByteBuffer& operator=(const ByteBuffer&) = delete;
    ~ByteBuffer();

    uint8_t* data() { return mData; }
    const uint8_t* data() const { return mData; }
    size_t size() const { return mSize; }
    bool empty() const { return mSize == 0; }

    // New bytes past the old size are uninitialised; a smaller size keeps
    // the storage. Throws std::bad_alloc when no memory is left, leaving the
    // buffer as it was.
    void resize(size_t size);
    // Size 0, storage kept.
    void clear() { mSize = 0; }
    // The bytes [first, first + count) (which must not lie inside this buffer).
    void assign(const uint8_t* first, size_t count);

  private:
    void release() noexcept;

    uint8_t* mData = nullptr;
    size_t mSize = 0;
    size_t mCapacity = 0;
};

}  // namespace zelkor::tessel::binder
