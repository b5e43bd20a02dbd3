// The code under test logs every step; a fuzzer only cares whether it
// crashes, and writing the lines would cost more than the parsing itself.
#pragma once

#include <android/log.h>

namespace zelkor::tessel::fuzz {

inline void SilenceLog() {
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
}

}  // namespace zelkor::tessel::fuzz
