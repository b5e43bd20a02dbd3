// "xbl_sc_logs" holds the text log the boot loader's secure context keeps
// across resets. When the boot loader could not write the minidump of a
// crash, its RAM-dump stage says so there with the same lines it writes into
// the warm-reset log: "XBLRamDump_MiniDump failed" or "MD table is not
// initialized". The rest of the partition (erased flash, older text) is
// passed over line by line; only its first few MiB are read.
#include <cerrno>
#include <cstring>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashKeywords.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"

namespace zelkor::tessel::Minidump {

namespace {

// The boot loader's log buffer is a few hundred KiB; stay well above it.
constexpr uint64_t kXblScLogScanLimit = 4ull * 1024 * 1024;

bool ReportsFailedDump(std::string_view line) {
    for (size_t marker : {kXblDumpFailed, kXblMdTableMissing}) {
        if (line.find(kWarmResetXblKeywords[marker]) != std::string_view::npos) return true;
    }
    return false;
}

}  // namespace

bool detect_xbl_sc_log_partion() {
    LogLines log(kXblScLogsPartition, kXblScLogScanLimit);
    if (!log.ok()) {
        MD_LOGW("open %s fail %d(%s)\n", kXblScLogsPartition, errno, strerror(errno));
        return false;
    }
    std::string_view line;
    while (log.next(&line)) {
        if (ReportsFailedDump(line)) {
            MD_LOGI("xbl_sc_logs: dump process failed: %.*s", static_cast<int>(line.size()),
                    line.data());
            return true;
        }
    }
    return false;
}

}  // namespace zelkor::tessel::Minidump
