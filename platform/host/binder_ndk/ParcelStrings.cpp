// Strings and string arrays.
#include <cstring>
#include <limits>
#include <optional>

#include "platform/host/binder_ndk/Limits.h"
#include "platform/host/binder_ndk/Parcel.h"
#include "platform/host/binder_ndk/Utf.h"

namespace zelkor::tessel::binder {

namespace {

// After the units encoded at `out + 4`: their count before them and the 0
// unit after them. The bytes the string takes, padding aside.
size_t FramedString16(uint8_t* out, size_t units) {
    const auto count = static_cast<int32_t>(units);
    memcpy(out, &count, sizeof(count));
    const size_t used = sizeof(int32_t) + (units + 1) * 2;
    out[used - 2] = 0;
    out[used - 1] = 0;
    return used;
}

// Appending, the usual case, takes one pass over the text: room for the
// longest result (a unit per UTF-8 byte) first, the units encoded and checked
// into it, the data then cut back to what they took. Nothing when there is no
// room for the longest result; the parcel is then as it was.
std::optional<binder_status_t> AppendString16(AParcel* parcel, const char* utf8, size_t length) {
    const size_t start = parcel->position;
    uint8_t* out = length < kMaxParcelBytes / 2
                           ? parcel->writeInplace(sizeof(int32_t) + (length + 1) * 2)
                           : nullptr;
    if (out == nullptr) return std::nullopt;
    size_t units = 0;
    if (!EncodeUtf16(utf8, length, out + sizeof(int32_t), &units)) {
        parcel->data.resize(start);
        parcel->position = start;
        return STATUS_BAD_VALUE;
    }
    const size_t used = FramedString16(out, units);
    const size_t end = Padded(used);
    memset(out + used, 0, end - used);
    parcel->data.resize(start + end);
    parcel->position = start + end;
    return STATUS_OK;
}

}  // namespace

binder_status_t WriteString16(AParcel* parcel, const char* utf8, size_t length) {
    if (utf8 == nullptr) return parcel->write<int32_t>(-1);
    if (parcel->position == parcel->data.size()) {
        if (auto appended = AppendString16(parcel, utf8, length)) return *appended;
    }
    // Written over data already there, or too long for the room above:
    // counted first, then encoded into exactly the room it takes.
    size_t units = 0;
    if (!Utf16Length(utf8, length, &units)) return STATUS_BAD_VALUE;
    if (units >= static_cast<size_t>(std::numeric_limits<int32_t>::max()) / 2) {
        return STATUS_NO_MEMORY;
    }
    uint8_t* out = parcel->writeInplace(sizeof(int32_t) + (units + 1) * 2);
    if (out == nullptr) return STATUS_NO_MEMORY;
    EncodeUtf16(utf8, length, out + sizeof(int32_t), &units);
    FramedString16(out, units);
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
