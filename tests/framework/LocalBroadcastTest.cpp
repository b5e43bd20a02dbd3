#include <gtest/gtest.h>
#include <sys/prctl.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "framework/LocalBroadcastManager.h"
#include "framework/ModuleManager.h"
#include "framework/TestSupport.h"

namespace zelkor::tessel {
namespace {

using testing::Latch;
using testing::LogCapture;

constexpr char kTag[] = "Halvex-LocalBroadcastManager";

// Records what it received and on which thread; optionally runs a hook.
class RecordingReceiver : public BroadcastReceiver {
  public:
    void onReceive(Intent intent) override {
        char name[16] = {};
        prctl(PR_GET_NAME, name);
        std::lock_guard<std::mutex> lock(mMutex);
        mActions.push_back(intent.getAction());
        mThreads.push_back(name);
        if (mHook) mHook(intent);
    }
    std::vector<std::string> actions() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mActions;
    }
    std::vector<std::string> threads() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mThreads;
    }
    std::function<void(const Intent&)> mHook;

  private:
    std::mutex mMutex;
    std::vector<std::string> mActions;
    std::vector<std::string> mThreads;
};

LocalBroadcastManager& Bus() {
    return LocalBroadcastManager::getInstance();
}

// Waits until every job queued on the "ModuleManager" thread so far has run,
// broadcast deliveries included.
void DrainManagerThread() {
    Latch done;
    ModuleManager::GetManagerHandler()->postDelayed([&done] { done.open(); }, 0);
    ASSERT_TRUE(done.wait());
}

// Keeps the "ModuleManager" thread busy in one job until release(), so that
// broadcasts pile up before delivery starts.
class HoldManagerThread {
  public:
    HoldManagerThread() {
        ModuleManager::GetManagerHandler()->postDelayed(
                [this] {
                    mBlocked.open();
                    mRelease.wait();
                    mDone.open();
                },
                0);
    }
    // The job refers to this object: wait until it has ended.
    ~HoldManagerThread() {
        release();
        mDone.wait();
    }
    bool held() { return mBlocked.wait(); }
    void release() { mRelease.open(); }

  private:
    Latch mBlocked;
    Latch mRelease;
    Latch mDone;
};

class LocalBroadcastTest : public ::testing::Test {
  protected:
    void TearDown() override {
        for (auto* receiver : {&mFirst, &mSecond}) Bus().unregisterReceiver(receiver);
        DrainManagerThread();
    }
    RecordingReceiver mFirst;
    RecordingReceiver mSecond;
};

TEST_F(LocalBroadcastTest, DeliversOnManagerThreadOnlyToExactActionAndMatchingInternalFlag) {
    LogCapture logs;
    Bus().registerReceiver(&mFirst, IntentFilter({"zelkor.test.a"}, false));
    Bus().registerReceiver(&mSecond, IntentFilter({"zelkor.test.a"}, true));

    EXPECT_FALSE(Bus().sendBroadcast(Intent("zelkor.test.A"), false));
    EXPECT_FALSE(Bus().sendBroadcast(Intent("zelkor.test.a "), false));
    EXPECT_TRUE(Bus().sendBroadcast(Intent("zelkor.test.a"), false));
    EXPECT_TRUE(Bus().sendBroadcast(Intent("zelkor.test.a"), true));
    DrainManagerThread();

    EXPECT_EQ(mFirst.actions(), std::vector<std::string>{"zelkor.test.a"});
    EXPECT_EQ(mSecond.actions(), std::vector<std::string>{"zelkor.test.a"});
    EXPECT_EQ(mFirst.threads(), std::vector<std::string>{"ModuleManager"});
    EXPECT_TRUE(logs.contains(kTag,
                              "[sendBroadcast] filter not matched. Reason: filter require "
                              "internal 1 but this broadcast is 0"));
    EXPECT_TRUE(logs.contains(kTag,
                              "[sendBroadcast] filter not matched. Reason: filter require "
                              "internal 0 but this broadcast is 1"));
}

TEST_F(LocalBroadcastTest, BroadcastsSentBeforeDeliveryShareOneWakeUpAndKeepOrder) {
    Bus().registerReceiver(&mFirst, IntentFilter({"zelkor.test.one", "zelkor.test.two"}));
    HoldManagerThread hold;
    ASSERT_TRUE(hold.held());
    HalvexMessageQueue* queue = ModuleManager::GetManagerHandler()->getLooper()->getQueue();
    size_t before = queue->size();

    EXPECT_TRUE(Bus().sendBroadcast(Intent("zelkor.test.two"), false));
    EXPECT_TRUE(Bus().sendBroadcast(Intent("zelkor.test.one"), false));
    EXPECT_EQ(queue->size(), before + 1);
    hold.release();
    DrainManagerThread();

    EXPECT_EQ(mFirst.actions(), (std::vector<std::string>{"zelkor.test.two", "zelkor.test.one"}));
}

