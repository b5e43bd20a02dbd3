// The keyword tables and the names of the types: what a matching line looks
// like, and near misses that must not match.
#include <gtest/gtest.h>

#include <tuple>

#include "modules/BSPLogProcessor/crash/CrashKeywords.h"
#include "modules/BSPLogProcessor/crash/CrashTypes.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

// The index of the first entry a line contains, case and line end counted,
// never one past the limit.
TEST(CrashKeywords, ALineYieldsTheFirstEntryItContainsWithinTheLimit) {
    constexpr size_t kAll = static_cast<size_t>(-1);
    const std::tuple<const KeywordList*, std::string, size_t, int> lines[] = {
            {&kMinidumpKernelKeywords, "[ 1.0][ C0] msm_watchdog: QCOM Apps Watchdog bark! 52.1",
             kAll, 0},
            {&kMinidumpKernelKeywords, "Unable to handle kernel NULL pointer dereference at 0x8",
             kAll, 3},
            {&kMinidumpKernelKeywords, "Internal error: BRK handler: f2000800 [#1] SMP", kAll, 8},
            // Lower case, and the BRK handler's other spelling, are not ours.
            {&kMinidumpKernelKeywords, "unable to handle kernel NULL pointer", kAll, -1},
            {&kMinidumpKernelKeywords, "Internal error: Oops - BUG: 0 [#1]", kAll, -1},
            {&kMinidumpKernelKeywords, "Fatal error on cpu2", 5, -1},
            {&kMinidumpKernelKeywords, "Fatal error on cpu2", 6, 5},
            {&kKernelBugKeywords, "kernel BUG at fs/ext4/inode.c:12!", kAll, 1},
            {&kKernelBugKeywords, "BUG: scheduling while atomic", kAll, -1},
            {&kKernelPanicKeywords, "kernel panic", kAll, -1},
            {&kWarmResetXblKeywords, "S3 OCP Occured\r\n", kAll, static_cast<int>(kXblOcpDetail)},
            {&kWarmResetXblKeywords, "S3 OCP\n", kAll, -1},
            {&kTzResetTypes, "MON_DATA_ABT", kAll, 53},
            // The summary table's last entry is its end mark, not a keyword.
            {&kLastKmsgSummaryKeywords, "Fatal error on cpu2", kAll, 10},
            {&kLastKmsgSummaryKeywords, kSummaryEnd, kAll, -1},
    };
    for (const auto& [table, line, limit, index] : lines) {
        EXPECT_EQ(table->find(line, limit), index) << line;
    }
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
