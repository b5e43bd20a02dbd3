// Reporting the crash through the event client, and the whole history step.
#include "HistoryTestSupport.h"
#include "modules/BSPLogProcessor/CrashHistory.h"
#include "modules/BSPLogProcessor/CrashReport.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

class CrashReportTest : public HistoryTest {
  protected:
    std::string CrashReason() const {
        return platform::GetProperty("vendor.minidump.crash_reason", "<unset>");
    }
};

TEST_F(CrashReportTest, EventIdsByMainType) {
    const unsigned int ids[] = {0,         901006001, 901006003, 901006002, 901006022,
                                901006023, 901006004, 901006006, 901006005, 901006021,
                                901006029, 901006019, 901006020, 901006018};
    for (uint32_t type = 0; type < std::size(ids); ++type) {
        EXPECT_EQ(crash_event_id(type), ids[type]) << "main type " << type;
    }
    EXPECT_EQ(crash_event_id(14), 0u);
    EXPECT_EQ(crash_event_id(0xFFFFFFFF), 0u);
}

TEST_F(CrashReportTest, KernelPanicIsOneEventWithItsFourValues) {
    crash_report(CRASH_MAIN_KERNEL, CRASH_KPANIC, "kpanic", "Kernel panic - not syncing: Oops");

    const std::vector<Json::Value> events = Events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0]["id"].asUInt(), 901006001u);
    EXPECT_EQ(events[0]["values"].getMemberNames(),
              (std::vector<std::string>{"CurrentTime", "Stacktrace", "Summary", "Type"}));
    EXPECT_EQ(events[0]["values"]["Type"].asString(), "kpanic");
    EXPECT_EQ(events[0]["values"]["Summary"].asString(), "Kernel panic - not syncing: Oops");
    EXPECT_EQ(events[0]["values"]["CurrentTime"].asString(), Now());
    EXPECT_EQ(events[0]["values"]["Stacktrace"].asString(), "");
    EXPECT_EQ(CrashReason(), "kpanic");
}

TEST_F(CrashReportTest, SubTypeWithoutMainTypeIsNamedButNotSent) {
    crash_report(CRASH_MAIN_NONE, CRASH_CORE_HANG, "core_hang", "x");
    EXPECT_TRUE(Events().empty());
    EXPECT_EQ(CrashReason(), "core_hang");
    EXPECT_EQ(mLog.count(kTag, "no event id for crash main type 0, core_hang not reported"), 1);
}

// The whole step with a crash and without one runs in MinidumpMainTest.
TEST_F(CrashReportTest, ReportGoesOutEvenWhenTheHistoryCannotBeOpened) {
    WriteText(kPowerup, "other\n");
    record_crash_history();
    ASSERT_EQ(Events().size(), 1u);
    EXPECT_EQ(Events()[0]["id"].asUInt(), 901006023u);
    EXPECT_EQ(CrashReason(), "other_hardreset");
    EXPECT_FALSE(Exists(kMdHistory));
}

}  // namespace
}  // namespace zelkor::tessel::testing
