// C++ parceling helpers used by AIDL-generated NDK code, host build: the
// allocator/getter/setter callbacks that connect the C array functions of
// binder_parcel.h to std::string, std::vector and std::optional, and typed
// read/write overloads on top of them.
//
// User-defined parcelables follow the convention of the NDK interface
// generator this project uses: a parcelable's writeToParcel writes its own
// non-null marker and readFromParcel reads it, so the helpers here call them
// directly.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_interface_utils.h>
#include <android/binder_internal_logging.h>
#include <android/binder_parcel.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

namespace ndk {

namespace internal {

// An out-array is only a length on the wire; the callee allocates it. The
// reply must fit in one transaction anyway, so larger requests are refused
// rather than allocated.
constexpr size_t kMaxOutArrayBytes = size_t{16} << 20;

inline binder_status_t writeSize(AParcel* parcel, size_t size) {
    if (size > static_cast<size_t>(std::numeric_limits<int32_t>::max())) return STATUS_BAD_VALUE;
    return AParcel_writeInt32(parcel, static_cast<int32_t>(size));
}

template <typename T>
struct is_shared_ptr : std::false_type {};
template <typename T>
struct is_shared_ptr<std::shared_ptr<T>> : std::true_type {};

}  // namespace internal

// ---- allocators, getters and setters for std::vector / std::optional ----

// Contiguous vector<T>: sized to `length`, buffer returned. Null not allowed.
template <typename T>
static inline bool AParcel_stdVectorAllocator(void* vectorData, int32_t length, T** outBuffer) {
    if (length < 0) return false;
    auto* vec = static_cast<std::vector<T>*>(vectorData);
    vec->resize(static_cast<size_t>(length));
    *outBuffer = vec->data();
    return true;
}

// Contiguous optional<vector<T>>: -1 stores nullopt.
template <typename T>
static inline bool AParcel_nullableStdVectorAllocator(void* vectorData, int32_t length,
                                                      T** outBuffer) {
    auto* vec = static_cast<std::optional<std::vector<T>>*>(vectorData);
    if (length < 0) {
        *vec = std::nullopt;
        return true;
    }
    vec->emplace(static_cast<size_t>(length));
    *outBuffer = (*vec)->data();
    return true;
}

// vector<T> filled element by element (bool, strings, parcelables). The
// length is checked against the bytes left at four per element, but one
// element can take far more memory than four wire bytes: the vector itself is
// capped like an out array.
template <typename T>
static inline bool AParcel_stdVectorExternalAllocator(void* vectorData, int32_t length) {
    if (length < 0 || static_cast<size_t>(length) > internal::kMaxOutArrayBytes / sizeof(T)) {
        return false;
    }
    static_cast<std::vector<T>*>(vectorData)->resize(static_cast<size_t>(length));
    return true;
}

// optional<vector<T>> filled element by element: -1 stores nullopt.
template <typename T>
static inline bool AParcel_nullableStdVectorExternalAllocator(void* vectorData, int32_t length) {
    auto* vec = static_cast<std::optional<std::vector<T>>*>(vectorData);
    if (length < 0) {
        *vec = std::nullopt;
        return true;
    }
    if (static_cast<size_t>(length) > internal::kMaxOutArrayBytes / sizeof(T)) return false;
    vec->emplace(static_cast<size_t>(length));
    return true;
}

template <typename T>
static inline T AParcel_stdVectorGetter(const void* vectorData, size_t index) {
    return static_cast<const std::vector<T>*>(vectorData)->at(index);
}

template <typename T>
static inline void AParcel_stdVectorSetter(void* vectorData, size_t index, T value) {
    static_cast<std::vector<T>*>(vectorData)->at(index) = value;
}

template <typename T>
static inline void AParcel_nullableStdVectorSetter(void* vectorData, size_t index, T value) {
    static_cast<std::optional<std::vector<T>>*>(vectorData)->value().at(index) = value;
}

// ---- binders and file descriptors ----

static inline binder_status_t AParcel_writeNullableStrongBinder(AParcel* parcel,
                                                                const SpAIBinder& binder) {
    return AParcel_writeStrongBinder(parcel, binder.get());
}

static inline binder_status_t AParcel_readNullableStrongBinder(const AParcel* parcel,
                                                               SpAIBinder* binder) {
    AIBinder* read = nullptr;
    binder_status_t status = AParcel_readStrongBinder(parcel, &read);
    if (status == STATUS_OK) binder->set(read);
    return status;
}

static inline binder_status_t AParcel_writeRequiredStrongBinder(AParcel* parcel,
                                                                const SpAIBinder& binder) {
    if (binder.get() == nullptr) return STATUS_UNEXPECTED_NULL;
    return AParcel_writeStrongBinder(parcel, binder.get());
}

static inline binder_status_t AParcel_readRequiredStrongBinder(const AParcel* parcel,
                                                               SpAIBinder* binder) {
    binder_status_t status = AParcel_readNullableStrongBinder(parcel, binder);
    if (status == STATUS_OK && binder->get() == nullptr) return STATUS_UNEXPECTED_NULL;
    return status;
}

static inline binder_status_t AParcel_writeNullableParcelFileDescriptor(
        AParcel* parcel, const ScopedFileDescriptor& fd) {
    return AParcel_writeParcelFileDescriptor(parcel, fd.get());
}

static inline binder_status_t AParcel_readNullableParcelFileDescriptor(const AParcel* parcel,
                                                                       ScopedFileDescriptor* fd) {
    int read = -1;
    binder_status_t status = AParcel_readParcelFileDescriptor(parcel, &read);
    if (status == STATUS_OK) fd->set(read);
    return status;
}

static inline binder_status_t AParcel_writeRequiredParcelFileDescriptor(
        AParcel* parcel, const ScopedFileDescriptor& fd) {
    if (fd.get() < 0) return STATUS_UNEXPECTED_NULL;
    return AParcel_writeParcelFileDescriptor(parcel, fd.get());
}

static inline binder_status_t AParcel_readRequiredParcelFileDescriptor(const AParcel* parcel,
                                                                       ScopedFileDescriptor* fd) {
    binder_status_t status = AParcel_readNullableParcelFileDescriptor(parcel, fd);
    if (status == STATUS_OK && fd->get() < 0) return STATUS_UNEXPECTED_NULL;
    return status;
}

// ---- strings ----

// std::string: `length` includes the terminating NUL, which lands in the
// slot std::string keeps after its last character.
static inline bool AParcel_stdStringAllocator(void* stringData, int32_t length, char** buffer) {
    if (length <= 0) return false;
    auto* str = static_cast<std::string*>(stringData);
    str->resize(static_cast<size_t>(length) - 1);
    *buffer = &(*str)[0];
    return true;
}

static inline bool AParcel_nullableStdStringAllocator(void* stringData, int32_t length,
                                                      char** buffer) {
    auto* str = static_cast<std::optional<std::string>*>(stringData);
    if (length < 0) {
        *str = std::nullopt;
        return true;
    }
    str->emplace();
    return AParcel_stdStringAllocator(&str->value(), length, buffer);
}

static inline bool AParcel_stdVectorStringElementAllocator(void* vectorData, size_t index,
                                                           int32_t length, char** buffer) {
    auto* vec = static_cast<std::vector<std::string>*>(vectorData);
    return AParcel_stdStringAllocator(&vec->at(index), length, buffer);
}

static inline const char* AParcel_stdVectorStringElementGetter(const void* vectorData, size_t index,
                                                               int32_t* outLength) {
    const std::string& element =
            static_cast<const std::vector<std::string>*>(vectorData)->at(index);
    *outLength = static_cast<int32_t>(element.size());
    return element.c_str();
}

// optional<vector<optional<string>>>: the array and each entry may be null.
static inline bool AParcel_nullableStdVectorStringElementAllocator(void* vectorData, size_t index,
                                                                   int32_t length, char** buffer) {
    auto* vec = static_cast<std::optional<std::vector<std::optional<std::string>>>*>(vectorData);
    return AParcel_nullableStdStringAllocator(&vec->value().at(index), length, buffer);
}

static inline const char* AParcel_nullableStdVectorStringElementGetter(const void* vectorData,
                                                                       size_t index,
                                                                       int32_t* outLength) {
    const auto* vec =
            static_cast<const std::optional<std::vector<std::optional<std::string>>>*>(vectorData);
    const std::optional<std::string>& element = vec->value().at(index);
    if (!element) {
        *outLength = -1;
        return nullptr;
    }
    *outLength = static_cast<int32_t>(element->size());
    return element->c_str();
}

static inline binder_status_t AParcel_writeString(AParcel* parcel, const std::string& str) {
    if (str.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    return AParcel_writeString(parcel, str.c_str(), static_cast<int32_t>(str.size()));
}

static inline binder_status_t AParcel_readString(const AParcel* parcel, std::string* str) {
    return AParcel_readString(parcel, str, AParcel_stdStringAllocator);
}

static inline binder_status_t AParcel_writeString(AParcel* parcel,
                                                  const std::optional<std::string>& str) {
    if (!str) return AParcel_writeString(parcel, nullptr, -1);
    return AParcel_writeString(parcel, *str);
}

static inline binder_status_t AParcel_readString(const AParcel* parcel,
                                                 std::optional<std::string>* str) {
    return AParcel_readString(parcel, str, AParcel_nullableStdStringAllocator);
}

static inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                                  const std::vector<std::string>& vec) {
    if (vec.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    return AParcel_writeStringArray(parcel, &vec, static_cast<int32_t>(vec.size()),
                                    AParcel_stdVectorStringElementGetter);
}

static inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                                 std::vector<std::string>* vec) {
    return AParcel_readStringArray(parcel, vec, AParcel_stdVectorExternalAllocator<std::string>,
                                   AParcel_stdVectorStringElementAllocator);
}

static inline binder_status_t AParcel_writeVector(
        AParcel* parcel, const std::optional<std::vector<std::optional<std::string>>>& vec) {
    if (!vec) return AParcel_writeStringArray(parcel, nullptr, -1, nullptr);
    if (vec->size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    return AParcel_writeStringArray(parcel, &vec, static_cast<int32_t>(vec->size()),
                                    AParcel_nullableStdVectorStringElementGetter);
}

static inline binder_status_t AParcel_readVector(
        const AParcel* parcel, std::optional<std::vector<std::optional<std::string>>>* vec) {
    return AParcel_readStringArray(
            parcel, vec, AParcel_nullableStdVectorExternalAllocator<std::optional<std::string>>,
            AParcel_nullableStdVectorStringElementAllocator);
}

// ---- user-defined parcelables and interfaces ----

template <typename P>
static inline binder_status_t AParcel_writeParcelable(AParcel* parcel, const P& p) {
    if constexpr (internal::is_shared_ptr<P>::value) {
        return P::element_type::writeToParcel(parcel, p);
    } else {
        return p.writeToParcel(parcel);
    }
}

template <typename P>
static inline binder_status_t AParcel_readParcelable(const AParcel* parcel, P* p) {
    if constexpr (internal::is_shared_ptr<P>::value) {
        return P::element_type::readFromParcel(parcel, p);
    } else {
        return p->readFromParcel(parcel);
    }
}

// optional<P>: a null value is a lone 0 marker where the parcelable would
// have written its own non-null marker.
template <typename P>
static inline binder_status_t AParcel_writeNullableParcelable(AParcel* parcel,
                                                              const std::optional<P>& p) {
    if (!p) return AParcel_writeInt32(parcel, 0);
    return p->writeToParcel(parcel);
}

template <typename P>
static inline binder_status_t AParcel_readNullableParcelable(const AParcel* parcel,
                                                             std::optional<P>* p) {
    const int32_t start = AParcel_getDataPosition(parcel);
    int32_t marker = 0;
    binder_status_t status = AParcel_readInt32(parcel, &marker);
    if (status != STATUS_OK) return status;
    if (marker == 0) {
        *p = std::nullopt;
        return STATUS_OK;
    }
    status = AParcel_setDataPosition(parcel, start);
    if (status != STATUS_OK) return status;
    p->emplace();
    return (*p)->readFromParcel(parcel);
}

template <typename P>
binder_status_t AParcel_writeStdVectorParcelableElement(AParcel* parcel, const void* vectorData,
                                                        size_t index) {
    return AParcel_writeParcelable(parcel,
                                   static_cast<const std::vector<P>*>(vectorData)->at(index));
}

template <typename P>
binder_status_t AParcel_readStdVectorParcelableElement(const AParcel* parcel, void* vectorData,
                                                       size_t index) {
    return AParcel_readParcelable(parcel, &static_cast<std::vector<P>*>(vectorData)->at(index));
}

// Elements of optional<vector<optional<P>>>.
template <typename P>
binder_status_t AParcel_writeNullableStdVectorParcelableElement(AParcel* parcel,
                                                                const void* vectorData,
                                                                size_t index) {
    const auto* vec = static_cast<const std::optional<std::vector<std::optional<P>>>*>(vectorData);
    return AParcel_writeNullableParcelable(parcel, vec->value().at(index));
}

template <typename P>
binder_status_t AParcel_readNullableStdVectorParcelableElement(const AParcel* parcel,
                                                               void* vectorData, size_t index) {
    auto* vec = static_cast<std::optional<std::vector<std::optional<P>>>*>(vectorData);
    return AParcel_readNullableParcelable(parcel, &vec->value().at(index));
}

template <>
inline binder_status_t AParcel_writeStdVectorParcelableElement<ScopedFileDescriptor>(
        AParcel* parcel, const void* vectorData, size_t index) {
    const auto* vec = static_cast<const std::vector<ScopedFileDescriptor>*>(vectorData);
    return AParcel_writeRequiredParcelFileDescriptor(parcel, vec->at(index));
}

template <>
inline binder_status_t AParcel_readStdVectorParcelableElement<ScopedFileDescriptor>(
        const AParcel* parcel, void* vectorData, size_t index) {
    auto* vec = static_cast<std::vector<ScopedFileDescriptor>*>(vectorData);
    return AParcel_readRequiredParcelFileDescriptor(parcel, &vec->at(index));
}

template <>
inline binder_status_t AParcel_writeStdVectorParcelableElement<SpAIBinder>(AParcel* parcel,
                                                                           const void* vectorData,
                                                                           size_t index) {
    const auto* vec = static_cast<const std::vector<SpAIBinder>*>(vectorData);
    return AParcel_writeRequiredStrongBinder(parcel, vec->at(index));
}

template <>
inline binder_status_t AParcel_readStdVectorParcelableElement<SpAIBinder>(const AParcel* parcel,
                                                                          void* vectorData,
                                                                          size_t index) {
    auto* vec = static_cast<std::vector<SpAIBinder>*>(vectorData);
    return AParcel_readRequiredStrongBinder(parcel, &vec->at(index));
}

namespace internal {

// Element access for optional<vector<P>> (a nullable array of non-null
// entries).
template <typename P>
binder_status_t writeOptionalVectorElement(AParcel* parcel, const void* vectorData, size_t index) {
    const auto* vec = static_cast<const std::optional<std::vector<P>>*>(vectorData);
    return AParcel_writeStdVectorParcelableElement<P>(parcel, &vec->value(), index);
}

template <typename P>
binder_status_t readOptionalVectorElement(const AParcel* parcel, void* vectorData, size_t index) {
    auto* vec = static_cast<std::optional<std::vector<P>>*>(vectorData);
    return AParcel_readStdVectorParcelableElement<P>(parcel, &vec->value(), index);
}

}  // namespace internal

template <typename P>
static inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<P>& vec) {
    if (vec.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    return AParcel_writeParcelableArray(parcel, &vec, static_cast<int32_t>(vec.size()),
                                        AParcel_writeStdVectorParcelableElement<P>);
}

template <typename P>
static inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<P>* vec) {
    return AParcel_readParcelableArray(parcel, vec, AParcel_stdVectorExternalAllocator<P>,
                                       AParcel_readStdVectorParcelableElement<P>);
}

template <typename P>
static inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                                  const std::optional<std::vector<P>>& vec) {
    if (!vec) return AParcel_writeParcelableArray(parcel, nullptr, -1, nullptr);
    if (vec->size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    return AParcel_writeParcelableArray(parcel, &vec, static_cast<int32_t>(vec->size()),
                                        internal::writeOptionalVectorElement<P>);
}

template <typename P>
static inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                                 std::optional<std::vector<P>>* vec) {
    return AParcel_readParcelableArray(parcel, vec, AParcel_nullableStdVectorExternalAllocator<P>,
                                       internal::readOptionalVectorElement<P>);
}

