// The names and main types of the crash types.
#include <gtest/gtest.h>

#include "modules/BSPLogProcessor/crash/CrashTypes.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

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
