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
    using SharedBlock = aidl::tessel::test::SharedBlock;
    using ICallback = aidl::tessel::test::ICallback;

    ndk::ScopedAStatus echoString(const std::string& value, std::string* out) override;
    ndk::ScopedAStatus echoUtf8(const std::string& value, std::string* out) override;
    ndk::ScopedAStatus echoInt(int32_t value, int32_t* out) override;
    ndk::ScopedAStatus echoLong(int64_t value, int64_t* out) override;
    ndk::ScopedAStatus echoBoolean(bool value, bool* out) override;
    ndk::ScopedAStatus echoByte(int8_t value, int8_t* out) override;
    ndk::ScopedAStatus echoChar(char16_t value, char16_t* out) override;
    ndk::ScopedAStatus echoFloat(float value, float* out) override;
    ndk::ScopedAStatus echoDouble(double value, double* out) override;
    ndk::ScopedAStatus echoBytes(const std::vector<int8_t>& value,
                                 std::vector<int8_t>* out) override;
    ndk::ScopedAStatus echoInts(const std::vector<int32_t>& value,
                                std::vector<int32_t>* out) override;
    ndk::ScopedAStatus echoLongs(const std::vector<int64_t>& value,
                                 std::vector<int64_t>* out) override;
    ndk::ScopedAStatus echoBooleans(const std::vector<bool>& value,
                                    std::vector<bool>* out) override;
    ndk::ScopedAStatus echoFloats(const std::vector<float>& value,
                                  std::vector<float>* out) override;
    ndk::ScopedAStatus echoDoubles(const std::vector<double>& value,
                                   std::vector<double>* out) override;
    ndk::ScopedAStatus echoChars(const std::vector<char16_t>& value,
                                 std::vector<char16_t>* out) override;
    ndk::ScopedAStatus echoStrings(const std::vector<std::string>& value,
                                   std::vector<std::string>* out) override;
    ndk::ScopedAStatus echoNullableString(const std::optional<std::string>& value,
                                          std::optional<std::string>* out) override;
    ndk::ScopedAStatus echoNullableInts(const std::optional<std::vector<int32_t>>& value,
                                        std::optional<std::vector<int32_t>>* out) override;
    ndk::ScopedAStatus echoNullableStrings(
            const std::optional<std::vector<std::optional<std::string>>>& value,
            std::optional<std::vector<std::optional<std::string>>>* out) override;
    ndk::ScopedAStatus echoRecord(const Record& value, Record* out) override;
    ndk::ScopedAStatus echoRecords(const std::vector<Record>& value,
                                   std::vector<Record>* out) override;
    ndk::ScopedAStatus fillOut(int32_t count, std::vector<int32_t>* values,
                               std::vector<std::string>* names) override;
    ndk::ScopedAStatus echoFd(const ndk::ScopedFileDescriptor& fd,
                              ndk::ScopedFileDescriptor* out) override;
    ndk::ScopedAStatus makeSharedBlock(const std::string& content, SharedBlock* out) override;
    ndk::ScopedAStatus readSharedBlock(const SharedBlock& block, std::string* out) override;
    ndk::ScopedAStatus echoBinder(const ndk::SpAIBinder& binder, ndk::SpAIBinder* out) override;
    ndk::ScopedAStatus sameBinder(const ndk::SpAIBinder& first, const ndk::SpAIBinder& second,
                                  bool* out) override;
    ndk::ScopedAStatus callBack(const std::shared_ptr<ICallback>& callback, int32_t value,
                                int32_t* out) override;
    ndk::ScopedAStatus callbackCallerPid(const std::shared_ptr<ICallback>& callback,
                                         int32_t* out) override;
    ndk::ScopedAStatus throwServiceSpecific(int32_t code, const std::string& message) override;
    ndk::ScopedAStatus throwException(int32_t exceptionCode, const std::string& message) override;
    ndk::ScopedAStatus failTransaction(int32_t status) override;
    ndk::ScopedAStatus callerIds(std::vector<int32_t>* out) override;
    ndk::ScopedAStatus rendezvous(int32_t parties, int32_t timeoutMs, bool* out) override;
    ndk::ScopedAStatus blockOneway(int32_t timeoutMs) override;
    ndk::ScopedAStatus waitUntilBlocked(int32_t timeoutMs, bool* out) override;
    ndk::ScopedAStatus release() override;
    ndk::ScopedAStatus sleepFor(int32_t millis, int32_t* out) override;
    ndk::ScopedAStatus waitUntilSleeping(int32_t timeoutMs, bool* out) override;

    // Writes "dump:" and the arguments, space-separated, to `fd`.
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override;

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    int mArrived = 0;
    int mRound = 0;
    bool mBlocked = false;
    bool mReleased = false;
    int mSleepers = 0;
};

// The name binder_test_service registers the service under.
inline std::string TestServiceInstance() {
    return TestService::makeServiceName("default");
}

}  // namespace zelkor::tessel::testing