// ---- primitive vectors ----

#define TESSEL_NDK_PRIMITIVE_VECTOR(TYPE, NAME)                                                  \
    inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<TYPE>& vec) {  \
        if (vec.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {             \
            return STATUS_BAD_VALUE;                                                             \
        }                                                                                        \
        return AParcel_write##NAME##Array(parcel, vec.data(), static_cast<int32_t>(vec.size())); \
    }                                                                                            \
    inline binder_status_t AParcel_writeVector(AParcel* parcel,                                  \
                                               const std::optional<std::vector<TYPE>>& vec) {    \
        if (!vec) return AParcel_write##NAME##Array(parcel, nullptr, -1);                        \
        return AParcel_writeVector(parcel, *vec);                                                \
    }                                                                                            \
    inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<TYPE>* vec) {   \
        return AParcel_read##NAME##Array(parcel, vec, AParcel_stdVectorAllocator<TYPE>);         \
    }                                                                                            \
    inline binder_status_t AParcel_readVector(const AParcel* parcel,                             \
                                              std::optional<std::vector<TYPE>>* vec) {           \
        return AParcel_read##NAME##Array(parcel, vec, AParcel_nullableStdVectorAllocator<TYPE>); \
    }

TESSEL_NDK_PRIMITIVE_VECTOR(int32_t, Int32)
TESSEL_NDK_PRIMITIVE_VECTOR(uint32_t, Uint32)
TESSEL_NDK_PRIMITIVE_VECTOR(int64_t, Int64)
TESSEL_NDK_PRIMITIVE_VECTOR(uint64_t, Uint64)
TESSEL_NDK_PRIMITIVE_VECTOR(float, Float)
TESSEL_NDK_PRIMITIVE_VECTOR(double, Double)
TESSEL_NDK_PRIMITIVE_VECTOR(char16_t, Char)
#undef TESSEL_NDK_PRIMITIVE_VECTOR

