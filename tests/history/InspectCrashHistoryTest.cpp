// tessel-image's view of the crash history, in process and through the tool.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <json/json.h>
#include <unistd.h>

#include "TempRoot.h"
#include "blackbox/TestImage.h"
#include "e2e/Subprocess.h"
#include "tools/tessel-image/CrashHistoryInspector.h"

namespace zelkor::tessel::testing {
namespace {

using image::InspectCrashHistory;

constexpr uint64_t kRegion = 0x400 + 512 * 0x400;

class InspectCrashHistoryTest : public ::testing::Test {
  protected:
    TestImage& MakeImage(uint64_t size = kRegion, const std::string& name = "crash_history.img") {
        mImage = std::make_unique<TestImage>(mRoot.path() + "/" + name, size);
        EXPECT_TRUE(mImage->ok());
        return *mImage;
    }
    void PutHeader(uint64_t at, uint32_t currentNum, uint32_t nextPosition) {
        mImage->PutBytes(at, "TH_HSARC");
        mImage->PutWords(at + 8, {0x1001, 512, currentNum, nextPosition, 0x97B86ADD, 14});
        mImage->PutU32(at + 96, 35);
    }
    void PutRecord(uint64_t at, uint64_t slot, uint32_t mainType, uint32_t subType,
                   const std::string& text, uint64_t length) {
        const uint64_t record = at + 0x400 + slot * 0x400;
        mImage->PutWords(record, {mainType, subType});
        mImage->PutU64(record + 8, length);
        mImage->PutBytes(record + 32, text);
    }
    Json::Value Inspect(uint64_t offset = 0) {
        int fd = open(mImage->path().c_str(), O_RDONLY | O_CLOEXEC);
        Json::Value tree = InspectCrashHistory(fd, mImage->size(), offset);
        close(fd);
        return tree;
    }
    int Run(std::vector<std::string> args, std::string* out) {
        args.insert(args.begin(), "tessel-image");
        Subprocess tool(std::move(args), mRoot.path() + "/tool");
        const int status = tool.wait();
        *out = tool.out();
        return status;
    }

