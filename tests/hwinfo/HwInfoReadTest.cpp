// Where the module's values come from: lines of kernel files, properties, and
// the item table.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "LogCapture.h"
#include "TempRoot.h"
#include "modules/HardWareInfo/hwInfoModule.h"
#include "platform/Platform.h"
#include "platform/Properties.h"

namespace zelkor::tessel::testing {
namespace {

class HwInfoReadTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(platform::SetRoot(mRoot.path())); }
    void Put(const std::string& path, const std::string& text) {
        std::filesystem::create_directories(
                std::filesystem::path(mRoot.path() + path).parent_path());
        std::ofstream(mRoot.path() + path) << text;
    }
    TempRoot mRoot;
    HardWareInfoModule mModule;
};

// Items are found by their exact key.
TEST_F(HwInfoReadTest, FileItemsTakeTheirLineAndPropertyItemsTheirValue) {
    LogCapture log;
    const auto valueOf = [&](const char* key) {
        return mModule.ReadInfo(mModule.FindInfoByKey(key));
    };
    Put("/proc/mv", "LPDDR5X 12GB\n");
    EXPECT_EQ(valueOf("DDR"), "LPDDR5X 12GB");
    EXPECT_EQ(valueOf("ddr"), std::nullopt);
    EXPECT_EQ(valueOf(""), std::nullopt);
    // One line: the second is missing, and one past the end is no "invalid
    // index" yet.
    EXPECT_EQ(valueOf("UFS"), std::nullopt);
    EXPECT_EQ(log.count("Halvex-HardWareInfo", "line index is invalid"), 0);
    EXPECT_EQ(log.count("Halvex-HardWareInfo", "HWInfo Map info is invalid!"), 1);
    EXPECT_EQ(mModule.ReadInfo(InfoItem{std::string("/proc/mv"), std::nullopt, 3, 0}),
              std::nullopt);
    EXPECT_TRUE(log.contains("Halvex-HardWareInfo",
                             "[ReadInfo] line index is invalid, max line index is 2"));
    Put("/proc/mv", "\nUFS 4.0\n");
    EXPECT_EQ(valueOf("DDR"), "") << "an empty line is a value";
    EXPECT_EQ(valueOf("UFS"), "UFS 4.0");
    EXPECT_EQ(valueOf("SOC_ID"), std::nullopt) << "no file";
    // Only the head of a source file is read: a line past it is not there.
    Put("/proc/mv", "DDR\n" + std::string(70 * 1024, 'x') + "\nUFS\n");
    EXPECT_EQ(valueOf("DDR"), "DDR");
    EXPECT_EQ(valueOf("UFS")->size(), 64u * 1024 - 4);
    EXPECT_TRUE(log.contains("Halvex-HardWareInfo", "[ReadInfo] ReadInfo failed!!"));

    EXPECT_EQ(valueOf("NFC"), std::nullopt);
    ASSERT_TRUE(platform::SetProperty("ro.vendor.se.chip.model", "SN220"));
    EXPECT_EQ(valueOf("NFC"), "SN220");
    EXPECT_EQ(mModule.ReadInfo(std::nullopt), std::nullopt);
    EXPECT_EQ(mModule.ReadInfo(InfoItem{}), std::nullopt);
    EXPECT_EQ(mModule.FindInfoByKey("CAMERA_REARMAIN")->waitMs, 1000);
    EXPECT_EQ(mModule.FindInfoByKey("CAMERA_REARTELE")->waitMs, 100);
}

}  // namespace
}  // namespace zelkor::tessel::testing
