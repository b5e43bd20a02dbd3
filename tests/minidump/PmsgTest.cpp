// "md_pmsg": liblog's pmsg records, written here byte by byte, as logcat lines.
#include "LogRecords.h"
#include "MinidumpTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

// 2023-11-14 22:13:20 UTC.
constexpr uint32_t kSec = 1700000000;

class PmsgTest : public MinidumpTest {
  protected:
    std::string Decode(const std::string& section) {
        MakeImage(kMinidump, 0x1000 + section.size());
        Put(kMinidump, 0x1000, section);
        int fd = OpenImage(kMinidump);
        EXPECT_EQ(parse_log(fd, "md_pmsg", 0x1000, section.size(), 0), 0);
        close(fd);
        return ReadFile(std::string(kDiag) + "/last_logcat");
    }
};

TEST_F(PmsgTest, TextRecordsBecomeLogcatLines) {
    std::string section = PmsgRecord(0, 1234, 5678, kSec, 123456789, 4, "MyTag", "hello world\n") +
                          PmsgRecord(3, 1, 2, kSec + 61, 999999999, 6, "Sys", "two\nlines") +
                          PmsgRecord(4, 7, 7, kSec, 0, 7, "DEBUG", "Abort message");
    EXPECT_EQ(Decode(section),
              "11-14 22:13:20.123 1234 5678 I MyTag:\thello world\n"
              "11-14 22:14:21.999 1 2 E Sys:\ttwo\n"
              "11-14 22:14:21.999 1 2 E Sys:\tlines\n"
              "11-14 22:13:20.000 7 7 F DEBUG:\tAbort message\n");
    EXPECT_EQ(ModeOf(std::string(kDiag) + "/last_logcat"), 0644u);
    EXPECT_EQ(mLog.count(kTag, "pmsg ring"), 0) << "no pstore header here";
}

TEST_F(PmsgTest, GarbageTornRecordsAndBinaryLogsAreSteppedOver) {
    std::string first = PmsgRecord(0, 10, 11, kSec, 0, 3, "A", "first");
    std::string torn = PmsgRecord(0, 12, 13, kSec, 0, 5, "B", "lost in the middle");
    std::string events = PmsgRecord(2, 14, 15, kSec, 0, 0, "", "");
    std::string second = PmsgRecord(0, 16, 17, kSec, 0, 2, "C", "second");
    std::string section = std::string("\x01l\xff\x00zzl", 7) + first + torn.substr(0, 24) + events +
                          second + second.substr(0, 20);
    EXPECT_EQ(Decode(section),
              "11-14 22:13:20.000 10 11 D A:\tfirst\n"
              "11-14 22:13:20.000 16 17 V C:\tsecond\n");
    EXPECT_EQ(Decode(std::string(4096, '\0')), "");
    EXPECT_EQ(Decode(std::string(5, 'l')), "");
}

TEST_F(PmsgTest, ALogLongerThanTheReadWindowLosesNoRecord) {
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

TEST_F(PmsgTest, PstoreRingIsReadFromItsOldestByte) {
    std::string logical = PmsgRecord(0, 1, 1, kSec, 0, 4, "Old", "oldest") +
                          PmsgRecord(0, 2, 2, kSec + 1, 0, 4, "New", "newest");
    // The ring wrapped 10 bytes before the end of the newest record: its
    // last 10 bytes are at the start of the buffer.
    const size_t start = 10;
    std::string ring =
            logical.substr(logical.size() - start) + logical.substr(0, logical.size() - start);
    std::string section = "DBGC" + LittleEndian(start, 4) + LittleEndian(ring.size(), 4) + ring;
    // "DBGC" read as a little-endian word is the pstore signature.
    ASSERT_EQ(section.substr(0, 4), std::string("\x44\x42\x47\x43", 4));
    EXPECT_EQ(Decode(section),
              "11-14 22:13:20.000 1 1 I Old:\toldest\n"
              "11-14 22:13:21.000 2 2 I New:\tnewest\n");

    // A start past the size used: the whole section is searched, header and all.
    section = "DBGC" + LittleEndian(9, 4) + LittleEndian(8, 4) + logical;
    EXPECT_EQ(Decode(section),
              "11-14 22:13:20.000 1 1 I Old:\toldest\n"
              "11-14 22:13:21.000 2 2 I New:\tnewest\n");
    EXPECT_EQ(mLog.count(kTag, "pmsg ring start 9 size 8 do not fit"), 1);
}

}  // namespace
}  // namespace zelkor::tessel::testing
