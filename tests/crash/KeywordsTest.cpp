// The keyword tables and the names of the types: what a matching line looks
// like, and near misses that must not match.
#include <gtest/gtest.h>

#include "modules/BSPLogProcessor/CrashKeywords.h"
#include "modules/BSPLogProcessor/CrashTypes.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

TEST(CrashKeywords, KernelTablesMatchRealLinesOnly) {
    EXPECT_EQ(kMinidumpKernelKeywords.find("[ 1.0][ C0] msm_watchdog: QCOM Apps Watchdog bark! "
                                           "Now = 52.1"),
              0);
    EXPECT_EQ(kMinidumpKernelKeywords.find("Unable to handle kernel NULL pointer dereference at "
                                           "virtual address 0000000000000008"),
              3);
    EXPECT_EQ(kMinidumpKernelKeywords.find("Internal error: BRK handler: f2000800 [#1] SMP"), 8);
    // Lower case, and the BRK handler's other spelling, are not ours.
    EXPECT_EQ(kMinidumpKernelKeywords.find("unable to handle kernel NULL pointer"), -1);
    EXPECT_EQ(kMinidumpKernelKeywords.find("Internal error: Oops - BUG: 0 [#1]"), -1);
    // The limit hides the later entries.
    EXPECT_EQ(kMinidumpKernelKeywords.find("Fatal error on cpu2", 5), -1);
    EXPECT_EQ(kMinidumpKernelKeywords.find("Fatal error on cpu2", 6), 5);

    EXPECT_EQ(kKernelBugKeywords.find("kernel BUG at fs/ext4/inode.c:12!"), 1);
    EXPECT_EQ(kKernelBugKeywords.find("BUG: scheduling while atomic"), -1);
    EXPECT_EQ(kKernelPanicKeywords.find("Kernel panic - not syncing: Fatal exception"), 0);
    EXPECT_EQ(kKernelPanicKeywords.find("kernel panic"), -1);
}

TEST(CrashKeywords, BootLoaderAndTrustZoneTables) {
    EXPECT_EQ(kUefiLogKeywords.find("PON by smpl"), -1);
    EXPECT_EQ(kWarmResetXblKeywords.find("S3 OCP\r\n"), static_cast<int>(kXblOcp));
    EXPECT_EQ(kWarmResetXblKeywords.find("S3 OCP Occured\r\n"), static_cast<int>(kXblOcpDetail));
    EXPECT_EQ(kWarmResetXblKeywords.find("S3 OCP\n"), -1);

    ASSERT_EQ(kTzResetTypes.size(), 54u);
    EXPECT_EQ(kTzResetTypes.find("EL3_LEL32_ERR"), 26);
    EXPECT_EQ(kTzResetTypes.find("EL1_SP_EL0_SYNCH"), 27);
    EXPECT_EQ(kTzResetTypes.find("EL1_LEL32_ERR"), 42);
    EXPECT_EQ(kTzResetTypes.find("SEC_WDT_TIMER_TRIGGER"), 50);
    EXPECT_EQ(kTzResetTypes.find("MON_DATA_ABT"), 53);

    // The stored end mark is not a keyword.
    EXPECT_EQ(kLastKmsgSummaryKeywords.size(), 11u);
    EXPECT_EQ(kLastKmsgSummaryKeywords.find("Causing a watchdog bite!"), 6);
    EXPECT_EQ(kLastKmsgSummaryKeywords.find(kSummaryEnd), -1);
}

TEST(CrashTypes, NamesAndMainTypesAreTheHistorysOwn) {
    EXPECT_STREQ(crash_type_name(CRASH_NONE), "none");
    EXPECT_STREQ(crash_type_name(CRASH_CPU_CACHE_L2_SINGLE), "cpu_cache_l2_single");
    EXPECT_STREQ(crash_type_name(CRASH_CORE_HANG), "core_hang");
    EXPECT_STREQ(crash_type_name(CRASH_DUMP_PROCESS_FAIL), "dump_process_fail");
    EXPECT_STREQ(crash_type_name(CRASH_TYPE_COUNT), "none");
    for (uint32_t t = CRASH_TZ_NON_SECURE_WDT; t <= CRASH_TZ_OTHER; ++t) {
        EXPECT_STREQ(crash_type_name(t), "tz_crash") << t;
        EXPECT_EQ(crash_main_type_of(t), CRASH_MAIN_TZ) << t;
    }

    EXPECT_EQ(crash_main_type_of(CRASH_LIST_CORRUPTION), CRASH_MAIN_CPU);
    EXPECT_EQ(crash_main_type_of(CRASH_CPU_EDAC_CORRECT), CRASH_MAIN_CPU);
    EXPECT_EQ(crash_main_type_of(CRASH_COMBO_KEYS), 4u);
    EXPECT_EQ(crash_main_type_of(CRASH_CORE_HANG), CRASH_MAIN_NONE);
    EXPECT_EQ(crash_main_type_of(999), CRASH_MAIN_NONE);
}

}  // namespace
}  // namespace zelkor::tessel::testing
