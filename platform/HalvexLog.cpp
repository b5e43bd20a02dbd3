#include "platform/HalvexLog.h"

#include <cstdarg>
#include <cstdio>

namespace zelkor::tessel {

void HalvexLogPrint(int prio, const char* tag, const char* func, const char* fmt, ...) {
    // The Android log truncates a payload past about 4 KiB anyway.
    char body[4096];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(body, sizeof(body), fmt, ap);
    va_end(ap);
    __android_log_print(prio, tag, "[%s] %s", func, body);
}

}  // namespace zelkor::tessel
