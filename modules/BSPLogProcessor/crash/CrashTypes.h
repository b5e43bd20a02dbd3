// What the crash classification names: a main type, which selects the event
// id a crash is reported with, and a sub type, whose name is the reason text
// written into the crash history and the report.
#pragma once

#include <cstdint>

namespace zelkor::tessel::Minidump {

// Where the boot run publishes the reason name of the last crash.
constexpr char kCrashReasonProperty[] = "vendor.minidump.crash_reason";

enum crash_main_type_enum : uint32_t {
    CRASH_MAIN_NONE = 0,
    CRASH_MAIN_KERNEL = 1,
    CRASH_MAIN_CPU = 2,
    // Has an event id of its own; nothing in the logs raises it yet.
    CRASH_MAIN_RESERVED_3 = 3,
    CRASH_MAIN_COMBO_KEYS = 4,
    CRASH_MAIN_HARDRESET = 5,
    // Has an event id of its own; nothing in the logs raises it yet.
    CRASH_MAIN_RESERVED_6 = 6,
    CRASH_MAIN_OCP = 7,
    CRASH_MAIN_SMPL = 8,
    CRASH_MAIN_TZ = 9,
    CRASH_MAIN_PBS_NACK = 10,
    CRASH_MAIN_TZ_8_NONE = 11,
    CRASH_MAIN_TZ_ENCRYPT = 12,
    CRASH_MAIN_DUMP_PROCESS_FAIL = 13,
    CRASH_MAIN_TYPE_COUNT = 14,
};

enum crash_type_enum : uint32_t {
    CRASH_NONE = 0,
    CRASH_KPANIC = 1,
    CRASH_LIST_CORRUPTION = 2,
    CRASH_CPU_LLCC_DATA_SINGLE = 3,
    CRASH_CPU_LLCC_DATA_MULTI = 4,
    CRASH_CPU_LLCC_TAG_SINGLE = 5,
    CRASH_CPU_LLCC_TAG_MULTI = 6,
    CRASH_CPU_CACHE_L1_SINGLE = 7,
    CRASH_CPU_CACHE_L1_MULTI = 8,
    CRASH_CPU_CACHE_L2_SINGLE = 9,
    CRASH_CPU_CACHE_L2_MULTI = 10,
    CRASH_CPU_CACHE_L3_SINGLE = 11,
    CRASH_CPU_CACHE_L3_MULTI = 12,
    CRASH_CPU_CACHE_MATCH_ERROR = 13,
    CRASH_CPU_CACHE_UNDEF_INSTR = 14,
    CRASH_COMBO_KEYS = 15,
    CRASH_OTHER_HARDRESET = 16,
    // Named for the history; no main type and no log line raise it yet.
    CRASH_CORE_HANG = 17,
    CRASH_OCP = 18,
    CRASH_SMPL = 19,
    // The trust zone's own reset reasons: the first eight of its table each
    // have a slot, every later one shares CRASH_TZ_OTHER.
    CRASH_TZ_NON_SECURE_WDT = 20,
    CRASH_TZ_SECURE_WDT = 21,
    CRASH_TZ_RPM_ERR = 22,
    CRASH_TZ_NOC_ERROR = 23,
    CRASH_TZ_SMEM = 24,
    CRASH_TZ_XPU_VIOLATION = 25,
    CRASH_TZ_SMMU_FAULT = 26,
    CRASH_TZ_QSEE_ERR = 27,
    CRASH_TZ_OTHER = 28,
    CRASH_PBS_NACK = 29,
    CRASH_CPU_EDAC_UNCORRECT = 30,
    CRASH_CPU_EDAC_CORRECT = 31,
    CRASH_TZ_8_NONE = 32,
    CRASH_TZ_ENCRYPT = 33,
    CRASH_DUMP_PROCESS_FAIL = 34,
    CRASH_TYPE_COUNT = 35,
};

// The reason name of a sub type ("kpanic", "tz_crash", ...); "none" for a
// value out of range.
const char* crash_type_name(uint32_t type);

// The main type a sub type belongs to; CRASH_MAIN_NONE for "none", for
// "core_hang" and for a value out of range.
crash_main_type_enum crash_main_type_of(uint32_t type);

}  // namespace zelkor::tessel::Minidump
