// The run's time text, the boot info nodes and the boot dotting record.
#include "HistoryTestSupport.h"
#include "modules/BSPLogProcessor/history/BootDotting.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

class BootDottingTest : public HistoryTest {
  protected:
    // The ring's boot phase with a clock at 5 s of uptime.
    bool Dot() {
        return black_box_dotting(&mHeaders, [](struct sysinfo* info) {
            info->uptime = 5;
            return 0;
        });
    }
    blackbox::BlackBoxHeaders mHeaders;
};

// The fixture runs in UTC; the text names a second between the two reads,
// its hour after one blank and without a leading zero ("2024-01-02 5:04:05").
TEST_F(BootDottingTest, TimeTextHasABlankInsteadOfTheHoursLeadingZero) {
    const time_t before = time(nullptr);
    time_init();
    const time_t after = time(nullptr);
    const std::string text = run_time_text();
    bool matches = false;
    for (time_t t = before; t <= after; ++t) {
        struct tm utc {};
        char expected[32];
        strftime(expected, sizeof(expected), "%Y-%m-%d %-H:%M:%S", gmtime_r(&t, &utc));
        matches |= text == expected;
    }
    EXPECT_TRUE(matches) << text;
    EXPECT_TRUE(mLog.contains(kTag, "current timestamp " + text));
}

TEST_F(BootDottingTest, BootReasonsLoseTheirLastByteAndAreCutTo399) {
    WriteText(kPowerup, "other\n");
    EXPECT_EQ(read_boot_reason(kPowerup), "other");
    EXPECT_EQ(boot_reason_text(), "powerup_reason:other, power_off_reason:");
    EXPECT_EQ(mLog.count(kTag, "open /sys/bootinfo/poweroff_reason fail 2("), 1);
    WriteText(kPoweroff, std::string(600, 'p'));
    EXPECT_EQ(read_boot_reason(kPoweroff), std::string(511, 'p'));
    EXPECT_EQ(boot_reason_text().size(), 399u);
}

// The ring's bookkeeping is the dotting tests' (tests/blackbox); here, the
// record the boot run writes and the index it takes from the last record.
TEST_F(BootDottingTest, RecordNeedsABlackboxNamesTheBootReasonsAndItsIndexWrapsAfter2048) {
    EXPECT_FALSE(Dot());
    EXPECT_EQ(mLog.count("BSPLogProcessor-BlackBox", "open black_box_log partition fail 2("), 1);
    MakeBlackbox(7);
    WriteText(kPowerup, "reboot\n");
    WriteText(kPoweroff, "long_press\n");
    ASSERT_TRUE(Dot());
    const std::string record = "{\"1\", \"black_box\", \"" + Now() +
                               "\", \"powerup_reason:reboot, power_off_reason:long_press\"}\n";
    EXPECT_EQ(Get(kBlackbox, kRing, record.size() + 1), record + '\0');
    EXPECT_EQ(platform::GetProperty("vendor.blackbox.boot_index", ""), "7");
    EXPECT_EQ(mHeaders.table.boot_index, 7u);

    // The index follows the slot's last one, kept in the slot.
    for (auto [last, next] : {std::pair{2048u, 0u}, {41u, 42u}}) {
        MakeBlackbox();
        Put64(kBlackbox, kSlot + 104, last);
        ASSERT_TRUE(Dot());
        const std::string start = "{\"" + std::to_string(next) + "\", ";
        EXPECT_EQ(Get(kBlackbox, kRing, start.size()), start);
        EXPECT_EQ(GetLE(kBlackbox, kSlot + 104, 8), next);
    }
}

}  // namespace
}  // namespace zelkor::tessel::testing
