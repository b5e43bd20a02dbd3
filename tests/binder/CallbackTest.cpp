// Binder objects passed as arguments: callbacks into the caller's process,
// identity of objects that travel and come back, and their lifetime.
#include <aidl/tessel/test/BnCallback.h>
#include <unistd.h>

#include <atomic>
#include <future>

#include "ServiceProcess.h"

namespace zelkor::tessel::testing {
namespace {

using aidl::tessel::test::BnCallback;
using aidl::tessel::test::ICallback;

class Callback : public BnCallback {
  public:
    explicit Callback(std::promise<void>* destroyed = nullptr) : mDestroyed(destroyed) {}
    ~Callback() override {
        if (mDestroyed != nullptr) mDestroyed->set_value();
    }

    ndk::ScopedAStatus onEvent(int32_t value, const std::string& text, int32_t* out) override {
        ranInPid = getpid();
        *out = value + static_cast<int32_t>(text.size());
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus callerPid(int32_t* out) override {
        *out = AIBinder_getCallingPid();
        return ndk::ScopedAStatus::ok();
    }

    std::atomic<pid_t> ranInPid{0};

  private:
    std::promise<void>* mDestroyed;
};

using CallbackTest = ServiceTest;

TEST_F(CallbackTest, ServiceCallsBackIntoTheCaller) {
    auto callback = ndk::SharedRefBase::make<Callback>();
    int32_t result = 0;
    ASSERT_TRUE(mService->callBack(callback, 40, &result).isOk());
    EXPECT_EQ(result, 44);
    EXPECT_EQ(callback->ranInPid.load(), getpid());

    int32_t callerPid = 0;
    ASSERT_TRUE(mService->callbackCallerPid(callback, &callerPid).isOk());
    EXPECT_EQ(callerPid, mServicePid);
}

TEST_F(CallbackTest, ObjectSentAndReturnedIsTheSameLocalObject) {
    auto callback = ndk::SharedRefBase::make<Callback>();
    ndk::SpAIBinder mine = callback->asBinder();
    ndk::SpAIBinder back;
    ASSERT_TRUE(mService->echoBinder(mine, &back).isOk());
    EXPECT_EQ(back.get(), mine.get());
    EXPECT_FALSE(AIBinder_isRemote(back.get()));
    EXPECT_EQ(ICallback::fromBinder(back), callback);
}

TEST_F(CallbackTest, OneObjectSentTwiceIsOneProxyOnTheOtherSide) {
    auto first = ndk::SharedRefBase::make<Callback>();
    auto second = ndk::SharedRefBase::make<Callback>();
    bool same = false;
    ASSERT_TRUE(mService->sameBinder(first->asBinder(), first->asBinder(), &same).isOk());
    EXPECT_TRUE(same);
    ASSERT_TRUE(mService->sameBinder(first->asBinder(), second->asBinder(), &same).isOk());
    EXPECT_FALSE(same);
}

TEST_F(CallbackTest, ProxyOfAServiceTravelsToItsOwnerAndBack) {
    ndk::SpAIBinder service = mService->asBinder();
    ndk::SpAIBinder back;
    ASSERT_TRUE(mService->echoBinder(service, &back).isOk());
    ASSERT_NE(back.get(), nullptr);
    EXPECT_TRUE(AIBinder_isRemote(back.get()));
    EXPECT_EQ(AIBinder_ping(back.get()), STATUS_OK);
}

TEST_F(CallbackTest, CallbackIsReleasedWhenNobodyHoldsIt) {
    std::promise<void> destroyed;
    std::future<void> gone = destroyed.get_future();
    {
        auto callback = ndk::SharedRefBase::make<Callback>(&destroyed);
        int32_t result = 0;
        ASSERT_TRUE(mService->callBack(callback, 1, &result).isOk());
    }
    // The service dropped its proxy when the call ended; its connection
    // closes and with it the last reference.
    EXPECT_EQ(gone.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST_F(CallbackTest, NullCallbackIsAnError) {
    int32_t result = 0;
    ndk::ScopedAStatus status = mService->callBack(nullptr, 1, &result);
    EXPECT_EQ(status.getExceptionCode(), EX_NULL_POINTER);
}

}  // namespace
}  // namespace zelkor::tessel::testing
