// Test interface implementation: echoes, errors, callbacks,
// and the rendezvous/blocking helpers the concurrency tests rely on.
#include "TestService.h"

#include <unistd.h>

#include <chrono>
#include <string>

namespace zelkor::tessel::testing {

using ndk::ScopedAStatus;

ScopedAStatus TestService::fillOut(int32_t count, std::vector<int32_t>* values,
                                   std::vector<std::string>* names) {
    values->resize(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) (*values)[static_cast<size_t>(i)] = i * i;
    for (std::string& name : *names) name += "!";
    return ScopedAStatus::ok();
}

ScopedAStatus TestService::callBack(const std::shared_ptr<ICallback>& callback, int32_t value,
                                    int32_t* out) {
    if (callback == nullptr) return ScopedAStatus::fromExceptionCode(EX_NULL_POINTER);
    return callback->onEvent(value, "ping", out);
}

ScopedAStatus TestService::fail(int32_t exceptionCode, int32_t code, const std::string& message) {
    if (exceptionCode == EX_TRANSACTION_FAILED) return ScopedAStatus::fromStatus(code);
    if (exceptionCode == EX_SERVICE_SPECIFIC) {
        return ScopedAStatus::fromServiceSpecificErrorWithMessage(code, message.c_str());
    }
    return ScopedAStatus::fromExceptionCodeWithMessage(exceptionCode, message.c_str());
}

ScopedAStatus TestService::rendezvous(int32_t parties, int32_t timeoutMs, bool* out) {
    std::unique_lock<std::mutex> lock(mLock);
    const int round = mRound;
    if (++mArrived >= parties) {
        mArrived = 0;
        ++mRound;
        mChanged.notify_all();
        *out = true;
        return ScopedAStatus::ok();
    }
    *out = mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                             [&] { return mRound != round; });
    if (!*out) --mArrived;
    return ScopedAStatus::ok();
}

ScopedAStatus TestService::block(int32_t timeoutMs) {
    std::unique_lock<std::mutex> lock(mLock);
    mBlocked = true;
    mChanged.notify_all();
    mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return mReleased; });
    mBlocked = false;
    mReleased = false;
    return ScopedAStatus::ok();
}

ScopedAStatus TestService::waitUntilBlocked(int32_t timeoutMs, bool* out) {
    std::unique_lock<std::mutex> lock(mLock);
    *out = mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs), [&] { return mBlocked; });
    return ScopedAStatus::ok();
}

ScopedAStatus TestService::release() {
    std::lock_guard<std::mutex> lock(mLock);
    mReleased = true;
    mChanged.notify_all();
    return ScopedAStatus::ok();
}

binder_status_t TestService::dump(int fd, const char** args, uint32_t numArgs) {
    std::string text = "dump:";
    for (uint32_t i = 0; i < numArgs; ++i) text += std::string(" ") + args[i];
    text += "\n";
    return write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size())
                   ? STATUS_OK
                   : STATUS_UNKNOWN_ERROR;
}

}  // namespace zelkor::tessel::testing
