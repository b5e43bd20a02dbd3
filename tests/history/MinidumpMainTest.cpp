// The whole boot run over roots holding what a crashed (or healthy) boot
// leaves behind.
#include "HistoryTestSupport.h"
#include "modules/BSPLogProcessor/MinidumpMain.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

constexpr uint64_t kDumpArea = 0x3000000;
constexpr uint64_t kDumpSlot = kDumpArea + 0x400;
constexpr char kRawdumpBytes[] = "raw dump bytes, raw dump bytes, raw dump bytes\n";

class MinidumpMainTest : public HistoryTest {
  protected:
    void SetUp() override {
        HistoryTest::SetUp();
        ASSERT_TRUE(platform::SetProperty("ro.build.version.incremental", "B1.0.42"));
        WriteText(kPowerup, "reboot\n");
        WriteText(kPoweroff, "panic\n");
    }

    // A new raw dump in the blackbox's dump area: slot 0 of a v2 dump of the
    // boot numbered 6, one md_kmsg section with a panic and its call trace.
    void PutNewDump() {
        LastLog(kBlackbox, kDumpArea, "Raw_Dmp!", 0, 0, 0xA00000, 0x600000);
        DumpHeader(kBlackbox, kDumpSlot, 0x2000, 1, "", 6);
        std::string kmsg;
        for (auto [nsec, text] :
             {std::pair{5000123000ull, "Kernel panic - not syncing: Fatal exception"},
              {5000124000ull, "Call trace:"},
              {5000125000ull, " dump_backtrace+0x0/0x1e0"}}) {
            kmsg += PrintkRecord(nsec, 0, text);
        }
        Put(kBlackbox, kDumpSlot + 0x1000, kmsg);
        SectionHeader(kBlackbox, kDumpSlot + 88, 0, 1, "md_kmsg", kDumpSlot + 0x1000, kmsg.size());
    }
};

TEST_F(MinidumpMainTest, NewDumpInTheBlackboxIsTakenClassifiedReportedAndRecorded) {
    MakeBlackbox(7);
    PutNewDump();
    MakeImage(kRawdump, 0);
    Put(kRawdump, 0, kRawdumpBytes);
    WriteText("/dev/kmsg", "6,1,5000000,-;hello kmsg\n");
    WriteText("/data/vendor/diag/stale", "from the last run");

    minidump_main();

    const std::string panic = "[    5.000123][    L0] Kernel panic - not syncing: Fatal exception";
    EXPECT_FALSE(Exists("/data/vendor/diag/stale"));
    EXPECT_EQ(ReadFile(kLastKmsgFile),
              "=== Dump occured at " + Now() + " ===\n" + panic +
                      "\n[    5.000124][    L0] Call trace:\n"
                      "[    5.000125][    L0]  dump_backtrace+0x0/0x1e0\n");
    EXPECT_EQ(Get(kBlackbox, kDumpSlot + 16, 8), std::string("DESRAP\0\0", 8));

    // The crashed boot is the one before the blackbox's counter.
    const std::string record = "1)[6] B1.0.42|" + Now() + "|kpanic|" + panic + "\n";
    EXPECT_EQ(ReadFile(kMdHistory), record);

    // The event's id and type and the run's properties are checked by the
    // boot-run end-to-end test; here, what this dump puts in the event.
    const std::vector<Json::Value> events = Events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]["values"]["Summary"].asString(), panic);
    EXPECT_EQ(events[0]["values"]["Stacktrace"].asString(), "  dump_backtrace+0x0;");

    EXPECT_EQ(Inflate(ReadFile("/data/vendor/diag/minidump.gz"), sizeof(kRawdumpBytes) - 1),
              kRawdumpBytes);

    // Dotting first, the kernel boot log last.
    const std::string dot = "{\"1\", \"black_box\", \"" + Now() +
                            "\", \"powerup_reason:reboot, power_off_reason:panic\"}\n";
    EXPECT_EQ(Get(kBlackbox, kRing, dot.size()), dot);
    EXPECT_NE(Get(kBlackbox, kSlot + 0x12000, 64).find("hello kmsg"), std::string::npos);
    EXPECT_EQ(Get(kBlackbox, kSlot + 52, 11), std::string("boot_kmesg\0", 11));
    EXPECT_EQ(Get(kBlackbox, kSlot + 72, 10), std::string("dotting 2\0", 10));
}

TEST_F(MinidumpMainTest, FailedDumpHeadersAreRepairedBeforeTheDumpIsLookedFor) {
    MakeBlackbox();
    Put32(kBlackbox, kSlot + 136, 1);  // dump_process_fail
    minidump_main();
    EXPECT_EQ(Get(kBlackbox, kDumpArea, 8), "cigamgol");
}

// Without a blackbox the "crash_history" partition keeps the record; without
// that either, the minidump partition keeps the dump history, and nothing is
// reported.
TEST_F(MinidumpMainTest, WithoutBlackboxThePartitionKeepsTheRecordElseTheDumpHistory) {
    MakeImage(kCrashHistory, kHistoryRegion);
    MakeImage(kMinidump, 0x4004000);
    WriteText(kPowerup, "other\n");

    minidump_main();

    const std::string record = "1) B1.0.42|" + Now() + "|other_hardreset|other by hardreset\n";
    EXPECT_EQ(Get(kCrashHistory, RecordAt(0, 0) + 32, record.size()), record);
    EXPECT_EQ(ReadFile(kMdHistory), record);
    EXPECT_EQ(Events().size(), 1u);
    EXPECT_EQ(Get(kMinidump, 0x4000000, 25), std::string(25, '\0'));

    std::filesystem::remove(Host(kCrashHistory));
    reset_minidump_state();
    minidump_main();

    EXPECT_EQ(Get(kMinidump, 0x4000004, 8), "MNDPHIST");
    EXPECT_EQ(ReadFile(kMdHistory), "1) B1.0.42|" + Now() + "|other|\n");
    EXPECT_EQ(Events().size(), 1u);
    // Dotting and the kernel boot log copy each try the blackbox.
    EXPECT_EQ(mLog.count("BSPLogProcessor-BlackBox", "open black_box_log partition fail 2("), 4);
}

TEST_F(MinidumpMainTest, HistoryBeyondThePartitionStillClassifiesAndReports) {
    MakeBlackbox();
    Put32(kBlackbox, 0x980000C, 0x7FFFF000);  // history far beyond the partition
    WriteText(kPowerup, "other\n");

    minidump_main();

    // The crash is reported; nothing is written past the end of the partition.
    ASSERT_EQ(Events().size(), 1u);
    EXPECT_EQ(Events()[0]["id"].asUInt(), 901006023u);
    EXPECT_EQ(ReadFile(kMdHistory), "");
    EXPECT_EQ(platform::GetProperty("vendor.minidump.crash_reason", ""), "other_hardreset");
    EXPECT_EQ(std::filesystem::file_size(Host(kBlackbox)), kBlackboxSize);
    EXPECT_EQ(mLog.count(kTag, "crash_history: header at 0x"), 2);
    EXPECT_EQ(Get(kBlackbox, 0x4000004, 8), std::string(8, '\0'));
}

}  // namespace
}  // namespace zelkor::tessel::testing
