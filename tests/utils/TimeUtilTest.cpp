#include "utils/TimeUtil.h"

#include <gtest/gtest.h>

namespace zelkor::tessel {
namespace {

time_t LocalTime(int year, int mon, int mday, int hour, int min, int sec) {
    tm t{};
    t.tm_year = year - 1900;
    t.tm_mon = mon - 1;
    t.tm_mday = mday;
    t.tm_hour = hour;
    t.tm_min = min;
    t.tm_sec = sec;
    return mktime(&t);
}

TEST(TimeUtilTest, DateStrToTimeParsesLocalDate) {
    const std::string fmt = "%d-%d-%d_%d-%d-%d";
    EXPECT_EQ(TimeUtil::DateStrToTime("2024-03-05_07-08-09", fmt), LocalTime(2024, 3, 5, 7, 8, 9));
    // Fields the text does not reach stay zero.
    EXPECT_EQ(TimeUtil::DateStrToTime("2024-03-05", fmt), LocalTime(2024, 3, 5, 0, 0, 0));
    // Years and months at the edge of int stay far out of range, without
    // overflowing on the way (a fuzzer's find, caught by UBSan).
    const time_t epoch = LocalTime(1970, 1, 1, 0, 0, 0);
    EXPECT_LT(TimeUtil::DateStrToTime("-2147483648--2147483648-1_0-0-0", fmt), epoch);
    EXPECT_NE(TimeUtil::DateStrToTime("2147483647-1-1_0-0-0", fmt), epoch);
}

TEST(TimeUtilTest, Ms2tsSplitsSecondsAndNanoseconds) {
    timespec ts = TimeUtil::ms2ts(12345);
    EXPECT_EQ(ts.tv_sec, 12);
    EXPECT_EQ(ts.tv_nsec, 345000000);
}

TEST(TimeUtilTest, ClocksUseTheirUnits) {
    int64_t usBefore = TimeUtil::getCurrentTimeUS();
    uint64_t ms = TimeUtil::getCurrentTimeMs();
    int64_t usAfter = TimeUtil::getCurrentTimeUS();
    EXPECT_GE(ms, static_cast<uint64_t>(usBefore / 1000));
    EXPECT_LE(ms, static_cast<uint64_t>(usAfter / 1000));

    timespec mono{};
    clock_gettime(CLOCK_MONOTONIC, &mono);
    uint64_t monoBefore = mono.tv_sec * 1000ULL + mono.tv_nsec / 1000000;
    uint64_t uptime = TimeUtil::getUptimeMillis();
    clock_gettime(CLOCK_MONOTONIC, &mono);
    uint64_t monoAfter = mono.tv_sec * 1000ULL + mono.tv_nsec / 1000000;
    EXPECT_GE(uptime, monoBefore);
    EXPECT_LE(uptime, monoAfter);
}

}  // namespace
}  // namespace zelkor::tessel
