// Arrays: lengths, packed scalars, element-wise bool/char, parcelables.
#include "platform/host/binder_ndk/Parcel.h"

#include <android/binder_parcel_utils.h>

#include "platform/host/binder_ndk/BulkCopy.h"

namespace zelkor::tessel::binder {

binder_status_t WriteArrayLength(AParcel* parcel, bool isNull, int32_t length) {
    if (length < -1) return STATUS_BAD_VALUE;
    if (!isNull && length < 0) return STATUS_BAD_VALUE;
    if (isNull && length > 0) return STATUS_BAD_VALUE;
    return parcel->write<int32_t>(length);
}

binder_status_t ReadArrayLength(const AParcel* parcel, size_t minElementBytes, int32_t* length) {
    binder_status_t status = parcel->read(length);
    if (status != STATUS_OK) return status;
    if (*length < -1) return STATUS_BAD_VALUE;
    if (*length <= 0) return STATUS_OK;
    if (static_cast<size_t>(*length) > parcel->available() / minElementBytes) {
        return STATUS_NOT_ENOUGH_DATA;
    }
    return STATUS_OK;
}

}  // namespace zelkor::tessel::binder

using namespace zelkor::tessel::binder;

namespace {

// Scalars whose arrays are stored packed: the elements back to back, the
// whole padded to four bytes.
template <typename T>
binder_status_t WritePacked(AParcel* parcel, const T* array, int32_t length) {
    binder_status_t status = WriteArrayLength(parcel, array == nullptr, length);
    if (status != STATUS_OK || length <= 0) return status;
    const size_t bytes = static_cast<size_t>(length) * sizeof(T);
    uint8_t* out = parcel->writeInplace(bytes);
    if (out == nullptr) return STATUS_NO_MEMORY;
    CopyBytes(out, array, bytes);
    return STATUS_OK;
}

// A packed array's length and, when it is positive, its elements in place;
// the position moves past them.
binder_status_t ReadPackedInPlace(const AParcel* parcel, size_t elementBytes, int32_t* length,
                                  const uint8_t** elements) {
    *elements = nullptr;
    binder_status_t status = ReadArrayLength(parcel, elementBytes, length);
    if (status != STATUS_OK || *length <= 0) return status;
    *elements = parcel->readInplace(static_cast<size_t>(*length) * elementBytes);
    return *elements == nullptr ? STATUS_NOT_ENOUGH_DATA : STATUS_OK;
}

template <typename T>
binder_status_t ReadPacked(const AParcel* parcel, void* arrayData,
                           bool (*allocator)(void*, int32_t, T**)) {
    int32_t length = 0;
    const uint8_t* in = nullptr;
    binder_status_t status = ReadPackedInPlace(parcel, sizeof(T), &length, &in);
    if (status != STATUS_OK) return status;
    T* buffer = nullptr;
    if (!allocator(arrayData, length, &buffer)) {
        return length < 0 ? STATUS_UNEXPECTED_NULL : STATUS_NO_MEMORY;
    }
    if (length <= 0) return STATUS_OK;
    if (buffer == nullptr) return STATUS_NO_MEMORY;
    CopyBytes(buffer, in, static_cast<size_t>(length) * sizeof(T));
    return STATUS_OK;
}

}  // namespace

binder_status_t AParcel_writeInt32Array(AParcel* parcel, const int32_t* arrayData, int32_t length) {
    return WritePacked(parcel, arrayData, length);
}

binder_status_t AParcel_writeUint32Array(AParcel* parcel, const uint32_t* arrayData,
                                         int32_t length) {
    return WritePacked(parcel, arrayData, length);
}

binder_status_t AParcel_writeInt64Array(AParcel* parcel, const int64_t* arrayData, int32_t length) {
    return WritePacked(parcel, arrayData, length);
}

binder_status_t AParcel_writeUint64Array(AParcel* parcel, const uint64_t* arrayData,
                                         int32_t length) {
    return WritePacked(parcel, arrayData, length);
}

