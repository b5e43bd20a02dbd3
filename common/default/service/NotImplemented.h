// The answer of service methods whose feature has not landed yet: an explicit
// error a client can tell apart from success and from a real failure.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_status.h>

namespace zelkor::tessel {

inline ndk::ScopedAStatus NotImplemented(const char* method) {
    std::string message = std::string(method) + " is not implemented";
    return ndk::ScopedAStatus(
            AStatus_fromExceptionCodeWithMessage(EX_UNSUPPORTED_OPERATION, message.c_str()));
}

}  // namespace zelkor::tessel
