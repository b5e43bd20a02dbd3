#include <time.h>

#include <cstdio>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/MinidumpState.h"
#include "modules/BSPLogProcessor/PendingCrash.h"

namespace zelkor::tessel::Minidump {

RunState& State() {
    static RunState state;
    return state;
}

std::string local_time_text() {
    time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    // 19 characters for any real date; room for what the compiler cannot rule out.
    char text[64];
    // The space flag before the hour is how every record of the crash run has
    // always been stamped: a blank, and no leading zero below 10 o'clock.
    snprintf(text, sizeof(text), "%04d-%02d-%02d% 02d:%02d:%02d", local.tm_year + 1900,
             local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec);
    return text;
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
