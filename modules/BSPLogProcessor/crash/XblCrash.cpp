// The boot loader's log of the warm reset that followed the crash
// ("md_XBL_LOG" of the dump): a dump it could not take, a PMIC reset, a
// forced reset by the power and volume keys, or over-current protection.
#include <array>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashKeywords.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "modules/BSPLogProcessor/crash/CrashScan.h"

namespace zelkor::tessel::Minidump {

namespace {

// The table's markers, then kXblSmplMarker.
constexpr size_t kSmplSlot = kXblOcpDetail + 1;

struct XblMarkers {
    std::array<bool, kSmplSlot + 1> seen{};
    std::array<std::string, kSmplSlot + 1> line;  // first line of each

    void note(size_t slot, std::string_view text) {
        if (seen[slot]) return;
        seen[slot] = true;
        line[slot].assign(text);
    }
};

XblMarkers ScanXblLog(LogLines& log) {
    XblMarkers markers;
    std::string_view text;
    while (log.next(&text)) {
        for (size_t i = 0; i < kWarmResetXblKeywords.size(); ++i) {
            if (text.find(kWarmResetXblKeywords[i]) != std::string_view::npos)
                markers.note(i, text);
        }
        if (text.find(kXblSmplMarker) != std::string_view::npos) markers.note(kSmplSlot, text);
    }
    return markers;
}

}  // namespace

void parse_crash_from_warmreset_xbllog(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                                       std::string& reason, std::string& detail) {
    const CrashResult out{main_type, sub_type, reason, detail};
    LogLines log(kLastWarmresetXbllog);
    if (!log.ok()) {
        MD_PRINT("crash_history: not found last_warmreset_xbllog");
        return;
    }
    const XblMarkers m = ScanXblLog(log);
    // A failed dump explains why the kernel log is missing; say that first.
    if (m.seen[kXblDumpFailed]) {
        out.set(CRASH_DUMP_PROCESS_FAIL, m.line[kXblDumpFailed]);
    } else if (m.seen[kXblMdTableMissing]) {
        out.set(CRASH_DUMP_PROCESS_FAIL, m.line[kXblMdTableMissing]);
    } else if (m.seen[kSmplSlot]) {
        out.set(CRASH_SMPL, m.line[kSmplSlot]);
    } else if (m.seen[kXblComboKeys]) {
        out.set(CRASH_COMBO_KEYS, m.line[kXblComboKeys]);
    } else if (m.seen[kXblOcp]) {
        // The "OCP Occured" line only tells more of an over-current the
        // marker reported; alone it does not make the crash one.
        if (m.seen[kXblOcpDetail]) {
            MD_PRINT("crash_history: found last_warmreset_xbllog CRASH_OCP reason detail");
            out.set(CRASH_OCP, m.line[kXblOcpDetail]);
        } else {
            out.set(CRASH_OCP, m.line[kXblOcp]);
        }
    }
}

}  // namespace zelkor::tessel::Minidump
