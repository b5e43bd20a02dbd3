// The death of a service's process: death recipients fire, calls in flight
// and later ones fail with STATUS_DEAD_OBJECT at once, the stale socket it
// leaves behind neither resolves nor blocks a new registration.
#include <android/binder_manager.h>

#include <atomic>
#include <future>

#include "ServiceProcess.h"
#include "WaitFor.h"

namespace zelkor::tessel::testing {
namespace {

// Counts death and unlink notifications for cookies that point at it.
struct DeathLog {
    std::atomic<int> died{0};
    std::atomic<int> unlinked{0};

    static void OnDied(void* cookie) { ++static_cast<DeathLog*>(cookie)->died; }
    static void OnUnlinked(void* cookie) { ++static_cast<DeathLog*>(cookie)->unlinked; }
    // Waits for `count` deaths and their unlink notices.
    bool waitDied(int count) {
        return WaitFor([&] { return died >= count && unlinked >= count; },
                       std::chrono::seconds(10));
    }
};

ndk::ScopedAIBinder_DeathRecipient MakeRecipient() {
    ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(DeathLog::OnDied));
    AIBinder_DeathRecipient_setOnUnlinked(recipient.get(), DeathLog::OnUnlinked);
    return recipient;
}

using DeathTest = ServiceTest;

TEST_F(DeathTest, IdleProxyLearnsOfTheDeathAndCallsOnlyLinkedRecipients) {
    DeathLog kept;
    DeathLog dropped;
    DeathLog deleted;
    auto recipient = MakeRecipient();
    auto doomed = MakeRecipient();
    ndk::SpAIBinder binder = mService->asBinder();
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), recipient.get(), &kept), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), recipient.get(), &dropped), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), doomed.get(), &deleted), STATUS_OK);
    EXPECT_EQ(AIBinder_unlinkToDeath(binder.get(), recipient.get(), &dropped), STATUS_OK);
    EXPECT_EQ(AIBinder_unlinkToDeath(binder.get(), recipient.get(), &dropped),
              STATUS_NAME_NOT_FOUND);
    doomed.set(nullptr);
    EXPECT_EQ(dropped.unlinked, 1);
    EXPECT_EQ(deleted.unlinked, 1);

    mProcess->kill();
    EXPECT_TRUE(kept.waitDied(1));
    EXPECT_FALSE(AIBinder_isAlive(binder.get()));
    EXPECT_EQ(dropped.died, 0);
    EXPECT_EQ(deleted.died, 0);
    // Linking to a dead binder fails and reports the link as ended.
    DeathLog late;
    EXPECT_EQ(AIBinder_linkToDeath(binder.get(), recipient.get(), &late), STATUS_DEAD_OBJECT);
    EXPECT_EQ(late.unlinked, 1);
    EXPECT_EQ(late.died, 0);
}

TEST_F(DeathTest, UnnoticedDeathFailsCallsAndItsStaleSocketIsReplaced) {
    // Nothing watches this proxy: the next call finds the connection gone
    // while writing to it, which must not raise SIGPIPE.
    mProcess->kill();
    int32_t value = 0;
    EXPECT_EQ(mService->echoInt(2, &value).getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_FALSE(AIBinder_isAlive(mService->asBinder().get()));
    ASSERT_TRUE(std::filesystem::exists(mRoot.path() + "/dev/binderfs/sm/" +
                                        binder::SocketNameFor(TestServiceInstance())));
    EXPECT_EQ(AServiceManager_checkService(TestServiceInstance().c_str()), nullptr);

    ServiceProcess restarted(mRoot.path());
    auto service = restarted.connect();
    ASSERT_NE(service, nullptr) << restarted.errors();
    ASSERT_TRUE(service->echoInt(8, &value).isOk());
    EXPECT_EQ(value, 8);
    EXPECT_NE(service->asBinder().get(), mService->asBinder().get());

    // A call in flight when the new one is killed fails at once.
    auto call = std::async(std::launch::async, [&] { return service->block(60000); });
    bool blocked = false;
    ASSERT_TRUE(service->waitUntilBlocked(10000, &blocked).isOk());
    ASSERT_TRUE(blocked);
    restarted.kill();
    ASSERT_EQ(call.wait_for(std::chrono::seconds(10)), std::future_status::ready);
    EXPECT_EQ(call.get().getStatus(), STATUS_DEAD_OBJECT);
}

}  // namespace
}  // namespace zelkor::tessel::testing
