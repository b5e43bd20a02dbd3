// AParcel storage, positions and scalars.
#include "platform/host/binder_ndk/Parcel.h"

#include <algorithm>

#include "platform/host/binder_ndk/BulkCopy.h"
#include "platform/host/binder_ndk/Limits.h"

namespace zelkor::tessel::binder {
namespace {

// The int32 a bool, char or byte travels as, narrowed back.
template <typename T>
binder_status_t ReadWidened(const AParcel* parcel, T* value) {
    int32_t wide = 0;
    binder_status_t status = parcel->read(&wide);
    if (status == STATUS_OK) *value = static_cast<T>(wide);
    return status;
}

}  // namespace

binder_status_t WriteShortBytes(AParcel* parcel, std::string_view bytes) {
    if (bytes.size() > kMaxBinderTextBytes) return STATUS_BAD_VALUE;
    binder_status_t status = parcel->write<int32_t>(static_cast<int32_t>(bytes.size()));
    if (status != STATUS_OK) return status;
    uint8_t* out = parcel->writeInplace(bytes.size());
    if (out == nullptr) return STATUS_NO_MEMORY;
    if (!bytes.empty()) memcpy(out, bytes.data(), bytes.size());
    return STATUS_OK;
}

binder_status_t ReadShortBytes(const AParcel* parcel, size_t maxLength, std::string* bytes) {
    int32_t length = 0;
    binder_status_t status = parcel->read(&length);
    if (status != STATUS_OK) return status;
    if (length < 0 || static_cast<size_t>(length) > maxLength) return STATUS_BAD_VALUE;
    const uint8_t* in = parcel->readInplace(static_cast<size_t>(length));
    if (in == nullptr) return STATUS_NOT_ENOUGH_DATA;
    bytes->assign(reinterpret_cast<const char*>(in), static_cast<size_t>(length));
    return STATUS_OK;
}

}  // namespace zelkor::tessel::binder

using namespace zelkor::tessel::binder;

uint8_t* AParcel::writeInplace(size_t size) {
    if (size > kMaxParcelBytes || position > kMaxParcelBytes) return nullptr;
    const size_t padded = Padded(size);
    if (padded > kMaxParcelBytes - position) return nullptr;
    const size_t end = position + padded;
    growTo(end);
    uint8_t* out = data.data() + position;
    memset(out + size, 0, padded - size);
    position = end;
    return out;
}

void AParcel::growTo(size_t size) {
    const size_t old = data.size();
    if (size <= old) return;
    data.resize(size);
    // Bytes between the old end and the position are never written, and
    // must not carry stale heap contents to a peer.
    if (position > old) memset(data.data() + old, 0, std::min(position, size) - old);
}

const uint8_t* AParcel::readInplace(size_t size) const {
    static const uint8_t kNothing = 0;
    if (size > kMaxParcelBytes || position > data.size()) return nullptr;
    const size_t padded = Padded(size);
    if (padded > data.size() - position) return nullptr;
    if (size == 0) return &kNothing;
    const uint8_t* in = data.data() + position;
    position += padded;
    return in;
}

void AParcel_delete(AParcel* parcel) {
    delete parcel;
}

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
    if (position < 0) return STATUS_BAD_VALUE;
    parcel->position = static_cast<size_t>(position);
    return STATUS_OK;
}

int32_t AParcel_getDataPosition(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->position);
}

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value) {
    return parcel->write(value);
}

binder_status_t AParcel_writeUint32(AParcel* parcel, uint32_t value) {
    return parcel->write(value);
}

binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value) {
    return parcel->write(value);
}

binder_status_t AParcel_writeUint64(AParcel* parcel, uint64_t value) {
    return parcel->write(value);
}

binder_status_t AParcel_writeFloat(AParcel* parcel, float value) {
    return parcel->write(value);
}

binder_status_t AParcel_writeDouble(AParcel* parcel, double value) {
    return parcel->write(value);
}

// bool, char and byte each take a whole int32 on the wire.
binder_status_t AParcel_writeBool(AParcel* parcel, bool value) {
    return parcel->write<int32_t>(value ? 1 : 0);
}

binder_status_t AParcel_writeChar(AParcel* parcel, char16_t value) {
    return parcel->write<int32_t>(static_cast<int32_t>(value));
}

binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value) {
    return parcel->write<int32_t>(value);
}

binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value) {
    return parcel->read(value);
}

binder_status_t AParcel_readUint32(const AParcel* parcel, uint32_t* value) {
    return parcel->read(value);
}

binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value) {
    return parcel->read(value);
}

binder_status_t AParcel_readUint64(const AParcel* parcel, uint64_t* value) {
    return parcel->read(value);
}

binder_status_t AParcel_readFloat(const AParcel* parcel, float* value) {
    return parcel->read(value);
}

binder_status_t AParcel_readDouble(const AParcel* parcel, double* value) {
    return parcel->read(value);
}

binder_status_t AParcel_readBool(const AParcel* parcel, bool* value) {
    return ReadWidened(parcel, value);
}

binder_status_t AParcel_readChar(const AParcel* parcel, char16_t* value) {
    return ReadWidened(parcel, value);
}

binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value) {
    return ReadWidened(parcel, value);
}

binder_status_t AParcel_reset(AParcel* parcel) {
    parcel->data.clear();
    parcel->fds.clear();
    parcel->hasBinders = false;
    parcel->position = 0;
    return STATUS_OK;
}

int32_t AParcel_getDataSize(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->data.size());
}

binder_status_t AParcel_appendFrom(const AParcel* from, AParcel* to, int32_t start, int32_t size) {
    if (start < 0 || size < 0) return STATUS_BAD_VALUE;
    const size_t begin = static_cast<size_t>(start);
    const size_t count = static_cast<size_t>(size);
    if (begin > from->data.size() || count > from->data.size() - begin) return STATUS_BAD_VALUE;
    // Object records refer to descriptors by index; copying them would need
    // the records' offsets, which the host parcel does not keep.
    if (from->hasObjects()) return STATUS_INVALID_OPERATION;
    if (to->position > kMaxParcelBytes || count > kMaxParcelBytes - to->position) {
        return STATUS_NO_MEMORY;
    }
    // Copy first: `from` and `to` may be the same parcel.
    std::vector<uint8_t> bytes(from->data.data() + begin, from->data.data() + begin + count);
    const size_t end = to->position + count;
    to->growTo(end);
    CopyBytes(to->data.data() + to->position, bytes.data(), count);
    to->position = end;
    return STATUS_OK;
}

AParcel* AParcel_create() {
    return new AParcel();
}

binder_status_t AParcel_marshal(const AParcel* parcel, uint8_t* buffer, size_t start, size_t len) {
    if (parcel->hasObjects()) return STATUS_INVALID_OPERATION;
    if (start > parcel->data.size() || len > parcel->data.size() - start) return STATUS_BAD_VALUE;
    CopyBytes(buffer, parcel->data.data() + start, len);
    return STATUS_OK;
}

binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len) {
    if (len > kMaxParcelBytes) return STATUS_NO_MEMORY;
    parcel->data.assign(buffer, len);
    parcel->fds.clear();
    parcel->hasBinders = false;
    parcel->position = 0;
    return STATUS_OK;
}
