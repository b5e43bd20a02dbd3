// Taking dumps out of a blackbox image or a minidump partition: the last-log
// header, one slot with its sections, the walk over stored dumps.
#include <filesystem>

#include "MinidumpTestSupport.h"
#include "platform/Properties.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

// The blackbox image of these tests: the dump area at 0x100000, slot 0 at
// 0x400 behind it, slots 0x40000 apart, the control block at 0x3F0000.
constexpr uint64_t kArea = 0x100000;
constexpr uint64_t kSlotDistance = 0x40000;
constexpr uint64_t SlotAt(uint64_t n) {
    return kArea + 0x400 + n * kSlotDistance;
}

class DumpExtractionTest : public MinidumpTest {
  protected:
    // The blackbox with a last-log header of `magic`; its minidump slot
    // distance is never used in a blackbox.
    void MakeBlackbox(const char* magic = "Raw_Dmp!", uint32_t store = 0, uint32_t counts = 0,
                      uint64_t distance = kSlotDistance) {
        Blackbox(0x400000, kArea, 0x3F0000);
        LastLog(kBlackbox, kArea, magic, store, counts, distance, 0x1000);
    }
    // A dump holding one md_cpusys section with `text`.
    void CpusysDump(const char* dev, uint64_t slot, const std::string& text) {
        DumpHeader(dev, slot, 0x2000, 1, "2024-01-01 1:00:00");
        Put(dev, slot + 0x1000, text);
        SectionHeader(dev, slot + 88, 0, 1, "md_cpusys", slot + 0x1000, text.size());
    }
    // The new dump's header read, then slot `store` taken with late index `late`.
    void TakeNewDump(uint32_t store = 0, uint32_t late = 0) {
        ASSERT_EQ(handle_mini_lastlog_header(), 1);
        ASSERT_EQ(handle_minidump_partition(store, late), 0);
    }
};

TEST_F(DumpExtractionTest, NewRawDumpInBlackboxWritesItsFilesAndIsMarkedTaken) {
    MakeBlackbox();
    const uint64_t slot = SlotAt(0);
    // A v2 dump without a time: the run's time is written into it.
    DumpHeader(kBlackbox, slot, 0x2000, 6, "", 41);
    const uint64_t first = slot + 88;
    // md_kmsg: one printk record, 5.000123456 s, level 6, text "hello".
    Put(kBlackbox, slot + 0x1000, PrintkRecord(5000123456ull, 6, "hello"));
    SectionHeader(kBlackbox, first, 0, 1, "md_kmsg", slot + 0x1000, 24);
    Put(kBlackbox, slot + 0x2000, std::string("cpu0 online\n\0\0\0\0", 16));
    SectionHeader(kBlackbox, first, 1, 1, "md_cpusys", slot + 0x2000, 16);
    Put(kBlackbox, slot + 0x3000, "XBL boot\r\nOCP\r\n");
    SectionHeader(kBlackbox, first, 2, 1, "md_XBL_LOG", slot + 0x3000, 15);
    SectionHeader(kBlackbox, first, 3, 1, "md_shrm", slot + 0x3000, 15);     // unknown name
    SectionHeader(kBlackbox, first, 4, 0, "md_TZ_IMEM", slot + 0x3000, 15);  // holds no data
    // A name is matched by its beginning.
    SectionHeader(kBlackbox, first, 5, 1, "md_KMDT0x110.BIN.x", slot + 0x1000, 24);
    ASSERT_TRUE(platform::SetProperty(kMinidumpValidProperty, "0"));
    time_init();
    const std::string now = run_time_text();
    ASSERT_LT(now.size(), 20u);

    TakeNewDump();

    EXPECT_EQ(DiagText("last_kmsg"),
              "=== Dump occured at " + now + " ===\n[    5.000123][    L6] hello\n");
    EXPECT_EQ(DiagText("last_kmdt"), "<6> [5.000123] hello\n");
    EXPECT_EQ(DiagText("last_cpusys"), "cpu0 online\n");
    EXPECT_EQ(DiagText("last_warmreset_xbllog"), "XBL boot\r\nOCP\r\n");
    for (const char* name : {"last_kmsg", "last_kmdt", "last_cpusys", "last_warmreset_xbllog"}) {
        EXPECT_EQ(ModeOf(Diag(name)), 0644u) << name;
    }
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(Host(kDiag)),
                            std::filesystem::directory_iterator()),
              4);
    EXPECT_TRUE(Get(kBlackbox, slot + 16, 8) == std::string("DESRAP\0\0", 8));
    EXPECT_TRUE(Get(kBlackbox, slot + 56, 20) == now + std::string(20 - now.size(), '\0'));
    EXPECT_EQ(platform::GetProperty(kMinidumpValidProperty, ""), "1");
    EXPECT_TRUE(new_crash_found());
    EXPECT_EQ(mLog.count(kTag, "[2]timestamp=" + now), 1);
    EXPECT_EQ(mLog.count(kTag, "dump_header is version 0x2000"), 1);

    // Taken already: extracted again, without setting the property or a crash.
    reset_minidump_state();
    CpusysDump(kBlackbox, slot, "again\n");
    ASSERT_TRUE(platform::SetProperty(kMinidumpValidProperty, "0"));
    const int marks = mLog.count(kTag, "uos_offset=");
    TakeNewDump();
    EXPECT_EQ(DiagText("last_cpusys"), "again\n");
    EXPECT_EQ(platform::GetProperty(kMinidumpValidProperty, ""), "0");
    EXPECT_FALSE(new_crash_found());
    EXPECT_EQ(mLog.count(kTag, "uos_offset="), marks);
}

