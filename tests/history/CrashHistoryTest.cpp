// The crash history ring on flash, "md_history" made from it, tessel-image's
// view of it, and the crash event sent beside it.
#include <filesystem>
#include <iterator>
#include <sstream>

#include "HistoryTestSupport.h"
#include "e2e/Subprocess.h"
#include "modules/BSPLogProcessor/history/CrashHistory.h"
#include "modules/BSPLogProcessor/history/CrashReport.h"
#include "tools/tessel-image/CrashHistoryInspector.h"

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
    // tessel-image's view of the history at `offset` of an image.
    Json::Value Inspect(const char* devicePath = kCrashHistory, uint64_t offset = 0) const {
        const int fd = OpenImage(devicePath);
        Json::Value tree = image::InspectCrashHistory(
                fd, std::filesystem::file_size(Host(devicePath)), offset);
        close(fd);
        return tree;
    }
    // What the tessel-image tool prints, which must succeed.
    std::string Tool(std::vector<std::string> args) const {
        args.insert(args.begin(), "tessel-image");
        Subprocess tool(std::move(args), mRoot.path() + "/tool");
        EXPECT_EQ(tool.wait(), 0) << tool.out();
        return tool.out();
    }
};

// The blackbox keeps the history where its control header says, with the
// crashed boot's number from its boot counter; without a blackbox, the
// "crash_history" partition does.
TEST_F(CrashHistoryTest, RecordGoesBehindTheBlackboxControlHeaderElseToThePartition) {
    CrashHistoryPartition history;
    EXPECT_FALSE(open_crash_history(&history));
    EXPECT_FALSE(check_crash_history());
    EXPECT_EQ(mLog.count(kTag, "check crash history partition fail 2(No such file or directory)"),
              1);

    MakeImage(kCrashHistory, kHistoryRegion);
    Record(7, 18, "OCP", "x");
    std::string out = Tool({"inspect", "--crash-history", Host(kCrashHistory)});
    EXPECT_NE(out.find("\n      text: 1) unkown_version|" + Now() + "|OCP|x\n"), std::string::npos)
            << out;
    EXPECT_EQ(out.find("blackbox:"), std::string::npos) << out;

    // The next run finds a blackbox; not the default distance, so that the
    // history is seen to follow the header.
    reset_minidump_state();
    MakeBlackbox(7);
    Put32(kBlackbox, kControl + 12, 0x2000);  // crash_history_offset
    Record(1, 1, "kpanic", "y");
    out = Tool({"inspect", Host(kBlackbox), "--json"});
    Json::Value tree;
    ASSERT_TRUE(Json::Reader().parse(out, tree)) << out;
    EXPECT_EQ(tree["crash_history"]["offset"].asUInt64(), kControl + 0x2000);
    EXPECT_EQ(tree["crash_history"]["records"][0]["text"].asString(),
              "1)[6] unkown_version|" + Now() + "|kpanic|y");
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

    // The inspector reads nothing of a history that leaves the file.
    EXPECT_EQ(Inspect()["errors"][0].asString(),
              "crash history 0x0+0x80400 lies outside the file (size 0xC00)");
    EXPECT_FALSE(Inspect(kCrashHistory, 0xFFFFFFFFFFFFFF00ull)["valid"].asBool());
}

