// Stamping the UEFI logs, keeping the log of an "other" reset by boot index,
// and pruning the kept copies.
#include <regex>

#include "CrashTestSupport.h"
#include "modules/BSPLogProcessor/crash/GeneralLogUtils.h"

namespace zelkor::tessel::testing {
namespace {

// "=== Dump occured at 2024-05-06 13:04:05 ===", twenty blanks and a newline;
// an hour below 10 has a single digit.
bool IsStamp(const std::string& line) {
    static const std::regex kStamp(
            "=== Dump occured at \\d{4}-\\d\\d-\\d\\d \\d{1,2}:\\d\\d:\\d\\d === {20}\n");
    return std::regex_match(line, kStamp);
}

constexpr char kKept[] = "Other_Ufilog_";

class LogUtilsTest : public CrashTest {
  protected:
    void SetUp() override {
        CrashTest::SetUp();
        GeneralLogUtils::setCrashReason("");
        std::filesystem::create_directories(Host("/dev/logfs"));
    }
    void TearDown() override { GeneralLogUtils::setCrashReason(""); }

    void Keep(int bootIndex) const {
        Write("/dev/logfs/Other_Ufilog_" + std::to_string(bootIndex) + ".txt", "kept\n");
    }
    // The folder's names in order, a kept copy's "Other_Ufilog_" shown as "#".
    std::string Listing() const {
        std::vector<std::string> names;
        for (auto& e : std::filesystem::directory_iterator(Host("/dev/logfs"))) {
            names.push_back(e.path().filename());
        }
        std::sort(names.begin(), names.end());
        std::string out;
        for (auto& n : names) out += (n.rfind(kKept, 0) == 0 ? "#" + n.substr(13) : n) + " ";
        return out;
    }
    // A UEFI log whose boot index line comes after the stamped first bytes.
    static std::string UefiLog(const std::string& bootIndexLine) {
        return "Format: Log Type - Time(microsec) - Message - Optional Info\r\n" +
               std::string(80, '-') + "\r\n" + bootIndexLine + "\r\nUEFI End\r\n";
    }
};

TEST_F(LogUtilsTest, OnlyTheFiveHighestBootIndexesStay) {
    for (int i = 3; i <= 9; ++i) Keep(i);
    Write("/dev/logfs/UefiLog0.txt", "this boot\n");
    Write("/dev/logfs/Other_notes.txt", "not a kept copy\n");
    EXPECT_EQ(GeneralLogUtils::retainMaxBootIndexFiles("/dev/logfs"), 0);
    EXPECT_EQ(Listing(), "#5.txt #6.txt #7.txt #8.txt #9.txt Other_notes.txt UefiLog0.txt ");

    // Numbers, not names: 10 outranks 9; a name without digits goes first.
    Keep(10);
    Write("/dev/logfs/Other_Ufilog_.txt", "no index\n");
    EXPECT_EQ(GeneralLogUtils::retainMaxBootIndexFiles("/dev/logfs"), 0);
    EXPECT_EQ(Listing(), "#10.txt #6.txt #7.txt #8.txt #9.txt Other_notes.txt UefiLog0.txt ");

    // Five is the limit, not a trigger.
    EXPECT_EQ(GeneralLogUtils::retainMaxBootIndexFiles("/dev/logfs"), 0);
    EXPECT_NE(Listing().find("#6.txt"), std::string::npos);

    EXPECT_EQ(GeneralLogUtils::retainMaxBootIndexFiles("/dev/missing"), -1);
}

TEST_F(LogUtilsTest, BootIndexIsTheFirstNumberOfItsLine) {
    const auto indexOf = [&](const std::string& text) {
        Write("/dev/logfs/a.txt", text);
        return GeneralLogUtils::get_boot_index("/dev/logfs/a.txt");
    };
    EXPECT_EQ(indexOf("boot 7\nslot 12: boot_index = 40\nboot_index 3\n"), 12);
    EXPECT_EQ(indexOf("boot_index: none\n"), -1);
    EXPECT_EQ(indexOf("boot_index 99999999999\n"), -1);
    EXPECT_EQ(indexOf("no index at all 5\n"), -1);
    EXPECT_EQ(GeneralLogUtils::get_boot_index("/dev/logfs/missing.txt"), -1);
}

TEST_F(LogUtilsTest, StampOverwritesTheStartInPlace) {
    const std::string body(200, 'x');
    Write("/dev/logfs/UefiLog0.txt", body);
    ASSERT_EQ(GeneralLogUtils::add_uefilog_time("/dev/logfs/UefiLog0.txt"), 0);
    std::string text = ReadFile("/dev/logfs/UefiLog0.txt");
    ASSERT_EQ(text.size(), body.size());
    const size_t stampEnd = text.find('\n') + 1;
    EXPECT_LE(stampEnd, 64u);
    EXPECT_TRUE(IsStamp(text.substr(0, stampEnd))) << text.substr(0, stampEnd);
    EXPECT_EQ(text.substr(stampEnd), body.substr(stampEnd));

    Write("/dev/logfs/short.txt", "ab");
    ASSERT_EQ(GeneralLogUtils::add_uefilog_time("/dev/logfs/short.txt"), 0);
    EXPECT_TRUE(IsStamp(ReadFile("/dev/logfs/short.txt")));

    EXPECT_EQ(GeneralLogUtils::add_uefilog_time("/dev/logfs/missing.txt"), -1);
    EXPECT_FALSE(Exists("/dev/logfs/missing.txt"));
}

TEST_F(LogUtilsTest, RestartTypeComesFromTheReasonOrTheProperty) {
    ASSERT_TRUE(platform::SetProperty("vendor.minidump.crash_reason", "other_hardreset"));
    EXPECT_TRUE(GeneralLogUtils::is_other_restart_type());
    GeneralLogUtils::setCrashReason("kpanic");
    EXPECT_FALSE(GeneralLogUtils::is_other_restart_type());
    GeneralLogUtils::setCrashReason("");
    ASSERT_TRUE(platform::SetProperty("vendor.minidump.crash_reason", "other_hardreset2"));
    EXPECT_FALSE(GeneralLogUtils::is_other_restart_type());
    GeneralLogUtils::setCrashReason("other_hardreset");
    EXPECT_TRUE(GeneralLogUtils::is_other_restart_type());
}

TEST_F(LogUtilsTest, OtherRestartKeepsTheSecondLogOfTheSameBootWithThePmicLog) {
    for (int i = 1; i <= 5; ++i) Keep(i);
    Write("/dev/logfs/UefiLog0.txt", UefiLog("boot_index: 42"));
    Write("/sys/kernel/pmic_pon_log/pon_log_full", "PON: 0x20 SMPL\n");

    // Another boot's log, or another reason: left alone.
    const std::string older = UefiLog("boot_index: 41");
    Write("/dev/logfs/UefiLog_other0.txt", older);
    GeneralLogUtils::setCrashReason("other_hardreset");
    EXPECT_EQ(GeneralLogUtils::log_utils_main(), 0);
    EXPECT_EQ(ReadFile("/dev/logfs/UefiLog_other0.txt"), older);
    const std::string same = UefiLog("boot_index: 42 (other)");
    Write("/dev/logfs/UefiLog_other0.txt", same);
    GeneralLogUtils::setCrashReason("Normal");
    EXPECT_EQ(GeneralLogUtils::log_utils_main(), 0);
    EXPECT_EQ(ReadFile("/dev/logfs/UefiLog_other0.txt"), same);
    EXPECT_EQ(ReadFile("/dev/logfs/UefiLog0.txt").rfind("=== Dump occured at ", 0), 0u);

    GeneralLogUtils::setCrashReason("other_hardreset");
    ASSERT_EQ(GeneralLogUtils::log_utils_main(), 0);
    EXPECT_EQ(Listing(), "#2.txt #3.txt #4.txt #42.txt #5.txt UefiLog0.txt ");
    const std::string kept = ReadFile("/dev/logfs/Other_Ufilog_42.txt");
    EXPECT_EQ(kept.rfind("=== Dump occured at ", 0), 0u);
    EXPECT_NE(kept.find("boot_index: 42 (other)\r\nUEFI End\r\n\nPON: 0x20 SMPL\n"),
              std::string::npos);

    // Nothing to stamp.
    std::filesystem::remove(Host("/dev/logfs/UefiLog0.txt"));
    EXPECT_EQ(GeneralLogUtils::log_utils_main(), -1);
}

TEST_F(LogUtilsTest, ReadNodeAppendsANewlineAndTheNode) {
    Write("/dev/logfs/out.txt", "head");
    Write("/sys/node", "line1\nline2");
    EXPECT_EQ(GeneralLogUtils::read_node("/sys/node", "/dev/logfs/out.txt"), 0);
    EXPECT_EQ(ReadFile("/dev/logfs/out.txt"), "head\nline1\nline2");
    EXPECT_EQ(GeneralLogUtils::read_node("/sys/missing", "/dev/logfs/out.txt"), 1);
    EXPECT_EQ(ReadFile("/dev/logfs/out.txt"), "head\nline1\nline2");
    EXPECT_EQ(GeneralLogUtils::read_node("/sys/node", "/no/such/dir/out.txt"), 1);
}

}  // namespace
}  // namespace zelkor::tessel::testing
