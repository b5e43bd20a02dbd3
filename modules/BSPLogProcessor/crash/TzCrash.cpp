// The trust zone's reset reason, from the diagnostic part of "last_tzlog".
#include <algorithm>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashKeywords.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "modules/BSPLogProcessor/crash/CrashScan.h"

namespace zelkor::tessel::Minidump {

void parse_crash_from_tzlog(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                            std::string& reason, std::string& detail) {
    const CrashResult out{main_type, sub_type, reason, detail};
    LogLines tzlog(kLastTzlog);
    if (!tzlog.ok()) {
        MD_PRINT("not found last_tzlog");
        return;
    }
    // The trust zone enciphers its log when asked to; then no status is
    // readable at all.
    if (!skip_past_line(tzlog, kTzBootStatus)) {
        out.setDetail(CRASH_TZ_ENCRYPT, "tz log encrypt");
        return;
    }
    FirstHit hit = scan_first_hit(tzlog, keyword_ranker(kTzResetTypes));
    if (hit.rank < 0) {
        out.setDetail(CRASH_TZ_8_NONE, "tz log 8 none");
        return;
    }
    constexpr int kLastOwnSlot = CRASH_TZ_OTHER - CRASH_TZ_NON_SECURE_WDT;
    out.set(static_cast<crash_type_enum>(CRASH_TZ_NON_SECURE_WDT +
                                         std::min(hit.rank, kLastOwnSlot)),
            hit.line);
}

}  // namespace zelkor::tessel::Minidump
