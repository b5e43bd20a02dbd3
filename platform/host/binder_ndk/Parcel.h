// The AParcel object: a byte stream laid out like the platform's Parcel
// (every item padded to four bytes, positions in bytes) plus the file
// descriptors that binder and ParcelFileDescriptor records refer to by index.
#pragma once

#include <android-base/unique_fd.h>
#include <android/binder_parcel.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/host/binder_ndk/ByteBuffer.h"

namespace zelkor::tessel::binder {

// `size` rounded up to the parcel's four-byte items.
constexpr size_t Padded(size_t size) {
    return (size + 3) & ~size_t{3};
}

}  // namespace zelkor::tessel::binder

struct AParcel {
    AParcel() = default;
    explicit AParcel(const AIBinder* forBinder) : binder(forBinder) {}

    zelkor::tessel::binder::ByteBuffer data;
    // Reads move the position of a const parcel, as in the C API.
    mutable size_t position = 0;
    std::vector<android::base::unique_fd> fds;
    bool hasBinders = false;
    // The binder a transaction parcel was prepared for (not a reference).
    const AIBinder* binder = nullptr;

    size_t available() const { return position < data.size() ? data.size() - position : 0; }
    bool hasObjects() const { return hasBinders || !fds.empty(); }

    // `size` bytes at the position, which moves past them and the padding
    // (zeroed) up to the next multiple of four. Grows the data as needed,
    // zeroing any gap a position past the end left; null when that would
    // pass the parcel size limit.
    uint8_t* writeInplace(size_t size);

    // `size` bytes at the position, which moves past them and their padding;
    // null (position unchanged) when the data ends first.
    const uint8_t* readInplace(size_t size) const;

    // Extends the data to `size` bytes (never shrinks it).
    void growTo(size_t size);

    // Scalars take four bytes, or eight for 64-bit types.
    template <typename T>
    binder_status_t write(T value) {
        static_assert(std::is_arithmetic_v<T> && (sizeof(T) == 4 || sizeof(T) == 8));
        uint8_t* out = writeInplace(sizeof(T));
        if (out == nullptr) return STATUS_NO_MEMORY;
        memcpy(out, &value, sizeof(T));
        return STATUS_OK;
    }

    template <typename T>
    binder_status_t read(T* value) const {
        static_assert(std::is_arithmetic_v<T> && (sizeof(T) == 4 || sizeof(T) == 8));
        const uint8_t* in = readInplace(sizeof(T));
        if (in == nullptr) return STATUS_NOT_ENOUGH_DATA;
        memcpy(value, in, sizeof(T));
        return STATUS_OK;
    }
};

namespace zelkor::tessel::binder {

// A string in the platform's String16 form: int32 length in UTF-16 units
// (-1 for null), the units, a 0 unit, padding. The API speaks UTF-8.
binder_status_t WriteString16(AParcel* parcel, const char* utf8, size_t length);
// *isNull tells a null string from an empty one.
binder_status_t ReadString16(const AParcel* parcel, std::string* utf8, bool* isNull);
// The same string's UTF-16 units, left in the parcel: `*in` points at
// `*units` of them (unaligned), checked for size and terminator.
binder_status_t ReadString16Units(const AParcel* parcel, const uint8_t** in, size_t* units,
                                  bool* isNull);

// Array lengths: -1 for a null array (which must come with null data on
// write). A read checks that `length` elements of at least
// `minElementBytes` each can still be in the data before anyone allocates
// for them.
binder_status_t WriteArrayLength(AParcel* parcel, bool isNull, int32_t length);
binder_status_t ReadArrayLength(const AParcel* parcel, size_t minElementBytes, int32_t* length);

// Arrays whose elements go one by one (bool, char, string, parcelable), each
// taking at least an int32: the length, then `writeElement(index)` for each.
template <typename WriteElement>
binder_status_t WriteElements(AParcel* parcel, bool isNull, int32_t length,
                              WriteElement writeElement) {
    binder_status_t status = WriteArrayLength(parcel, isNull, length);
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        status = writeElement(static_cast<size_t>(i));
    }
    return status;
}

// The length, then `allocate(length)` sizes the caller's array (false: a null
// array the caller does not accept, or no memory), then `readElement(index)`
// for each element.
template <typename Allocate, typename ReadElement>
binder_status_t ReadElements(const AParcel* parcel, Allocate allocate, ReadElement readElement) {
    int32_t length = 0;
    binder_status_t status = ReadArrayLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    if (!allocate(length)) return length < 0 ? STATUS_UNEXPECTED_NULL : STATUS_NO_MEMORY;
    for (int32_t i = 0; status == STATUS_OK && i < length; ++i) {
        status = readElement(static_cast<size_t>(i));
    }
    return status;
}

// A short byte string of the runtime's own records: int32 length, bytes,
// padding. Reads refuse lengths above `maxLength`.
binder_status_t WriteShortBytes(AParcel* parcel, std::string_view bytes);
binder_status_t ReadShortBytes(const AParcel* parcel, size_t maxLength, std::string* bytes);

}  // namespace zelkor::tessel::binder