// byte[], signed or not: the same wire form, written with the byte-array
// call and read in place (see assignBytes).
namespace internal {

// Host runtime: the next byte[] in place (length -1 for null, data null when
// the length is not positive), the position moved past it.
binder_status_t readByteArrayInPlace(const AParcel* parcel, const int8_t** data, int32_t* length);

// The runtime's bulk copy (memcpy, but never at its slow distances).
void copyBytes(void* to, const void* from, size_t count);

// From this size on a byte[] is built in one pass over memory; resize would
// first zero what does not fit in cache. Smaller ones are in cache, and take
// the runtime's copy.
constexpr int32_t kOnePassByteArray = int32_t{1} << 20;

template <typename Byte>
void assignBytes(std::vector<Byte>* vec, const int8_t* data, int32_t length) {
    const auto* first = reinterpret_cast<const Byte*>(data);
    if (length >= kOnePassByteArray) {
        vec->assign(first, first + length);
        return;
    }
    vec->resize(static_cast<size_t>(length));
    if (length > 0) copyBytes(vec->data(), first, static_cast<size_t>(length));
}

template <typename Byte>
binder_status_t writeBytes(AParcel* parcel, const std::vector<Byte>& vec) {
    if (vec.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    return AParcel_writeByteArray(parcel, reinterpret_cast<const int8_t*>(vec.data()),
                                  static_cast<int32_t>(vec.size()));
}

// Reads a byte[] into *vec; a null one leaves *vec as it was and sets *isNull.
template <typename Byte>
binder_status_t readBytes(const AParcel* parcel, std::vector<Byte>* vec, bool* isNull) {
    const int8_t* data = nullptr;
    int32_t length = 0;
    binder_status_t status = readByteArrayInPlace(parcel, &data, &length);
    if (status != STATUS_OK) return status;
    *isNull = length < 0;
    if (!*isNull) assignBytes(vec, data, length);
    return STATUS_OK;
}

}  // namespace internal

#define TESSEL_NDK_BYTE_VECTOR(BYTE)                                                             \
    inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<BYTE>& vec) {  \
        return internal::writeBytes(parcel, vec);                                                \
    }                                                                                            \
    inline binder_status_t AParcel_writeVector(AParcel* parcel,                                  \
                                               const std::optional<std::vector<BYTE>>& vec) {    \
        if (!vec) return AParcel_writeByteArray(parcel, nullptr, -1);                            \
        return internal::writeBytes(parcel, *vec);                                               \
    }                                                                                            \
    inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<BYTE>* vec) {   \
        bool isNull = false;                                                                     \
        binder_status_t status = internal::readBytes(parcel, vec, &isNull);                      \
        return status == STATUS_OK && isNull ? STATUS_UNEXPECTED_NULL : status;                  \
    }                                                                                            \
    inline binder_status_t AParcel_readVector(const AParcel* parcel,                             \
                                              std::optional<std::vector<BYTE>>* vec) {           \
        std::vector<BYTE> bytes;                                                                 \
        bool isNull = false;                                                                     \
        binder_status_t status = internal::readBytes(parcel, &bytes, &isNull);                   \
        if (status == STATUS_OK) *vec = isNull ? std::nullopt : std::optional(std::move(bytes)); \
        return status;                                                                           \
    }

