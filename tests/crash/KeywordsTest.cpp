// The keyword tables and the names of the types: what a matching line looks
// like, and near misses that must not match.
#include <gtest/gtest.h>

#include "modules/BSPLogProcessor/crash/CrashKeywords.h"
#include "modules/BSPLogProcessor/crash/CrashTypes.h"

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
    // Every type in order, then one past the last: the numbers and names
    // every crash history ever written holds.
    std::string names, mains;
    for (uint32_t t = 0; t <= CRASH_TYPE_COUNT; ++t) {
        names += std::string(crash_type_name(t)) + " ";
        mains += std::to_string(crash_main_type_of(t)) + " ";
    }
    EXPECT_EQ(names,
              "none kpanic list_corruption cpu_llcc_data_single cpu_llcc_data_multi "
              "cpu_llcc_tag_single cpu_llcc_tag_multi cpu_cache_l1_single cpu_cache_l1_multi "
              "cpu_cache_l2_single cpu_cache_l2_multi cpu_cache_l3_single cpu_cache_l3_multi "
              "cpu_cache_match_error cpu_cache_undef_instr combo_keys other_hardreset core_hang "
              "OCP SMPL tz_crash tz_crash tz_crash tz_crash tz_crash tz_crash tz_crash tz_crash "
              "tz_crash PBS_NACK cpu_edac_uncorrect cpu_edac_correct 8_NONE tz_encrypt "
              "dump_process_fail none ");
    EXPECT_EQ(mains,
              "0 1 2 2 2 2 2 2 2 2 2 2 2 2 2 4 5 0 7 8 9 9 9 9 9 9 9 9 9 10 2 2 11 12 13 0 ");
    EXPECT_EQ(crash_main_type_of(999), CRASH_MAIN_NONE);
}

}  // namespace
}  // namespace zelkor::tessel::testing
