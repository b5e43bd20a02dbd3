// Helpers shared by the crash classification's sources; not for other users.
// The line scanning they build on is in CrashLines.h.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "modules/BSPLogProcessor/crash/CrashLines.h"
#include "modules/BSPLogProcessor/crash/CrashTypes.h"

namespace zelkor::tessel::Minidump {

// The four outputs every source fills, held together.
struct CrashResult {
    crash_main_type_enum& mainType;
    crash_type_enum& subType;
    std::string& reason;
    std::string& detail;

    // Sets the sub type, its main type and name, and `line` as the detail.
    void set(crash_type_enum type, std::string_view line) const;
    // The same with a detail text that is not a log line.
    void setDetail(crash_type_enum type, const std::string& text) const;
    bool found() const { return subType != CRASH_NONE; }
};

// Ranks a kernel line by the CPU error it reports, in the order of
// cpu_error_type_of_line(); a LineRanker.
int cpu_error_rank(std::string_view line, size_t limit);

// The CPU error behind a kernel panic: the one the kernel log showed
// (`kmsgHit`, its best line by cpu_error_rank), else an EDAC status in
// "last_cpusys", else the trust zone's EDAC record in "last_tzlog". Fills
// `out` and returns true when one of them names an error.
bool detect_cpu_error(const FirstHit& kmsgHit, const CrashResult& out);

// The run's call trace, filled while the kernel log is open.
std::string& mutable_crash_stacktrace();

}  // namespace zelkor::tessel::Minidump
