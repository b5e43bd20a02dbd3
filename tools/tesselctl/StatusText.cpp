#include "tools/tesselctl/StatusText.h"

#include <android-base/stringprintf.h>

namespace zelkor::tessel::tools {

const char* StatusName(binder_status_t status) {
    switch (status) {
        case STATUS_OK:
            return "STATUS_OK";
        case STATUS_UNKNOWN_ERROR:
            return "STATUS_UNKNOWN_ERROR";
        case STATUS_NO_MEMORY:
            return "STATUS_NO_MEMORY";
        case STATUS_INVALID_OPERATION:
            return "STATUS_INVALID_OPERATION";
        case STATUS_BAD_VALUE:
            return "STATUS_BAD_VALUE";
        case STATUS_BAD_TYPE:
            return "STATUS_BAD_TYPE";
        case STATUS_NAME_NOT_FOUND:
            return "STATUS_NAME_NOT_FOUND";
        case STATUS_PERMISSION_DENIED:
            return "STATUS_PERMISSION_DENIED";
        case STATUS_NO_INIT:
            return "STATUS_NO_INIT";
        case STATUS_ALREADY_EXISTS:
            return "STATUS_ALREADY_EXISTS";
        case STATUS_DEAD_OBJECT:
            return "STATUS_DEAD_OBJECT";
        case STATUS_FAILED_TRANSACTION:
            return "STATUS_FAILED_TRANSACTION";
        case STATUS_BAD_INDEX:
            return "STATUS_BAD_INDEX";
        case STATUS_NOT_ENOUGH_DATA:
            return "STATUS_NOT_ENOUGH_DATA";
        case STATUS_WOULD_BLOCK:
            return "STATUS_WOULD_BLOCK";
        case STATUS_TIMED_OUT:
            return "STATUS_TIMED_OUT";
        case STATUS_UNKNOWN_TRANSACTION:
            return "STATUS_UNKNOWN_TRANSACTION";
        case STATUS_FDS_NOT_ALLOWED:
            return "STATUS_FDS_NOT_ALLOWED";
        case STATUS_UNEXPECTED_NULL:
            return "STATUS_UNEXPECTED_NULL";
        default:
            return "STATUS_?";
    }
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
            return "EX_?";
    }
}

std::string DescribeStatus(const AStatus* status) {
    binder_exception_t exception = AStatus_getExceptionCode(status);
    std::string text = android::base::StringPrintf("%s (%d)", ExceptionName(exception), exception);
    if (exception == EX_TRANSACTION_FAILED) {
        binder_status_t code = AStatus_getStatus(status);
        text += android::base::StringPrintf(": %s (%d)", StatusName(code), code);
    } else if (exception == EX_SERVICE_SPECIFIC) {
        text += android::base::StringPrintf(": code %d", AStatus_getServiceSpecificError(status));
    }
    const char* message = AStatus_getMessage(status);
    if (message != nullptr && message[0] != '\0') text += std::string(": ") + message;
    return text;
}

}  // namespace zelkor::tessel::tools
