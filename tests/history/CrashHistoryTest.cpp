// The crash history ring on flash and "md_history" made from it.
#include "HistoryTestSupport.h"
#include "modules/BSPLogProcessor/CrashHistory.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

class CrashHistoryTest : public HistoryTest {
  protected:
    // A "crash_history" partition image of exactly the history's size.
    void MakeHistoryPartition(uint64_t size = kHistoryRegion) { MakeImage(kCrashHistory, size); }

    CrashHistoryPartition Open() {
        CrashHistoryPartition history;
        EXPECT_TRUE(open_crash_history(&history));
        return history;
    }
    void Record(uint32_t mainType, uint32_t subType, const std::string& reason,
                const std::string& detail) {
        CrashHistoryPartition history = Open();
        EXPECT_EQ(write_to_partition_crash_history(
                          history, static_cast<crash_main_type_enum>(mainType),
                          static_cast<crash_type_enum>(subType), reason, detail),
                  0);
        close_crash_history(&history);
    }
    std::string SyncedMdHistory() {
        CrashHistoryPartition history = Open();
        EXPECT_EQ(sync_to_file_md_history(history), 0);
        close_crash_history(&history);
        return ReadFile(kMdHistory);
    }
    // A header as the daemon leaves it, written field by field.
    void PutHeader(const char* dev, uint64_t at, uint32_t currentNum, uint32_t nextPosition) {
        Put(dev, at, "TH_HSARC");
        Put32(dev, at + 8, 0x1001);
        Put32(dev, at + 12, 512);
        Put32(dev, at + 16, currentNum);
        Put32(dev, at + 20, nextPosition);
        Put32(dev, at + 24, 0x97B86ADD);
        Put32(dev, at + 28, 14);
        Put32(dev, at + 96, 35);
    }
    void PutRecord(const char* dev, uint64_t history, uint64_t slot, const std::string& text,
                   uint64_t length) {
        Put32(dev, RecordAt(history, slot), 1);
        Put32(dev, RecordAt(history, slot) + 4, 1);
        Put64(dev, RecordAt(history, slot) + 8, length);
        Put(dev, RecordAt(history, slot) + 32, text);
    }
};

// ---- where the history lies -------------------------------------------------

TEST_F(CrashHistoryTest, InBlackboxBehindTheControlHeaderWithTheBootCounter) {
    MakeBlackbox(7);
    Put32(kBlackbox, 0x980000C, 0x2000);  // crash_history_offset
    CrashHistoryPartition history = Open();
    EXPECT_TRUE(history.in_blackbox);
    EXPECT_EQ(history.offset, 0x9802000);
    EXPECT_EQ(history.boot_index, 7u);
    close_crash_history(&history);
}

TEST_F(CrashHistoryTest, WithoutBlackboxTheCrashHistoryPartitionFromZero) {
    MakeHistoryPartition();
    CrashHistoryPartition history = Open();
    EXPECT_FALSE(history.in_blackbox);
    EXPECT_EQ(history.offset, 0);
    EXPECT_STREQ(history.path, kCrashHistory);
    close_crash_history(&history);
}

TEST_F(CrashHistoryTest, MissingPartitionFailsTheCheck) {
    CrashHistoryPartition history;
    EXPECT_FALSE(open_crash_history(&history));
    EXPECT_EQ(history.fd, -1);
    EXPECT_FALSE(check_crash_history());
    EXPECT_EQ(mLog.count(kTag, "check crash history partition fail 2(No such file or directory)"),
              1);
}

TEST_F(CrashHistoryTest, SmallPartitionKeepsTheRecordsThatFitAndWritesNothingPastItsEnd) {
    // The header and two slots.
    const uint64_t size = RecordAt(0, 2);
    MakeHistoryPartition(size);
    EXPECT_TRUE(check_crash_history());
    EXPECT_EQ(mLog.count(kTag, "crash history at 0x0 does not fit whole in " +
                                       std::string(kCrashHistory)),
              1);
    for (int crash = 1; crash <= 3; ++crash)
        Record(1, 1, "kpanic", "crash " + std::to_string(crash));

    EXPECT_EQ(std::filesystem::file_size(Host(kCrashHistory)), size);
    EXPECT_EQ(GetLE(kCrashHistory, 16, 4), 3u);  // every crash counted
    EXPECT_EQ(mLog.count(kTag, "crash_history: record at 0xc00 lies outside"), 1);
    const std::string md = SyncedMdHistory();
    EXPECT_NE(md.find("|crash 2\n"), std::string::npos) << md;
    EXPECT_EQ(md.find("|crash 3"), std::string::npos) << md;
}