binder_status_t AParcel_writeFloatArray(AParcel* parcel, const float* arrayData, int32_t length) {
    return WritePacked(parcel, arrayData, length);
}

binder_status_t AParcel_writeDoubleArray(AParcel* parcel, const double* arrayData, int32_t length) {
    return WritePacked(parcel, arrayData, length);
}

binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length) {
    return WritePacked(parcel, arrayData, length);
}

binder_status_t AParcel_readInt32Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int32ArrayAllocator allocator) {
    return ReadPacked(parcel, arrayData, allocator);
}

binder_status_t AParcel_readUint32Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint32ArrayAllocator allocator) {
    return ReadPacked(parcel, arrayData, allocator);
}

binder_status_t AParcel_readInt64Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int64ArrayAllocator allocator) {
    return ReadPacked(parcel, arrayData, allocator);
}

binder_status_t AParcel_readUint64Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint64ArrayAllocator allocator) {
    return ReadPacked(parcel, arrayData, allocator);
}

binder_status_t AParcel_readFloatArray(const AParcel* parcel, void* arrayData,
                                       AParcel_floatArrayAllocator allocator) {
    return ReadPacked(parcel, arrayData, allocator);
}

binder_status_t AParcel_readDoubleArray(const AParcel* parcel, void* arrayData,
                                        AParcel_doubleArrayAllocator allocator) {
    return ReadPacked(parcel, arrayData, allocator);
}

binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData,
                                      AParcel_byteArrayAllocator allocator) {
    return ReadPacked(parcel, arrayData, allocator);
}

void ndk::internal::copyBytes(void* to, const void* from, size_t count) {
    CopyBytes(to, from, count);
}

binder_status_t ndk::internal::readByteArrayInPlace(const AParcel* parcel, const int8_t** data,
                                                    int32_t* length) {
    const uint8_t* in = nullptr;
    binder_status_t status = ReadPackedInPlace(parcel, 1, length, &in);
    *data = reinterpret_cast<const int8_t*>(in);
    return status;
}

// char16_t elements each take an int32, like a single char.
binder_status_t AParcel_writeCharArray(AParcel* parcel, const char16_t* arrayData, int32_t length) {
    return WriteElements(parcel, arrayData == nullptr, length,
                         [&](size_t i) { return AParcel_writeChar(parcel, arrayData[i]); });
}

binder_status_t AParcel_readCharArray(const AParcel* parcel, void* arrayData,
                                      AParcel_charArrayAllocator allocator) {
    char16_t* buffer = nullptr;
    return ReadElements(
            parcel,
            [&](int32_t length) {
                return allocator(arrayData, length, &buffer) && (length <= 0 || buffer != nullptr);
            },
            [&](size_t i) { return AParcel_readChar(parcel, &buffer[i]); });
}

binder_status_t AParcel_writeBoolArray(AParcel* parcel, const void* arrayData, int32_t length,
                                       AParcel_boolArrayGetter getter) {
    return WriteElements(parcel, length < 0, length,
                         [&](size_t i) { return AParcel_writeBool(parcel, getter(arrayData, i)); });
}

binder_status_t AParcel_readBoolArray(const AParcel* parcel, void* arrayData,
                                      AParcel_boolArrayAllocator allocator,
                                      AParcel_boolArraySetter setter) {
    return ReadElements(
            parcel, [&](int32_t length) { return allocator(arrayData, length); },
            [&](size_t i) {
                bool value = false;
                binder_status_t status = AParcel_readBool(parcel, &value);
                if (status == STATUS_OK) setter(arrayData, i, value);
                return status;
            });
}

binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter) {
    return WriteElements(parcel, length < 0, length,
                         [&](size_t i) { return elementWriter(parcel, arrayData, i); });
}

// Every element written by the generated code starts with an int32.
binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader) {
    return ReadElements(
            parcel, [&](int32_t length) { return allocator(arrayData, length); },
            [&](size_t i) { return elementReader(parcel, arrayData, i); });
}
