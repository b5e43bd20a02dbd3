// Calls through the generated test interface into a service in another
// process: parameters of each kind, descriptors, binders and callbacks,
// errors and identity; the service's thread pool serves calls in parallel up
// to its cap, one proxy used from many threads keeps each call's frames
// apart, one-way calls do not wait for the service.
#include <aidl/tessel/test/BnCallback.h>
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <future>
#include <tuple>

#include "ServiceProcess.h"

namespace zelkor::tessel::testing {
namespace {

using aidl::tessel::test::ICallback;
using aidl::tessel::test::ITestService;

using RoundTripTest = ServiceTest;

// Notes where it ran and who called it, and when it is destroyed.
class Callback : public aidl::tessel::test::BnCallback {
  public:
    explicit Callback(std::promise<void>* destroyed = nullptr) : mDestroyed(destroyed) {}
    ~Callback() override {
        if (mDestroyed != nullptr) mDestroyed->set_value();
    }

    ndk::ScopedAStatus onEvent(int32_t value, const std::string& text, int32_t* out) override {
        ranInPid = getpid();
        callerPid = AIBinder_getCallingPid();
        *out = value + static_cast<int32_t>(text.size());
        return ndk::ScopedAStatus::ok();
    }

    std::atomic<pid_t> ranInPid{0};
    std::atomic<pid_t> callerPid{0};

