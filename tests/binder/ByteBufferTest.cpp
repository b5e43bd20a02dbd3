// Parcel and frame storage: large buffers are recycled rather than given back
// to the kernel, and bytes are copied exactly at every alignment. Moved buffers
// hand over their bytes and are usable again; that growing keeps the bytes
// is seen through every parcel round trip.
#include "platform/host/binder_ndk/ByteBuffer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "platform/host/binder_ndk/BufferPool.h"
#include "platform/host/binder_ndk/BulkCopy.h"

namespace zelkor::tessel::binder {
namespace {

bool Holds(const ByteBuffer& buffer, const std::vector<uint8_t>& bytes) {
    return buffer.size() == bytes.size() &&
           (bytes.empty() || memcmp(buffer.data(), bytes.data(), bytes.size()) == 0);
}

ByteBuffer Sized(size_t size) {
    ByteBuffer buffer;
    buffer.resize(size);
    return buffer;
}

TEST(ByteBufferTest, AssignAndMoveHandOverTheBytes) {
    std::vector<uint8_t> bytes(2 * kPooledBufferMin + 3);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    ByteBuffer first = Sized(5);
    first.assign(bytes.data(), bytes.size());
    ASSERT_TRUE(Holds(first, bytes));

    ByteBuffer second(std::move(first));
    EXPECT_TRUE(Holds(second, bytes));
    EXPECT_TRUE(first.empty());
    EXPECT_EQ(first.data(), nullptr);

    ByteBuffer third;
    third.assign(bytes.data(), 9);
    third = std::move(second);
    EXPECT_TRUE(Holds(third, bytes));
    EXPECT_TRUE(second.empty());
    // Moved-from buffers are empty and usable again, down to a single byte,
    // which growing keeps.
    for (ByteBuffer* moved : {&first, &second}) {
        moved->resize(1);
        moved->data()[0] = 9;
        EXPECT_TRUE(Holds(*moved, {9}));
        moved->resize(kPooledBufferMin);
        EXPECT_EQ(moved->data()[0], 9);
    }
    third.assign(nullptr, 0);
    EXPECT_TRUE(third.empty());
}

TEST(ByteBufferTest, LargeStorageLetGoIsHandedOutAgain) {
    // Given back when a buffer grows past it and when a buffer goes.
    const size_t large = 16 * kPooledBufferMin;
    ByteBuffer grown = Sized(large);
    const uint8_t* first = grown.data();
    grown.resize(3 * large);
    ByteBuffer next = Sized(large);
    EXPECT_EQ(next.data(), first);
    const uint8_t* second = Sized(2 * large).data();
    EXPECT_EQ(Sized(2 * large).data(), second);
}

TEST(ByteBufferTest, ReserveFullOfAnOldSizeStillKeepsANewOne) {
    // Buffers of a size no longer asked for fill the reserve's bytes.
    const size_t old = size_t{16} << 20;
    std::vector<void*> olds;
    for (int i = 0; i < 4; ++i) olds.push_back(AllocateBuffer(old));
    for (void* buffer : olds) FreeBuffer(buffer, old);
    const size_t size = size_t{32} << 20;
    void* given = AllocateBuffer(size);
    const char kMark[] = "kept by the reserve";
    memcpy(given, kMark, sizeof(kMark));
    FreeBuffer(given, size);
    // A reserve that let it go would see this malloc take its place, or the
    // next one get it back from the kernel, wiped.
    void* taken = malloc(size);
    void* again = AllocateBuffer(size);
    EXPECT_EQ(again, given);
    EXPECT_EQ(memcmp(again, kMark, sizeof(kMark)), 0);
    FreeBuffer(again, size);
    free(taken);
}

TEST(BulkCopyTest, EveryDistanceAndSizeCopiesExactlyTheBytes) {
    // Sizes around the piece size, at distances that take the piecewise path
    // (1 to 63 bytes past the source modulo 4 KiB) and that do not.
    const size_t kMax = (size_t{64} << 10) + 3;
    std::vector<uint8_t> source(kMax);
    std::iota(source.begin(), source.end(), uint8_t{7});
    std::vector<uint8_t> target(kMax + 2 * 4096);
    const uintptr_t base = reinterpret_cast<uintptr_t>(source.data()) % 4096;
    for (size_t size : {size_t{0}, size_t{1}, size_t{2047}, size_t{2048}, size_t{2049},
                        size_t{3 * 2048 + 5}, kMax}) {
        for (uintptr_t distance : {0u, 1u, 8u, 40u, 63u, 64u, 4095u}) {
            SCOPED_TRACE("size " + std::to_string(size) + ", distance " + std::to_string(distance));
            std::fill(target.begin(), target.end(), uint8_t{0xEE});
            const uintptr_t targetBase = reinterpret_cast<uintptr_t>(target.data()) % 4096;
            const size_t at = (base + distance + 4096 - targetBase) % 4096;
            CopyBytes(target.data() + at, source.data(), size);
            EXPECT_TRUE(std::equal(source.begin(), source.begin() + size, target.begin() + at));
            const auto untouched = [](uint8_t byte) { return byte == 0xEE; };
            EXPECT_TRUE(std::all_of(target.begin(), target.begin() + at, untouched));
            EXPECT_TRUE(std::all_of(target.begin() + at + size, target.end(), untouched));
        }
    }
}

}  // namespace
}  // namespace zelkor::tessel::binder
