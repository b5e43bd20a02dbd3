// Clock readings and date parsing shared by the modules.
#pragma once

#include <cstdint>
#include <ctime>
#include <string>

namespace zelkor::tessel {

class TimeUtil {
  public:
    // Wall-clock milliseconds since the epoch.
    static uint64_t getCurrentTimeMs();
    // Wall-clock microseconds since the epoch.
    static int64_t getCurrentTimeUS();
    // Milliseconds of the monotonic clock; the time base of delayed messages.
    static uint64_t getUptimeMillis();
    static timespec ms2ts(int64_t ms);
    // Parses `date` with the scanf `format`, whose conversions fill year, month,
    // day, hour, minute and second in that order, and returns the local time.
    // Unmatched fields stay zero; no error is reported.
    static time_t DateStrToTime(const std::string& date, const std::string& format);
};

}  // namespace zelkor::tessel
