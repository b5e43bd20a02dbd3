#include "modules/LogManager/LogManagerUtil.h"

#include <gtest/gtest.h>

#include "LogCapture.h"
#include "utils/JsonUtil.h"
#include "utils/TimeUtil.h"

namespace zelkor::tessel {
namespace {

using testing::LogCapture;

constexpr char kTag[] = "Halvex-LogManagerUtil";

std::vector<LogConfig> Configs(const std::string& text) {
    Json::Value json;
    EXPECT_TRUE(JsonUtil::ConvertStringToJson(text, json)) << text;
    return LogManagerUtil::GenerateConfigList(json);
}

constexpr char kExample[] = R"([
    {"folderName": "modem", "maxSize": 204800, "maxValidDay": 7, "compress": true,
     "children": [{"folderName": "ssr", "maxLogNumber": 5},
                  {"folderName": "vendor_child", "inVendor": true,
                   "children": [{"folderName": "grandchild"}]}]},
    {"folderName": "wlan", "folderPath": "/x/y"},
    {"folderName": "audio", "inVendor": true}
])";

TEST(LogManagerUtilTest, ConfigListsKeepWhatConvertedAndPointChildrenAtTheirRecords) {
    LogCapture log;
    auto configs = Configs(kExample);
    ASSERT_EQ(configs.size(), 3u);
    EXPECT_EQ(configs[0].parent, nullptr);
    ASSERT_EQ(configs[0].children.size(), 2u);
    EXPECT_EQ(configs[0].children[0].parent, &configs[0]);
    EXPECT_EQ(configs[0].children[1].children.at(0).parent, nullptr) << "one level only";
    EXPECT_EQ(log.count(kTag, "Failed to convert"), 0);

    EXPECT_TRUE(Configs(R"({"folderName": "modem"})").empty());
    EXPECT_TRUE(log.contains(kTag, "[GenerateConfigList] Failed to convert Json to valid config!"));
    auto partial = Configs(R"([{"folderName": "a", "children": [{}]}, {"maxSize": -1}, {}])");
    ASSERT_EQ(partial.size(), 1u) << "records before the bad one";
    EXPECT_EQ(partial[0].children.at(0).parent, &partial[0]);
    EXPECT_EQ(log.count(kTag, "Failed to convert Json to valid config!"), 2);
}

TEST(LogManagerUtilTest, FoldersResolveFromPathParentAndVendorFlags) {
    auto configs = Configs(kExample);
    const LogConfig& modem = configs[0];
    const auto path = LogManagerUtil::GetFullPathByConfig;
    EXPECT_EQ(path(modem, false), "/data/kestralog/bsp/modem");
    EXPECT_EQ(path(modem, true), "/data/vendor/bsplog/modem");
    EXPECT_EQ(path(configs[1], false), "/x/y");
    EXPECT_EQ(path(configs[2], false), "/data/vendor/bsplog/audio");
    EXPECT_EQ(path(modem.children[0], true), "/data/kestralog/bsp/modem/ssr")
            << "the child's own flag goes up, not the argument";
    EXPECT_EQ(path(modem.children[1], false), "/data/vendor/bsplog/modem/vendor_child");
    EXPECT_EQ(path(modem.children[1].children[0], false), "/data/kestralog/bsp/grandchild")
            << "a grandchild has no parent pointer";
}

TEST(LogManagerUtilTest, TopLevelFoldersAreFoundByNameOrPathChildrenByPathOnly) {
    LogCapture log;
    auto configs = Configs(kExample);
    // "": none found; names and paths match byte for byte.
    const char* const cases[][2] = {{"modem", "modem"},
                                    {"/data/kestralog/bsp/modem", "modem"},
                                    {"wlan", "wlan"},
                                    {"/x/y", "wlan"},
                                    {"/data/vendor/bsplog/audio", "audio"},
                                    {"/data/kestralog/bsp/modem/ssr", "ssr"},
                                    {"/data/vendor/bsplog/modem/vendor_child", "vendor_child"},
                                    {"ssr", ""},
                                    {"/data/kestralog/bsp/grandchild", ""},
                                    {"/data/kestralog/bsp/modem/", ""}};
    for (const auto& [name, expected] : cases) {
        auto config = LogManagerUtil::GetConfigByFolderName(name, configs);
        EXPECT_EQ(config ? config->folderName : "", expected) << name;
    }
    EXPECT_TRUE(log.contains(kTag, "[GetConfigByFolderName] ERR! config not found for ssr"));
    EXPECT_FALSE(LogManagerUtil::GetConfigByFolderName("modem", {}));
    // The copy carries the children, so the caller can walk them.
    EXPECT_EQ(LogManagerUtil::GetConfigByFolderName("modem", configs)->children.size(), 2u);
}

TEST(LogManagerUtilTest, DatedNamesExpireAtTheirMomentFileNamesAtTheirMidnight) {
    const char* const fmt = "%d-%d-%d_%d-%d-%d";
    const int64_t folder = TimeUtil::DateStrToTime("2024-3-7_12-5-9", fmt);
    EXPECT_FALSE(LogManagerUtil::CompareTimeStrExpired("2024-3-7_12-5-9", folder - 1, false));
    EXPECT_TRUE(LogManagerUtil::CompareTimeStrExpired("2024-3-7_12-5-9", folder, false));
    const std::string file = "ramdump_modem_2024-03-07_12-05-09.bin";
    const int64_t midnight = TimeUtil::DateStrToTime("2024-3-7_0-0-0", fmt);
    EXPECT_TRUE(LogManagerUtil::CompareTimeStrExpired(file, midnight, true));
    EXPECT_FALSE(LogManagerUtil::CompareTimeStrExpired(file, midnight - 1, true));
    // Names that do not parse count as long expired; short file names too.
    for (const char* name : {"garbage", "", "ramdump", "a_b", "a_b_c"}) {
        EXPECT_TRUE(LogManagerUtil::CompareTimeStrExpired(name, 1, false)) << name;
        EXPECT_TRUE(LogManagerUtil::CompareTimeStrExpired(name, 1, true)) << name;
    }
}

}  // namespace
}  // namespace zelkor::tessel