// ---- appending ----------------------------------------------------------------

TEST_F(CrashHistoryTest, ZeroedHistoryIsInitialisedAndFirstRecordNamesTheCrashedBoot) {
    MakeBlackbox(7);
    ASSERT_TRUE(platform::SetProperty("ro.build.version.incremental", "B1.0.42"));
    // Bytes of the slot beyond the record stay as they were.
    Put(kBlackbox, RecordAt(kHistoryAt, 0) + 600, "keep");

    Record(1, 1, "kpanic", "Kernel panic - not syncing: Oops");

    EXPECT_EQ(Get(kBlackbox, kHistoryAt, 8), "TH_HSARC");
    EXPECT_EQ(GetLE(kBlackbox, kHistoryAt + 8, 4), 0x1001u);
    EXPECT_EQ(GetLE(kBlackbox, kHistoryAt + 12, 4), 512u);
    EXPECT_EQ(GetLE(kBlackbox, kHistoryAt + 16, 4), 1u);  // current_num
    EXPECT_EQ(GetLE(kBlackbox, kHistoryAt + 20, 4), 1u);  // next_position
    EXPECT_EQ(GetLE(kBlackbox, kHistoryAt + 24, 4), 0x97B86ADDu);
    EXPECT_EQ(GetLE(kBlackbox, kHistoryAt + 28, 4), 14u);
    EXPECT_EQ(GetLE(kBlackbox, kHistoryAt + 32 + 2 * 1, 2), 1u);  // main type 1
    EXPECT_EQ(GetLE(kBlackbox, kHistoryAt + 96, 4), 35u);
    EXPECT_EQ(GetLE(kBlackbox, kHistoryAt + 100 + 2 * 1, 2), 1u);  // sub type 1

    const std::string text =
            "1)[6] B1.0.42|" + Now() + "|kpanic|Kernel panic - not syncing: Oops\n";
    const uint64_t record = RecordAt(kHistoryAt, 0);
    EXPECT_EQ(GetLE(kBlackbox, record, 4), 1u);
    EXPECT_EQ(GetLE(kBlackbox, record + 4, 4), 1u);
    EXPECT_EQ(GetLE(kBlackbox, record + 8, 8), text.size());
    EXPECT_EQ(Get(kBlackbox, record + 32, text.size() + 1), text + '\0');
    EXPECT_EQ(Get(kBlackbox, record + 600, 4), "keep");
}

TEST_F(CrashHistoryTest, ReasonAndDetailAreCutBeforeFormatting) {
    MakeHistoryPartition();
    Record(1, 1, std::string(60, 'r'), std::string(450, 'd'));
    const std::string text = "1) unkown_version|" + Now() + "|" + std::string(49, 'r') + "|" +
                             std::string(399, 'd') + "\n";
    EXPECT_EQ(GetLE(kCrashHistory, RecordAt(0, 0) + 8, 8), text.size());
    EXPECT_EQ(Get(kCrashHistory, RecordAt(0, 0) + 32, text.size()), text);
}

