// The dump history ("MNDPHIST") that stands in for the crash history.
#include "HistoryTestSupport.h"
#include "modules/BSPLogProcessor/history/FallbackHistory.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

constexpr uint64_t kArea = 0x4000000;
constexpr uint64_t kItems = 0x4000400;
constexpr uint64_t kMinidumpSize = 0x4004000;
constexpr uint64_t kItemSpace = 15360;

class FallbackHistoryTest : public HistoryTest {
  protected:
    void SetUp() override {
        HistoryTest::SetUp();
        ASSERT_TRUE(platform::SetProperty("ro.build.version.incremental", "B7"));
        MakeImage(kMinidump, kMinidumpSize);
    }
    // The area's header: version, magic, item count, item space, next_off.
    void PutHeader(uint32_t count, uint32_t nextOff) {
        Put32(kMinidump, kArea, 4096);
        Put(kMinidump, kArea + 4, "MNDPHIST");
        PutWords(kMinidump, kArea + 12, {count, kItemSpace, nextOff});
    }
    // One boot run, with a new dump taken or not.
    void Run(bool taken) {
        ASSERT_TRUE(platform::SetProperty(kMinidumpValidProperty, taken ? "1" : "0"));
        update_minidump_history();
    }
    std::string Item(int number, const std::string& reason, const std::string& summary = "") {
        return std::to_string(number) + ") B7|" + Now() + "|" + reason + "|" + summary + "\n";
    }
};

TEST_F(FallbackHistoryTest, NewCrashInitialisesTheAreaAndAddsAnItem) {
    WriteText(kPowerup, "reboot\n");
    // The summary is the line of the keyword that comes first in the table.
    WriteText(kLastKmsgFile,
              "[    9.000000][  T1] Kernel panic - not syncing: Oops\r\n"
              "[    8.000000][  T1] Unable to handle kernel paging request at 0x0\n"
              "[    8.000001][  T1] Trigger a crash\n");
    Run(true);

    const std::string item =
            Item(1, "reboot", "[    8.000000][  T1] Unable to handle kernel paging request at 0x0");
    const uint64_t next = kItems + item.size();
    EXPECT_EQ(GetLE(kMinidump, kArea, 4), 4096u);
    EXPECT_EQ(Get(kMinidump, kArea + 4, 8), "MNDPHIST");
    // item count, item space, next_off, full
    EXPECT_EQ(Words(kMinidump, kArea + 12, 3), (U64s{1, kItemSpace, next}));
    EXPECT_EQ(GetLE(kMinidump, kArea + 24, 1), 0u);
    EXPECT_EQ(Get(kMinidump, kItems, item.size()), item);
    EXPECT_EQ(ReadFile(kMdHistory), item);
    EXPECT_EQ(ModeOf(kMdHistory), 0644u);
    // The header as the log shows it once the item is written.
    EXPECT_EQ(mLog.count(kTag,
                         "md_his_header: version 0x1000, magic 0x5453494850444e4d, "
                         "item_count 1, item_len_max 15k"),
              1);
}

TEST_F(FallbackHistoryTest, NormalBootOnlyCopiesTheAreaAndACrashAddsTheNextItem) {
    PutHeader(2, kItems + 10);
    Put(kMinidump, kItems, "1) a\n2) b\nleftover");
    WriteText(kPowerup, "reboot\n");
    Run(false);
    EXPECT_EQ(ReadFile(kMdHistory), "1) a\n2) b\n");
    EXPECT_EQ(Words(kMinidump, kArea + 12, 3), (U64s{2, kItemSpace, kItems + 10}));
    // A position off the item space never copies more than the space.
    Put32(kMinidump, kArea + 20, 0x10);
    Run(false);
    EXPECT_EQ(ReadFile(kMdHistory).size(), kItemSpace);
    Put32(kMinidump, kArea + 20, kItems + 10);

    WriteText(kPowerup, "other_hw\n");  // an unexplained reset counts as a crash
    Run(false);
    EXPECT_EQ(GetLE(kMinidump, kArea + 12, 4), 3u);
    EXPECT_EQ(ReadFile(kMdHistory), "1) a\n2) b\n" + Item(3, "other_hw"));
}

TEST_F(FallbackHistoryTest, NothingIsWrittenWithoutTheMarkOrRoomForTheArea) {
    Run(false);
    EXPECT_FALSE(Exists(kMdHistory));
    EXPECT_EQ(Get(kMinidump, kArea, 25), std::string(25, '\0'));

    MakeImage(kMinidump, kMinidumpSize - 1);
    Run(true);
    EXPECT_FALSE(Exists(kMdHistory));
    EXPECT_EQ(mLog.count(kTag,
                         "minidump history at 0x4000000 does not fit in " + std::string(kMinidump)),
              1);
}

// An item that would pass the end of the item space (the area is full from
// then on and copied whole) or a position off the space starts over.
TEST_F(FallbackHistoryTest, ItemsStartOverWhenTheSpaceEndsOrThePositionIsOffIt) {
    for (auto [count, next, full] : {std::tuple{7u, kMinidumpSize - 10, 1u}, {3u, 0x10ul, 0u}}) {
        MakeImage(kMinidump, kMinidumpSize);
        PutHeader(count, next);
        // The summary table's end mark is not a keyword.
        WriteText(kLastKmsgFile, "[    1.000000][  T1] End of keyword\n");
        Run(true);
        const std::string item = Item(count + 1, "");
        EXPECT_EQ(Get(kMinidump, kItems, item.size()), item);
        EXPECT_EQ(Words(kMinidump, kArea + 20, 2), (U64s{kItems + item.size(), full}));
        const std::string copied = ReadFile(kMdHistory);
        EXPECT_EQ(copied.size(), full ? kItemSpace : item.size());
        EXPECT_EQ(copied.substr(0, item.size()), item);
    }
    EXPECT_EQ(Get(kMinidump, 0x10, 4), std::string(4, '\0'));
    EXPECT_EQ(mLog.count(kTag, "md_his_header next_off 0x10 out of range"), 1);
}

TEST_F(FallbackHistoryTest, LongItemsAreCutTo512Bytes) {
    WriteText(kLastKmsgFile, "Kernel panic " + std::string(700, 'z') + "\n");
    Run(true);
    const std::string copied = ReadFile(kMdHistory);
    EXPECT_EQ(copied.size(), 512u);
    EXPECT_EQ(copied.back(), '\n');
}

}  // namespace
}  // namespace zelkor::tessel::testing
