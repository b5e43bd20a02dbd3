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

binder_status_t ReadString16(const AParcel* parcel, std::string* utf8, bool* isNull) {
    int32_t units = 0;
    binder_status_t status = parcel->read(&units);
    if (status != STATUS_OK) return status;
    *isNull = units == -1;
    if (*isNull) return STATUS_OK;
    if (units < 0) return STATUS_BAD_VALUE;
    const size_t bytes = (static_cast<size_t>(units) + 1) * 2;
    if (bytes > parcel->available()) return STATUS_NOT_ENOUGH_DATA;
    const uint8_t* in = parcel->readInplace(bytes);
    if (in == nullptr) return STATUS_NOT_ENOUGH_DATA;
    if (in[bytes - 2] != 0 || in[bytes - 1] != 0) return STATUS_BAD_VALUE;
    *utf8 = DecodeUtf16(in, static_cast<size_t>(units));
    return STATUS_OK;
}

}  // namespace zelkor::tessel::binder

using namespace zelkor::tessel::binder;

namespace {

// Hands a decoded string to a caller's allocator: `fill` gets the length with
// the terminator and returns the buffer, or null when allocation failed.
template <typename Fill>
binder_status_t Deliver(const std::string& text, Fill fill) {
    if (text.size() >= static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    char* buffer = fill(static_cast<int32_t>(text.size() + 1));
    if (buffer == nullptr) return STATUS_NO_MEMORY;
    memcpy(buffer, text.data(), text.size());
    buffer[text.size()] = '\0';
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
    std::string text;
    bool isNull = false;
    binder_status_t status = ReadString16(parcel, &text, &isNull);
    if (status != STATUS_OK) return status;
    if (isNull) return allocator(stringData, -1, nullptr) ? STATUS_OK : STATUS_UNEXPECTED_NULL;
    return Deliver(text, [&](int32_t size) -> char* {
        char* buffer = nullptr;
        return allocator(stringData, size, &buffer) ? buffer : nullptr;
    });
}

binder_status_t AParcel_writeStringArray(AParcel* parcel, const void* arrayData, int32_t length,
                                         AParcel_stringArrayElementGetter getter) {
    binder_status_t status = WriteArrayLength(parcel, length < 0, length);
    if (status != STATUS_OK) return status;
    for (int32_t i = 0; i < length; ++i) {
        int32_t elementLength = 0;
        const char* element = getter(arrayData, static_cast<size_t>(i), &elementLength);
        if (element == nullptr && elementLength != -1) return STATUS_BAD_VALUE;
        status = AParcel_writeString(parcel, element, elementLength);
        if (status != STATUS_OK) return status;
    }
    return STATUS_OK;
}

binder_status_t AParcel_readStringArray(const AParcel* parcel, void* arrayData,
                                        AParcel_stringArrayAllocator allocator,
                                        AParcel_stringArrayElementAllocator elementAllocator) {
    int32_t length = 0;
    binder_status_t status = ReadArrayLength(parcel, sizeof(int32_t), &length);
    if (status != STATUS_OK) return status;
    if (!allocator(arrayData, length))
        return length < 0 ? STATUS_UNEXPECTED_NULL : STATUS_NO_MEMORY;
    for (int32_t i = 0; i < length; ++i) {
        std::string text;
        bool isNull = false;
        status = ReadString16(parcel, &text, &isNull);
        if (status != STATUS_OK) return status;
        const size_t index = static_cast<size_t>(i);
        if (isNull) {
            if (!elementAllocator(arrayData, index, -1, nullptr)) return STATUS_UNEXPECTED_NULL;
            continue;
        }
        status = Deliver(text, [&](int32_t size) -> char* {
            char* buffer = nullptr;
            return elementAllocator(arrayData, index, size, &buffer) ? buffer : nullptr;
        });
        if (status != STATUS_OK) return status;
    }
    return STATUS_OK;
}
