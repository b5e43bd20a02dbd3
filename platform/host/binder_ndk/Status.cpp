// AStatus_* and the status/exception vocabularies.
#include "platform/host/binder_ndk/Status.h"

#include <cstring>
#include <string>

namespace zelkor::tessel::binder {
namespace {

// Read through a null AStatus: a holder that was never given a result.
const AStatus& NullStatus() {
    static const AStatus* status =
            new AStatus{EX_TRANSACTION_FAILED, STATUS_UNEXPECTED_NULL, std::string()};
    return *status;
}

const AStatus& Deref(const AStatus* status) {
    return status != nullptr ? *status : NullStatus();
}

AStatus* Make(binder_exception_t exception, int32_t errorCode, const char* message) {
    return new AStatus{exception, errorCode, message != nullptr ? message : ""};
}

const char* ExceptionName(binder_exception_t exception) {
    switch (exception) {
        case EX_NONE:
            return "EX_NONE";
        case EX_SECURITY:
            return "EX_SECURITY";
        case EX_BAD_PARCELABLE:
            return "EX_BAD_PARCELABLE";
        case EX_ILLEGAL_ARGUMENT:
            return "EX_ILLEGAL_ARGUMENT";
        case EX_NULL_POINTER:
            return "EX_NULL_POINTER";
        case EX_ILLEGAL_STATE:
            return "EX_ILLEGAL_STATE";
        case EX_NETWORK_MAIN_THREAD:
            return "EX_NETWORK_MAIN_THREAD";
        case EX_UNSUPPORTED_OPERATION:
            return "EX_UNSUPPORTED_OPERATION";
        case EX_SERVICE_SPECIFIC:
            return "EX_SERVICE_SPECIFIC";
        case EX_PARCELABLE:
            return "EX_PARCELABLE";
        case EX_TRANSACTION_FAILED:
            return "EX_TRANSACTION_FAILED";
        default:
            return "EX_UNKNOWN";
    }
}

}  // namespace

binder_status_t PruneStatus(int32_t status) {
    switch (status) {
        case STATUS_OK:
        case STATUS_UNKNOWN_ERROR:
        case STATUS_NO_MEMORY:
        case STATUS_INVALID_OPERATION:
        case STATUS_BAD_VALUE:
        case STATUS_BAD_TYPE:
        case STATUS_NAME_NOT_FOUND:
        case STATUS_PERMISSION_DENIED:
        case STATUS_NO_INIT:
        case STATUS_ALREADY_EXISTS:
        case STATUS_DEAD_OBJECT:
        case STATUS_FAILED_TRANSACTION:
        case STATUS_BAD_INDEX:
        case STATUS_NOT_ENOUGH_DATA:
        case STATUS_WOULD_BLOCK:
        case STATUS_TIMED_OUT:
        case STATUS_UNKNOWN_TRANSACTION:
        case STATUS_FDS_NOT_ALLOWED:
        case STATUS_UNEXPECTED_NULL:
            return status;
        default:
            return STATUS_UNKNOWN_ERROR;
    }
}

namespace {

// Unknown exception codes become EX_TRANSACTION_FAILED.
binder_exception_t PruneException(int32_t exception) {
    switch (exception) {
        case EX_NONE:
        case EX_SECURITY:
        case EX_BAD_PARCELABLE:
        case EX_ILLEGAL_ARGUMENT:
        case EX_NULL_POINTER:
        case EX_ILLEGAL_STATE:
        case EX_NETWORK_MAIN_THREAD:
        case EX_UNSUPPORTED_OPERATION:
        case EX_SERVICE_SPECIFIC:
        case EX_PARCELABLE:
        case EX_TRANSACTION_FAILED:
            return exception;
        default:
            return EX_TRANSACTION_FAILED;
    }
}

// "DEAD_OBJECT", "BAD_VALUE", ... or the number.
std::string StatusName(binder_status_t status) {
    switch (status) {
        case STATUS_OK:
            return "OK";
        case STATUS_UNKNOWN_ERROR:
            return "UNKNOWN_ERROR";
        case STATUS_NO_MEMORY:
            return "NO_MEMORY";
        case STATUS_INVALID_OPERATION:
            return "INVALID_OPERATION";
        case STATUS_BAD_VALUE:
            return "BAD_VALUE";
        case STATUS_BAD_TYPE:
            return "BAD_TYPE";
        case STATUS_NAME_NOT_FOUND:
            return "NAME_NOT_FOUND";
        case STATUS_PERMISSION_DENIED:
            return "PERMISSION_DENIED";
        case STATUS_NO_INIT:
            return "NO_INIT";
        case STATUS_ALREADY_EXISTS:
            return "ALREADY_EXISTS";
        case STATUS_DEAD_OBJECT:
            return "DEAD_OBJECT";
        case STATUS_FAILED_TRANSACTION:
            return "FAILED_TRANSACTION";
        case STATUS_BAD_INDEX:
            return "BAD_INDEX";
        case STATUS_NOT_ENOUGH_DATA:
            return "NOT_ENOUGH_DATA";
        case STATUS_WOULD_BLOCK:
            return "WOULD_BLOCK";
        case STATUS_TIMED_OUT:
            return "TIMED_OUT";
        case STATUS_UNKNOWN_TRANSACTION:
            return "UNKNOWN_TRANSACTION";
        case STATUS_FDS_NOT_ALLOWED:
            return "FDS_NOT_ALLOWED";
        case STATUS_UNEXPECTED_NULL:
            return "UNEXPECTED_NULL";
        default:
            return std::to_string(status);
    }
}

}  // namespace

}  // namespace zelkor::tessel::binder

