// tessel-image's inspectors, called in process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <utility>
#include <vector>

#include "BlackBoxFixture.h"
#include "tools/tessel-image/BlackboxInspector.h"
#include "tools/tessel-image/HwinfoRegion.h"
#include "tools/tessel-image/JsonText.h"

namespace zelkor::tessel::testing {
namespace {

using Strings = std::vector<std::string>;

class InspectTest : public BlackBoxTest {
  protected:
    Json::Value Inspect() {
        EXPECT_TRUE(mImage->ok());
        int fd = open(mImage->path().c_str(), O_RDONLY | O_CLOEXEC);
        Json::Value tree = image::InspectBlackbox(fd, mImage->size());
        close(fd);
        return tree;
    }
    static Strings Texts(const Json::Value& array) {
        Strings texts;
        for (const auto& item : array) texts.push_back(item.asString());
        return texts;
    }
    static bool HasError(const Json::Value& tree, const std::string& text) {
        for (const auto& error : Texts(tree["errors"])) {
            if (error.find(text) != std::string::npos) return true;
        }
        return false;
    }
};

TEST_F(InspectTest, ReportsHeadersDottingInRingOrderAndKernelLog) {
    TestImage& image = MakeImage();
    image.PutDefaultHeaders(2);
    image.PutU32(0x10, 5);  // boot_index
    const uint64_t slot = kSlot1 + kSlotSize;
    const uint64_t area = slot + kDottingArea;
    image.PutLabel(slot + 52, "boot_kmesg");
    image.PutLabel(slot + 72, "dotting 8");
    image.PutU64(slot + 104, 7);                         // dotting_count
    image.PutWords(slot + 112, {2, 20, 512, 3000, 35});  // boot_dotting_end .. write offset
    // Boot phase, then a ring whose oldest record was split across the end.
    image.PutBytes(area, "boot one\nboot two\n");
    image.PutBytes(area + 20, "it r2\nring new\n");
    image.PutBytes(area + kDottingAreaSize - 12, "ring old\nspl");
    image.PutBytes(slot + kKmsgArea, "[    1.000000][ -] hello\n[    2.000000][ -] world\n");
    image.PutWords(0x9881000, {1, 0, 3});

    const Json::Value tree = Inspect();

    EXPECT_TRUE(tree["valid"].asBool()) << tree.toStyledString();
    EXPECT_EQ(tree["log_table_header"]["magic"].asString(), "0x56775AF41BCDE0F0");
    EXPECT_EQ(tree["log_table_header"]["boot_index"].asUInt(), 5u);
    const Json::Value& log = tree["black_box_log_header"];
    EXPECT_EQ(log["offset"].asUInt64(), slot);
    EXPECT_EQ(log["slot"].asUInt(), 2u);
    EXPECT_EQ(log["prev_name"].asString(), "boot_kmesg");
    EXPECT_EQ(log["cur_name"].asString(), "dotting 8");
    EXPECT_EQ(log["dotting_count"].asUInt64(), 7u);
    EXPECT_EQ(log["ring_start"].asInt(), 20);
    EXPECT_EQ(log["dotting_magic"].asString(), "0x7C1C918ADF6BC8CC");
    EXPECT_EQ(tree["control_content_header"]["hwinfo_offset"].asUInt(), 0x9882000u);
    EXPECT_EQ(tree["blackbox_partition_config"]["isUartEnable"].asUInt(), 1u);
    EXPECT_EQ(tree["blackbox_partition_config"]["isOEMDebugUartLogLevel"].asUInt(), 3u);
    EXPECT_EQ(tree["dotting"]["offset"].asUInt64(), area);
    EXPECT_EQ(Texts(tree["dotting"]["boot"]), (Strings{"boot one", "boot two"}));
    EXPECT_EQ(Texts(tree["dotting"]["ring"]), (Strings{"ring old", "split r2", "ring new"}));
    EXPECT_EQ(Texts(tree["kmsg"]["lines"]),
              (Strings{"[    1.000000][ -] hello", "[    2.000000][ -] world"}));
}

TEST_F(InspectTest, OpenBootPhaseEndsAtTheWriteOffset) {
    MakeImage().PutDefaultHeaders();
    mImage->PutU32(kSlot1 + 128, 5);
    mImage->PutBytes(kSlot1 + kDottingArea, "a\x01\n\xff\nstale\n");
    const Json::Value dotting = Inspect()["dotting"];
    EXPECT_TRUE(dotting["boot_phase_open"].asBool());
    EXPECT_EQ(Texts(dotting["boot"]), (Strings{"a\\x01", "\\xff"}));
    EXPECT_TRUE(dotting["ring"].empty());
}

TEST_F(InspectTest, UntrustedHeadersAreReportedNotFollowed) {
    MakeImage().PutDefaultHeaders();
    mImage->PutU64(0, 1);
    mImage->PutU32(0x20, 0xFFFFFFF0);  // control_content_offset of an invalid table
    mImage->PutU64(kSlot1 + 92, 0);    // dotting_magic
    Json::Value tree = Inspect();
    EXPECT_TRUE(HasError(tree, "log_table_header: bad magic 0x1, expected 0x56775AF41BCDE0F0"));
    EXPECT_EQ(tree["control_content_header"]["offset"].asUInt64(), 0x9800000u);
    EXPECT_TRUE(tree["control_content_header"]["valid"].asBool());
    EXPECT_FALSE(tree["black_box_log_header"]["dotting_valid"].asBool());
    EXPECT_FALSE(tree.isMember("dotting"));

    MakeImage().PutDefaultHeaders();
    mImage->PutWords(kSlot1 + 116, {10, 512, 3000, kDottingAreaSize + 1});
    tree = Inspect();
    EXPECT_TRUE(HasError(tree, "log_dotting_write_offset 0x2EE001 lies outside the dotting area"));
    EXPECT_FALSE(tree["dotting"].isMember("ring"));
    mImage->PutWords(kSlot1 + 116, {50, 512, 3000, 20});
    EXPECT_TRUE(HasError(Inspect(), "ring_start 0x32 lies beyond log_dotting_write_offset"));

    MakeImage().PutDefaultHeaders();
    ASSERT_EQ(truncate(mImage->path().c_str(), kSlot1 + 50), 0);
    tree = Inspect();
    EXPECT_FALSE(tree["valid"].asBool());
    EXPECT_TRUE(tree["log_content_header"]["valid"].asBool());
    EXPECT_TRUE(HasError(tree, "black_box_log_header at 0x1000 lies outside the file"));
    EXPECT_TRUE(HasError(tree, "control_content_header at 0x9800000 lies outside the file"));
}

TEST(JsonTextTest, RendersAnyTreeAsIndentedLines) {
    Json::Value tree;
    tree["name"] = "blackbox";
    tree["list"].append(1);
    tree["list"].append(-2);
    tree["none"] = Json::Value(Json::arrayValue);
    tree["objects"].append(Json::Value(Json::objectValue))["ok"] = true;
    tree["nested"]["magic"] = "0x1";
    EXPECT_EQ(image::RenderJsonText(tree),
              "list:\n  - 1\n  - -2\nname: blackbox\nnested:\n  magic: 0x1\nnone: []\n"
              "objects:\n  -\n    ok: true\n");
}

// The offline reader's view of the hardware-info region: where records begin
// and end, and base64 read strictly.
TEST(HwinfoRegionTest, Base64IsReadStrictly) {
    const std::pair<const char*, std::string> cases[] = {
            {"", ""}, {"Zg==", "f"}, {"Zm8=", "fo"}, {"Zm9v", "foo"}, {"+/+/", "\xfb\xff\xbf"}};
    std::string bytes;
    for (const auto& [text, decoded] : cases) {
        EXPECT_TRUE(image::DecodeBase64(text, &bytes)) << text;
        EXPECT_TRUE(bytes == decoded) << text;
    }
    for (const char* bad : {"Zg=", "Z=g=", "Zg=a", "Zm9v=", "Zg==Zg==", "Zm9*", "Zm\n9v", "===="}) {
        EXPECT_FALSE(image::DecodeBase64(bad, &bytes)) << bad;
    }
}

TEST(HwinfoRegionTest, RecordsRunFromTheOffsetToTheFirstEmptyPlace) {
    TempRoot root;
    TestImage file(root.path() + "/image", 4096);
    const std::string a(344, 'A'), b(344, 'B');
    file.PutBytes(100, a + std::string("\n\0", 2) + b + std::string("\n\0", 2));
    file.PutBytes(100 + 2 * 346 + 400, "not reached");
    const image::ImageFile view(file.fd(), file.size());
    std::vector<image::HwinfoRecord> records = image::ReadHwinfoRecords(view, 100);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(records[0].offset, 100u);
    EXPECT_EQ(records[0].text, a);
    EXPECT_EQ(records[1].offset, 446u);
    EXPECT_EQ(records[1].text, b);
    // A record cut off by the end of the image counts as far as it goes.
    file.PutBytes(4096 - 10, "CCCCCCCCCC");
    records = image::ReadHwinfoRecords(view, 4096 - 10);
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(records[0].text, "CCCCCCCCCC");
    EXPECT_TRUE(image::ReadHwinfoRecords(view, 4096).empty());
    EXPECT_EQ(image::ReadHwinfoRecords(view, 100, 1).size(), 1u) << "the limit";
}

}  // namespace
}  // namespace zelkor::tessel::testing
