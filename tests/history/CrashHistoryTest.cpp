// The crash history ring on flash, "md_history" made from it, and the crash
// event sent beside it.
#include <filesystem>
#include <iterator>
#include <sstream>

#include "HistoryTestSupport.h"
#include "modules/BSPLogProcessor/history/CrashHistory.h"
#include "modules/BSPLogProcessor/history/CrashReport.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

class CrashHistoryTest : public HistoryTest {
  protected:
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
    // Kernel panics numbered "crash <first>" to "crash <last>".
    void Panics(int first, int last) {
        for (int n = first; n <= last; ++n) Record(1, 1, "kpanic", "crash " + std::to_string(n));
    }
    std::string SyncedMdHistory() {
        CrashHistoryPartition history = Open();
        EXPECT_EQ(sync_to_file_md_history(history), 0);
        close_crash_history(&history);
        return ReadFile(kMdHistory);
    }
    // A "crash_history" partition whose header is as the daemon leaves it.
    void MakeHistory(uint32_t currentNum, uint32_t nextPosition) {
        MakeImage(kCrashHistory, kHistoryRegion);
        Put(kCrashHistory, 0, "TH_HSARC");
        PutWords(kCrashHistory, 8, {0x1001, 512, currentNum, nextPosition, 0x97B86ADD, 14});
        Put32(kCrashHistory, 96, 35);
    }
    void PutRecord(uint64_t slot, const std::string& text, uint64_t length) {
        PutWords(kCrashHistory, RecordAt(0, slot), {1, 1});
        Put64(kCrashHistory, RecordAt(0, slot) + 8, length);
        Put(kCrashHistory, RecordAt(0, slot) + 32, text);
    }
    uint64_t At(uint64_t offset, int width = 4) const {
        return GetLE(kCrashHistory, offset, width);
    }
};

TEST_F(CrashHistoryTest, InTheBlackboxWithTheBootCounterElseTheCrashHistoryPartition) {
    CrashHistoryPartition history;
    EXPECT_FALSE(open_crash_history(&history));
    EXPECT_EQ(history.fd, -1);
    EXPECT_FALSE(check_crash_history());
    EXPECT_EQ(mLog.count(kTag, "check crash history partition fail 2(No such file or directory)"),
              1);

    MakeImage(kCrashHistory, kHistoryRegion);
    history = Open();
    EXPECT_FALSE(history.in_blackbox);
    EXPECT_EQ(history.offset, 0);
    EXPECT_STREQ(history.path, kCrashHistory);
    close_crash_history(&history);

    // The next run finds a blackbox: the history is behind its control header.
    reset_minidump_state();
    MakeBlackbox(7);
    Put32(kBlackbox, 0x980000C, 0x2000);  // crash_history_offset
    history = Open();
    EXPECT_TRUE(history.in_blackbox);
    EXPECT_EQ(history.offset, 0x9802000);
    EXPECT_EQ(history.boot_index, 7u);
    close_crash_history(&history);
}

TEST_F(CrashHistoryTest, SmallPartitionKeepsTheRecordsThatFitAndWritesNothingPastItsEnd) {
    // The header and two slots.
    const uint64_t size = RecordAt(0, 2);
    MakeImage(kCrashHistory, size);
    EXPECT_TRUE(check_crash_history());
    EXPECT_EQ(mLog.count(kTag, "crash history at 0x0 does not fit whole in " +
                                       std::string(kCrashHistory)),
              1);
    Panics(1, 3);

    EXPECT_EQ(std::filesystem::file_size(Host(kCrashHistory)), size);
    EXPECT_EQ(At(16), 3u);  // every crash counted
    EXPECT_EQ(mLog.count(kTag, "crash_history: record at 0xc00 lies outside"), 1);
    const std::string md = SyncedMdHistory();
    EXPECT_NE(md.find("|crash 2\n"), std::string::npos) << md;
    EXPECT_EQ(md.find("|crash 3"), std::string::npos) << md;
}

TEST_F(CrashHistoryTest, ZeroedHistoryIsInitialisedAndFirstRecordNamesTheCrashedBoot) {
    MakeBlackbox(7);
    ASSERT_TRUE(platform::SetProperty("ro.build.version.incremental", "B1.0.42"));
    // Bytes of the slot beyond the record stay as they were.
    Put(kBlackbox, RecordAt(kHistoryAt, 0) + 600, "keep");

    // The partition is closed again: a daemon that records a crash every
    // boot keeps no descriptor from it.
    auto openFds = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto fdsBefore = openFds();
    Record(1, 1, "kpanic", "Kernel panic - not syncing: Oops");
    EXPECT_EQ(openFds(), fdsBefore);

    EXPECT_EQ(Get(kBlackbox, kHistoryAt, 8), "TH_HSARC");
    // version, slots, current_num, next_position, magic2, main type count
    EXPECT_EQ(Words(kBlackbox, kHistoryAt + 8, 6), (U64s{0x1001, 512, 1, 1, 0x97B86ADD, 14}));
    EXPECT_EQ(Words(kBlackbox, kHistoryAt + 32, 3, 2), (U64s{0, 1, 0}));  // main type 1
    EXPECT_EQ(GetLE(kBlackbox, kHistoryAt + 96, 4), 35u);
    EXPECT_EQ(Words(kBlackbox, kHistoryAt + 100, 3, 2), (U64s{0, 1, 0}));  // sub type 1

    const std::string text =
            "1)[6] B1.0.42|" + Now() + "|kpanic|Kernel panic - not syncing: Oops\n";
    const uint64_t record = RecordAt(kHistoryAt, 0);
    EXPECT_EQ(Words(kBlackbox, record, 2), (U64s{1, 1}));
    EXPECT_EQ(GetLE(kBlackbox, record + 8, 8), text.size());
    EXPECT_EQ(Get(kBlackbox, record + 32, text.size() + 1), text + '\0');
    EXPECT_EQ(Get(kBlackbox, record + 600, 4), "keep");
}