TEST_F(CrashHistoryTest, ZeroedHistoryIsInitialisedAndFirstRecordNamesTheCrashedBoot) {
    MakeBlackbox(7);
    ASSERT_TRUE(platform::SetProperty("ro.build.version.incremental", "B1.0.42"));
    // Bytes of the slot beyond the record stay as they were.
    Put(kBlackbox, RecordAt(kHistoryAt, 0) + 600, "keep");
    // A never-written history is valid and empty.
    const Json::Value unwritten = Inspect(kBlackbox, kHistoryAt);
    EXPECT_FALSE(unwritten["initialised"].asBool());
    EXPECT_TRUE(unwritten["valid"].asBool());
    EXPECT_FALSE(unwritten.isMember("records"));

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

// Ring order, counters and "md_history" after the ring has gone round once.
TEST_F(CrashHistoryTest, The513thCrashOverwritesSlotZero) {
    MakeImage(kCrashHistory, kHistoryRegion);
    Panics(1, 512);
    // next_position stays one past the last slot until the next crash.
    EXPECT_EQ(At(20), 512u);
    Record(7, 18, "OCP", "crash 513");

    const Json::Value tree = Inspect();
    EXPECT_TRUE(tree["valid"].asBool()) << tree["errors"];
    EXPECT_EQ(tree["header"]["current_num"].asUInt(), 513u);
    EXPECT_EQ(tree["header"]["next_position"].asUInt(), 1u);
    std::string counters;
    for (const Json::Value& c : tree["main_type_counters"]) {
        counters += c["main_type"].asString() + ":" + c["count"].asString() + " ";
    }
    for (const Json::Value& c : tree["sub_type_counters"]) {
        counters += c["name"].asString() + ":" + c["count"].asString() + " ";
    }
    EXPECT_EQ(counters, "1:512 7:1 kpanic:512 OCP:1 ");

    // Oldest first: slots 1 .. 511, then slot 0; "md_history" the same.
    const Json::Value& records = tree["records"];
    ASSERT_EQ(records.size(), 512u);
    EXPECT_EQ(records[0]["slot"].asUInt(), 1u);
    EXPECT_EQ(records[0]["text"].asString(), "2) unkown_version|" + Now() + "|kpanic|crash 2");
    EXPECT_EQ(records[511]["slot"].asUInt(), 0u);
    EXPECT_EQ(records[511]["sub_type"].asUInt(), 18u);
    EXPECT_EQ(records[511]["text"].asString(), "513) unkown_version|" + Now() + "|OCP|crash 513");
    std::vector<std::string> texts, lines;
    for (const Json::Value& record : records) texts.push_back(record["text"].asString());
    std::istringstream md(SyncedMdHistory());
    for (std::string line; std::getline(md, line);) lines.push_back(line);
    EXPECT_TRUE(lines == texts) << lines.size() << " lines";
    EXPECT_EQ(ModeOf(kMdHistory), 0644u);
}

// The inspector lists the damage and "md_history" skips it; the next crash
// restores the second magic, takes the position back into the ring and
// counts on.
TEST_F(CrashHistoryTest, DamagedHeaderIsListedThenRepairedByTheNextCrash) {
    MakeHistory(5, 0xFFFFFFF0);
    Put32(kCrashHistory, 24, 0x12345678);
    Put16(kCrashHistory, 32 + 2 * 2, 5);
    Put16(kCrashHistory, 100 + 2 * 3, 5);
    PutRecord(0, "fine\n", 5);
    PutRecord(1, "long\n", 512);
    PutRecord(5, "not yet\n", 8);
    const Json::Value tree = Inspect();
    EXPECT_FALSE(tree["valid"].asBool());
    ASSERT_EQ(tree["errors"].size(), 3u) << tree["errors"];
    EXPECT_EQ(tree["errors"][0].asString(),
              "crash_history_header: bad magic2 0x12345678, expected 0x97B86ADD");
    EXPECT_EQ(tree["errors"][1].asString(),
              "crash_history_header: next_position 4294967280 does not follow current_num 5 "
              "(expected 5)");
    EXPECT_EQ(tree["errors"][2].asString(), "record in slot 1: length 512 does not fit its text");
    EXPECT_EQ(tree["records"][0]["text"].asString(), "fine");
    EXPECT_FALSE(tree["records"][1].isMember("text"));
    // "md_history" skips it too, and before the first lap ends at current_num.
    EXPECT_EQ(SyncedMdHistory(), "fine\n");
    EXPECT_EQ(mLog.count(kTag, "crash_history: record 1 has length 512, skipped"), 1);

    Record(2, 3, "cpu_llcc_data_single", "LLCC Data RAM correctable Error");
    EXPECT_EQ(At(24), 0x97B86ADDu);
    EXPECT_EQ(At(16), 6u);
    EXPECT_EQ(At(32 + 2 * 2, 2), 6u);
    EXPECT_EQ(At(100 + 2 * 3, 2), 6u);
    EXPECT_EQ(Get(kCrashHistory, RecordAt(0, 0) + 32, 3), "6) ");
    EXPECT_EQ(At(20), 1u);
}

// A wrong magic starts the history over; types past the counters are not
// counted, and long texts are cut before formatting.
TEST_F(CrashHistoryTest, BadMagicStartsOverAndTypesBeyondTheCountersAreNotCounted) {
    MakeHistory(99, 99);
    Put(kCrashHistory, 0, "NOTHIST!");
    Put16(kCrashHistory, 32 + 2, 7);
    const Json::Value tree = Inspect();
    EXPECT_TRUE(tree["initialised"].asBool());
    EXPECT_EQ(tree["errors"][0].asString(),
              "crash_history_header: bad magic NOTHIST!, expected TH_HSARC");
    EXPECT_FALSE(tree.isMember("records"));

    Put(kCrashHistory, 228, "MARK");
    Record(40, 70, std::string(60, 'r'), std::string(450, 'd'));
    EXPECT_EQ(At(16), 1u);
    EXPECT_EQ(Get(kCrashHistory, 32, 64), std::string(64, '\0'));
    EXPECT_EQ(Get(kCrashHistory, 100, 128), std::string(128, '\0'));
    EXPECT_EQ(Get(kCrashHistory, 228, 4), "MARK");
    EXPECT_EQ(At(RecordAt(0, 0)), 40u);
    const std::string text = "1) unkown_version|" + Now() + "|" + std::string(49, 'r') + "|" +
                             std::string(399, 'd') + "\n";
    EXPECT_EQ(At(RecordAt(0, 0) + 8, 8), text.size());
    EXPECT_EQ(Get(kCrashHistory, RecordAt(0, 0) + 32, text.size()), text);
}

using CrashReportTest = HistoryTest;

// Main types without an event id are named but not sent.
TEST_F(CrashReportTest, CrashWithoutAnEventIdIsNamedButNotSent) {
    EXPECT_EQ(crash_event_id(14), 0u);
    EXPECT_EQ(crash_event_id(0xFFFFFFFF), 0u);
    crash_report(CRASH_MAIN_NONE, CRASH_CORE_HANG, "core_hang", "x");
    EXPECT_TRUE(Events().empty());
    EXPECT_EQ(platform::GetProperty("vendor.minidump.crash_reason", ""), "core_hang");
    EXPECT_EQ(mLog.count(kTag, "no event id for crash main type 0, core_hang not reported"), 1);
}

}  // namespace
}  // namespace zelkor::tessel::testing
