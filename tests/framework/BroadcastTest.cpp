// In-process broadcasts (delivered on the "ModuleManager" thread) and their
// bridge to the peer process (intents as JSON text).
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "LogCapture.h"
#include "framework/InternalBroadcastManager.h"
#include "framework/LocalBroadcastManager.h"
#include "framework/TestSupport.h"

namespace zelkor::tessel {
namespace {

using testing::DrainManagerThread;
using testing::LogCapture;

constexpr char kLocalTag[] = "Halvex-LocalBroadcastManager";
constexpr char kInternalTag[] = "Halvex-InternalBroadcastManager";

// Records what it received; optionally runs a hook.
class RecordingReceiver : public BroadcastReceiver {
  public:
    void onReceive(Intent intent) override {
        std::lock_guard<std::mutex> lock(mMutex);
        if (mHook) mHook(intent);
        mIntents.push_back(std::move(intent));
    }
    std::vector<Intent> intents() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mIntents;
    }
    std::vector<std::string> actions() {
        std::vector<std::string> actions;
        for (const Intent& intent : intents()) actions.push_back(intent.getAction());
        return actions;
    }
    std::function<void(const Intent&)> mHook;

  private:
    std::mutex mMutex;
    std::vector<Intent> mIntents;
};

LocalBroadcastManager& Bus() {
    return LocalBroadcastManager::getInstance();
}

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
    char thread[16] = {};
    mFirst.mHook = [&thread](const Intent&) { prctl(PR_GET_NAME, thread); };

    EXPECT_FALSE(Bus().sendBroadcast(Intent("zelkor.test.A"), false));
    EXPECT_FALSE(Bus().sendBroadcast(Intent("zelkor.test.a "), false));
    EXPECT_TRUE(Bus().sendBroadcast(Intent("zelkor.test.a"), false));
    EXPECT_TRUE(Bus().sendBroadcast(Intent("zelkor.test.a"), true));
    ASSERT_TRUE(DrainManagerThread());

    EXPECT_EQ(mFirst.actions(), std::vector<std::string>{"zelkor.test.a"});
    EXPECT_EQ(mSecond.actions(), std::vector<std::string>{"zelkor.test.a"});
    EXPECT_STREQ(thread, "ModuleManager");
    const std::string why = "[sendBroadcast] filter not matched. Reason: filter require internal ";
    EXPECT_TRUE(logs.contains(kLocalTag, why + "1 but this broadcast is 0"));
    EXPECT_TRUE(logs.contains(kLocalTag, why + "0 but this broadcast is 1"));
}

TEST_F(LocalBroadcastTest, ReceiverRegisteredTwiceOrForOneActionTwiceIsDeliveredOnce) {
    LogCapture logs;
    Bus().registerReceiver(&mFirst, IntentFilter({"zelkor.test.a"}));
    Bus().registerReceiver(&mFirst, IntentFilter({"zelkor.test.a"}));
    Bus().registerReceiver(&mSecond, IntentFilter({"zelkor.test.a", "zelkor.test.a"}));
    // A second broadcast is delivered again: the flag does not stick.
    for (size_t round = 1; round <= 2; ++round) {
        EXPECT_TRUE(Bus().sendBroadcast(Intent("zelkor.test.a"), false));
        ASSERT_TRUE(DrainManagerThread());
        EXPECT_EQ(mFirst.actions().size(), round);
        EXPECT_EQ(mSecond.actions().size(), round);
    }
    EXPECT_TRUE(logs.contains(kLocalTag, "[sendBroadcast] Filter's target already added"));
    // A filter of other actions is a registration of its own.
    Bus().registerReceiver(&mFirst, IntentFilter({"zelkor.test.b"}));
    EXPECT_TRUE(Bus().sendBroadcast(Intent("zelkor.test.b"), false));
    ASSERT_TRUE(DrainManagerThread());
    EXPECT_EQ(mFirst.actions().back(), "zelkor.test.b");
}