TEST_F(DumpExtractionTest, StoredDumpsAreWalkedDownwardsWithNumberedFiles) {
    MakeBlackbox("Raw_Dmp!", 0, 3);
    for (int n : {0, 9, 8, 7, 6}) CpusysDump(kBlackbox, SlotAt(n), "slot" + std::to_string(n));
    auto files = [&] {
        return std::vector<std::string>{DiagText("last_cpusys"), DiagText("last_cpusys_1"),
                                        DiagText("last_cpusys_2")};
    };

    TakeNewDump();
    EXPECT_EQ(DiagText("last_cpusys"), "slot0");
    handle_stored_minidumps();

    // The first stored dump has late index 0 and takes the plain names.
    EXPECT_EQ(files(), (std::vector<std::string>{"slot9", "slot8", "slot7"}));
    EXPECT_FALSE(Exists(Diag("last_cpusys_3")));
    for (const char* line : {"store_index 9, late_index 0", "store_index 8, late_index 1",
                             "store_index 7, late_index 2"}) {
        EXPECT_EQ(mLog.count(kTag, line), 1) << line;
    }
    EXPECT_EQ(mLog.count(kTag, "store_index 6"), 0);

    // A history walk that passes slot 0 goes on at 9, from index 2 or 1.
    CpusysDump(kBlackbox, SlotAt(1), "slot1");
    for (uint32_t index : {2u, 1u}) {
        LastLog(kBlackbox, kArea, "cigamgol", index, 3, kSlotDistance, 0);
        ASSERT_EQ(handle_mini_lastlog_header(), 0);
        handle_stored_minidumps();
        using Files = std::vector<std::string>;
        const Files expected =
                index == 2 ? Files{"slot1", "slot0", "slot9"} : Files{"slot0", "slot9", "slot8"};
        EXPECT_EQ(files(), expected) << index;
    }
}

TEST_F(DumpExtractionTest, MinidumpPartitionIsUsedWithoutBlackbox) {
    MakeImage(kMinidump, 0x100000);
    // The blackbox distance must not be used here.
    LastLog(kMinidump, 0, "Raw_Dmp!", 1, 0, 0x99999, 0x20000);
    const uint64_t slot = 0x400 + 0x20000;
    CpusysDump(kMinidump, slot, "from minidump\n");

    EXPECT_STREQ(dump_partition_path(), kMinidump);
    TakeNewDump(1, 2);

    EXPECT_EQ(DiagText("last_cpusys_2"), "from minidump\n");
    EXPECT_FALSE(Exists(Diag("last_cpusys")));
    EXPECT_EQ(Get(kMinidump, slot + 16, 6), "DESRAP");

    // The choice is taken once per run: a blackbox that appears later is not
    // tried again until the choice is reset.
    MakeImage(kBlackbox, 0x1000);
    EXPECT_STREQ(dump_partition_path(), kMinidump);
    EXPECT_EQ(mLog.count(kTag, "check blackbox partition fail"), 1);
    reset_dump_partition_choice();
    EXPECT_STREQ(dump_partition_path(), kBlackbox);
}

