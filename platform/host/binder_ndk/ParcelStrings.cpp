// Strings and string arrays.
#include <limits>

#include "platform/host/binder_ndk/Parcel.h"
#include "platform/host/binder_ndk/Utf.h"

namespace zelkor::tessel::binder {

binder_status_t WriteString16(AParcel* parcel, const char* utf8, size_t length) {
    if (utf8 == nullptr) return parcel->write<int32_t>(-1);
    size_t units = 0;
    if (!Utf16Length(utf8, length, &units)) return STATUS_BAD_VALUE;
    if (units >= static_cast<size_t>(std::numeric_limits<int32_t>::max()) / 2) {
        return STATUS_NO_MEMORY;
    }
    binder_status_t status = parcel->write<int32_t>(static_cast<int32_t>(units));
    if (status != STATUS_OK) return status;
    uint8_t* out = parcel->writeInplace((units + 1) * 2);
    if (out == nullptr) return STATUS_NO_MEMORY;
    EncodeUtf16(utf8, length, out);
    out[units * 2] = 0;
    out[units * 2 + 1] = 0;
    return STATUS_OK;
}

binder_status_t ReadString16Units(const AParcel* parcel, const uint8_t** in, size_t* count,
                                  bool* isNull) {
    int32_t units = 0;
    binder_status_t status = parcel->read(&units);
    if (status != STATUS_OK) return status;
    *isNull = units == -1;
    if (*isNull) return STATUS_OK;
    if (units < 0) return STATUS_BAD_VALUE;
    // Widened before the arithmetic, so that no unit count can wrap it.
    const uint64_t bytes = (static_cast<uint64_t>(units) + 1) * 2;
    if (bytes > parcel->available()) return STATUS_NOT_ENOUGH_DATA;
    const uint8_t* data = parcel->readInplace(bytes);
    if (data == nullptr) return STATUS_NOT_ENOUGH_DATA;
    if (data[bytes - 2] != 0 || data[bytes - 1] != 0) return STATUS_BAD_VALUE;
    *in = data;
    *count = static_cast<size_t>(units);
    return STATUS_OK;
}

binder_status_t ReadString16(const AParcel* parcel, std::string* utf8, bool* isNull) {
    const uint8_t* in = nullptr;
    size_t units = 0;
    binder_status_t status = ReadString16Units(parcel, &in, &units, isNull);
    if (status == STATUS_OK && !*isNull) *utf8 = DecodeUtf16(in, units);
    return status;
}

}  // namespace zelkor::tessel::binder

using namespace zelkor::tessel::binder;

namespace {

// Reads a string into a caller's buffer: `allocate(length, &buffer)` gets
// the length with the terminator, or -1 (and no buffer) for a null string.
template <typename Allocate>
binder_status_t ReadStringInto(const AParcel* parcel, Allocate allocate) {
    const uint8_t* in = nullptr;
    size_t units = 0;
    bool isNull = false;
    binder_status_t status = ReadString16Units(parcel, &in, &units, &isNull);
    if (status != STATUS_OK) return status;
    if (isNull) return allocate(-1, nullptr) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    // Decoded straight into the caller's buffer, sized first.
    const size_t length = Utf8Length(in, units);
    if (length >= static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    char* buffer = nullptr;
    if (!allocate(static_cast<int32_t>(length + 1), &buffer) || buffer == nullptr) {
        return STATUS_NO_MEMORY;
    }
    DecodeUtf16(in, units, buffer);
    buffer[length] = '\0';
    return STATUS_OK;
}

}  // namespace

binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length) {
    if (string == nullptr)
        return length == -1 ? WriteString16(parcel, nullptr, 0) : STATUS_BAD_VALUE;
    if (length < 0) return STATUS_BAD_VALUE;
    return WriteString16(parcel, string, static_cast<size_t>(length));
}

binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                   AParcel_stringAllocator allocator) {
    return ReadStringInto(parcel, [&](int32_t length, char** buffer) {
        return allocator(stringData, length, buffer);
    });
}

binder_status_t AParcel_writeStringArray(AParcel* parcel, const void* arrayData, int32_t length,
                                         AParcel_stringArrayElementGetter getter) {
    return WriteElements(parcel, length < 0, length, [&](size_t i) {
        int32_t elementLength = 0;
        const char* element = getter(arrayData, i, &elementLength);
        return AParcel_writeString(parcel, element, elementLength);
    });
}

binder_status_t AParcel_readStringArray(const AParcel* parcel, void* arrayData,
                                        AParcel_stringArrayAllocator allocator,
                                        AParcel_stringArrayElementAllocator elementAllocator) {
    return ReadElements(
            parcel, [&](int32_t length) { return allocator(arrayData, length); },
            [&](size_t i) {
                return ReadStringInto(parcel, [&](int32_t length, char** buffer) {
                    return elementAllocator(arrayData, i, length, buffer);
                });
            });
}