TESSEL_NDK_BYTE_VECTOR(int8_t)
TESSEL_NDK_BYTE_VECTOR(uint8_t)
#undef TESSEL_NDK_BYTE_VECTOR

inline binder_status_t AParcel_writeVector(AParcel* parcel, const std::vector<bool>& vec) {
    if (vec.size() > static_cast<size_t>(std::numeric_limits<int32_t>::max())) {
        return STATUS_BAD_VALUE;
    }
    return AParcel_writeBoolArray(parcel, &vec, static_cast<int32_t>(vec.size()),
                                  AParcel_stdVectorGetter<bool>);
}

inline binder_status_t AParcel_writeVector(AParcel* parcel,
                                           const std::optional<std::vector<bool>>& vec) {
    if (!vec) return AParcel_writeBoolArray(parcel, nullptr, -1, AParcel_stdVectorGetter<bool>);
    return AParcel_writeVector(parcel, *vec);
}

inline binder_status_t AParcel_readVector(const AParcel* parcel, std::vector<bool>* vec) {
    return AParcel_readBoolArray(parcel, vec, AParcel_stdVectorExternalAllocator<bool>,
                                 AParcel_stdVectorSetter<bool>);
}

inline binder_status_t AParcel_readVector(const AParcel* parcel,
                                          std::optional<std::vector<bool>>* vec) {
    return AParcel_readBoolArray(parcel, vec, AParcel_nullableStdVectorExternalAllocator<bool>,
                                 AParcel_nullableStdVectorSetter<bool>);
}