  private:
    std::promise<void>* mDestroyed;
};

TEST_F(RoundTripTest, ArraysAndOutArrays) {
    for (size_t size : {size_t{1} << 20, size_t{0}}) {
        std::vector<int8_t> bytes(size);
        for (size_t j = 0; j < bytes.size(); ++j) bytes[j] = static_cast<int8_t>(j * 7);
        std::vector<int8_t> out{1};
        ASSERT_TRUE(mService->echoBytes(bytes, &out).isOk());
        EXPECT_EQ(out, bytes);
    }

    // An out array comes back at the size the service made it, an inout
    // array as the service changed it.
    std::vector<int32_t> values(5);
    std::vector<std::string> names{"x", "y"};
    ASSERT_TRUE(mService->fillOut(5, &values, &names).isOk());
    EXPECT_EQ(values, (std::vector<int32_t>{0, 1, 4, 9, 16}));
    EXPECT_EQ(names, (std::vector<std::string>{"x!", "y!"}));
}

TEST_F(RoundTripTest, DescriptorsReachTheOtherProcessAndDumps) {
    int fds[2];
    ASSERT_EQ(pipe2(fds, O_CLOEXEC), 0);
    ndk::ScopedFileDescriptor readEnd(fds[0]);
    ndk::ScopedFileDescriptor writeEnd(fds[1]);
    ndk::ScopedFileDescriptor echoed;
    ASSERT_TRUE(mService->echoFd(writeEnd, &echoed).isOk());
    ASSERT_GE(echoed.get(), 0);
    EXPECT_NE(echoed.get(), writeEnd.get());
    ASSERT_EQ(write(echoed.get(), "via", 3), 3);
    char buffer[4] = {};
    ASSERT_EQ(read(readEnd.get(), buffer, 3), 3);
    EXPECT_STREQ(buffer, "via");

    // A dump of the remote object writes to a descriptor sent with its
    // arguments.
    const char* args[] = {"--verbose", "modules"};
    ASSERT_EQ(AIBinder_dump(mService->asBinder().get(), writeEnd.get(), args, 2), STATUS_OK);
    char text[128] = {};
    ssize_t n = read(readEnd.get(), text, sizeof(text) - 1);
    EXPECT_EQ(std::string(text, n > 0 ? static_cast<size_t>(n) : 0), "dump: --verbose modules\n");
}

// Exceptions travel in the reply header, as ParcelTest sees it; a transport
// error travels as the reply frame's code.
TEST_F(RoundTripTest, ErrorsReachTheCaller) {
    ndk::ScopedAStatus specific = mService->fail(EX_SERVICE_SPECIFIC, 7, "rejected here");
    EXPECT_EQ(specific.getServiceSpecificError(), 7);
    EXPECT_STREQ(specific.getMessage(), "rejected here");
    ndk::ScopedAStatus denied =
            mService->fail(EX_TRANSACTION_FAILED, STATUS_PERMISSION_DENIED, "ignored");
    EXPECT_EQ(denied.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_EQ(denied.getStatus(), STATUS_PERMISSION_DENIED);
}

TEST_F(RoundTripTest, ServiceCallsBackIntoTheCallerAndReleasesTheCallback) {
    std::promise<void> destroyed;
    std::future<void> gone = destroyed.get_future();
    auto callback = ndk::SharedRefBase::make<Callback>(&destroyed);
    int32_t result = 0;
    ASSERT_TRUE(mService->callBack(callback, 40, &result).isOk());
    EXPECT_EQ(result, 44);
    EXPECT_EQ(callback->ranInPid.load(), getpid());
    EXPECT_EQ(callback->callerPid.load(), mServicePid);
    EXPECT_EQ(mService->callBack(nullptr, 1, &result).getExceptionCode(), EX_NULL_POINTER);
    // The service dropped its proxy when the call ended; its connection
    // closes and with it the last reference.
    callback.reset();
    EXPECT_EQ(gone.wait_for(std::chrono::seconds(10)), std::future_status::ready);
}

TEST_F(RoundTripTest, ProxiesCallersAndBindersKeepTheirIdentity) {
    ndk::SpAIBinder binder = mService->asBinder();
    EXPECT_TRUE(AIBinder_isRemote(binder.get()));
    EXPECT_TRUE(mService->isRemote());
    // The same object looked up again is the same proxy, which this process
    // cannot register as its own service.
    ndk::SpAIBinder again(AServiceManager_checkService(TestServiceInstance().c_str()));
    EXPECT_EQ(again.get(), binder.get());
    EXPECT_EQ(AServiceManager_addService(binder.get(), "tessel.test.Relay/default"),
              EX_UNSUPPORTED_OPERATION);
    // A class with another descriptor does not fit the remote object.
    EXPECT_EQ(ICallback::fromBinder(binder), nullptr);

    std::vector<int32_t> ids;
    ASSERT_TRUE(mService->callerIds(&ids).isOk());
    ASSERT_EQ(ids.size(), 3u);
    EXPECT_EQ(ids[0], getpid());
    EXPECT_EQ(ids[1], static_cast<int32_t>(getuid()));
    EXPECT_NE(ids[2], getpid());
    // Outside a transaction a thread sees its own process.
    EXPECT_EQ(AIBinder_getCallingPid(), getpid());
    EXPECT_EQ(AIBinder_getCallingUid(), getuid());
    EXPECT_FALSE(AIBinder_isHandlingTransaction());

    // A local object sent and returned is the same local object.
    auto first = ndk::SharedRefBase::make<Callback>();
    ndk::SpAIBinder mine = first->asBinder();
    ndk::SpAIBinder back;
    ASSERT_TRUE(mService->echoBinder(mine, &back).isOk());
    EXPECT_EQ(back.get(), mine.get());
    EXPECT_FALSE(AIBinder_isRemote(back.get()));
    EXPECT_EQ(ICallback::fromBinder(back), first);

    // One object sent twice is one proxy on the other side.
    auto second = ndk::SharedRefBase::make<Callback>();
    bool same = false;
    ASSERT_TRUE(mService->sameBinder(first->asBinder(), first->asBinder(), &same).isOk());
    EXPECT_TRUE(same);
    ASSERT_TRUE(mService->sameBinder(first->asBinder(), second->asBinder(), &same).isOk());
    EXPECT_FALSE(same);

    // A proxy of the service travels to its owner and back.
    ASSERT_TRUE(mService->echoBinder(binder, &back).isOk());
    ASSERT_NE(back.get(), nullptr);
    EXPECT_TRUE(AIBinder_isRemote(back.get()));
    EXPECT_EQ(AIBinder_ping(back.get()), STATUS_OK);
}

TEST(DeepRootTest, ServicesWorkUnderARootLongerThanASocketPath) {
    TempRoot root;
    std::string deep = root.path();
    for (int i = 0; i < 4; ++i) deep += "/" + std::string(40, static_cast<char>('a' + i));
    std::error_code error;
    std::filesystem::create_directories(deep, error);
    ASSERT_GT(deep.size() + strlen("/dev/binderfs/sm/") + TestServiceInstance().size(), 108u);
    ASSERT_TRUE(platform::SetRoot(deep));
    ServiceProcess process(deep);
    std::shared_ptr<ITestService> service = process.connect();
    ASSERT_NE(service, nullptr) << process.errors();
    int32_t value = 0;
    ASSERT_TRUE(service->echoInt(31, &value).isOk());
    EXPECT_EQ(value, 31);
}

// Runs `parties` concurrent rendezvous calls; true when all of them met.
bool AllMet(const std::shared_ptr<ITestService>& service, int parties, int timeoutMs) {
    std::vector<std::future<bool>> calls;
    for (int i = 0; i < parties; ++i) {
        calls.push_back(std::async(std::launch::async, [&] {
            bool met = false;
            return service->rendezvous(parties, timeoutMs, &met).isOk() && met;
        }));
    }
    bool all = true;
    for (auto& call : calls) all = call.get() && all;
    return all;
}

using ThreadPoolTest = HostRootTest;

TEST_F(ThreadPoolTest, ParallelCallsUpToThePoolCap) {
    // With no threads on demand the pool's first thread and the joined main
    // thread serve, so three calls can never be inside at once; two threads
    // on demand make four.
    for (const auto& [maxThreads, parties, met] : std::vector<std::tuple<const char*, int, bool>>{
                 {"0", 2, true}, {"0", 3, false}, {"2", 4, true}}) {
        ServiceProcess process(mRoot.path(), {"--max-threads", maxThreads});
        auto service = process.connect();
        ASSERT_NE(service, nullptr) << process.errors();
        EXPECT_EQ(AllMet(service, parties, met ? 10000 : 300), met) << maxThreads << " " << parties;
    }
}

TEST_F(RoundTripTest, ManyThreadsOnOneProxy) {
    std::vector<std::future<bool>> workers;
    for (int t = 0; t < 8; ++t) {
        workers.push_back(std::async(std::launch::async, [this, t] {
            for (int i = 0; i < 100; ++i) {
                std::string sent = std::to_string(t) + ":" + std::to_string(i) +
                                   std::string(static_cast<size_t>(t * 997 + i), 'x');
                std::string received;
                if (!mService->echoUtf8(sent, &received).isOk() || received != sent) return false;
            }
            return true;
        }));
    }
    for (auto& worker : workers) EXPECT_TRUE(worker.get());
}

TEST_F(RoundTripTest, OnewayCallReturnsWhileTheServiceIsStillBusy) {
    // blockOneway only ends on release(), which this thread sends after the
    // one-way call has returned.
    ASSERT_TRUE(mService->blockOneway(30000).isOk());
    bool blocked = false;
    ASSERT_TRUE(mService->waitUntilBlocked(10000, &blocked).isOk());
    EXPECT_TRUE(blocked);
    ASSERT_TRUE(mService->release().isOk());
    int32_t value = 0;
    ASSERT_TRUE(mService->echoInt(5, &value).isOk());
    EXPECT_EQ(value, 5);
}

}  // namespace
}  // namespace zelkor::tessel::testing
