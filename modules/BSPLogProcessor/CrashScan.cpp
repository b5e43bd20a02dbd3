#include "modules/BSPLogProcessor/CrashScan.h"

namespace zelkor::tessel::Minidump {

LineRanker keyword_ranker(const KeywordList& list) {
    return [&list](std::string_view line, size_t limit) { return list.find(line, limit); };
}

FirstHit scan_first_hit(LogLines& lines, const LineRanker& ranker) {
    FirstHit hit;
    size_t limit = static_cast<size_t>(-1);
    std::string_view line;
    while (lines.next(&line)) {
        // Only a rank better than the best so far can change the answer.
        int rank = ranker(line, limit);
        if (rank < 0) continue;
        hit.rank = rank;
        hit.line.assign(line);
        hit.next = lines.position();
        limit = static_cast<size_t>(rank);
        if (rank == 0) break;
    }
    return hit;
}

bool skip_past_line(LogLines& lines, const char* marker) {
    std::string_view line;
    while (lines.next(&line)) {
        if (line.find(marker) != std::string_view::npos) return true;
    }
    return false;
}

}  // namespace zelkor::tessel::Minidump
