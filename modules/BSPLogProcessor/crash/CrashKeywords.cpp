#include "modules/BSPLogProcessor/crash/CrashKeywords.h"

#include <iterator>

namespace zelkor::tessel::Minidump {

namespace {

constexpr const char* kMinidumpKernel[] = {
        "QCOM Apps Watchdog bark!",
        "Bad mode in",
        "Unable to handle kernel paging request",
        "Unable to handle kernel NULL pointer",
        "Trigger a crash",
        "Fatal error on",
        "collect D&R-state processes",
        "EDAC kryo_edac: Error in matching cpu",
        "Internal error: BRK handler",
};
static_assert(std::size(kMinidumpKernel) == kMinidumpKernelKeywordCount);
static_assert(std::string_view(kMinidumpKernel[kKeywordComboKeys]) ==
              "collect D&R-state processes");
static_assert(std::string_view(kMinidumpKernel[kKeywordCacheMatchError]) ==
              "EDAC kryo_edac: Error in matching cpu");

constexpr const char* kKernelBug[] = {"Kernel BUG at", "kernel BUG at"};
constexpr const char* kKernelPanic[] = {"Kernel panic"};

constexpr const char* kCpuError[] = {
        "LLCC Data RAM correctable Error",
        "LLCC Data RAM uncorrectable Error",
        "LLCC Tag RAM correctable Error",
        "LLCC Tag RAM uncorrectable Error",
        "Kryo L1 Correctable Error",
        "Kryo L1 Uncorrectable Error",
        "Kryo L2 Correctable Error",
        "Kryo L2 Uncorrectable Error",
        "L3 Correctable Error",
        "L3 Uncorrectable Error",
};
static_assert(std::size(kCpuError) == kCpuErrorKeywordCount);

constexpr const char* kEdacInterrupt[] = {"edac_ppi_interrupt_handler",
                                          "EDAC PPI interrupt received"};
constexpr const char* kListCorruption[] = {"list_del corruption", "list_add corruption"};
constexpr const char* kUndefInstr[] = {"pc : do_undefinstr"};

constexpr const char* kUefiLog[] = {"OCP Occured", "PON by SMPL", "PBS_NACK"};
static_assert(std::string_view(kUefiLog[kUefiSmpl]) == "PON by SMPL");
// The crash types are looked up by a hit's rank: one index per keyword.
static_assert(std::size(kUefiLog) == kUefiPbsNack + 1);

constexpr const char* kWarmResetXbl[] = {
        "OCP\r\n",
        "Reset by PWR & Resin S2",
        "XBLRamDump_MiniDump failed",
        "MD table is not initialized",
        "OCP Occured",
};
static_assert(std::string_view(kWarmResetXbl[kXblMdTableMissing]) == "MD table is not initialized");
// The scan keeps one slot per keyword and the SMPL marker after the last.
static_assert(std::size(kWarmResetXbl) == kXblOcpDetail + 1);

constexpr const char* kTzReset[] = {
        "NON_SECURE_WDT",
        "SECURE_WDT",
        "RPM_ERR",
        "NOC_ERROR",
        "SMEM",
        "XPU_VIOLATION",
        "SMMU_FAULT",
        "QSEE_ERR",
        "AHB_TIMEOUT",
        "RPM_WDOG",
        "BIMC_ERROR",
        "EL3_SP_EL0_SYNCH",
        "EL3_SP_EL0_IRQ",
        "EL3_SP_EL0_FIQ",
        "EL3_SP_EL0_ERR",
        "EL3_SP_EL3_SYNCH",
        "EL3_SP_EL3_IRQ",
        "EL3_SP_EL3_FIQ",
        "EL3_SP_EL3_ERR",
        "EL3_LEL64_SYNCH",
        "EL3_LEL64_IRQ",
        "EL3_LEL64_FIQ",
        "EL3_LEL64_ERR",
        "EL3_LEL32_SYNCH",
        "EL3_LEL32_IRQ",
        "EL3_LEL32_FIQ",
        "EL3_LEL32_ERR",
        "EL1_SP_EL0_SYNCH",
        "EL1_SP_EL0_IRQ",
        "EL1_SP_EL0_FIQ",
        "EL1_SP_EL0_ERR",
        "EL1_SP_EL1_SYNCH",
        "EL1_SP_EL1_IRQ",
        "EL1_SP_EL1_FIQ",
        "EL1_SP_EL1_ERR",
        "EL1_LEL64_SYNCH",
        "EL1_LEL64_IRQ",
        "EL1_LEL64_FIQ",
        "EL1_LEL64_ERR",
        "EL1_LEL32_SYNCH",
        "EL1_LEL32_IRQ",
        "EL1_LEL32_FIQ",
        "EL1_LEL32_ERR",
        "RPM_DRIVER_ERR",
        "RESET_TIMER_EXP",
        "ICE_ERR",
        "LMH_DRIVER_ERR",
        "ACCESS_CONTROL",
        "CLOCK",
        "GIC_CPU_MAP_INVALID",
        "SEC_WDT_TIMER_TRIGGER",
        "FAULT_DETECTED",
        "MON_PREFETCH_ABT",
        "MON_DATA_ABT",
};
static_assert(std::size(kTzReset) == 54);

constexpr const char* kLastKmsgSummary[] = {
        "Kernel BUG at",
        "kernel BUG at",
        "Unable to handle kernel paging request",
        "Trigger a crash",
        "Bad mode in",
        "Watchdog bark!",
        "Causing a watchdog bite!",
        "3-combo-keys",
        "collect D&R-state processes",
        "Kernel panic",
        "Fatal error on",
        kSummaryEnd,
};
static_assert(std::string_view(kLastKmsgSummary[std::size(kLastKmsgSummary) - 1]) == kSummaryEnd);

}  // namespace

int KeywordList::find(std::string_view line, size_t limit) const {
    const size_t end = limit < mCount ? limit : mCount;
    for (size_t i = 0; i < end; ++i) {
        if (line.find(mWords[i]) != std::string_view::npos) return static_cast<int>(i);
    }
    return -1;
}

const KeywordList kMinidumpKernelKeywords(kMinidumpKernel);
const KeywordList kKernelBugKeywords(kKernelBug);
const KeywordList kKernelPanicKeywords(kKernelPanic);
const KeywordList kCpuErrorKeywords(kCpuError);
const KeywordList kEdacInterruptKeywords(kEdacInterrupt);
const KeywordList kListCorruptionKeywords(kListCorruption);
const KeywordList kUndefInstrKeywords(kUndefInstr);
const KeywordList kUefiLogKeywords(kUefiLog);
const KeywordList kWarmResetXblKeywords(kWarmResetXbl);
const KeywordList kTzResetTypes(kTzReset);
const KeywordList kLastKmsgSummaryKeywords(kLastKmsgSummary, std::size(kLastKmsgSummary) - 1);

}  // namespace zelkor::tessel::Minidump