// ---- sizes of out-arrays ----

// An `out` array travels as its length only: the caller sends the size it
// wants, the service sizes its result with AParcel_resizeVector.
template <typename T>
static inline binder_status_t AParcel_writeVectorSize(AParcel* parcel, const std::vector<T>& vec) {
    return internal::writeSize(parcel, vec.size());
}

template <typename T>
static inline binder_status_t AParcel_writeVectorSize(AParcel* parcel,
                                                      const std::optional<std::vector<T>>& vec) {
    if (!vec) return AParcel_writeInt32(parcel, -1);
    return internal::writeSize(parcel, vec->size());
}

template <typename T>
static inline binder_status_t AParcel_resizeVector(const AParcel* parcel, std::vector<T>* vec) {
    int32_t size = 0;
    binder_status_t status = AParcel_readInt32(parcel, &size);
    if (status != STATUS_OK) return status;
    if (size < 0) return STATUS_UNEXPECTED_NULL;
    if (static_cast<size_t>(size) > internal::kMaxOutArrayBytes / sizeof(T)) {
        return STATUS_BAD_VALUE;
    }
    vec->resize(static_cast<size_t>(size));
    return STATUS_OK;
}

template <typename T>
static inline binder_status_t AParcel_resizeVector(const AParcel* parcel,
                                                   std::optional<std::vector<T>>* vec) {
    int32_t size = 0;
    binder_status_t status = AParcel_readInt32(parcel, &size);
    if (status != STATUS_OK) return status;
    if (size < -1) return STATUS_BAD_VALUE;
    if (size == -1) {
        *vec = std::nullopt;
        return STATUS_OK;
    }
    if (static_cast<size_t>(size) > internal::kMaxOutArrayBytes / sizeof(T)) {
        return STATUS_BAD_VALUE;
    }
    vec->emplace(static_cast<size_t>(size));
    return STATUS_OK;
}

}  // namespace ndk
