#include "utils/TimeUtil.h"

#include <gtest/gtest.h>

namespace zelkor::tessel {
namespace {

// The local time of "YYYY-MM-DD hh:mm:ss".
time_t LocalTime(const char* text) {
    tm t{};
    strptime(text, "%Y-%m-%d %H:%M:%S", &t);
    return mktime(&t);
}

TEST(TimeUtilTest, DateStrToTimeParsesLocalDate) {
    const std::string fmt = "%d-%d-%d_%d-%d-%d";
    EXPECT_EQ(TimeUtil::DateStrToTime("2024-03-05_07-08-09", fmt),
              LocalTime("2024-03-05 07:08:09"));
    // Fields the text does not reach stay zero.
    EXPECT_EQ(TimeUtil::DateStrToTime("2024-03-05", fmt), LocalTime("2024-03-05 00:00:00"));
    // Years and months at the edge of int stay far out of range, without
    // overflowing on the way (a fuzzer's find, caught by UBSan).
    const time_t epoch = LocalTime("1970-01-01 00:00:00");
    EXPECT_LT(TimeUtil::DateStrToTime("-2147483648--2147483648-1_0-0-0", fmt), epoch);
    EXPECT_NE(TimeUtil::DateStrToTime("2147483647-1-1_0-0-0", fmt), epoch);
}

TEST(TimeUtilTest, SpansAndClocksUseTheirUnits) {
    const timespec ts = TimeUtil::ms2ts(12345);
    EXPECT_EQ(ts.tv_sec, 12);
    EXPECT_EQ(ts.tv_nsec, 345000000);

    const int64_t usBefore = TimeUtil::getCurrentTimeUS();
    const int64_t ms = static_cast<int64_t>(TimeUtil::getCurrentTimeMs());
    EXPECT_GE(ms, usBefore / 1000);
    EXPECT_LE(ms, TimeUtil::getCurrentTimeUS() / 1000);
    const auto monotonicMs = [] {
        timespec t{};
        clock_gettime(CLOCK_MONOTONIC, &t);
        return t.tv_sec * 1000ULL + t.tv_nsec / 1000000;
    };
    const uint64_t monoBefore = monotonicMs();
    const uint64_t uptime = TimeUtil::getUptimeMillis();
    EXPECT_GE(uptime, monoBefore);
    EXPECT_LE(uptime, monotonicMs());
}

}  // namespace
}  // namespace zelkor::tessel
