// CPU errors behind a kernel panic: cache and LLCC errors the EDAC drivers
// reported before the end, an undefined instruction, a corrupted list, and
// the EDAC status the CPU subsystem and the trust zone kept.
#include <android-base/stringprintf.h>

#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashKeywords.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "modules/BSPLogProcessor/crash/CrashScan.h"

namespace zelkor::tessel::Minidump {

namespace {

// Ranks: the cache markers in table order, then the undefined instruction,
// then the list corruption.
constexpr size_t kUndefInstrRank = kCpuErrorKeywordCount;
constexpr size_t kListCorruptionRank = kUndefInstrRank + 1;

crash_type_enum CpuErrorTypeOfRank(int rank) {
    if (rank < 0) return CRASH_NONE;
    if (static_cast<size_t>(rank) == kUndefInstrRank) return CRASH_CPU_CACHE_UNDEF_INSTR;
    if (static_cast<size_t>(rank) == kListCorruptionRank) return CRASH_LIST_CORRUPTION;
    return static_cast<crash_type_enum>(CRASH_CPU_LLCC_DATA_SINGLE + rank);
}

}  // namespace

int cpu_error_rank(std::string_view line, size_t limit) {
    int rank = kCpuErrorKeywords.find(line, limit);
    if (rank >= 0) return rank;
    if (limit > kUndefInstrRank && kUndefInstrKeywords.find(line) >= 0) {
        return static_cast<int>(kUndefInstrRank);
    }
    if (limit > kListCorruptionRank && kListCorruptionKeywords.find(line) >= 0) {
        return static_cast<int>(kListCorruptionRank);
    }
    return -1;
}

crash_type_enum cpu_error_type_of_line(std::string_view line) {
    return CpuErrorTypeOfRank(cpu_error_rank(line, static_cast<size_t>(-1)));
}

bool detect_cpu_edac_in_cpusys(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                               std::string& reason, std::string& detail) {
    LogLines cpusys(kLastCpusys);
    if (!cpusys.ok()) return false;
    std::string_view line;
    bool interrupted = false;
    while (cpusys.next(&line)) {
        if (!interrupted) {
            int at = kEdacInterruptKeywords.find(line);
            if (at < 0) continue;
            interrupted = true;
            // The status may follow the marker on the same line.
            line.remove_prefix(line.find(kEdacInterruptKeywords[at]));
        }
        crash_type_enum type = CRASH_NONE;
        if (line.find(kEdacUncorrectedStatus) != std::string_view::npos) {
            type = CRASH_CPU_EDAC_UNCORRECT;
        } else if (line.find(kEdacCorrectedStatus) != std::string_view::npos) {
            type = CRASH_CPU_EDAC_CORRECT;
        }
        if (type != CRASH_NONE) {
            CrashResult{main_type, sub_type, reason, detail}.set(type, line);
            return true;
        }
    }
    return false;
}

bool detect_cpu_edac_in_tzlog(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                              std::string& reason, std::string& detail) {
    LogLines tzlog(kLastTzlog);
    if (!tzlog.ok() || !skip_past_line(tzlog, kTzBootStatus)) return false;
    std::string_view line;
    std::string cpu, status, misc;
    while (tzlog.next(&line)) {
        if (line.find(kTzEdacCode) == std::string_view::npos) continue;
        // A record without its words, or with a clear status, says nothing.
        if (!split_edac_diag_log(line, cpu, status, misc) || status == "0") continue;
        crash_type_enum type = status.find(kEdacCorrectedStatus) != std::string::npos
                                       ? CRASH_CPU_EDAC_CORRECT
                                       : CRASH_CPU_EDAC_UNCORRECT;
        CrashResult{main_type, sub_type, reason, detail}.setDetail(
                type, android::base::StringPrintf("TZBSP_EC_EDAC_STATUS  ARM EDAC CPU %s "
                                                  "ERXSTATUS_EL1 = 0x%s ERXMISC0_EL1 = 0x%s",
                                                  cpu.c_str(), status.c_str(), misc.c_str()));
        return true;
    }
    return false;
}

bool detect_cpu_error(const FirstHit& kmsgHit, const CrashResult& out) {
    if (kmsgHit.rank >= 0) {
        out.set(CpuErrorTypeOfRank(kmsgHit.rank), kmsgHit.line);
        return true;
    }
    return detect_cpu_edac_in_cpusys(out.mainType, out.subType, out.reason, out.detail) ||
           detect_cpu_edac_in_tzlog(out.mainType, out.subType, out.reason, out.detail);
}

}  // namespace zelkor::tessel::Minidump
