#include "modules/BSPLogProcessor/crash/CrashTypes.h"

namespace zelkor::tessel::Minidump {

namespace {

struct CrashTypeInfo {
    const char* name;
    crash_main_type_enum main;
};

// Indexed by crash_type_enum. The names are the ones every crash history ever
// written uses; keep them as they are.
constexpr CrashTypeInfo kCrashTypes[CRASH_TYPE_COUNT] = {
        {"none", CRASH_MAIN_NONE},
        {"kpanic", CRASH_MAIN_KERNEL},
        {"list_corruption", CRASH_MAIN_CPU},
        {"cpu_llcc_data_single", CRASH_MAIN_CPU},
        {"cpu_llcc_data_multi", CRASH_MAIN_CPU},
        {"cpu_llcc_tag_single", CRASH_MAIN_CPU},
        {"cpu_llcc_tag_multi", CRASH_MAIN_CPU},
        {"cpu_cache_l1_single", CRASH_MAIN_CPU},
        {"cpu_cache_l1_multi", CRASH_MAIN_CPU},
        {"cpu_cache_l2_single", CRASH_MAIN_CPU},
        {"cpu_cache_l2_multi", CRASH_MAIN_CPU},
        {"cpu_cache_l3_single", CRASH_MAIN_CPU},
        {"cpu_cache_l3_multi", CRASH_MAIN_CPU},
        {"cpu_cache_match_error", CRASH_MAIN_CPU},
        {"cpu_cache_undef_instr", CRASH_MAIN_CPU},
        {"combo_keys", CRASH_MAIN_COMBO_KEYS},
        {"other_hardreset", CRASH_MAIN_HARDRESET},
        {"core_hang", CRASH_MAIN_NONE},
        {"OCP", CRASH_MAIN_OCP},
        {"SMPL", CRASH_MAIN_SMPL},
        {"tz_crash", CRASH_MAIN_TZ},
        {"tz_crash", CRASH_MAIN_TZ},
        {"tz_crash", CRASH_MAIN_TZ},
        {"tz_crash", CRASH_MAIN_TZ},
        {"tz_crash", CRASH_MAIN_TZ},
        {"tz_crash", CRASH_MAIN_TZ},
        {"tz_crash", CRASH_MAIN_TZ},
        {"tz_crash", CRASH_MAIN_TZ},
        {"tz_crash", CRASH_MAIN_TZ},
        {"PBS_NACK", CRASH_MAIN_PBS_NACK},
        {"cpu_edac_uncorrect", CRASH_MAIN_CPU},
        {"cpu_edac_correct", CRASH_MAIN_CPU},
        {"8_NONE", CRASH_MAIN_TZ_8_NONE},
        {"tz_encrypt", CRASH_MAIN_TZ_ENCRYPT},
        {"dump_process_fail", CRASH_MAIN_DUMP_PROCESS_FAIL},
};

}  // namespace

const char* crash_type_name(uint32_t type) {
    return type < CRASH_TYPE_COUNT ? kCrashTypes[type].name : kCrashTypes[CRASH_NONE].name;
}

crash_main_type_enum crash_main_type_of(uint32_t type) {
    return type < CRASH_TYPE_COUNT ? kCrashTypes[type].main : CRASH_MAIN_NONE;
}

}  // namespace zelkor::tessel::Minidump
