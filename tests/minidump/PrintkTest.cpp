// Kernel printk records ("md_KMDT0x110.BIN", "md_kmsg") and liblog's pmsg
// records ("md_pmsg"), written here byte by byte, as log lines.
#include "MinidumpTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

class PrintkTest : public MinidumpTest {
  protected:
    void SetUp() override {
        MinidumpTest::SetUp();
        MakeImage(kMinidump, 0x10000);
    }
    // One record at `at`, padded to a 4-byte boundary; returns the next
    // record's offset.
    uint64_t Record(uint64_t at, uint64_t tsNsec, uint8_t levelByte, const std::string& text) {
        const std::string record = PrintkRecord(tsNsec, levelByte, text, 4);
        Put(kMinidump, at, record);
        return at + record.size();
    }
    std::string Parse(const char* name, uint64_t offset, uint64_t size) {
        ParseAt(kMinidump, name, offset, size);
        return DiagText(name[3] == 'k' ? "last_kmsg" : "last_kmdt");
    }
    // "last_logcat" of a pmsg section of these bytes.
    std::string Decode(const std::string& section) {
        MakeImage(kMinidump, 0x1000 + section.size());
        Put(kMinidump, 0x1000, section);
        EXPECT_EQ(ParseAt(kMinidump, "md_pmsg", 0x1000, section.size()), 0);
        return DiagText("last_logcat");
    }
};

// Kmdt lines carry level, seconds and microseconds; kmsg lines have two
// brackets and one line per text line.
TEST_F(PrintkTest, KmdtAndKmsgLines) {
    uint64_t at = Record(0x100, 999999999999ull, 0x03, "hello");
    // Text length 4: the dictionary behind the text is kept all the same.
    const uint64_t idle = at;
    at = Record(at, 999, 0x0E, "idleSUBSYSTEM=x");
    Put16(kMinidump, idle + 10, 4);
    // Only the low three bits of the last header byte are the level.
    at = Record(at, 5000000000ull, 0xFF, "multi\nline");
    EXPECT_EQ(Parse("md_KMDT0x110.BIN", 0x100, at - 0x100),
              "<3> [999.999999] hello\n<6> [0.000000] idleSUBSYSTEM=x\n"
              "<7> [5.000000] multi\nline\n");

    at = Record(0x1000, 123456789012ull, 0x04, "Call trace:");
    at = Record(at, 123456800000ull, 0x04, " dump_backtrace+0x0/0x1c0\n show_stack");
    EXPECT_EQ(Parse("md_kmsg", 0x1000, at - 0x1000),
              "[  123.456789][    L4] Call trace:\n"
              "[  123.456800][    L4]  dump_backtrace+0x0/0x1c0\n"
              "[  123.456800][    L4]  show_stack\n");
}

TEST_F(PrintkTest, EmptyRecordsEndTheLogAfterTwoHundred) {
    // 200 empty records are passed over, the 201st ends the log.
    uint64_t at = 0x100 + 200 * 16;
    Record(at, 1000, 0x01, "after 200");
    EXPECT_EQ(Parse("md_KMDT0x110.BIN", 0x100, 0x2000), "<1> [0.000001] after 200\n");

    at = 0x100 + 201 * 16;
    Put(kMinidump, 0x100, std::string(201 * 16 + 28, '\0'));
    Record(at, 1000, 0x01, "after 201");
    EXPECT_EQ(Parse("md_KMDT0x110.BIN", 0x100, 0x2000), "");
}

TEST_F(PrintkTest, TruncatedHeaderAndTextKeepWhatWasRead) {
    uint64_t at = Record(0x100, 2000000, 0x02, "whole");
    // Only 10 bytes of the next header are inside the section.
    EXPECT_EQ(Parse("md_KMDT0x110.BIN", 0x100, at + 10 - 0x100), "<2> [0.002000] whole\n");
    EXPECT_EQ(mLog.count(kTag, "Uncomplete head found."), 1);

    // A record announcing 40 bytes of text, of which the section holds 5.
    Record(at, 3000000, 0x02, "cut here");
    Put16(kMinidump, at + 8, 56);
    EXPECT_EQ(Parse("md_KMDT0x110.BIN", 0x100, at + 16 + 5 - 0x100),
              "<2> [0.002000] whole\n<2> [0.003000] cut h\n");
    EXPECT_EQ(mLog.count(kTag, "Uncomplete block found."), 1);
    // Its header and none of its text.
    EXPECT_EQ(Parse("md_KMDT0x110.BIN", 0x100, at + 16 - 0x100),
              "<2> [0.002000] whole\n<2> [0.003000] \n");
    EXPECT_EQ(mLog.count(kTag, "Uncomplete block found."), 2);
}

TEST_F(PrintkTest, ALogLongerThanTheReadWindowIsReadWhole) {
    // Far into the partition, as such a log lies in a dump.
    const uint64_t base = 0x48000;
    MakeImage(kMinidump, 0x90000);
    // Records of nearly the largest length, then small ones: some of each
    // straddle the point where a read of 128 KiB ends.
    uint64_t at = base;
    std::string expected;
    for (char c : {'A', 'B', 'C'}) {
        std::string text(60000, c);
        text.back() = 'Z';
        at = Record(at, 0, 0x00, text);
        expected += "<0> [0.000000] " + text + "\n";
    }
    for (int i = 0; i < 3500; ++i) {
        at = Record(at, 1000, 0x01, "line " + std::to_string(i));
        expected += "<1> [0.000001] line " + std::to_string(i) + "\n";
    }
    ASSERT_GT(at - base, 2u * (128u << 10)) << "three windows at least";
    const std::string out = Parse("md_KMDT0x110.BIN", base, at - base);
    EXPECT_TRUE(out == expected) << out.size() << " bytes against " << expected.size();
}

