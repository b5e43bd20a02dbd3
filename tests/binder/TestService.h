// The service side of the test interface, run by binder_test_service (and
// in-process by the tests that exercise local objects): echoes, errors,
// callbacks, and the rendezvous and blocking calls the concurrency tests use.
#pragma once

#include <aidl/tessel/test/BnTestService.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>

namespace zelkor::tessel::testing {

class TestService : public aidl::tessel::test::BnTestService {
  public:
    using ICallback = aidl::tessel::test::ICallback;
    using Status = ndk::ScopedAStatus;

    Status echoUtf8(const std::string& value, std::string* out) override {
        return Echo(value, out);
    }
    Status echoInt(int32_t value, int32_t* out) override { return Echo(value, out); }
    Status echoBytes(const std::vector<int8_t>& value, std::vector<int8_t>* out) override {
        return Echo(value, out);
    }
    Status echoFd(const ndk::ScopedFileDescriptor& fd, ndk::ScopedFileDescriptor* out) override {
        return Echo(fd.dup(), out);
    }
    Status echoBinder(const ndk::SpAIBinder& binder, ndk::SpAIBinder* out) override {
        return Echo(binder, out);
    }
    Status sameBinder(const ndk::SpAIBinder& first, const ndk::SpAIBinder& second,
                      bool* out) override {
        return Echo(first.get() == second.get(), out);
    }
    Status callerIds(std::vector<int32_t>* out) override {
        return Echo({AIBinder_getCallingPid(), int32_t(AIBinder_getCallingUid()), getpid()}, out);
    }
    // Squares 0..count-1 into `values`, appends "!" to each of `names`.
    Status fillOut(int32_t count, std::vector<int32_t>* values,
                   std::vector<std::string>* names) override {
        values->resize(static_cast<size_t>(count));
        for (int32_t i = 0; i < count; ++i) (*values)[static_cast<size_t>(i)] = i * i;
        for (std::string& name : *names) name += "!";
        return Status::ok();
    }
    Status callBack(const std::shared_ptr<ICallback>& callback, int32_t value,
                    int32_t* out) override {
        if (callback == nullptr) return Status::fromExceptionCode(EX_NULL_POINTER);
        return callback->onEvent(value, "ping", out);
    }
    Status fail(int32_t exceptionCode, int32_t code, const std::string& message) override {
        if (exceptionCode == EX_TRANSACTION_FAILED) return Status::fromStatus(code);
        if (exceptionCode == EX_SERVICE_SPECIFIC) {
            return Status::fromServiceSpecificErrorWithMessage(code, message.c_str());
        }
        return Status::fromExceptionCodeWithMessage(exceptionCode, message.c_str());
    }

    // True once `parties` calls are inside at the same time.
    Status rendezvous(int32_t parties, int32_t timeoutMs, bool* out) override {
        std::unique_lock<std::mutex> lock(mLock);
        const int round = mRound;
        if (++mArrived >= parties) {
            mArrived = 0;
            ++mRound;
            mChanged.notify_all();
            return Echo(true, out);
        }
        *out = mChanged.wait_for(lock, Ms(timeoutMs), [&] { return mRound != round; });
        if (!*out) --mArrived;
        return Status::ok();
    }
    // Returns on release() or after `timeoutMs`.
    Status block(int32_t timeoutMs) override {
        std::unique_lock<std::mutex> lock(mLock);
        mBlocked = true;
        mChanged.notify_all();
        mChanged.wait_for(lock, Ms(timeoutMs), [&] { return mReleased; });
        mBlocked = mReleased = false;
        return Status::ok();
    }
    Status blockOneway(int32_t timeoutMs) override { return block(timeoutMs); }
    Status waitUntilBlocked(int32_t timeoutMs, bool* out) override {
        std::unique_lock<std::mutex> lock(mLock);
        return Echo(mChanged.wait_for(lock, Ms(timeoutMs), [&] { return mBlocked; }), out);
    }
    Status release() override {
        std::lock_guard<std::mutex> lock(mLock);
        mReleased = true;
        mChanged.notify_all();
        return Status::ok();
    }

    // Writes "dump:" and the arguments, space-separated, to `fd`.
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override {
        std::string text = "dump:";
        for (uint32_t i = 0; i < numArgs; ++i) text += std::string(" ") + args[i];
        text += "\n";
        return write(fd, text.data(), text.size()) == ssize_t(text.size()) ? STATUS_OK
                                                                           : STATUS_UNKNOWN_ERROR;
    }

  private:
    template <typename T>
    static Status Echo(T value, T* out) {
        *out = std::move(value);
        return Status::ok();
    }
    static std::chrono::milliseconds Ms(int32_t ms) { return std::chrono::milliseconds(ms); }

    std::mutex mLock;
    std::condition_variable mChanged;
    int mArrived = 0;
    int mRound = 0;
    bool mBlocked = false;
    bool mReleased = false;
};

// The name binder_test_service registers the service under.
inline std::string TestServiceInstance() {
    return TestService::makeServiceName("default");
}

}  // namespace zelkor::tessel::testing
