// The reply status header, in the platform's layout: int32 exception; for an
// exception then the message (String16), an int32 remote stack trace header
// size (0 when writing), and the service-specific code for
// EX_SERVICE_SPECIFIC (or an empty parcelable header for EX_PARCELABLE).
#include "platform/host/binder_ndk/Parcel.h"
#include "platform/host/binder_ndk/Status.h"

using namespace zelkor::tessel::binder;

namespace {

// A header that precedes a successful reply in some platform code.
constexpr int32_t kExHasReplyHeader = -128;

// Skips a size-prefixed block (the size counts its own four bytes); the size
// must fit in what is left. A size below four would lead back into the size
// word (or between its bytes) and mis-read everything after it; only a zero
// where that means "no block" is allowed.
binder_status_t SkipSizedBlock(const AParcel* parcel, bool zeroMeansEmpty) {
    const size_t start = parcel->position;
    const size_t available = parcel->available();
    int32_t size = 0;
    binder_status_t status = parcel->read(&size);
    if (status != STATUS_OK) return status;
    if (size == 0 && zeroMeansEmpty) return STATUS_OK;
    if (size < 4 || static_cast<size_t>(size) > available) return STATUS_BAD_VALUE;
    parcel->position = start + static_cast<size_t>(size);
    return STATUS_OK;
}

}  // namespace

binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status) {
    // A transport error is not sent as data: the caller returns it from
    // onTransact and the client's AIBinder_transact reports it.
    if (status->exception == EX_TRANSACTION_FAILED) return PruneStatus(status->errorCode);
    binder_status_t result = parcel->write<int32_t>(status->exception);
    if (result != STATUS_OK || status->exception == EX_NONE) return result;
    result = WriteString16(parcel, status->message.data(), status->message.size());
    if (result == STATUS_OK) result = parcel->write<int32_t>(0);
    if (result != STATUS_OK) return result;
    if (status->exception == EX_SERVICE_SPECIFIC) return parcel->write<int32_t>(status->errorCode);
    if (status->exception == EX_PARCELABLE) return parcel->write<int32_t>(0);
    return STATUS_OK;
}

binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status) {
    int32_t exception = 0;
    binder_status_t result = parcel->read(&exception);
    if (result != STATUS_OK) return result;
    if (exception == kExHasReplyHeader) {
        result = SkipSizedBlock(parcel, false);
        if (result != STATUS_OK) return result;
        exception = EX_NONE;
    }
    if (exception == EX_NONE) {
        *status = new AStatus();
        return STATUS_OK;
    }
    std::string message;
    bool isNull = false;
    result = ReadString16(parcel, &message, &isNull);
    if (result == STATUS_OK) result = SkipSizedBlock(parcel, true);
    if (result != STATUS_OK) return result;
    int32_t errorCode = 0;
    if (exception == EX_SERVICE_SPECIFIC) {
        result = parcel->read(&errorCode);
    } else if (exception == EX_PARCELABLE) {
        // Writers send an empty blob as a zero size.
        result = SkipSizedBlock(parcel, true);
    }
    if (result != STATUS_OK) return result;
    *status = new AStatus{exception, errorCode, std::move(message)};
    return STATUS_OK;
}
