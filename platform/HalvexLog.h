// Logging helpers for framework and module classes.
//
// Every message of these classes goes to the Android log under the class's tag
// ("Halvex-" + class name) and starts with "[function] ". The prefix is added
// here once instead of at every call site.
#pragma once

#include <android/log.h>

namespace zelkor::tessel {

// Writes "[func] " followed by the formatted message to the Android log.
void HalvexLogPrint(int prio, const char* tag, const char* func, const char* fmt, ...)
        __attribute__((format(printf, 4, 5)));

}  // namespace zelkor::tessel

// Explicit tag and function name, for the few messages whose bracketed name is
// not the calling function's own.
#define HALVEX_LOG_FN(prio, tag, func, fmt, ...) \
    ::zelkor::tessel::HalvexLogPrint(prio, tag, func, fmt, ##__VA_ARGS__)

// The translation unit's LOG_TAG and the calling function's name.
#define HLOGV(fmt, ...) HALVEX_LOG_FN(ANDROID_LOG_VERBOSE, LOG_TAG, __func__, fmt, ##__VA_ARGS__)
#define HLOGD(fmt, ...) HALVEX_LOG_FN(ANDROID_LOG_DEBUG, LOG_TAG, __func__, fmt, ##__VA_ARGS__)
#define HLOGI(fmt, ...) HALVEX_LOG_FN(ANDROID_LOG_INFO, LOG_TAG, __func__, fmt, ##__VA_ARGS__)
#define HLOGW(fmt, ...) HALVEX_LOG_FN(ANDROID_LOG_WARN, LOG_TAG, __func__, fmt, ##__VA_ARGS__)
#define HLOGE(fmt, ...) HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, __func__, fmt, ##__VA_ARGS__)
#define HLOGF(fmt, ...) HALVEX_LOG_FN(ANDROID_LOG_FATAL, LOG_TAG, __func__, fmt, ##__VA_ARGS__)
