#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "modules/BSPLogProcessor/history/CrashHistory.h"
#include "modules/BSPLogProcessor/history/CrashReport.h"

namespace zelkor::tessel::Minidump {

void record_crash_history() {
    crash_main_type_enum main_type = CRASH_MAIN_NONE;
    crash_type_enum sub_type = CRASH_NONE;
    std::string reason;
    std::string detail;
    crash_parse(main_type, sub_type, reason, detail);
    crash_report(main_type, sub_type, reason, detail);

    CrashHistoryPartition history;
    if (!open_crash_history(&history)) return;
    write_to_partition_crash_history(history, main_type, sub_type, reason, detail);
    sync_to_file_md_history(history);
    close_crash_history(&history);
}

}  // namespace zelkor::tessel::Minidump
