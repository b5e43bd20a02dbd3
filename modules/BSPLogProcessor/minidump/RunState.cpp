#include <time.h>

#include <cstdio>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/minidump/MinidumpState.h"
#include "modules/BSPLogProcessor/minidump/PendingCrash.h"

namespace zelkor::tessel::Minidump {

RunState& State() {
    static RunState state;
    return state;
}

void time_init() {
    State().timeText = local_time_text();
    MD_LOGI("current timestamp %s", State().timeText.c_str());
}

const std::string& run_time_text() {
    return State().timeText;
}

const blackbox::last_log_header& lastlog_header() {
    return State().lastlog;
}

bool new_crash_found() {
    return State().newCrash;
}

void reset_minidump_state() {
    State() = RunState{};
    reset_dump_partition_choice();
    reset_run_pending_crash();
}

}  // namespace zelkor::tessel::Minidump
