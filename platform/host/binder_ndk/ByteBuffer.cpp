#include "platform/host/binder_ndk/ByteBuffer.h"

#include <algorithm>
#include <utility>

#include "platform/host/binder_ndk/BufferPool.h"
#include "platform/host/binder_ndk/BulkCopy.h"

namespace zelkor::tessel::binder {

ByteBuffer::ByteBuffer(ByteBuffer&& other) noexcept
    : mData(std::exchange(other.mData, nullptr)),
      mSize(std::exchange(other.mSize, 0)),
      mCapacity(std::exchange(other.mCapacity, 0)) {}

ByteBuffer& ByteBuffer::operator=(ByteBuffer&& other) noexcept {
    if (this != &other) {
        release();
        mData = std::exchange(other.mData, nullptr);
        mSize = std::exchange(other.mSize, 0);
        mCapacity = std::exchange(other.mCapacity, 0);
    }
    return *this;
}

ByteBuffer::~ByteBuffer() {
    release();
}

void ByteBuffer::release() noexcept {
    if (mData != nullptr) FreeBuffer(mData, mCapacity);
    mData = nullptr;
    mSize = 0;
    mCapacity = 0;
}

void ByteBuffer::resize(size_t size) {
    if (size > mCapacity) {
        // Doubling keeps a parcel written item by item at a copy per byte on
        // average, as a vector does.
        const size_t capacity = std::max(size, mCapacity > SIZE_MAX / 2 ? size : mCapacity * 2);
        auto* grown = static_cast<uint8_t*>(AllocateBuffer(capacity));
        CopyBytes(grown, mData, mSize);
        if (mData != nullptr) FreeBuffer(mData, mCapacity);
        mData = grown;
        mCapacity = capacity;
    }
    mSize = size;
}

void ByteBuffer::assign(const uint8_t* first, size_t count) {
    mSize = 0;
    resize(count);
    CopyBytes(mData, first, count);
}

}  // namespace zelkor::tessel::binder
