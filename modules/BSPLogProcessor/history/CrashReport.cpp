#include "modules/BSPLogProcessor/history/CrashReport.h"

#include <errno.h>
#include <pellora/Pellora.h>

#include <cstring>
#include <iterator>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "modules/BSPLogProcessor/minidump/PendingCrash.h"
#include "platform/Properties.h"

namespace zelkor::tessel::Minidump {

namespace {

// Indexed by main type. Types 3 and 6 have ids although nothing raises them.
constexpr unsigned int kEventIds[] = {
        0,          // CRASH_MAIN_NONE: never sent
        901006001,  // CRASH_MAIN_KERNEL
        901006003,  // CRASH_MAIN_CPU
        901006002,  // CRASH_MAIN_RESERVED_3
        901006022,  // CRASH_MAIN_COMBO_KEYS
        901006023,  // CRASH_MAIN_HARDRESET
        901006004,  // CRASH_MAIN_RESERVED_6
        901006006,  // CRASH_MAIN_OCP
        901006005,  // CRASH_MAIN_SMPL
        901006021,  // CRASH_MAIN_TZ
        901006029,  // CRASH_MAIN_PBS_NACK
        901006019,  // CRASH_MAIN_TZ_8_NONE
        901006020,  // CRASH_MAIN_TZ_ENCRYPT
        901006018,  // CRASH_MAIN_DUMP_PROCESS_FAIL
};
static_assert(std::size(kEventIds) == CRASH_MAIN_TYPE_COUNT);
// An event carries at most 512 bytes of call trace; the capture keeps less.
static_assert(kStacktraceMax < 512);

void publish_reason(const std::string& reason) {
    if (!platform::SetProperty(kCrashReasonProperty, reason)) {
        MD_LOGE("minidump set crash_reason fail %d(%s)\n", errno, strerror(errno));
    }
}

void send_event(unsigned int id, const std::string& reason, const std::string& detail) {
    const std::string& trace = crash_stacktrace();
    MD_PRINT("g_stacktrace size = 0x%x\n", static_cast<unsigned>(trace.size()));
    android::PelloraEvent event(id);
    event.putString(kEventStacktrace, trace);
    event.putString(kEventType, reason);
    event.putString(kEventSummary, detail);
    event.putString(kEventCurrentTime, run_time_text());
    const int ret = android::Pellora::sendEvent(event);
    if (ret != 0) MD_LOGE("send crash event %u fail %d(%s)\n", id, -ret, strerror(-ret));
}

}  // namespace

unsigned int crash_event_id(uint32_t main_type) {
    return main_type < std::size(kEventIds) ? kEventIds[main_type] : 0;
}

void crash_report(crash_main_type_enum main_type, crash_type_enum sub_type,
                  const std::string& reason, const std::string& detail) {
    if (sub_type == CRASH_NONE) {
        publish_reason(kNormalReason);
        return;
    }
    MD_PRINT("report crash to pellora,%s,crash_type = %d \n", reason.c_str(),
             static_cast<int>(sub_type));
    const unsigned int id = crash_event_id(main_type);
    if (id == 0) {
        // A sub type without a main type (none is classified so today) has no
        // event to go with; the history still records it.
        MD_LOGE("no event id for crash main type %u, %s not reported\n", main_type, reason.c_str());
    } else if (PendingCrash* pending = run_pending_crash(); pending && pending->reported) {
        MD_LOGI("crash event %u already sent by the run that took the dump\n", id);
    } else {
        send_event(id, reason, detail);
        // Noted straight after the send, so that a run taking the crash up
        // again does not send it twice.
        if (pending != nullptr) {
            pending->reported = true;
            write_pending_crash(*pending);
        }
    }
    publish_reason(reason);
}

}  // namespace zelkor::tessel::Minidump