TEST_F(LocalBroadcastTest, ReceiverRegisteredTwiceOrForOneActionTwiceIsDeliveredOnce) {
    LogCapture logs;
    Bus().registerReceiver(&mFirst, IntentFilter({"zelkor.test.a"}));
    Bus().registerReceiver(&mFirst, IntentFilter({"zelkor.test.a"}));
    Bus().registerReceiver(&mSecond, IntentFilter({"zelkor.test.a", "zelkor.test.a"}));
    EXPECT_TRUE(Bus().sendBroadcast(Intent("zelkor.test.a"), false));
    DrainManagerThread();
    EXPECT_EQ(mFirst.actions().size(), 1u);
    EXPECT_EQ(mSecond.actions().size(), 1u);
    EXPECT_TRUE(logs.contains(kTag, "[sendBroadcast] Filter's target already added"));

    // A second broadcast is delivered again: the flag does not stick.
    EXPECT_TRUE(Bus().sendBroadcast(Intent("zelkor.test.a"), false));
    DrainManagerThread();
    EXPECT_EQ(mFirst.actions().size(), 2u);
}

TEST_F(LocalBroadcastTest, UnregisterDuringDeliverySkipsTheRestOfTheBatch) {
    Bus().registerReceiver(&mFirst, IntentFilter({"zelkor.test.a", "zelkor.test.b"}));
    Bus().registerReceiver(&mSecond, IntentFilter({"zelkor.test.a", "zelkor.test.b"}));
    mFirst.mHook = [this](const Intent&) { Bus().unregisterReceiver(&mSecond); };
    HoldManagerThread hold;
    ASSERT_TRUE(hold.held());
    Bus().sendBroadcast(Intent("zelkor.test.a"), false);
    Bus().sendBroadcast(Intent("zelkor.test.b"), false);
    hold.release();
    DrainManagerThread();

    EXPECT_EQ(mFirst.actions(), (std::vector<std::string>{"zelkor.test.a", "zelkor.test.b"}));
    EXPECT_TRUE(mSecond.actions().empty());
    EXPECT_FALSE(Bus().sendBroadcast(Intent("zelkor.test.never"), false));
}

TEST_F(LocalBroadcastTest, BroadcastSentFromReceiverIsDeliveredInTheSameRun) {
    Bus().registerReceiver(&mFirst, IntentFilter({"zelkor.test.a"}));
    Bus().registerReceiver(&mSecond, IntentFilter({"zelkor.test.b"}));
    mFirst.mHook = [](const Intent&) { Bus().sendBroadcast(Intent("zelkor.test.b"), false); };
    Bus().sendBroadcast(Intent("zelkor.test.a"), false);
    DrainManagerThread();
    EXPECT_EQ(mSecond.actions(), std::vector<std::string>{"zelkor.test.b"});
}

TEST_F(LocalBroadcastTest, SlowReceiverIsReported) {
    LogCapture logs;
    Bus().registerReceiver(&mFirst, IntentFilter({"zelkor.test.slow"}));
    // The receiver's time is the behaviour under test, so it really takes it.
    mFirst.mHook = [](const Intent&) { usleep(320 * 1000); };
    Bus().sendBroadcast(Intent("zelkor.test.slow"), false);
    DrainManagerThread();
    EXPECT_EQ(logs.count(kTag,
                         "[executePendingBroadcasts] The time that calling onReceive is "
                         "too long!! spend time"),
              1);
    EXPECT_EQ(logs.count(kTag, "action: zelkor.test.slow"), 1);
}

TEST(IntentTest, ExtrasAreTypedAndMissingKeysAreNullJson) {
    Intent intent("zelkor.test.a");
    static const char kText[] = "pointer";
    intent.putExtra("j", Json::Value(7));
    intent.putExtra("b", true);
    intent.putExtra("s", std::string("text"));
    intent.putExtra("c", kText);
    intent.putExtra("l", int64_t{1} << 40);
    intent.putExtra("i", int32_t{-3});
    intent.putExtra("any", std::any(2.5));

    EXPECT_EQ(intent.getExtra("c").index(), EXTRA_CSTRING);
    EXPECT_EQ(intent.getExtra<const char*>("c"), kText);
    EXPECT_EQ(intent.getExtra<int64_t>("l"), int64_t{1} << 40);
    EXPECT_EQ(intent.getExtra<double>("any"), 2.5);
    EXPECT_THROW(intent.getExtra<int32_t>("s"), std::bad_any_cast);
    EXPECT_THROW(intent.getExtra<int32_t>("any"), std::bad_any_cast);

    ExtraValue missing = intent.getExtra("nope");
    EXPECT_EQ(missing.index(), EXTRA_JSON);
    EXPECT_TRUE(std::get<Json::Value>(missing).isNull());
    EXPECT_EQ(intent.getExtras().size(), 7u);

    Intent copy = intent;
    copy.putExtra("b", false);
    EXPECT_TRUE(intent.getExtra<bool>("b"));
}

}  // namespace
}  // namespace zelkor::tessel
