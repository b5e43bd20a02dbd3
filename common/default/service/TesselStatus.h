// Status values of the file-system service and its log.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_status.h>
#include <android/log.h>

namespace zelkor::tessel {

// Binder status values the service answers with; a client sees the same
// numbers.
constexpr binder_status_t TESSEL_NOENT = -2;
constexpr binder_status_t TESSEL_EINVAL = -22;
// The file named for reading could not be opened.
constexpr binder_status_t TESSEL_OPEN_FAILED = -17;
// INVALID_OPERATION is the binder runtime's STATUS_INVALID_OPERATION (-38).

inline ndk::ScopedAStatus TesselStatus(binder_status_t status) {
    return status == STATUS_OK ? ndk::ScopedAStatus::ok() : ndk::ScopedAStatus::fromStatus(status);
}

}  // namespace zelkor::tessel

// The service logs under its own tag: errors at error priority, progress at
// debug priority.
#define TESSEL_IMPL_TAG "tessel.impl"
#define TLOGE(...) __android_log_print(ANDROID_LOG_ERROR, TESSEL_IMPL_TAG, __VA_ARGS__)
#define TLOGD(...) __android_log_print(ANDROID_LOG_DEBUG, TESSEL_IMPL_TAG, __VA_ARGS__)