using namespace zelkor::tessel::binder;

AStatus* AStatus_newOk() {
    return Make(EX_NONE, 0, nullptr);
}

AStatus* AStatus_fromExceptionCode(binder_exception_t exception) {
    return AStatus_fromExceptionCodeWithMessage(exception, nullptr);
}

AStatus* AStatus_fromExceptionCodeWithMessage(binder_exception_t exception, const char* message) {
    exception = PruneException(exception);
    int32_t errorCode = exception == EX_TRANSACTION_FAILED ? STATUS_FAILED_TRANSACTION : 0;
    return Make(exception, errorCode, message);
}

AStatus* AStatus_fromServiceSpecificError(int32_t serviceSpecific) {
    return Make(EX_SERVICE_SPECIFIC, serviceSpecific, nullptr);
}

AStatus* AStatus_fromServiceSpecificErrorWithMessage(int32_t serviceSpecific, const char* message) {
    return Make(EX_SERVICE_SPECIFIC, serviceSpecific, message);
}

AStatus* AStatus_fromStatus(binder_status_t status) {
    status = PruneStatus(status);
    return Make(status == STATUS_OK ? EX_NONE : EX_TRANSACTION_FAILED, status, nullptr);
}

bool AStatus_isOk(const AStatus* status) {
    return status != nullptr && status->exception == EX_NONE;
}

binder_exception_t AStatus_getExceptionCode(const AStatus* status) {
    return PruneException(Deref(status).exception);
}

int32_t AStatus_getServiceSpecificError(const AStatus* status) {
    const AStatus& s = Deref(status);
    return s.exception == EX_SERVICE_SPECIFIC ? s.errorCode : 0;
}

binder_status_t AStatus_getStatus(const AStatus* status) {
    const AStatus& s = Deref(status);
    return s.exception == EX_TRANSACTION_FAILED ? PruneStatus(s.errorCode) : STATUS_OK;
}

const char* AStatus_getMessage(const AStatus* status) {
    return Deref(status).message.c_str();
}

const char* AStatus_getDescription(const AStatus* status) {
    const AStatus& s = Deref(status);
    std::string text;
    if (s.exception == EX_NONE) {
        text = "No error";
    } else {
        text = "Status(" + std::to_string(s.exception) + ", " + ExceptionName(s.exception) + "): '";
        if (s.exception == EX_SERVICE_SPECIFIC) {
            text += std::to_string(s.errorCode) + ": ";
        } else if (s.exception == EX_TRANSACTION_FAILED) {
            text += StatusName(PruneStatus(s.errorCode)) + ": ";
        }
        text += s.message + "'";
    }
    char* copy = new char[text.size() + 1];
    memcpy(copy, text.c_str(), text.size() + 1);
    return copy;
}

void AStatus_deleteDescription(const char* description) {
    delete[] description;
}

void AStatus_delete(AStatus* status) {
    delete status;
}
