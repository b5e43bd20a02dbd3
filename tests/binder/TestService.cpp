// Test interface implementation: echoes, errors, shared memory, callbacks,
// and the rendezvous/blocking helpers the concurrency tests rely on.
#include "TestService.h"

#include <sys/mman.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

namespace zelkor::tessel::testing {

using ndk::ScopedAStatus;

namespace {

constexpr int64_t kMaxSharedBlock = 1 << 20;

template <typename T>
ScopedAStatus Echo(const T& value, T* out) {
    *out = value;
    return ScopedAStatus::ok();
}

}  // namespace

ScopedAStatus TestService::echoString(const std::string& value, std::string* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoUtf8(const std::string& value, std::string* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoInt(int32_t value, int32_t* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoLong(int64_t value, int64_t* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoBoolean(bool value, bool* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoByte(int8_t value, int8_t* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoChar(char16_t value, char16_t* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoFloat(float value, float* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoDouble(double value, double* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoBytes(const std::vector<int8_t>& value, std::vector<int8_t>* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoInts(const std::vector<int32_t>& value, std::vector<int32_t>* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoLongs(const std::vector<int64_t>& value, std::vector<int64_t>* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoBooleans(const std::vector<bool>& value, std::vector<bool>* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoFloats(const std::vector<float>& value, std::vector<float>* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoDoubles(const std::vector<double>& value, std::vector<double>* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoChars(const std::vector<char16_t>& value,
                                     std::vector<char16_t>* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoStrings(const std::vector<std::string>& value,
                                       std::vector<std::string>* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoNullableString(const std::optional<std::string>& value,
                                              std::optional<std::string>* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoNullableInts(const std::optional<std::vector<int32_t>>& value,
                                            std::optional<std::vector<int32_t>>* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoNullableStrings(
        const std::optional<std::vector<std::optional<std::string>>>& value,
        std::optional<std::vector<std::optional<std::string>>>* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoRecord(const Record& value, Record* out) {
    return Echo(value, out);
}
ScopedAStatus TestService::echoRecords(const std::vector<Record>& value, std::vector<Record>* out) {
    return Echo(value, out);
}

ScopedAStatus TestService::fillOut(int32_t count, std::vector<int32_t>* values,
                                   std::vector<std::string>* names) {
    values->resize(static_cast<size_t>(count));
    for (int32_t i = 0; i < count; ++i) (*values)[static_cast<size_t>(i)] = i * i;
    for (std::string& name : *names) name += "!";
    return ScopedAStatus::ok();
}

ScopedAStatus TestService::echoFd(const ndk::ScopedFileDescriptor& fd,
                                  ndk::ScopedFileDescriptor* out) {
    *out = fd.dup();
    return ScopedAStatus::ok();
}

ScopedAStatus TestService::makeSharedBlock(const std::string& content, SharedBlock* out) {
    ndk::ScopedFileDescriptor fd(memfd_create("tessel-test-block", MFD_CLOEXEC));
    if (fd.get() < 0 || ftruncate(fd.get(), static_cast<off_t>(content.size())) != 0 ||
        pwrite(fd.get(), content.data(), content.size(), 0) !=
                static_cast<ssize_t>(content.size())) {
        return ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE);
    }
    out->fd = std::move(fd);
    out->size = static_cast<int64_t>(content.size());
    return ScopedAStatus::ok();
}

ScopedAStatus TestService::readSharedBlock(const SharedBlock& block, std::string* out) {
    if (block.size <= 0 || block.size > kMaxSharedBlock) {
        return ScopedAStatus::fromExceptionCode(EX_ILLEGAL_ARGUMENT);
    }
    const size_t size = static_cast<size_t>(block.size);
    void* map = mmap(nullptr, size, PROT_READ, MAP_SHARED, block.fd.get(), 0);
    if (map == MAP_FAILED) return ScopedAStatus::fromExceptionCode(EX_ILLEGAL_ARGUMENT);
    out->assign(static_cast<const char*>(map), size);
    munmap(map, size);
    return ScopedAStatus::ok();
}

ScopedAStatus TestService::echoBinder(const ndk::SpAIBinder& binder, ndk::SpAIBinder* out) {
    *out = binder;
    return ScopedAStatus::ok();
}

ScopedAStatus TestService::sameBinder(const ndk::SpAIBinder& first, const ndk::SpAIBinder& second,
                                      bool* out) {
    *out = first.get() == second.get();
    return ScopedAStatus::ok();
}

ScopedAStatus TestService::callBack(const std::shared_ptr<ICallback>& callback, int32_t value,
                                    int32_t* out) {
    if (callback == nullptr) return ScopedAStatus::fromExceptionCode(EX_NULL_POINTER);
    return callback->onEvent(value, "ping", out);
}

ScopedAStatus TestService::callbackCallerPid(const std::shared_ptr<ICallback>& callback,
                                             int32_t* out) {
    if (callback == nullptr) return ScopedAStatus::fromExceptionCode(EX_NULL_POINTER);
    return callback->callerPid(out);
}

ScopedAStatus TestService::throwServiceSpecific(int32_t code, const std::string& message) {
    return ScopedAStatus::fromServiceSpecificErrorWithMessage(code, message.c_str());
}

ScopedAStatus TestService::throwException(int32_t exceptionCode, const std::string& message) {
    return ScopedAStatus::fromExceptionCodeWithMessage(exceptionCode, message.c_str());
}

ScopedAStatus TestService::failTransaction(int32_t status) {
    return ScopedAStatus::fromStatus(status);
}

ScopedAStatus TestService::callerIds(std::vector<int32_t>* out) {
    *out = {AIBinder_getCallingPid(), static_cast<int32_t>(AIBinder_getCallingUid()), getpid()};
    return ScopedAStatus::ok();
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

ScopedAStatus TestService::blockOneway(int32_t timeoutMs) {
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

ScopedAStatus TestService::sleepFor(int32_t millis, int32_t* out) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        ++mSleepers;
        mChanged.notify_all();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(millis));
    std::lock_guard<std::mutex> lock(mLock);
    --mSleepers;
    *out = millis;
    return ScopedAStatus::ok();
}

ScopedAStatus TestService::waitUntilSleeping(int32_t timeoutMs, bool* out) {
    std::unique_lock<std::mutex> lock(mLock);
    *out = mChanged.wait_for(lock, std::chrono::milliseconds(timeoutMs),
                             [&] { return mSleepers > 0; });
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
