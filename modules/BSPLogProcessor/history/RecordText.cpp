// The text of one crash history record.
#include <android-base/stringprintf.h>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/history/CrashHistory.h"
#include "platform/Properties.h"

namespace zelkor::tessel::Minidump {

std::string build_version_text() {
    std::string version = platform::GetProperty(kBuildIncrementalProperty, "");
    return version.empty() ? kUnknownVersion : version;
}

std::string format_crash_history_text(const CrashHistoryPartition& history, uint32_t current_num,
                                      const std::string& reason, const std::string& detail) {
    const std::string version = build_version_text();
    const std::string shortReason = reason.substr(0, kRecordReasonMax);
    const std::string shortDetail = detail.substr(0, kRecordDetailMax);
    std::string text;
    if (history.in_blackbox) {
        // The blackbox counts this boot; the crash ended the one before.
        text = android::base::StringPrintf(
                "%u)[%u] %s|%s|%s|%s\n", current_num, history.boot_index - 1u, version.c_str(),
                run_time_text().c_str(), shortReason.c_str(), shortDetail.c_str());
    } else {
        text = android::base::StringPrintf("%d) %s|%s|%s|%s\n", static_cast<int>(current_num),
                                           version.c_str(), run_time_text().c_str(),
                                           shortReason.c_str(), shortDetail.c_str());
    }
    if (text.size() > kCrashHistoryTextMax) text.resize(kCrashHistoryTextMax);
    return text;
}

}  // namespace zelkor::tessel::Minidump