    TempRoot mRoot;
    std::unique_ptr<TestImage> mImage;
};

// A never-written history is valid and empty; a bad magic or a history that
// leaves the file is an error, and nothing behind it is read.
TEST_F(InspectCrashHistoryTest, UnwrittenOrUnreadableHistoryHasNoRecords) {
    MakeImage();
    Json::Value tree = Inspect();
    EXPECT_FALSE(tree["initialised"].asBool());
    EXPECT_TRUE(tree["valid"].asBool());
    EXPECT_FALSE(tree.isMember("records"));

    mImage->PutBytes(0, "NOTHIST!");
    tree = Inspect();
    EXPECT_TRUE(tree["initialised"].asBool());
    EXPECT_FALSE(tree["valid"].asBool());
    EXPECT_EQ(tree["errors"][0].asString(),
              "crash_history_header: bad magic NOTHIST!, expected TH_HSARC");
    EXPECT_FALSE(tree.isMember("records"));

    MakeImage(kRegion - 1);
    EXPECT_EQ(Inspect()["errors"][0].asString(),
              "crash history 0x0+0x80400 lies outside the file (size 0x803FF)");
    MakeImage();
    EXPECT_FALSE(Inspect(0xFFFFFFFFFFFFFF00ull)["valid"].asBool());
}

TEST_F(InspectCrashHistoryTest, RecordsInRingOrderWithCounters) {
    MakeImage();
    PutHeader(0, 514, 2);
    mImage->PutLe(32 + 2 * 1, 513, 2);   // main type 1
    mImage->PutLe(32 + 2 * 7, 1, 2);     // main type 7
    mImage->PutLe(100 + 2 * 1, 513, 2);  // kpanic
    mImage->PutLe(100 + 2 * 18, 1, 2);   // OCP
    for (uint64_t slot = 0; slot < 512; ++slot) {
        const std::string text = "s" + std::to_string(slot) + "\n";
        PutRecord(0, slot, slot == 1 ? 7 : 1, slot == 1 ? 18 : 1, text, text.size());
    }
    const Json::Value tree = Inspect();
    EXPECT_TRUE(tree["valid"].asBool()) << tree["errors"];
    EXPECT_EQ(tree["header"]["current_num"].asUInt(), 514u);
    EXPECT_EQ(tree["header"]["magic2"].asString(), "0x97B86ADD");
    const Json::Value& records = tree["records"];
    ASSERT_EQ(records.size(), 512u);
    EXPECT_EQ(records[0]["slot"].asUInt(), 2u);
    EXPECT_EQ(records[0]["text"].asString(), "s2");
    EXPECT_EQ(records[510]["slot"].asUInt(), 0u);
    EXPECT_EQ(records[511]["slot"].asUInt(), 1u);
    EXPECT_EQ(records[511]["sub_type"].asUInt(), 18u);
    const Json::Value& sub = tree["sub_type_counters"];
    ASSERT_EQ(sub.size(), 2u);
    EXPECT_EQ(sub[0]["name"].asString(), "kpanic");
    EXPECT_EQ(sub[0]["count"].asUInt(), 513u);
    EXPECT_EQ(sub[1]["name"].asString(), "OCP");
    EXPECT_EQ(tree["main_type_counters"][1]["main_type"].asUInt(), 7u);
}

TEST_F(InspectCrashHistoryTest, DamageIsListedNotTrusted) {
    MakeImage();
    PutHeader(0, 2, 5);
    mImage->PutU32(24, 0x12345678);
    PutRecord(0, 0, 1, 1, "fine\n", 5);
    PutRecord(0, 1, 1, 1, "long\n", 0xFFFFFFFFFFull);
    const Json::Value tree = Inspect();
    EXPECT_FALSE(tree["valid"].asBool());
    ASSERT_EQ(tree["errors"].size(), 3u) << tree["errors"];
    EXPECT_EQ(tree["errors"][0].asString(),
              "crash_history_header: bad magic2 0x12345678, expected 0x97B86ADD");
    EXPECT_EQ(tree["errors"][1].asString(),
              "crash_history_header: next_position 5 does not follow current_num 2 (expected 2)");
    EXPECT_EQ(tree["errors"][2].asString(),
              "record in slot 1: length 1099511627775 does not fit its text");
    EXPECT_EQ(tree["records"][0]["text"].asString(), "fine");
    EXPECT_FALSE(tree["records"][1].isMember("text"));
}

TEST_F(InspectCrashHistoryTest, ToolShowsTheHistoryOfABlackboxImageAndOfAPartitionImage) {
    MakeImage(kImageSize, "blackbox.img").PutDefaultHeaders();
    // Not the default distance, so that the tool is seen to follow the header.
    mImage->PutU32(kControl + 12, 0x2000);  // crash_history_offset
    PutHeader(kControl + 0x2000, 1, 1);
    PutRecord(kControl + 0x2000, 0, 1, 1, "1)[0] b|t|kpanic|x\n", 19);
    std::string out;
    ASSERT_EQ(Run({"inspect", mImage->path(), "--json"}, &out), 0) << out;
    Json::Value tree;
    ASSERT_TRUE(Json::Reader().parse(out, tree)) << out;
    EXPECT_EQ(tree["crash_history"]["offset"].asUInt64(), kControl + 0x2000);
    EXPECT_EQ(tree["crash_history"]["records"][0]["text"].asString(), "1)[0] b|t|kpanic|x");

    MakeImage();
    PutHeader(0, 1, 1);
    PutRecord(0, 0, 7, 18, "1) b|t|OCP|x\n", 13);
    ASSERT_EQ(Run({"inspect", "--crash-history", mImage->path()}, &out), 0) << out;
    EXPECT_NE(out.find("\n      text: 1) b|t|OCP|x\n"), std::string::npos) << out;
    EXPECT_EQ(out.find("blackbox:"), std::string::npos) << out;
}

}  // namespace
}  // namespace zelkor::tessel::testing
