// libbinder_ndk parcels, host build.
//
// An AParcel is the byte stream of one transaction or reply plus the objects
// (file descriptors, binders) it refers to. Data is read back in the order it
// was written; every read checks the remaining length first and fails with
// STATUS_NOT_ENOUGH_DATA past the end, so a parcel from another process can
// never make the reader run off its buffer.
//
// Arrays and strings are handed to the caller's containers through allocator
// callbacks: the parcel code learns the length, asks the callback for a buffer
// (or for a "null" value when the length is -1) and fills it.
#pragma once

#include <android/binder_status.h>
#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/cdefs.h>
#include <uchar.h>

struct AIBinder;
typedef struct AIBinder AIBinder;

__BEGIN_DECLS

struct AParcel;
typedef struct AParcel AParcel;

// Frees a parcel from AParcel_create, AIBinder_prepareTransaction or
// AIBinder_transact, closing the file descriptors it holds.
void AParcel_delete(AParcel* parcel) __INTRODUCED_IN(29);

// Moves the read/write position to a value AParcel_getDataPosition returned
// earlier. Negative positions give STATUS_BAD_VALUE; a position past the end
// is accepted and makes the next read fail.
binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position)
        __INTRODUCED_IN(29);

// The current position, in bytes from the start of the data.
int32_t AParcel_getDataPosition(const AParcel* parcel) __INTRODUCED_IN(29);

// Gets a buffer of `length` bytes (terminating NUL included) for a string, or
// stores a null string when `length` is -1. Returns false on failure.
typedef bool (*AParcel_stringAllocator)(void* stringData, int32_t length, char** buffer);

// Sizes a string array to `length` entries, or stores a null array for -1.
typedef bool (*AParcel_stringArrayAllocator)(void* arrayData, int32_t length);

// Gets a buffer of `length` bytes for the string at `index` of an array sized
// by AParcel_stringArrayAllocator, or stores a null entry for -1.
typedef bool (*AParcel_stringArrayElementAllocator)(void* arrayData, size_t index, int32_t length,
                                                    char** buffer);

// Returns the string at `index` (not necessarily NUL-terminated) and its
// length in bytes through `outLength`; a null entry returns null and -1.
typedef const char* (*AParcel_stringArrayElementGetter)(const void* arrayData, size_t index,
                                                        int32_t* outLength);

// Sizes an array of parcelables to `length` entries, or stores null for -1.
typedef bool (*AParcel_parcelableArrayAllocator)(void* arrayData, int32_t length);

// Writes the parcelable at `index`.
typedef binder_status_t (*AParcel_writeParcelableElement)(AParcel* parcel, const void* arrayData,
                                                          size_t index);

// Reads the parcelable at `index`.
typedef binder_status_t (*AParcel_readParcelableElement)(const AParcel* parcel, void* arrayData,
                                                         size_t index);

// Contiguous-array allocators: size the array to `length` and hand back its
// buffer (which may be null for length 0), or store a null array for -1.
typedef bool (*AParcel_int32ArrayAllocator)(void* arrayData, int32_t length, int32_t** outBuffer);
typedef bool (*AParcel_uint32ArrayAllocator)(void* arrayData, int32_t length, uint32_t** outBuffer);
typedef bool (*AParcel_int64ArrayAllocator)(void* arrayData, int32_t length, int64_t** outBuffer);
typedef bool (*AParcel_uint64ArrayAllocator)(void* arrayData, int32_t length, uint64_t** outBuffer);
typedef bool (*AParcel_floatArrayAllocator)(void* arrayData, int32_t length, float** outBuffer);
typedef bool (*AParcel_doubleArrayAllocator)(void* arrayData, int32_t length, double** outBuffer);
typedef bool (*AParcel_charArrayAllocator)(void* arrayData, int32_t length, char16_t** outBuffer);
typedef bool (*AParcel_byteArrayAllocator)(void* arrayData, int32_t length, int8_t** outBuffer);

// Bool arrays are not contiguous in every container, so they go element by
// element.
typedef bool (*AParcel_boolArrayAllocator)(void* arrayData, int32_t length);
typedef bool (*AParcel_boolArrayGetter)(const void* arrayData, size_t index);
typedef void (*AParcel_boolArraySetter)(void* arrayData, size_t index, bool value);

// Writes a binder (or null). The caller keeps its reference.
binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) __INTRODUCED_IN(29);

// Reads a binder (or null); the caller owns one strong reference to it.
binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder)
        __INTRODUCED_IN(29);

// Writes a ParcelFileDescriptor: a duplicate of `fd`, or null for -1. The
// caller keeps `fd`.
binder_status_t AParcel_writeParcelFileDescriptor(AParcel* parcel, int fd) __INTRODUCED_IN(29);

// Reads a ParcelFileDescriptor into a new descriptor the caller must close, or
// -1 for null.
binder_status_t AParcel_readParcelFileDescriptor(const AParcel* parcel, int* fd)
        __INTRODUCED_IN(29);

// Writes the reply header a generated service writes before its results. A
// status that only carries a transport error (AStatus_fromStatus) writes
// nothing and returns that error instead, which the service must return from
// its onTransact so that the caller sees it.
binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status)
        __INTRODUCED_IN(29);

