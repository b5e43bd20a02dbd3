// The kernel log of the dump, "last_kmsg": what ended the boot, in order of
// trust. A BUG line anywhere wins; then the crash keywords in table order;
// then a panic, which a CPU error found elsewhere may explain better.
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashKeywords.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "modules/BSPLogProcessor/crash/CrashScan.h"

namespace zelkor::tessel::Minidump {

namespace {

constexpr size_t kBugRank = 0;
constexpr size_t kFirstKeywordRank = 1;
constexpr size_t kPanicRank = kFirstKeywordRank + kMinidumpKernelKeywordCount;

int KernelRank(std::string_view line, size_t limit) {
    if (limit > kBugRank && kKernelBugKeywords.find(line) >= 0) return kBugRank;
    if (limit > kFirstKeywordRank) {
        int keyword = kMinidumpKernelKeywords.find(line, limit - kFirstKeywordRank);
        if (keyword >= 0) return static_cast<int>(kFirstKeywordRank) + keyword;
    }
    if (limit > kPanicRank && kKernelPanicKeywords.find(line) >= 0) return kPanicRank;
    return -1;
}

crash_type_enum KeywordType(size_t keyword) {
    if (keyword == kKeywordComboKeys) return CRASH_COMBO_KEYS;
    if (keyword == kKeywordCacheMatchError) return CRASH_CPU_CACHE_MATCH_ERROR;
    return CRASH_KPANIC;
}

// True when the log named the crash; its call trace is then recorded too.
bool ClassifyKernelLog(LogLines& kmsg, const CrashResult& out) {
    // One pass finds both the line that names the crash and the CPU error
    // that may explain a panic; a BUG line settles it at once.
    FirstHit crash;
    FirstHit cpu;
    std::string_view line;
    while (kmsg.next(&line)) {
        if (crash.offer(KernelRank(line, crash.limit()), line, kmsg.position())) break;
        // A CPU error only matters behind a panic.
        if (crash.rank < 0 || static_cast<size_t>(crash.rank) == kPanicRank) {
            cpu.offer(cpu_error_rank(line, cpu.limit()), line, kmsg.position());
        }
    }
    if (crash.rank < 0) return false;
    const size_t rank = static_cast<size_t>(crash.rank);
    if (rank == kBugRank) {
        out.set(CRASH_KPANIC, crash.line);
    } else if (rank < kPanicRank) {
        out.set(KeywordType(rank - kFirstKeywordRank), crash.line);
    } else if (!detect_cpu_error(cpu, out)) {
        out.set(CRASH_KPANIC, crash.line);
    }
    // The trace that belongs to the crash follows the line that named it.
    if (kmsg.seek(crash.next)) record_crash_calltrace(kmsg, mutable_crash_stacktrace());
    return true;
}

}  // namespace

void parse_crash_from_minidumplog(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                                  std::string& reason, std::string& detail) {
    const CrashResult out{main_type, sub_type, reason, detail};
    {
        LogLines kmsg(kLastKmsg);
        if (!kmsg.ok()) {
            MD_PRINT("not found last_kmsg");
        } else if (ClassifyKernelLog(kmsg, out)) {
            return;
        }
    }
    if (reason == crash_type_name(CRASH_KPANIC)) {
        out.setDetail(CRASH_KPANIC, "unknown");
        return;
    }
    parse_crash_from_tzlog(main_type, sub_type, reason, detail);
}

}  // namespace zelkor::tessel::Minidump
