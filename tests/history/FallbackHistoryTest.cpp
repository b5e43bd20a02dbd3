// The dump history ("MNDPHIST") that stands in for the crash history.
#include "HistoryTestSupport.h"
#include "modules/BSPLogProcessor/FallbackHistory.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

constexpr uint64_t kArea = 0x4000000;
constexpr uint64_t kItems = 0x4000400;
constexpr uint64_t kMinidumpSize = 0x4004000;

class FallbackHistoryTest : public HistoryTest {
  protected:
    void SetUp() override {
        HistoryTest::SetUp();
        ASSERT_TRUE(platform::SetProperty("ro.build.version.incremental", "B7"));
        MakeImage(kMinidump, kMinidumpSize);
    }
    void PutHeader(const char* dev, uint32_t count, uint32_t nextOff, uint8_t full) {
        Put32(dev, kArea, 4096);
        Put(dev, kArea + 4, "MNDPHIST");
        PutWords(dev, kArea + 12, {count, 15360, nextOff});
        PutLE(dev, kArea + 24, full, 1);
    }
    void NewDump(bool taken) {
        ASSERT_TRUE(platform::SetProperty(kMinidumpValidProperty, taken ? "1" : "0"));
    }
};

TEST_F(FallbackHistoryTest, SummaryIsTheLineOfTheEarliestKeyword) {
    EXPECT_EQ(last_kmsg_summary(), "");
    WriteText(kLastKmsgFile,
              "[    9.000000][  T1] Kernel panic - not syncing: Oops\r\n"
              "[    8.000000][  T1] Unable to handle kernel paging request at 0x0\n"
              "[    8.000001][  T1] Trigger a crash\n");
    EXPECT_EQ(last_kmsg_summary(),
              "[    8.000000][  T1] Unable to handle kernel paging request at 0x0");
}

TEST_F(FallbackHistoryTest, NewCrashInitialisesTheAreaAndAddsAnItem) {
    NewDump(true);
    WriteText(kPowerup, "reboot\n");
    WriteText(kLastKmsgFile, "[    8.000001][  T1] Trigger a crash\n");

    update_minidump_history();

    const std::string item = "1) B7|" + Now() + "|reboot|[    8.000001][  T1] Trigger a crash\n";
    EXPECT_EQ(GetLE(kMinidump, kArea, 4), 4096u);
    EXPECT_EQ(Get(kMinidump, kArea + 4, 8), "MNDPHIST");
    // item count, item length limit, next_off, full
    EXPECT_EQ(Words(kMinidump, kArea + 12, 3), (U64s{1, 15360, kItems + item.size()}));
    EXPECT_EQ(GetLE(kMinidump, kArea + 24, 1), 0u);
    EXPECT_EQ(Get(kMinidump, kItems, item.size()), item);
    EXPECT_EQ(ReadFile(kMdHistory), item);
    EXPECT_EQ(ModeOf(kMdHistory), 0644u);
    EXPECT_EQ(mLog.count(kTag, "find new crash , write to minidump history in partition first"), 1);
    char after[160];
    snprintf(after, sizeof(after),
             "md_his_header: version 0x1000, magic 0x5453494850444e4d, item_count 1, "
             "item_len_max 15k, next_off 0x%x, full 0",
             static_cast<unsigned>(kItems + item.size()));
    EXPECT_TRUE(mLog.contains(kTag, after));
}

TEST_F(FallbackHistoryTest, NormalBootOnlyCopiesTheAreaAndACrashAddsTheNextItem) {
    PutHeader(kMinidump, 2, kItems + 10, 0);
    Put(kMinidump, kItems, "1) a\n2) b\nleftover");
    NewDump(false);
    WriteText(kPowerup, "reboot\n");

    update_minidump_history();

    EXPECT_EQ(ReadFile(kMdHistory), "1) a\n2) b\n");
    EXPECT_EQ(Words(kMinidump, kArea + 12, 3), (U64s{2, 15360, kItems + 10}));
    // A position off the item space never copies more than the space.
    Put32(kMinidump, kArea + 20, 0x10);
    update_minidump_history();
    EXPECT_EQ(ReadFile(kMdHistory).size(), 15360u);
    Put32(kMinidump, kArea + 20, kItems + 10);

    WriteText(kPowerup, "other_hw\n");  // an unexplained reset counts as a crash
    update_minidump_history();
    const std::string item = "3) B7|" + Now() + "|other_hw|\n";
    EXPECT_EQ(GetLE(kMinidump, kArea + 12, 4), 3u);
    EXPECT_EQ(ReadFile(kMdHistory), "1) a\n2) b\n" + item);
}

TEST_F(FallbackHistoryTest, NormalBootWithoutTheMarkWritesNothing) {
    NewDump(false);
    update_minidump_history();
    EXPECT_FALSE(Exists(kMdHistory));
    EXPECT_EQ(Get(kMinidump, kArea, 25), std::string(25, '\0'));
}

TEST_F(FallbackHistoryTest, FullAreaStartsOverAndIsCopiedWhole) {
    PutHeader(kMinidump, 7, 0x4004000 - 10, 0);
    Put(kMinidump, kItems, "1) oldest");
    NewDump(true);
    WriteText(kPowerup, "reboot\n");

    update_minidump_history();

    const std::string item = "8) B7|" + Now() + "|reboot|\n";
    EXPECT_EQ(Words(kMinidump, kArea + 20, 2), (U64s{kItems + item.size(), 1}));
    EXPECT_EQ(Get(kMinidump, kItems, item.size()), item);
    const std::string copied = ReadFile(kMdHistory);
    EXPECT_EQ(copied.size(), 15360u);
    EXPECT_EQ(copied.substr(0, item.size()), item);
}

TEST_F(FallbackHistoryTest, PositionOutsideTheItemSpaceStartsOver) {
    PutHeader(kMinidump, 3, 0x10, 0);
    NewDump(true);

    update_minidump_history();

    const std::string item = "4) B7|" + Now() + "||\n";
    EXPECT_EQ(Get(kMinidump, kItems, item.size()), item);
    EXPECT_EQ(Words(kMinidump, kArea + 20, 2), (U64s{kItems + item.size(), 0}));
    EXPECT_EQ(Get(kMinidump, 0x10, 4), std::string(4, '\0'));
    EXPECT_EQ(mLog.count(kTag, "md_his_header next_off 0x10 out of range"), 1);
}

TEST_F(FallbackHistoryTest, LongItemsAreCutTo512Bytes) {
    NewDump(true);
    WriteText(kLastKmsgFile, "Kernel panic " + std::string(700, 'z') + "\n");
    update_minidump_history();
    const std::string copied = ReadFile(kMdHistory);
    EXPECT_EQ(copied.size(), 512u);
    EXPECT_EQ(copied.back(), '\n');
}

TEST_F(FallbackHistoryTest, PartitionTooSmallForTheAreaIsLeftAlone) {
    MakeImage(kMinidump, kMinidumpSize - 1);
    NewDump(true);
    update_minidump_history();
    EXPECT_FALSE(Exists(kMdHistory));
    EXPECT_EQ(mLog.count(kTag,
                         "minidump history at 0x4000000 does not fit in " + std::string(kMinidump)),
              1);
}

}  // namespace
}  // namespace zelkor::tessel::testing
