// Log tag and helpers of the minidump code. Failures go to the Android log
// under "BSPLogProcessor" with errno as "%d(%s)"; the progress notes that the
// boot run prints go to stdout with MD_PRINT.
#pragma once

#include <android/log.h>

#include <cstdio>

namespace zelkor::tessel::Minidump {

constexpr char kLogTag[] = "BSPLogProcessor";

}  // namespace zelkor::tessel::Minidump

#define MD_LOGD(...) \
    __android_log_print(ANDROID_LOG_DEBUG, ::zelkor::tessel::Minidump::kLogTag, __VA_ARGS__)
#define MD_LOGI(...) \
    __android_log_print(ANDROID_LOG_INFO, ::zelkor::tessel::Minidump::kLogTag, __VA_ARGS__)
#define MD_LOGW(...) \
    __android_log_print(ANDROID_LOG_WARN, ::zelkor::tessel::Minidump::kLogTag, __VA_ARGS__)
#define MD_LOGE(...) \
    __android_log_print(ANDROID_LOG_ERROR, ::zelkor::tessel::Minidump::kLogTag, __VA_ARGS__)
#define MD_PRINT(...) printf(__VA_ARGS__)
