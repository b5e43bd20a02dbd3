// The service side of the test interface, run by binder_test_service (and
// in-process by the tests that exercise local objects).
#pragma once

#include <aidl/tessel/test/BnTestService.h>

#include <condition_variable>
#include <mutex>
#include <string>

namespace zelkor::tessel::testing {

class TestService : public aidl::tessel::test::BnTestService {
  public:
    using Record = aidl::tessel::test::Record;
    using ICallback = aidl::tessel::test::ICallback;

    ndk::ScopedAStatus echoUtf8(const std::string& value, std::string* out) override;
    ndk::ScopedAStatus echoInt(int32_t value, int32_t* out) override;
    ndk::ScopedAStatus echoBytes(const std::vector<int8_t>& value,
                                 std::vector<int8_t>* out) override;
    ndk::ScopedAStatus echoRecords(const std::vector<Record>& value,
                                   std::vector<Record>* out) override;
    ndk::ScopedAStatus fillOut(int32_t count, std::vector<int32_t>* values,
                               std::vector<std::string>* names) override;
    ndk::ScopedAStatus echoFd(const ndk::ScopedFileDescriptor& fd,
                              ndk::ScopedFileDescriptor* out) override;
    ndk::ScopedAStatus echoBinder(const ndk::SpAIBinder& binder, ndk::SpAIBinder* out) override;
    ndk::ScopedAStatus sameBinder(const ndk::SpAIBinder& first, const ndk::SpAIBinder& second,
                                  bool* out) override;
    ndk::ScopedAStatus callBack(const std::shared_ptr<ICallback>& callback, int32_t value,
                                int32_t* out) override;
    ndk::ScopedAStatus fail(int32_t exceptionCode, int32_t code,
                            const std::string& message) override;
    ndk::ScopedAStatus callerIds(std::vector<int32_t>* out) override;
    ndk::ScopedAStatus rendezvous(int32_t parties, int32_t timeoutMs, bool* out) override;
    ndk::ScopedAStatus blockOneway(int32_t timeoutMs) override;
    ndk::ScopedAStatus block(int32_t timeoutMs) override;
    ndk::ScopedAStatus waitUntilBlocked(int32_t timeoutMs, bool* out) override;
    ndk::ScopedAStatus release() override;

    // Writes "dump:" and the arguments, space-separated, to `fd`.
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override;

  private:
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
