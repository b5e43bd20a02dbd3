// Helpers shared by the crash classification's sources; not for other users.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "modules/BSPLogProcessor/CrashKeywords.h"
#include "modules/BSPLogProcessor/CrashLines.h"
#include "modules/BSPLogProcessor/CrashTypes.h"

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

// Ranks a line: the lowest rank below `limit` that the line shows, or -1.
using LineRanker = std::function<int(std::string_view line, size_t limit)>;

// Ranks a line by the first entry of `list` it contains.
LineRanker keyword_ranker(const KeywordList& list);

struct FirstHit {
    int rank = -1;      // -1: nothing matched
    std::string line;   // first line that shows `rank`
    uint64_t next = 0;  // offset of the line after it
};

// Reads the rest of the file once and returns the lowest rank shown anywhere
// in it, with the first line that shows it. The same answer as trying each
// rank over the whole file in turn, in one pass.
FirstHit scan_first_hit(LogLines& lines, const LineRanker& ranker);

// Reads lines up to and including the first one that contains `marker`.
bool skip_past_line(LogLines& lines, const char* marker);

// The run's call trace, filled while the kernel log is open.
std::string& mutable_crash_stacktrace();

}  // namespace zelkor::tessel::Minidump
