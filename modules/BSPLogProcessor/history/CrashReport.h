// Reporting the previous boot's crash: one event through the maker's
// reporting client (Pellora) and the reason in "vendor.minidump.crash_reason".
#pragma once

#include <cstdint>
#include <string>

#include "modules/BSPLogProcessor/crash/CrashTypes.h"

namespace zelkor::tessel::Minidump {

// The reason published when the previous boot ended normally.
constexpr char kNormalReason[] = "Normal";

// The values of a crash event, by key.
constexpr char kEventStacktrace[] = "Stacktrace";
constexpr char kEventType[] = "Type";
constexpr char kEventSummary[] = "Summary";
constexpr char kEventCurrentTime[] = "CurrentTime";

// The event id a main type is reported with; 0 for CRASH_MAIN_NONE and for a
// value out of range, which are never reported.
unsigned int crash_event_id(uint32_t main_type);

// For a crash (sub type other than CRASH_NONE): sends the event of its main
// type with the call trace of the last crash_parse(), the reason, the detail
// and the run's time text, and publishes the reason. Otherwise publishes
// "Normal" and sends nothing.
void crash_report(crash_main_type_enum main_type, crash_type_enum sub_type,
                  const std::string& reason, const std::string& detail);

}  // namespace zelkor::tessel::Minidump
