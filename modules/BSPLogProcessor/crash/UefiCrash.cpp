// The boot loader's UEFI log of this boot tells why the PMIC last powered up.
#include "modules/BSPLogProcessor/MinidumpLog.h"
#include "modules/BSPLogProcessor/crash/CrashKeywords.h"
#include "modules/BSPLogProcessor/crash/CrashParse.h"
#include "modules/BSPLogProcessor/crash/CrashScan.h"

namespace zelkor::tessel::Minidump {

void parse_crash_from_uefilog(crash_main_type_enum& main_type, crash_type_enum& sub_type,
                              std::string& reason, std::string& detail) {
    LogLines uefi(kUefiLog0);
    if (!uefi.ok()) {
        MD_PRINT("not found last_kmsg");
        return;
    }
    FirstHit hit = scan_first_hit(uefi, keyword_ranker(kUefiLogKeywords));
    if (hit.rank < 0) return;
    static constexpr crash_type_enum kTypes[] = {CRASH_OCP, CRASH_SMPL, CRASH_PBS_NACK};
    static_assert(kTypes[kUefiOcp] == CRASH_OCP && kTypes[kUefiSmpl] == CRASH_SMPL &&
                  kTypes[kUefiPbsNack] == CRASH_PBS_NACK);
    CrashResult{main_type, sub_type, reason, detail}.set(kTypes[hit.rank], hit.line);
}

}  // namespace zelkor::tessel::Minidump
