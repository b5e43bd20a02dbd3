// crash_parse: which source decides, in which order, and what each yields.
#include "CrashTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

constexpr char kPanicKmsg[] =
        "[  812.004511][  T412] Kernel panic - not syncing: Oops: Fatal exception\n";

TEST_F(CrashTest, UefiLogIsTriedFirstAndItsTableOrderDecides) {
    Write(kLastKmsg, kPanicKmsg);
    EXPECT_VERDICT(After(kUefiLog0, "B - 1000 - PON by SMPL\r\n"), CRASH_SMPL,
                   "B - 1000 - PON by SMPL");
    EXPECT_VERDICT(After(kUefiLog0, "PBS_NACK seen\r\nPON by SMPL\r\nPMIC OCP Occured on S3\r\n"),
                   CRASH_OCP, "PMIC OCP Occured on S3");
    EXPECT_VERDICT(After(kUefiLog0, "PON: PBS_NACK\n"), CRASH_PBS_NACK, "PON: PBS_NACK");
}

TEST_F(CrashTest, DumpFilesAreReadOnlyWhenThisRunTookANewDump) {
    Write(kPowerupReasonNode, "hard_reset\n");
    EXPECT_TRUE(NoCrash(After(kXblScLogsPartition, std::string(4096, '\xff'))));
    EXPECT_EQ(crash_stacktrace(), "");

    Write(kLastKmsg, kPanicKmsg);
    Write(kLastTzlog, "no status here\n");
    Write(kLastWarmresetXbllog, "XBLRamDump_MiniDump failed\r\n");
    NewDump(false);
    EXPECT_TRUE(NoCrash(Parse()));
    NewDump(true);
    EXPECT_EQ(Parse().subType, CRASH_DUMP_PROCESS_FAIL);
}

TEST_F(CrashTest, WarmResetLogRanksFailedDumpSmplComboKeysThenOcp) {
    Write(kLastKmsg, kPanicKmsg);
    EXPECT_VERDICT(After(kLastWarmresetXbllog,
                         "PM_OCP\r\nReset by PWR & Resin S2\r\nPON Reset. trigger 0x1\r\n"
                         "MD table is not initialized\r\n"),
                   CRASH_DUMP_PROCESS_FAIL, "MD table is not initialized");
    EXPECT_VERDICT(After(kLastWarmresetXbllog,
                         "PM_OCP\r\nReset by PWR & Resin S2\r\nPON Reset. trigger 0x1\r\n"),
                   CRASH_SMPL, "PON Reset. trigger 0x1");
    EXPECT_VERDICT(After(kLastWarmresetXbllog, "PM_OCP\r\nReset by PWR & Resin S2\r\n"),
                   CRASH_COMBO_KEYS, "Reset by PWR & Resin S2");
    // The detail comes from the "OCP Occured" line wherever it stands.
    EXPECT_VERDICT(After(kLastWarmresetXbllog, "PM_OCP\r\nS2 OCP Occured 0x40\r\n"), CRASH_OCP,
                   "S2 OCP Occured 0x40");
    EXPECT_EQ(Said(After(kLastWarmresetXbllog, "PM_OCP\r\n")), "OCP: PM_OCP");
    // Without the marker the "OCP Occured" line decides nothing: the kernel
    // log is read next.
    EXPECT_EQ(Said(After(kLastWarmresetXbllog, "PMIC: OCP Occured on S2\r\n")),
              "kpanic: " + std::string(kPanicKmsg, sizeof(kPanicKmsg) - 2));
    // "OCP" without the boot loader's line end is not the marker.
    EXPECT_EQ(After(kLastWarmresetXbllog, "OCP check passed\r\n").subType, CRASH_KPANIC);
}

TEST_F(CrashTest, KernelLogBugLineBeatsKeywordsAndKeywordsGoByTableOrder) {
    EXPECT_VERDICT(After(kLastKmsg,
                         "[   10.000000][    T1] Trigger a crash\n"
                         "[   11.000000][    T1] QCOM Apps Watchdog bark! Now = 11.0\n"
                         "[   12.000000][    T1] Kernel panic - not syncing: wdog\n"),
                   CRASH_KPANIC, "[   11.000000][    T1] QCOM Apps Watchdog bark! Now = 11.0");
    EXPECT_EQ(Said(After(kLastKmsg,
                         "[   10.000000][    T1] Unable to handle kernel paging request at 0x8\n"
                         "[   11.000000][    T9] kernel BUG at mm/slub.c:305!\n")),
              "kpanic: [   11.000000][    T9] kernel BUG at mm/slub.c:305!");
    EXPECT_VERDICT(After(kLastKmsg, "[    5.1][  T77] sysrq: collect D&R-state processes\n"),
                   CRASH_COMBO_KEYS, "[    5.1][  T77] sysrq: collect D&R-state processes");
    EXPECT_VERDICT(After(kLastKmsg, "[    5.1][  C3] EDAC kryo_edac: Error in matching cpu3\n"),
                   CRASH_CPU_CACHE_MATCH_ERROR,
                   "[    5.1][  C3] EDAC kryo_edac: Error in matching cpu3");
}