TEST_F(LocalBroadcastTest, ReceiversMayUnregisterOthersAndBroadcastDuringDelivery) {
    Bus().registerReceiver(&mFirst, IntentFilter({"zelkor.test.a", "zelkor.test.b"}));
    Bus().registerReceiver(&mSecond, IntentFilter({"zelkor.test.a", "zelkor.test.b"}));
    mFirst.mHook = [this](const Intent&) { Bus().unregisterReceiver(&mSecond); };
    {
        testing::Hold hold(*ModuleManager::GetManagerHandler());
        Bus().sendBroadcast(Intent("zelkor.test.a"), false);
        Bus().sendBroadcast(Intent("zelkor.test.b"), false);
    }
    ASSERT_TRUE(DrainManagerThread());
    // The rest of the batch skips the receiver gone meanwhile.
    EXPECT_EQ(mFirst.actions(), (std::vector<std::string>{"zelkor.test.a", "zelkor.test.b"}));
    EXPECT_TRUE(mSecond.actions().empty());
    EXPECT_FALSE(Bus().sendBroadcast(Intent("zelkor.test.never"), false));

    // A broadcast sent from a receiver is delivered in the same run.
    Bus().registerReceiver(&mSecond, IntentFilter({"zelkor.test.c"}));
    mFirst.mHook = [](const Intent&) { Bus().sendBroadcast(Intent("zelkor.test.c"), false); };
    Bus().sendBroadcast(Intent("zelkor.test.a"), false);
    ASSERT_TRUE(DrainManagerThread());
    EXPECT_EQ(mSecond.actions(), std::vector<std::string>{"zelkor.test.c"});
}

TEST_F(LocalBroadcastTest, SlowReceiverIsReported) {
    LogCapture logs;
    Bus().registerReceiver(&mFirst, IntentFilter({"zelkor.test.slow"}));
    // The receiver's time is the behaviour under test, so it really takes it.
    mFirst.mHook = [](const Intent&) { usleep(320 * 1000); };
    Bus().sendBroadcast(Intent("zelkor.test.slow"), false);
    ASSERT_TRUE(DrainManagerThread());
    EXPECT_EQ(logs.count(kLocalTag,
                         "[executePendingBroadcasts] The time that calling onReceive is "
                         "too long!! spend time"),
              1);
    EXPECT_EQ(logs.count(kLocalTag, "action: zelkor.test.slow"), 1);
}

TEST(IntentTest, EveryKindOfExtraSurvivesTheJsonRoundTrip) {
    static const char kPointer[] = "from a pointer";
    Intent intent("zelkor.test.json");
    Json::Value tree(Json::objectValue);
    tree["folders"].append("bsplog");
    tree["maxSize"] = 1024;
    intent.putExtra("a_json", tree);
    intent.putExtra("b_bool", true);
    intent.putExtra("c_string", std::string("text with \"quotes\""));
    intent.putExtra("d_cstring", kPointer);
    intent.putExtra("e_float", 0.1f);
    intent.putExtra("f_long", int64_t{-(int64_t{1} << 40)});
    intent.putExtra("g_int", int32_t{-7});

    const std::string json = InternalBroadcastManager::intentToJsonStr(intent);
    EXPECT_EQ(json.find("zelkor.test.json"), std::string::npos) << "the action travels apart";
    EXPECT_EQ(json.back(), '\n');
    EXPECT_NE(json.find(R"({"key":"g_int","value":-7,"value_type":6})"), std::string::npos) << json;

    Intent back = InternalBroadcastManager::jsonStrToIntent("zelkor.test.json", json);
    EXPECT_EQ(back.getAction(), "zelkor.test.json");
    EXPECT_EQ(back.getExtra<Json::Value>("a_json"), tree);
    EXPECT_TRUE(back.getExtra<bool>("b_bool"));
    EXPECT_EQ(back.getExtra<std::string>("c_string"), "text with \"quotes\"");
    // A character pointer cannot cross processes: it arrives as a string.
    EXPECT_EQ(back.getExtra("d_cstring").index(), EXTRA_STRING);
    EXPECT_EQ(back.getExtra<std::string>("d_cstring"), kPointer);
    EXPECT_EQ(back.getExtra<float>("e_float"), 0.1f);
    EXPECT_EQ(back.getExtra<int64_t>("f_long"), -(int64_t{1} << 40));
    EXPECT_EQ(back.getExtra<int32_t>("g_int"), -7);
    EXPECT_EQ(back.getExtras().size(), 7u);
}