TEST_F(CrashHistoryTest, The513thCrashOverwritesSlotZero) {
    MakeHistoryPartition();
    for (int crash = 1; crash <= 512; ++crash) {
        Record(1, 1, "kpanic", "crash " + std::to_string(crash));
    }
    EXPECT_EQ(GetLE(kCrashHistory, 16, 4), 512u);
    EXPECT_EQ(GetLE(kCrashHistory, 20, 4), 512u);  // stays one past the last slot until the next
    Record(7, 18, "OCP", "crash 513");

    EXPECT_EQ(GetLE(kCrashHistory, 16, 4), 513u);
    EXPECT_EQ(GetLE(kCrashHistory, 20, 4), 1u);
    EXPECT_EQ(GetLE(kCrashHistory, 32 + 2 * 1, 2), 512u);
    EXPECT_EQ(GetLE(kCrashHistory, 32 + 2 * 7, 2), 1u);
    EXPECT_EQ(GetLE(kCrashHistory, 100 + 2 * 1, 2), 512u);
    EXPECT_EQ(GetLE(kCrashHistory, 100 + 2 * 18, 2), 1u);
    EXPECT_EQ(GetLE(kCrashHistory, RecordAt(0, 0), 4), 7u);
    EXPECT_EQ(GetLE(kCrashHistory, RecordAt(0, 0) + 4, 4), 18u);
    EXPECT_EQ(Get(kCrashHistory, RecordAt(0, 0) + 32, 5), "513) ");
    EXPECT_EQ(Get(kCrashHistory, RecordAt(0, 1) + 32, 3), "2) ");

    // Oldest first: slots 1 .. 511, then slot 0.
    const std::vector<std::string> lines = Lines(SyncedMdHistory());
    ASSERT_EQ(lines.size(), 512u);
    EXPECT_EQ(lines.front(), "2) unkown_version|" + Now() + "|kpanic|crash 2");
    EXPECT_EQ(lines[510].substr(0, 5), "512) ");
    EXPECT_EQ(lines.back(), "513) unkown_version|" + Now() + "|OCP|crash 513");
    EXPECT_EQ(ModeOf(kMdHistory), 0644u);
}

TEST_F(CrashHistoryTest, DamagedSecondMagicAndPositionAreRepairedAndCountsGoOn) {
    MakeHistoryPartition();
    PutHeader(kCrashHistory, 0, 5, 0xFFFFFFF0);
    Put32(kCrashHistory, 24, 0);
    Put16(kCrashHistory, 32 + 2 * 2, 5);
    Put16(kCrashHistory, 100 + 2 * 3, 5);
    Record(2, 3, "cpu_llcc_data_single", "LLCC Data RAM correctable Error");
    EXPECT_EQ(GetLE(kCrashHistory, 24, 4), 0x97B86ADDu);
    EXPECT_EQ(GetLE(kCrashHistory, 16, 4), 6u);
    EXPECT_EQ(GetLE(kCrashHistory, 32 + 2 * 2, 2), 6u);
    EXPECT_EQ(GetLE(kCrashHistory, 100 + 2 * 3, 2), 6u);
    // The position is taken back into the ring.
    EXPECT_EQ(Get(kCrashHistory, RecordAt(0, 0) + 32, 3), "6) ");
    EXPECT_EQ(GetLE(kCrashHistory, 20, 4), 1u);
}

TEST_F(CrashHistoryTest, TypesBeyondTheCountersAreNotCounted) {
    MakeHistoryPartition();
    Put(kCrashHistory, 228, "MARK");
    Record(40, 70, "strange", "x");
    EXPECT_EQ(GetLE(kCrashHistory, 16, 4), 1u);
    EXPECT_EQ(Get(kCrashHistory, 32, 64), std::string(64, '\0'));
    EXPECT_EQ(Get(kCrashHistory, 100, 128), std::string(128, '\0'));
    EXPECT_EQ(Get(kCrashHistory, 228, 4), "MARK");
    EXPECT_EQ(GetLE(kCrashHistory, RecordAt(0, 0), 4), 40u);
}

// ---- md_history -----------------------------------------------------------------

TEST_F(CrashHistoryTest, MdHistoryBeforeTheFirstLapSkipsOverlongRecords) {
    MakeHistoryPartition();
    PutHeader(kCrashHistory, 0, 3, 3);
    PutRecord(kCrashHistory, 0, 0, "first\n", 6);
    PutRecord(kCrashHistory, 0, 1, "damaged\n", 512);
    PutRecord(kCrashHistory, 0, 2, "third\n", 6);
    PutRecord(kCrashHistory, 0, 3, "not yet\n", 8);
    EXPECT_EQ(SyncedMdHistory(), "first\nthird\n");
    EXPECT_EQ(mLog.count(kTag, "crash_history: record 1 has length 512, skipped"), 1);
}

}  // namespace
}  // namespace zelkor::tessel::testing