TEST_F(DumpExtractionTest, SectionPastThePartitionEndKeepsWhatLiesInside) {
    MakeBlackbox();
    const uint64_t slot = SlotAt(0);
    DumpHeader(kBlackbox, slot, 0x2000, 3, "t");
    const uint64_t end = std::filesystem::file_size(Host(kBlackbox));
    Put(kBlackbox, end - 4, "tail");
    SectionHeader(kBlackbox, slot + 88, 0, 1, "md_cpusys", end - 4, 16);
    SectionHeader(kBlackbox, slot + 88, 1, 1, "md_pmsg", 0xFFFFFFFFFFFFFFF0ull, 0x20);
    Put(kBlackbox, slot + 0x1000, "kept");
    SectionHeader(kBlackbox, slot + 88, 2, 1, "md_XBL_LOG", slot + 0x1000, 4);

    TakeNewDump();

    EXPECT_EQ(DiagText("last_cpusys"), "tail");
    EXPECT_TRUE(Exists(Diag("last_logcat")));
    EXPECT_EQ(DiagText("last_logcat"), "");
    EXPECT_EQ(DiagText("last_warmreset_xbllog"), "kept");
    EXPECT_EQ(mLog.count(kTag, "section md_cpusys runs past the end of the partition"), 1);
    EXPECT_EQ(mLog.count(kTag, "0x4 bytes kept, the rest is missing"), 1);
    EXPECT_EQ(mLog.count(kTag, "section md_pmsg runs past the end of the partition"), 1);
}

// One section taken alone: an empty partition still makes the file, a
// descriptor without a size none. Started with standard input closed, the run
// gets descriptor 0 for the first file it opens: a file like any other.
TEST_F(DumpExtractionTest, SectionFileFromAnEmptyPartitionOrOnDescriptorZero) {
    MakeImage("/dev/block/by-name/empty", 0);
    EXPECT_EQ(ParseAt("/dev/block/by-name/empty", "md_cpusys", 0, 16, 4), 0);
    EXPECT_TRUE(Exists(Diag("last_cpusys_4")));
    EXPECT_EQ(DiagText("last_cpusys_4"), "");
    EXPECT_EQ(parse_log(-1, "md_cpusys", 0, 16, 5), -1);
    EXPECT_EQ(mLog.count(kTag, "section md_cpusys: partition size unknown"), 1);
    EXPECT_FALSE(Exists(Diag("last_cpusys_5")));

    MakeImage(kMinidump, 0x1000);
    Put(kMinidump, 0x100, "cpu0 online\n");
    const int image = OpenImage(kMinidump);
    ASSERT_GE(image, 0);
    // A single file, and the first of a raw and translated pair.
    for (const auto& [section, file] :
         {std::pair{"md_cpusys", "last_cpusys"}, std::pair{"md_ltz", "last_tzlog"}}) {
        const int input = fcntl(0, F_DUPFD_CLOEXEC, 3);
        close(0);
        const int result = parse_log(image, section, 0x100, 12, 0);
        if (input >= 0) {
            dup2(input, 0);
            close(input);
        }
        EXPECT_EQ(result, 0);
        EXPECT_EQ(DiagText(file), "cpu0 online\n") << section;
    }
    close(image);
}

TEST_F(DumpExtractionTest, SlotOutsideTheDumpAreaIsNeitherTakenNorMarked) {
    // No signature in the slot: refused, nothing marked.
    MakeBlackbox("cigamgol", 4, 1);
    ASSERT_EQ(handle_mini_lastlog_header(), 0);
    EXPECT_EQ(handle_minidump_partition(4, 3), -1);
    EXPECT_TRUE(mLog.contains(kTag, "The 3's minidump signature error\n"));
    EXPECT_TRUE(Get(kBlackbox, SlotAt(4) + 16, 6) == std::string(6, '\0'));
    // A slot past the end of the partition is refused before any read.
    EXPECT_EQ(handle_minidump_partition(200, 0), -1);

    // A slot distance from flash that puts slot 1 into the control block at
    // 0x3F0000, inside the partition.
    reset_minidump_state();
    MakeBlackbox("Raw_Dmp!", 1, 1, 0x2F0000);
    ASSERT_EQ(handle_mini_lastlog_header(), 1);
    CpusysDump(kBlackbox, 0x3F0400, "cpu0 online\n");
    EXPECT_EQ(handle_minidump_partition(1, 0), -1);
    EXPECT_EQ(mLog.count(kTag,
                         "dump slot 1 at 0x3f0400 lies outside the dump area [0x100000, "
                         "0x3f0000)"),
              1);
    EXPECT_TRUE(Get(kBlackbox, 0x3F0400 + 16, 8) == std::string(8, '\0'));
    EXPECT_FALSE(Exists(Diag("last_cpusys")));

    // A v2 dump whose header ends 4 bytes before the control block: its
    // extension, where the run time would be written, does not fit.
    reset_minidump_state();
    const uint64_t slot = 0x3F0000 - 60;
    LastLog(kBlackbox, kArea, "Raw_Dmp!", 1, 1, slot - SlotAt(0), 0);
    ASSERT_EQ(handle_mini_lastlog_header(), 1);
    DumpHeader(kBlackbox, slot, 0x2000, 1);
    const std::string before = Get(kBlackbox, slot, 88);
    EXPECT_EQ(handle_minidump_partition(1, 0), -1);
    EXPECT_TRUE(Get(kBlackbox, slot, 88) == before);
}