TEST_F(CrashTest, BinaryAndOverlongKernelLogsAreReadInBoundedPieces) {
    // Half a MiB without a line end, NUL and erased bytes, then a BUG line
    // whose text follows a NUL: all of it is looked at, 511 bytes at a time.
    std::string log(512 * 1024, '\xff');
    for (size_t i = 0; i < log.size(); i += 97) log[i] = '\0';
    constexpr char kBugLine[] = "[ 3.0][ T5] \0\0kernel BUG at drivers/foo.c:7!";
    const std::string bugLine(kBugLine, sizeof(kBugLine) - 1);
    const Verdict v = After(kLastKmsg, log + "\n" + bugLine + "\n");
    EXPECT_EQ(v.subType, CRASH_KPANIC);
    EXPECT_TRUE(v.detail == bugLine) << "the BUG line, its NULs kept";
}

TEST_F(CrashTest, QuietKernelLogLeavesItToTheTrustZone) {
    Write(kLastKmsg, "[    1.0][    T1] quiet\n");
    // Enciphered: the status line never appears.
    Write(kLastTzlog, "\x9a\x10\xfe garbage NON_SECURE_WDT\n");
    // A caller that already knows of a kernel panic keeps it.
    EXPECT_VERDICT(Parse("kpanic"), CRASH_KPANIC, "unknown");
    EXPECT_VERDICT(Parse(), CRASH_TZ_ENCRYPT, "tz log encrypt");

    const std::string status = "Boot Status :\n   Reset Type (reason)       : ";
    // Table order decides, not position; a reason before the status is old.
    EXPECT_VERDICT(After(kLastTzlog,
                         "SECURE_WDT\nBoot Status :\n  CPU #: 0\n"
                         "   Reset Type (reason)       : MON_DATA_ABT\n"
                         "   Reset Type (reason)       : SMMU_FAULT\n"),
                   CRASH_TZ_SMMU_FAULT, "   Reset Type (reason)       : SMMU_FAULT");
    // Every reason past the eighth shares the last slot.
    const std::pair<const char*, crash_type_enum> reasons[] = {
            {"NON_SECURE_WDT", CRASH_TZ_NON_SECURE_WDT},
            {"SECURE_WDT", CRASH_TZ_SECURE_WDT},
            {"MON_DATA_ABT", CRASH_TZ_OTHER},
            {"AHB_TIMEOUT", CRASH_TZ_OTHER},
    };
    for (const auto& [reason, type] : reasons) {
        EXPECT_EQ(After(kLastTzlog, status + reason + "\n").subType, type) << reason;
    }
    EXPECT_VERDICT(After(kLastTzlog, status + "NONE\n"), CRASH_TZ_8_NONE, "tz log 8 none");
}

TEST_F(CrashTest, PowerUpReasonThenXblScLogsAreTheLastResorts) {
    std::string partition(8192, '\0');
    partition += "\xff\xff binary \x01\x02\nXBL: XBLRamDump_MiniDump failed, status 0x3\n";
    Write(kXblScLogsPartition, partition);
    EXPECT_TRUE(detect_xbl_sc_log_partion());
    EXPECT_VERDICT(After(kPowerupReasonNode, "reason: other\n"), CRASH_DUMP_PROCESS_FAIL,
                   "crash happened,but dump process fail");
    // A power-up reason beginning with "other" comes first.
    EXPECT_VERDICT(After(kPowerupReasonNode, "other\n"), CRASH_OTHER_HARDRESET,
                   "other by hardreset");

    Write(kXblScLogsPartition, "XBL: MD table is not initialized\n");
    EXPECT_TRUE(detect_xbl_sc_log_partion());
    Write(kXblScLogsPartition, "XBL: RamDump done\n");
    EXPECT_FALSE(detect_xbl_sc_log_partion());
}

}  // namespace
}  // namespace zelkor::tessel::testing
