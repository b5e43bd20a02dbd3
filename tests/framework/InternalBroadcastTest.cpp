#include <gtest/gtest.h>

#include "LogCapture.h"
#include "framework/InternalBroadcastManager.h"
#include "framework/LocalBroadcastManager.h"
#include "framework/ModuleManager.h"
#include "framework/TestSupport.h"

namespace zelkor::tessel {
namespace {

using testing::Latch;
using testing::LogCapture;

constexpr char kTag[] = "Halvex-InternalBroadcastManager";

class CollectingReceiver : public BroadcastReceiver {
  public:
    void onReceive(Intent intent) override {
        std::lock_guard<std::mutex> lock(mMutex);
        mIntents.push_back(std::move(intent));
    }
    std::vector<Intent> intents() {
        std::lock_guard<std::mutex> lock(mMutex);
        return mIntents;
    }

  private:
    std::mutex mMutex;
    std::vector<Intent> mIntents;
};

void DrainManagerThread() {
    Latch done;
    ModuleManager::GetManagerHandler()->postDelayed([&done] { done.open(); }, 0);
    ASSERT_TRUE(done.wait());
}

TEST(InternalBroadcastJsonTest, EveryExtraTypeSurvivesTheRoundTrip) {
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

TEST(InternalBroadcastJsonTest, BadTextGivesAnIntentWithoutExtras) {
    LogCapture logs;
    Intent garbage = InternalBroadcastManager::jsonStrToIntent("a", "{not json");
    EXPECT_TRUE(garbage.getExtras().empty());
    EXPECT_TRUE(logs.contains(kTag, "[jsonStrToIntent] ConvertStringToJson failed!"));
    // Nested deeper than the reader goes: refused the same way, not thrown.
    const std::string deep = std::string(5000, '[') + std::string(5000, ']');
    EXPECT_TRUE(InternalBroadcastManager::jsonStrToIntent("a", deep).getExtras().empty());
    EXPECT_EQ(logs.count(kTag, "[jsonStrToIntent] ConvertStringToJson failed!"), 2);

    for (const char* text : {"{}", R"({"extras":null})", R"({"extras":{"key":"x"}})", "[1]"}) {
        EXPECT_TRUE(InternalBroadcastManager::jsonStrToIntent("a", text).getExtras().empty());
    }
    EXPECT_EQ(logs.count(kTag,
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
}

TEST(InternalBroadcastJsonTest, AnyExtraIsReportedAndNotCarried) {
    LogCapture logs;
    Intent intent("a");
    intent.putExtra("opaque", std::any(std::string("in-process only")));
    Intent back = InternalBroadcastManager::jsonStrToIntent(
            "a", InternalBroadcastManager::intentToJsonStr(intent));
    EXPECT_TRUE(back.getExtras().empty());
    EXPECT_TRUE(logs.contains(kTag,
                              "[generateJsonValueByExtra] Unknown Type! value is not the "
                              "supported type. Supported type: int boot string float int64_t "
                              "Json::Value, current type is 7"));
}

TEST(InternalBroadcastDeliveryTest, ReceiversThroughThisManagerAreForcedInternal) {
    CollectingReceiver viaInternal;
    CollectingReceiver viaLocal;
    InternalBroadcastManager::registerReceiver(&viaInternal, IntentFilter({"zelkor.test.in"}));
    LocalBroadcastManager::getInstance().registerReceiver(&viaLocal,
                                                          IntentFilter({"zelkor.test.in"}));

    // As if it came from the peer: broadcast here as internal, not sent back.
    InternalBroadcastManager::onHalvexIntlMessageReceived(
            "zelkor.test.in", R"({"extras":[{"key":"k","value":"v","value_type":2}]})");
    DrainManagerThread();

    ASSERT_EQ(viaInternal.intents().size(), 1u);
    EXPECT_EQ(viaInternal.intents()[0].getExtra<std::string>("k"), "v");
    EXPECT_TRUE(viaLocal.intents().empty());

    InternalBroadcastManager::unregisterReceiver(&viaInternal);
    LocalBroadcastManager::getInstance().unregisterReceiver(&viaLocal);
    InternalBroadcastManager::onHalvexIntlMessageReceived("zelkor.test.in", "{}");
    DrainManagerThread();
    EXPECT_EQ(viaInternal.intents().size(), 1u);
}

}  // namespace
}  // namespace zelkor::tessel