TEST_F(CrashHistoryTest, The513thCrashOverwritesSlotZero) {
    MakeImage(kCrashHistory, kHistoryRegion);
    Panics(1, 512);
    // current_num, and next_position one past the last slot until the next
    EXPECT_EQ(Words(kCrashHistory, 16, 2), (U64s{512, 512}));
    Record(7, 18, "OCP", "crash 513");

    EXPECT_EQ(Words(kCrashHistory, 16, 2), (U64s{513, 1}));
    // Counters of main types 1 and 7, then of sub types 1 and 18.
    EXPECT_EQ((U64s{At(32 + 2, 2), At(32 + 14, 2), At(100 + 2, 2), At(100 + 36, 2)}),
              (U64s{512, 1, 512, 1}));
    EXPECT_EQ(Words(kCrashHistory, RecordAt(0, 0), 2), (U64s{7, 18}));
    EXPECT_EQ(Get(kCrashHistory, RecordAt(0, 0) + 32, 5), "513) ");
    EXPECT_EQ(Get(kCrashHistory, RecordAt(0, 1) + 32, 3), "2) ");

    // Oldest first: slots 1 .. 511, then slot 0.
    std::vector<std::string> lines;
    std::istringstream md(SyncedMdHistory());
    for (std::string line; std::getline(md, line);) lines.push_back(line);
    ASSERT_EQ(lines.size(), 512u);
    EXPECT_EQ(lines.front(), "2) unkown_version|" + Now() + "|kpanic|crash 2");
    EXPECT_EQ(lines[510].substr(0, 5), "512) ");
    EXPECT_EQ(lines.back(), "513) unkown_version|" + Now() + "|OCP|crash 513");
    EXPECT_EQ(ModeOf(kMdHistory), 0644u);
}

TEST_F(CrashHistoryTest, DamagedSecondMagicAndPositionAreRepairedAndCountsGoOn) {
    MakeHistory(5, 0xFFFFFFF0);
    Put32(kCrashHistory, 24, 0);
    Put16(kCrashHistory, 32 + 2 * 2, 5);
    Put16(kCrashHistory, 100 + 2 * 3, 5);
    Record(2, 3, "cpu_llcc_data_single", "LLCC Data RAM correctable Error");
    EXPECT_EQ(At(24), 0x97B86ADDu);
    EXPECT_EQ(At(16), 6u);
    EXPECT_EQ(At(32 + 2 * 2, 2), 6u);
    EXPECT_EQ(At(100 + 2 * 3, 2), 6u);
    // The position is taken back into the ring.
    EXPECT_EQ(Get(kCrashHistory, RecordAt(0, 0) + 32, 3), "6) ");
    EXPECT_EQ(At(20), 1u);
}

TEST_F(CrashHistoryTest, TypesBeyondTheCountersAreNotCountedAndLongTextsAreCut) {
    MakeImage(kCrashHistory, kHistoryRegion);
    Put(kCrashHistory, 228, "MARK");
    Record(40, 70, std::string(60, 'r'), std::string(450, 'd'));
    EXPECT_EQ(At(16), 1u);
    EXPECT_EQ(Get(kCrashHistory, 32, 64), std::string(64, '\0'));
    EXPECT_EQ(Get(kCrashHistory, 100, 128), std::string(128, '\0'));
    EXPECT_EQ(Get(kCrashHistory, 228, 4), "MARK");
    EXPECT_EQ(At(RecordAt(0, 0)), 40u);
    // Reason and detail are cut before formatting.
    const std::string text = "1) unkown_version|" + Now() + "|" + std::string(49, 'r') + "|" +
                             std::string(399, 'd') + "\n";
    EXPECT_EQ(At(RecordAt(0, 0) + 8, 8), text.size());
    EXPECT_EQ(Get(kCrashHistory, RecordAt(0, 0) + 32, text.size()), text);
}

TEST_F(CrashHistoryTest, MdHistoryBeforeTheFirstLapSkipsOverlongRecords) {
    MakeHistory(3, 3);
    PutRecord(0, "first\n", 6);
    PutRecord(1, "damaged\n", 512);
    PutRecord(2, "third\n", 6);
    PutRecord(3, "not yet\n", 8);
    EXPECT_EQ(SyncedMdHistory(), "first\nthird\n");
    EXPECT_EQ(mLog.count(kTag, "crash_history: record 1 has length 512, skipped"), 1);
}

using CrashReportTest = HistoryTest;

TEST_F(CrashReportTest, EventIdsByMainTypeAndNoneWithoutOne) {
    const unsigned int ids[] = {0,         901006001, 901006003, 901006002, 901006022,
                                901006023, 901006004, 901006006, 901006005, 901006021,
                                901006029, 901006019, 901006020, 901006018};
    for (uint32_t type = 0; type < std::size(ids); ++type) {
        EXPECT_EQ(crash_event_id(type), ids[type]) << "main type " << type;
    }
    EXPECT_EQ(crash_event_id(14), 0u);
    EXPECT_EQ(crash_event_id(0xFFFFFFFF), 0u);

    // A sub type without a main type is named but not sent.
    crash_report(CRASH_MAIN_NONE, CRASH_CORE_HANG, "core_hang", "x");
    EXPECT_TRUE(Events().empty());
    EXPECT_EQ(platform::GetProperty("vendor.minidump.crash_reason", ""), "core_hang");
    EXPECT_EQ(mLog.count(kTag, "no event id for crash main type 0, core_hang not reported"), 1);
}

}  // namespace
}  // namespace zelkor::tessel::testing
