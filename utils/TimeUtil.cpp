#include "utils/TimeUtil.h"

#include <sys/time.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstdio>

namespace zelkor::tessel {

namespace {

int64_t WallClockMicros() {
    timeval tv{};
    gettimeofday(&tv, nullptr);
    return static_cast<int64_t>(tv.tv_sec) * 1000000 + tv.tv_usec;
}

}  // namespace

uint64_t TimeUtil::getCurrentTimeMs() {
    return static_cast<uint64_t>(WallClockMicros()) / 1000;
}

int64_t TimeUtil::getCurrentTimeUS() {
    return WallClockMicros();
}

uint64_t TimeUtil::getUptimeMillis() {
    auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(
            std::chrono::steady_clock::now().time_since_epoch());
    return static_cast<uint64_t>(ns.count()) / 1000000;
}

timespec TimeUtil::ms2ts(int64_t ms) {
    timespec ts{};
    ts.tv_sec = static_cast<time_t>(ms / 1000);
    ts.tv_nsec = static_cast<long>((ms % 1000) * 1000000);
    return ts;
}

time_t TimeUtil::DateStrToTime(const std::string& date, const std::string& format) {
    tm t{};
    // The two trailing slots let a format carry weekday and day-of-year fields;
    // mktime recomputes both, so whatever lands there does not matter.
    sscanf(date.c_str(), format.c_str(), &t.tm_year, &t.tm_mon, &t.tm_mday, &t.tm_hour, &t.tm_min,
           &t.tm_sec, &t.tm_wday, &t.tm_yday);
    // Names come from folders anyone can create: a year or month at the edge
    // of int must not overflow on its way to struct tm.
    auto shifted = [](int field, int by) {
        const long long value = static_cast<long long>(field) - by;
        return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
    };
    t.tm_year = shifted(t.tm_year, 1900);
    t.tm_mon = shifted(t.tm_mon, 1);
    t.tm_isdst = 0;
    return mktime(&t);
}

}  // namespace zelkor::tessel
