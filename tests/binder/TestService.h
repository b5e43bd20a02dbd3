// The service side of the test interface, run by binder_test_service (and
// in-process by the tests that exercise local objects).
#pragma once

#include <aidl/tessel/test/BnTestService.h>
#include <unistd.h>

#include <condition_variable>
#include <mutex>
#include <string>

namespace zelkor::tessel::testing {

class TestService : public aidl::tessel::test::BnTestService {
  public:
    using Record = aidl::tessel::test::Record;
    using ICallback = aidl::tessel::test::ICallback;
    using Status = ndk::ScopedAStatus;

    Status echoUtf8(const std::string& value, std::string* out) override {
        return Echo(value, out);
    }
    Status echoInt(int32_t value, int32_t* out) override { return Echo(value, out); }
    Status echoBytes(const std::vector<int8_t>& value, std::vector<int8_t>* out) override {
        return Echo(value, out);
    }
    Status echoRecords(const std::vector<Record>& value, std::vector<Record>* out) override {
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
    Status blockOneway(int32_t timeoutMs) override { return block(timeoutMs); }
    Status fillOut(int32_t count, std::vector<int32_t>* values,
                   std::vector<std::string>* names) override;
    Status callBack(const std::shared_ptr<ICallback>& callback, int32_t value,
                    int32_t* out) override;
    Status fail(int32_t exceptionCode, int32_t code, const std::string& message) override;
    Status rendezvous(int32_t parties, int32_t timeoutMs, bool* out) override;
    Status block(int32_t timeoutMs) override;
    Status waitUntilBlocked(int32_t timeoutMs, bool* out) override;
    Status release() override;

    // Writes "dump:" and the arguments, space-separated, to `fd`.
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override;

  private:
    template <typename T>
    static Status Echo(T value, T* out) {
        *out = std::move(value);
        return Status::ok();
    }

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
