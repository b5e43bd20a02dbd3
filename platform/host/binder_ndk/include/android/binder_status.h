// libbinder_ndk status objects, host build.
//
// A binder call can fail in two ways: the transport (or the parcel code) fails
// and hands back a binder_status_t, or the service answers with an exception
// (binder_exception_t), possibly a service-specific error code with a message.
// AStatus carries either. The numeric values are the platform's: code that
// logs or compares them behaves the same on a device and on a host.
#pragma once

#include <errno.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>

#ifndef __INTRODUCED_IN
#define __INTRODUCED_IN(api_level)
#endif

__BEGIN_DECLS

// Low-level results of parcel and transport operations.
enum {
    STATUS_OK = 0,

    STATUS_UNKNOWN_ERROR = (-2147483647 - 1),
    STATUS_NO_MEMORY = -ENOMEM,
    STATUS_INVALID_OPERATION = -ENOSYS,
    STATUS_BAD_VALUE = -EINVAL,
    STATUS_BAD_TYPE = (STATUS_UNKNOWN_ERROR + 1),
    STATUS_NAME_NOT_FOUND = -ENOENT,
    STATUS_PERMISSION_DENIED = -EPERM,
    STATUS_NO_INIT = -ENODEV,
    STATUS_ALREADY_EXISTS = -EEXIST,
    STATUS_DEAD_OBJECT = -EPIPE,
    STATUS_FAILED_TRANSACTION = (STATUS_UNKNOWN_ERROR + 2),
    STATUS_BAD_INDEX = -EOVERFLOW,
    STATUS_NOT_ENOUGH_DATA = -ENODATA,
    STATUS_WOULD_BLOCK = -EWOULDBLOCK,
    STATUS_TIMED_OUT = -ETIMEDOUT,
    STATUS_UNKNOWN_TRANSACTION = -EBADMSG,
    STATUS_FDS_NOT_ALLOWED = (STATUS_UNKNOWN_ERROR + 7),
    STATUS_UNEXPECTED_NULL = (STATUS_UNKNOWN_ERROR + 8),
};

typedef int32_t binder_status_t;

// Exceptions a service can answer with (the Java exception it would map to in
// the platform's own code is in the name).
enum {
    EX_NONE = 0,
    EX_SECURITY = -1,
    EX_BAD_PARCELABLE = -2,
    EX_ILLEGAL_ARGUMENT = -3,
    EX_NULL_POINTER = -4,
    EX_ILLEGAL_STATE = -5,
    EX_NETWORK_MAIN_THREAD = -6,
    EX_UNSUPPORTED_OPERATION = -7,
    EX_SERVICE_SPECIFIC = -8,
    EX_PARCELABLE = -9,
    // The call did not reach the service or its answer was lost; the
    // binder_status_t (AStatus_getStatus) says why.
    EX_TRANSACTION_FAILED = -129,
};

typedef int32_t binder_exception_t;

struct AStatus;
typedef struct AStatus AStatus;

// Every constructor returns a new object owned by the caller (AStatus_delete).

// EX_NONE.
__attribute__((warn_unused_result)) AStatus* AStatus_newOk(void) __INTRODUCED_IN(29);

// `exception` with no message; EX_NONE makes an ok status.
__attribute__((warn_unused_result)) AStatus* AStatus_fromExceptionCode(binder_exception_t exception)
        __INTRODUCED_IN(29);

// `exception` with `message` (copied).
__attribute__((warn_unused_result)) AStatus* AStatus_fromExceptionCodeWithMessage(
        binder_exception_t exception, const char* message) __INTRODUCED_IN(29);

// EX_SERVICE_SPECIFIC with the service's own error code.
__attribute__((warn_unused_result)) AStatus* AStatus_fromServiceSpecificError(
        int32_t serviceSpecific) __INTRODUCED_IN(29);

// EX_SERVICE_SPECIFIC with the service's own error code and `message` (copied).
__attribute__((warn_unused_result)) AStatus* AStatus_fromServiceSpecificErrorWithMessage(
        int32_t serviceSpecific, const char* message) __INTRODUCED_IN(29);

// A transport-level result: STATUS_OK makes an ok status, anything else
// EX_TRANSACTION_FAILED carrying `status`.
__attribute__((warn_unused_result)) AStatus* AStatus_fromStatus(binder_status_t status)
        __INTRODUCED_IN(29);

// True when the exception is EX_NONE.
bool AStatus_isOk(const AStatus* status) __INTRODUCED_IN(29);

binder_exception_t AStatus_getExceptionCode(const AStatus* status) __INTRODUCED_IN(29);

// The service's error code for EX_SERVICE_SPECIFIC, 0 otherwise.
int32_t AStatus_getServiceSpecificError(const AStatus* status) __INTRODUCED_IN(29);

// The transport status for EX_TRANSACTION_FAILED, 0 otherwise.
binder_status_t AStatus_getStatus(const AStatus* status) __INTRODUCED_IN(29);

// The message, or "" when there is none; valid as long as `status` is.
const char* AStatus_getMessage(const AStatus* status) __INTRODUCED_IN(29);

// A readable one-line description; free it with AStatus_deleteDescription.
__attribute__((warn_unused_result)) const char* AStatus_getDescription(const AStatus* status)
        __INTRODUCED_IN(30);

void AStatus_deleteDescription(const char* description) __INTRODUCED_IN(30);

void AStatus_delete(AStatus* status) __INTRODUCED_IN(29);

__END_DECLS
