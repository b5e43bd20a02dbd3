#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "modules/BSPLogProcessor/crash/CrashScan.h"

namespace zelkor::tessel::Minidump {

void record_crash_line(std::string_view line, crash_type_enum type, std::string& reason,
                       std::string& detail) {
    reason = crash_type_name(type);
    // The detail ends up inside one record line of the history.
    detail.assign(trim_line_end(line));
}

void CrashResult::set(crash_type_enum type, std::string_view line) const {
    mainType = crash_main_type_of(type);
    subType = type;
    record_crash_line(line, type, reason, detail);
}

void CrashResult::setDetail(crash_type_enum type, const std::string& text) const {
    mainType = crash_main_type_of(type);
    subType = type;
    reason = crash_type_name(type);
    detail = text;
}

}  // namespace zelkor::tessel::Minidump
