#include "modules/BSPLogProcessor/MinidumpMain.h"

#include <errno.h>

#include <cstring>

#include "modules/BSPLogProcessor/Minidump.h"
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/history/BootDotting.h"
#include "modules/BSPLogProcessor/history/CrashHistory.h"
#include "modules/BSPLogProcessor/history/FallbackHistory.h"
#include "modules/BSPLogProcessor/minidump/PendingCrash.h"
#include "modules/blackbox/BlackBoxKmsg.h"
#include "platform/Properties.h"

namespace zelkor::tessel::Minidump {

void minidump_main() {
    if (!platform::SetProperty(kMinidumpValidProperty, "0")) {
        MD_LOGE("minidump set default is.valid 0 fail %d(%s)\n", errno, strerror(errno));
    }
    delete_log();
    time_init();

    // The run's copy of the blackbox headers, for the dump repair below and
    // for the kernel boot log copy at the end.
    blackbox::BlackBoxHeaders headers;
    const bool blackbox = black_box_dotting(&headers);
    if (blackbox && headers.log.dump_process_fail != 0) handle_minidump_fail_header(headers);

    if (handle_mini_lastlog_header() == 1) {
        handle_minidump_partition(0, 0);
        compress_minidump();
        handle_stored_minidumps();
    }

    if (check_crash_history()) {
        record_crash_history();
    } else {
        update_minidump_history();
    }
    // Whatever the history step made of it, the crash is no longer pending.
    clear_pending_crash();

    // Asked again for a new dump; compress_minidump() keeps the file the
    // first request wrote when the raw dump has not changed since.
    if (new_crash_found()) compress_minidump();

    // Tried whether or not the dotting step could open the blackbox; its own
    // open failure is logged.
    blackbox::copy_kmsg_to_black_box(&headers);
}

}  // namespace zelkor::tessel::Minidump