TEST(InternalBroadcastJsonTest, BadTextOrExtrasGiveAnIntentWithoutThem) {
    LogCapture logs;
    // Nested deeper than the reader goes: refused like bad text, not thrown.
    for (const std::string& text :
         {std::string("{not json"), std::string(5000, '[') + std::string(5000, ']')}) {
        EXPECT_TRUE(InternalBroadcastManager::jsonStrToIntent("a", text).getExtras().empty());
    }
    EXPECT_EQ(logs.count(kInternalTag, "[jsonStrToIntent] ConvertStringToJson failed!"), 2);

    for (const char* text : {"{}", R"({"extras":null})", R"({"extras":{"key":"x"}})", "[1]"}) {
        EXPECT_TRUE(InternalBroadcastManager::jsonStrToIntent("a", text).getExtras().empty());
    }
    EXPECT_EQ(logs.count(kInternalTag,
                         "[jsonStrToIntent] extras is null or not the valid array! intent "
                         "will no extra info"),
              4);

    // Elements that do not fit are skipped one by one; the good one stays.
    Intent mixed = InternalBroadcastManager::jsonStrToIntent(
            "a", R"({"extras":[{"key":"n","value":"abc","value_type":6},
                               {"value":1,"value_type":6},
                               {"key":"x","value":1,"value_type":9},
                               {"key":"ok","value":5,"value_type":5}]})");
    EXPECT_EQ(mixed.getExtras().size(), 1u);
    EXPECT_EQ(mixed.getExtra<int64_t>("ok"), 5);

    // An in-process-only extra is reported and not carried.
    Intent opaque("a");
    opaque.putExtra("opaque", std::any(std::string("in-process only")));
    EXPECT_TRUE(InternalBroadcastManager::jsonStrToIntent(
                        "a", InternalBroadcastManager::intentToJsonStr(opaque))
                        .getExtras()
                        .empty());
    EXPECT_TRUE(logs.contains(kInternalTag,
                              "[generateJsonValueByExtra] Unknown Type! value is not the "
                              "supported type. Supported type: int boot string float int64_t "
                              "Json::Value, current type is 7"));
}

TEST(InternalBroadcastDeliveryTest, ReceiversThroughThisManagerAreForcedInternal) {
    RecordingReceiver viaInternal;
    RecordingReceiver viaLocal;
    InternalBroadcastManager::registerReceiver(&viaInternal, IntentFilter({"zelkor.test.in"}));
    Bus().registerReceiver(&viaLocal, IntentFilter({"zelkor.test.in"}));

    // As if it came from the peer: broadcast here as internal, not sent back.
    InternalBroadcastManager::onHalvexIntlMessageReceived(
            "zelkor.test.in", R"({"extras":[{"key":"k","value":"v","value_type":2}]})");
    ASSERT_TRUE(DrainManagerThread());

    ASSERT_EQ(viaInternal.intents().size(), 1u);
    EXPECT_EQ(viaInternal.intents()[0].getExtra<std::string>("k"), "v");
    EXPECT_TRUE(viaLocal.intents().empty());

    InternalBroadcastManager::unregisterReceiver(&viaInternal);
    Bus().unregisterReceiver(&viaLocal);
    InternalBroadcastManager::onHalvexIntlMessageReceived("zelkor.test.in", "{}");
    ASSERT_TRUE(DrainManagerThread());
    EXPECT_EQ(viaInternal.intents().size(), 1u);
}

}  // namespace
}  // namespace zelkor::tessel