// 2023-11-14 22:13:20 UTC.
constexpr uint32_t kSec = 1700000000;

TEST_F(PrintkTest, PmsgTextRecordsBecomeLogcatLines) {
    std::string section = PmsgRecord(0, 1234, 5678, kSec, 123456789, 4, "MyTag", "hello world\n") +
                          PmsgRecord(3, 1, 2, kSec + 61, 999999999, 6, "Sys", "two\nlines") +
                          PmsgRecord(4, 7, 7, kSec, 0, 7, "DEBUG", "Abort message");
    EXPECT_EQ(Decode(section),
              "11-14 22:13:20.123 1234 5678 I MyTag:\thello world\n"
              "11-14 22:14:21.999 1 2 E Sys:\ttwo\n"
              "11-14 22:14:21.999 1 2 E Sys:\tlines\n"
              "11-14 22:13:20.000 7 7 F DEBUG:\tAbort message\n");
    EXPECT_EQ(mLog.count(kTag, "pmsg ring"), 0) << "no pstore header here";
}

TEST_F(PrintkTest, PmsgGarbageTornRecordsAndBinaryLogsAreSteppedOver) {
    // Garbage, a record, a torn one, binary (events, stats, security) ones
    // that would read as text, priorities outside verbose to fatal, a
    // nanosecond field of a whole second, a record, a torn one.
    const std::string second = PmsgRecord(0, 16, 17, kSec, 0, 2, "C", "second");
    std::string section =
            std::string("\x01l\xff\x00zzl", 7) + PmsgRecord(0, 10, 11, kSec, 0, 3, "A", "first") +
            PmsgRecord(0, 12, 13, kSec, 0, 5, "B", "lost in the middle").substr(0, 24);
    for (uint8_t binaryLog : {2, 5, 6})
        section += PmsgRecord(binaryLog, 1, 1, kSec, 0, 4, "X", "x");
    for (uint8_t prio : {1, 8}) section += PmsgRecord(0, 1, 1, kSec, 0, prio, "X", "x");
    section += PmsgRecord(0, 1, 1, kSec, 1000000000, 4, "X", "x") + second + second.substr(0, 20);
    EXPECT_EQ(Decode(section),
              "11-14 22:13:20.000 10 11 D A:\tfirst\n"
              "11-14 22:13:20.000 16 17 V C:\tsecond\n");
    EXPECT_EQ(Decode(std::string(4096, '\0')) + Decode(std::string(5, 'l')), "");
}

TEST_F(PrintkTest, PmsgALogLongerThanTheReadWindowLosesNoRecord) {
    // A record as a pmsg file writes it: no NUL after the message.
    auto unterminated = [](uint16_t pid, const std::string& msg) {
        std::string record = PmsgRecord(0, pid, pid, kSec, 0, 4, "T", msg);
        record.pop_back();
        return record.replace(1, 2, LittleEndian(record.size(), 2));
    };
    const std::string stamp = "11-14 22:13:20.000 ";
    // One before another record, one at the very end of the data.
    std::string section = unterminated(2, "before a record");
    std::string expected = stamp + "2 2 I T:\tbefore a record\n";
    for (int i = 0; i < 5000; ++i) {
        section += PmsgRecord(0, 1, 1, kSec, 0, 4, "T", "line " + std::to_string(i));
        expected += stamp + "1 1 I T:\tline " + std::to_string(i) + "\n";
    }
    ASSERT_GT(section.size(), 128u << 10);
    section += unterminated(3, "at the end");
    expected += stamp + "3 3 I T:\tat the end\n";
    const std::string out = Decode(section);
    EXPECT_TRUE(out == expected) << out.size() << " bytes against " << expected.size();
}

TEST_F(PrintkTest, PmsgPstoreRingIsReadFromItsOldestByte) {
    std::string logical = PmsgRecord(0, 1, 1, kSec, 0, 4, "Old", "oldest") +
                          PmsgRecord(0, 2, 2, kSec + 1, 0, 4, "New", "newest");
    // The ring wrapped 10 bytes before the end of the newest record: its
    // last 10 bytes are at the start of the buffer.
    const size_t start = 10;
    std::string ring =
            logical.substr(logical.size() - start) + logical.substr(0, logical.size() - start);
    // "DBGC" read as a little-endian word is the pstore signature. A start
    // past the size used: the whole section is searched, header and all.
    for (const std::string& section :
         {"DBGC" + LittleEndian(start, 4) + LittleEndian(ring.size(), 4) + ring,
          "DBGC" + LittleEndian(9, 4) + LittleEndian(8, 4) + logical}) {
        EXPECT_EQ(Decode(section),
                  "11-14 22:13:20.000 1 1 I Old:\toldest\n"
                  "11-14 22:13:21.000 2 2 I New:\tnewest\n");
    }
    EXPECT_EQ(mLog.count(kTag, "pmsg ring start 9 size 8 do not fit"), 1);
}

}  // namespace
}  // namespace zelkor::tessel::testing