// A section count of 0 walks 20 headers. An erased count is bounded by the
// slot: in a blackbox by the control block, (0x3F0000 - (slot 0 + 56)) / 64
// headers when slot 1 would lie past it; in a minidump partition by the slot
// distance, (0x2000 - 56) / 64.
TEST_F(DumpExtractionTest, SectionHeadersAreWalkedUpToTheCountAndTheEndOfTheSlot) {
    MakeBlackbox();
    const uint64_t slot = SlotAt(0);
    DumpHeader(kBlackbox, slot, 0x1000, 0);  // version 1: headers right after 56 bytes
    Put(kBlackbox, slot + 0x1000, "twentieth\n");
    SectionHeader(kBlackbox, slot + 56, 19, 1, "md_cpusys", slot + 0x1000, 10);
    SectionHeader(kBlackbox, slot + 56, 20, 1, "md_XBL_LOG", slot + 0x1000, 10);
    SectionHeader(kBlackbox, slot + 56, 0, 1, "md_kmsg", slot + 0x1000, 0);
    TakeNewDump();
    EXPECT_EQ(DiagText("last_cpusys"), "twentieth\n");
    EXPECT_FALSE(Exists(Diag("last_warmreset_xbllog")));
    EXPECT_EQ(DiagText("last_kmsg"), "") << "no time line without the version 2 header";

    MakeBlackbox("Raw_Dmp!", 0, 0, 0x2F0000);
    DumpHeader(kBlackbox, SlotAt(0), 0x1000, 0xFFFFFFFF);
    TakeNewDump();
    EXPECT_TRUE(mLog.contains(kTag, "dump says 4294967295 sections, only 48111 fit in its slot\n"));

    reset_minidump_state();
    std::filesystem::remove(Host(kBlackbox));
    MakeImage(kMinidump, 0x10000);
    LastLog(kMinidump, 0, "Raw_Dmp!", 0, 0, 0, 0x2000);
    DumpHeader(kMinidump, 0x400, 0, 0xFFFFFFFF);
    TakeNewDump();
    EXPECT_TRUE(mLog.contains(kTag, "dump says 4294967295 sections, only 127 fit in its slot\n"));
}

TEST_F(DumpExtractionTest, LastLogHeaderResults) {
    // A missing partition is an open failure only, not also a read error.
    ::testing::internal::CaptureStdout();
    EXPECT_EQ(handle_mini_lastlog_header(), -1);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(mLog.count(kTag, "open minidump partition fail"), 1);
    reset_minidump_state();

    MakeBlackbox("cigamgol", 9, 10);
    EXPECT_EQ(handle_mini_lastlog_header(), 0);
    EXPECT_EQ(lastlog_header().store_index, 9u);
    // Index and counts at most 9 and 10; any other magic.
    for (auto [magic, store, counts, line] :
         {std::tuple{"cigamgol", 10u, 3u, "lastlog index:10 , counts:3 error"},
          std::tuple{"cigamgol", 0u, 11u, "lastlog index:0 , counts:11 error"},
          std::tuple{"garbage!", 0u, 0u, "lastlog magic"}}) {
        LastLog(kBlackbox, kArea, magic, store, counts, kSlotDistance, 0);
        EXPECT_EQ(handle_mini_lastlog_header(), -1) << line;
        EXPECT_EQ(mLog.count(kTag, line), 1) << line;
    }

    // A raw dump's header is not checked when read: the walk over the stored
    // dumps bounds itself, ten at most.
    for (auto [counts, walked] : {std::pair{10u, 10}, std::pair{11u, 0}}) {
        LastLog(kBlackbox, kArea, "Raw_Dmp!", 3, counts, kSlotDistance, 0);
        EXPECT_EQ(handle_mini_lastlog_header(), 1);
        const int before = mLog.count(kTag, "store_index ");
        handle_stored_minidumps();
        EXPECT_EQ(mLog.count(kTag, "store_index ") - before, walked) << counts;
    }
}

TEST_F(DumpExtractionTest, DeleteLogEmptiesTheDiagFolder) {
    std::filesystem::create_directories(Host(Diag("empty")));
    std::filesystem::create_directories(Host(Diag("full")));
    std::ofstream(Host(Diag("last_kmsg"))) << "old";
    std::ofstream(Host(Diag("full/keep"))) << "x";

    delete_log();

    EXPECT_FALSE(Exists(Diag("last_kmsg")));
    EXPECT_FALSE(Exists(Diag("empty")));
    EXPECT_TRUE(Exists(Diag("full/keep")));
}

}  // namespace
}  // namespace zelkor::tessel::testing
