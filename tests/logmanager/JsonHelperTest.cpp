#include "utils/JsonHelper.h"

#include <gtest/gtest.h>

#include <map>

#include "modules/LogManager/LogConfig.h"
#include "modules/LogManager/LogManagerEvent.h"
#include "utils/JsonUtil.h"

namespace zelkor::tessel {
namespace {

Json::Value Parse(const std::string& text) {
    Json::Value json;
    EXPECT_TRUE(JsonUtil::ConvertStringToJson(text, json)) << text;
    return json;
}

// One LogConfig from JSON text, the result in `ok`.
LogConfig Convert(const std::string& text, bool* ok) {
    LogConfig config;
    *ok = JsonHelper::JsonToObject(config, Parse(text), {});
    return config;
}

// Some members of a record as " member=value " words.
std::string Held(const LogConfig& c) {
    return " maxSize=" + std::to_string(c.maxSize) +
           " maxValidDay=" + std::to_string(c.maxValidDay) + " folderName=" + c.folderName +
           " children=" + std::to_string(c.children.size()) + " ";
}

TEST(JsonHelperTest, EachMemberTypeTakesOnlyItsJsonFormsUnderEveryKey) {
    const struct {
        const char* json;
        bool ok;
        const char* held;  // what the record then holds, as "member=value"
    } cases[] = {
            {R"({"maxSize": 5})", true, "maxSize=5"},
            {R"({"maxSize": 5.0})", true, "maxSize=5"},
            {R"({"maxSize": 18446744073709551615})", true, "maxSize=18446744073709551615"},
            {R"({"maxSize": -1})", false, "maxSize=0"},
            {R"({"maxValidDay": 4294967295})", true, "maxValidDay=4294967295"},
            {R"({"maxValidDay": 4294967296})", false, "maxValidDay=0"},
            {R"({"folderName": 12})", true, "folderName=12\n"},
            {R"({"folderName": {"a": [1, 2]}})", true, "folderName={\"a\":[1,2]}\n"},
            {R"({"folderName": null})", true, "folderName="},
            {R"({"children": [{"folderName": "a"}, 5, {"folderName": "c"}]})", false, "children=1"},
            {R"({"children": [null, {"children": [{"maxSize": 1}]}]})", true, "children=2"},
            {R"({})", true, "maxSize=0"},
            {R"(null)", true, "maxSize=0"},
            {R"([])", false, "maxSize=0"},
            {R"(7)", false, "maxSize=0"},
    };
    for (const auto& c : cases) {
        bool ok = false;
        const std::string held = Held(Convert(c.json, &ok));
        EXPECT_EQ(ok, c.ok) << c.json;
        EXPECT_NE(held.find(" " + std::string(c.held) + " "), std::string::npos) << held;
    }

    // Every key: what each member kind accepts among these values, by index; a
    // refused value leaves the member as it was (see the rows above).
    //                          "s"  5    -1   1.5  true []   {}   null
    const std::map<std::string, std::vector<bool>> accepts = {
            {"string", {true, true, true, true, false, false, true, true}},
            {"bool", {false, false, false, false, true, false, false, false}},
            {"unsigned", {false, true, false, false, false, false, false, false}},
            {"array", {false, false, false, false, false, true, false, false}},
    };
    const char* const values[] = {"\"s\"", "5", "-1", "1.5", "true", "[]", "{}", "null"};
    const auto kindOf = [](const std::string& type) {
        if (type.find("string") != std::string::npos) return "string";
        if (type.find("true or false") != std::string::npos) return "bool";
        if (type.find("unsigned") != std::string::npos) return "unsigned";
        return "array";
    };
    const auto types = JsonHelper::MemberTypes(LogConfig{});
    ASSERT_EQ(types.size(), 13u);
    for (const auto& [key, type] : types) {
        for (size_t v = 0; v < std::size(values); ++v) {
            bool ok = false;
            Convert("{\"" + key + "\": " + values[v] + "}", &ok);
            EXPECT_EQ(ok, accepts.at(kindOf(type))[v]) << key << " = " << values[v];
        }
    }
}

TEST(JsonHelperTest, ConversionStopsAtTheFirstBadMemberKeepingEarlierOnes) {
    bool ok = true;
    // maxSize comes before maxValidDay in the member list, after folderName.
    const LogConfig config = Convert(
            R"({"maxValidDay": 3, "maxSize": -1, "folderName": "a", "inVendor": true})", &ok);
    EXPECT_FALSE(ok);
    EXPECT_EQ(config.folderName, "a");
    EXPECT_TRUE(config.inVendor);
    EXPECT_EQ(config.maxValidDay, 0u) << "after the bad member: not written";

    // Children nested as deep as the parser lets a text go, and a text nested
    // deeper than that.
    LogConfig record;
    auto nested = [](int depth) {
        std::string open, close;
        for (int i = 0; i < depth; ++i) open += R"({"children":[)", close += "]}";
        return open + "{}" + close;
    };
    EXPECT_TRUE(JsonHelper::JsonToObject(record, Parse(nested(400)), {}));
    size_t depth = 0;
    for (const LogConfig* at = &record; !at->children.empty(); at = &at->children[0]) ++depth;
    EXPECT_EQ(depth, 400u);
    Json::Value deeper;
    EXPECT_FALSE(JsonUtil::ConvertStringToJson(nested(5000), deeper));
}

TEST(JsonHelperTest, KeyPathsLeadToTheRecordOrItsArray) {
    const Json::Value json = Parse(R"({"logs": {"list": [{"folderName": "a"}, {"folderName": "b"}],
                                "one": {"folderName": "c", "maxLogNumber": 2}}, "n": 5})");
    std::vector<LogConfig> list;
    ASSERT_TRUE(JsonHelper::JsonToObject(list, json, {"logs", "list"}));
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[1].folderName, "b");
    LogConfig one;
    ASSERT_TRUE(JsonHelper::JsonToObject(one, json, {"logs", "one"}));
    EXPECT_EQ(one.maxLogNumber, 2u);
    EXPECT_FALSE(JsonHelper::JsonToObject(one, json, {"logs", "missing"}));
    EXPECT_FALSE(JsonHelper::JsonToObject(one, json, {"n", "deeper"})) << "5 has no members";
    EXPECT_FALSE(JsonHelper::JsonToObject(list, json, {"logs", "one"})) << "not an array";
    EXPECT_FALSE(JsonHelper::JsonToObject(list, Parse("[1]"), {"x"}));
}