// Reads a reply header into a new status owned by the caller.
binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status)
        __INTRODUCED_IN(29);

// Writes `length` bytes of UTF-8 (not necessarily NUL-terminated), or a null
// string when `string` is null and `length` is -1. Invalid UTF-8 gives
// STATUS_BAD_VALUE.
binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length)
        __INTRODUCED_IN(29);

// Reads a string as UTF-8 into the buffer `allocator` provides (length counts
// the terminating NUL); a null string calls `allocator` with -1.
binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                   AParcel_stringAllocator allocator) __INTRODUCED_IN(29);

// Writes `length` strings obtained from `getter`, or a null array for -1.
binder_status_t AParcel_writeStringArray(AParcel* parcel, const void* arrayData, int32_t length,
                                         AParcel_stringArrayElementGetter getter)
        __INTRODUCED_IN(29);

// Reads a string array: `allocator` sizes it, `elementAllocator` provides each
// string's buffer.
binder_status_t AParcel_readStringArray(const AParcel* parcel, void* arrayData,
                                        AParcel_stringArrayAllocator allocator,
                                        AParcel_stringArrayElementAllocator elementAllocator)
        __INTRODUCED_IN(29);

// Writes `length` user-defined values through `elementWriter`, or null for -1.
binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter)
        __INTRODUCED_IN(29);

// Reads user-defined values: `allocator` sizes the array, `elementReader`
// reads each entry.
binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader)
        __INTRODUCED_IN(29);

// Scalars. Every value takes a multiple of four bytes in the parcel.
binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeUint32(AParcel* parcel, uint32_t value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeUint64(AParcel* parcel, uint64_t value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeFloat(AParcel* parcel, float value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeDouble(AParcel* parcel, double value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeBool(AParcel* parcel, bool value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeChar(AParcel* parcel, char16_t value) __INTRODUCED_IN(29);
binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value) __INTRODUCED_IN(29);

binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readUint32(const AParcel* parcel, uint32_t* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readUint64(const AParcel* parcel, uint64_t* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readFloat(const AParcel* parcel, float* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readDouble(const AParcel* parcel, double* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readChar(const AParcel* parcel, char16_t* value) __INTRODUCED_IN(29);
binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value) __INTRODUCED_IN(29);

// Arrays: a length (-1 for null, which needs a null `arrayData`) then the
// elements.
binder_status_t AParcel_writeInt32Array(AParcel* parcel, const int32_t* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeUint32Array(AParcel* parcel, const uint32_t* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeInt64Array(AParcel* parcel, const int64_t* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeUint64Array(AParcel* parcel, const uint64_t* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeFloatArray(AParcel* parcel, const float* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeDoubleArray(AParcel* parcel, const double* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeBoolArray(AParcel* parcel, const void* arrayData, int32_t length,
                                       AParcel_boolArrayGetter getter) __INTRODUCED_IN(29);
binder_status_t AParcel_writeCharArray(AParcel* parcel, const char16_t* arrayData, int32_t length)
        __INTRODUCED_IN(29);
binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* arrayData, int32_t length)
        __INTRODUCED_IN(29);

binder_status_t AParcel_readInt32Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int32ArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readUint32Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint32ArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readInt64Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int64ArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readUint64Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint64ArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readFloatArray(const AParcel* parcel, void* arrayData,
                                       AParcel_floatArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readDoubleArray(const AParcel* parcel, void* arrayData,
                                        AParcel_doubleArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readBoolArray(const AParcel* parcel, void* arrayData,
                                      AParcel_boolArrayAllocator allocator,
                                      AParcel_boolArraySetter setter) __INTRODUCED_IN(29);
binder_status_t AParcel_readCharArray(const AParcel* parcel, void* arrayData,
                                      AParcel_charArrayAllocator allocator) __INTRODUCED_IN(29);
binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData,
                                      AParcel_byteArrayAllocator allocator) __INTRODUCED_IN(29);

// Empties the parcel (data and objects) and rewinds it.
binder_status_t AParcel_reset(AParcel* parcel) __INTRODUCED_IN(31);

// Bytes of data in the parcel.
int32_t AParcel_getDataSize(const AParcel* parcel) __INTRODUCED_IN(31);

// Appends `size` bytes of `from` starting at `start` to `to`. Ranges holding
// binders or file descriptors are refused on the host (STATUS_INVALID_OPERATION).
binder_status_t AParcel_appendFrom(const AParcel* from, AParcel* to, int32_t start, int32_t size)
        __INTRODUCED_IN(31);

// A new empty parcel not tied to any binder; free with AParcel_delete.
AParcel* AParcel_create(void) __INTRODUCED_IN(31);

// Copies `len` bytes of the parcel's data starting at `start` into `buffer`.
// Parcels with binders or descriptors give STATUS_INVALID_OPERATION, a range
// past the data STATUS_BAD_VALUE.
binder_status_t AParcel_marshal(const AParcel* parcel, uint8_t* buffer, size_t start, size_t len)
        __INTRODUCED_IN(33);

// Replaces the parcel's data with `len` bytes from `buffer`.
binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len)
        __INTRODUCED_IN(33);

__END_DECLS
