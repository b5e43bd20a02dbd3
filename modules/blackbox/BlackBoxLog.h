// Log tag and helpers of the blackbox code. Its failures go to the Android log
// under one tag with errno as "%d(%s)"; its progress notes go to stdout, as the
// rest of the crash-processing run does.
#pragma once

#include <android/log.h>

namespace zelkor::tessel::blackbox {

constexpr char kBlackBoxLogTag[] = "BSPLogProcessor-BlackBox";

}  // namespace zelkor::tessel::blackbox

#define BB_LOGI(...) \
    __android_log_print(ANDROID_LOG_INFO, ::zelkor::tessel::blackbox::kBlackBoxLogTag, __VA_ARGS__)
#define BB_LOGW(...) \
    __android_log_print(ANDROID_LOG_WARN, ::zelkor::tessel::blackbox::kBlackBoxLogTag, __VA_ARGS__)
#define BB_LOGE(...) \
    __android_log_print(ANDROID_LOG_ERROR, ::zelkor::tessel::blackbox::kBlackBoxLogTag, __VA_ARGS__)