TEST(JsonHelperTest, RecordsBecomeJsonUnderTheirRenamedKeys) {
    LogManagerEvent event;
    event.dirFullPath = "/data/vendor/bsplog/modem";
    event.dirSizeBefore = 5368709120;
    event.dirSizeAfter = 1024;
    event.isReuseOpen = true;
    std::string text;
    ASSERT_TRUE(JsonHelper::ObjectToJson(event, text));
    EXPECT_EQ(text,
              "{\"EVENT_NAME\":\"logManage\",\"folderPath\":\"/data/vendor/bsplog/modem\","
              "\"reuseClearSize\":-1,\"reuseMoveSize\":-1,\"reuseOpen\":true,\"totalSize\":1024,"
              "\"totalSizeBefore\":5368709120}\n");

    // Into an object already holding keys: members replace theirs, others stay.
    Json::Value target = Parse(R"({"folderPath": "old", "extra": 1})");
    ASSERT_TRUE(JsonHelper::ObjectToJson(event, target));
    EXPECT_EQ(target["folderPath"].asString(), "/data/vendor/bsplog/modem");
    EXPECT_EQ(target["extra"].asInt(), 1);
    Json::Value array(Json::arrayValue);
    EXPECT_FALSE(JsonHelper::ObjectToJson(event, array));

    // A configuration written out reads back the same.
    bool ok = false;
    const LogConfig config = Convert(
            R"({"folderName": "modem", "inVendor": true, "maxSize": 204800, "maxValidDay": 7,
                "compress": true, "children": [{"folderName": "ssr", "maxLogNumber": 5}]})",
            &ok);
    ASSERT_TRUE(ok);
    ASSERT_TRUE(JsonHelper::ObjectToJson(config, text));
    const LogConfig back = Convert(text, &ok);
    std::string again;
    ASSERT_TRUE(ok && JsonHelper::ObjectToJson(back, again));
    EXPECT_EQ(again, text);
    EXPECT_EQ(back.children.at(0).maxLogNumber, 5u);
}

}  // namespace
}  // namespace zelkor::tessel
