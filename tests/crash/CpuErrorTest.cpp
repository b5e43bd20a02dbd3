// The CPU error detectors and the trust zone's EDAC record.
#include "CrashTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

TEST(CpuErrorLine, MarkersMapToTheirSubTypes) {
    const std::pair<const char*, crash_type_enum> lines[] = {
            {"llcc: LLCC Data RAM correctable Error", CRASH_CPU_LLCC_DATA_SINGLE},
            // "uncorrectable" contains "correctable": the single-bit entry
            // must not take it.
            {"llcc: LLCC Data RAM uncorrectable Error", CRASH_CPU_LLCC_DATA_MULTI},
            {"LLCC Tag RAM uncorrectable Error", CRASH_CPU_LLCC_TAG_MULTI},
            {"Kryo L1 Correctable Error", CRASH_CPU_CACHE_L1_SINGLE},
            {"Kryo L2 Uncorrectable Error on cpu2", CRASH_CPU_CACHE_L2_MULTI},
            {"CPU7 L3 Uncorrectable Error", CRASH_CPU_CACHE_L3_MULTI},
            {"[ 5.0][ T1] pc : do_undefinstr+0x2a0/0x2c4", CRASH_CPU_CACHE_UNDEF_INSTR},
            {"list_add corruption. prev->next should be next", CRASH_LIST_CORRUPTION},
            {"kryo l2 correctable error", CRASH_NONE},
            {"lr : do_undefinstr+0x10/0x2c4", CRASH_NONE},
    };
    for (const auto& [line, type] : lines) EXPECT_EQ(cpu_error_type_of_line(line), type) << line;
}

TEST_F(CrashTest, PanicIsKpanicUnlessACpuErrorExplainsIt) {
    const std::string panic = "[ 9.0][ T1] Kernel panic - not syncing: Asynchronous SError\n";
    Write(kLastKmsg, panic);
    EXPECT_VERDICT(Parse(), CRASH_KPANIC,
                   "[ 9.0][ T1] Kernel panic - not syncing: Asynchronous SError");

    // Nothing in the kernel log: the trust zone's EDAC record after its boot
    // status, a clear status passed over...
    Write(kLastTzlog,
          "(700181 1 ce000002 0)\nBoot Status :\n[0x1a] (700181 0 0 0)\n"
          "[0x2c1a88f1] (700181 2 cc800002 30000000)\n");
    EXPECT_VERDICT(Parse(), CRASH_CPU_EDAC_UNCORRECT,
                   "TZBSP_EC_EDAC_STATUS  ARM EDAC CPU 2 ERXSTATUS_EL1 = 0xcc800002 "
                   "ERXMISC0_EL1 = 0x30000000");
    // ...unless "last_cpusys" has one first, a status counting only after
    // the interrupt.
    Write(kLastCpusys, "ERXSTATUS_EL1: cc800002\nidle\n");
    EXPECT_EQ(Parse().subType, CRASH_CPU_EDAC_UNCORRECT);
    EXPECT_EQ(Parse().detail.rfind("TZBSP_EC_EDAC_STATUS", 0), 0u);
    Write(kLastCpusys,
          "ERXSTATUS_EL1: cc800002\nEDAC PPI interrupt received\nERXSTATUS_EL1: ce000002\n");
    EXPECT_VERDICT(Parse(), CRASH_CPU_EDAC_CORRECT, "ERXSTATUS_EL1: ce000002");
    // A status on the interrupt's own line is read from the marker on.
    Write(kLastCpusys, "cpu2: edac_ppi_interrupt_handler: status cc800002\n");
    EXPECT_VERDICT(Parse(), CRASH_CPU_EDAC_UNCORRECT,
                   "edac_ppi_interrupt_handler: status cc800002");

    // The kernel log's own CPU errors come first, by table order, not
    // position, wherever they stand around the panic.
    Write(kLastKmsg, "[ 1.0][ C0] list_del corruption, ffff00 next is NULL\n" + panic +
                             "[ 2.0][ C1] Kryo L1 Correctable Error\n"
                             "[ 3.0][ C2] LLCC Tag RAM correctable Error\n");
    EXPECT_VERDICT(Parse(), CRASH_CPU_LLCC_TAG_SINGLE,
                   "[ 3.0][ C2] LLCC Tag RAM correctable Error");
    // A crash keyword needs no explaining.
    Write(kLastKmsg, "[ 1.0][ C1] Kryo L1 Correctable Error\n[ 1.5][ T1] Trigger a crash\n" +
                             panic + "[ 2.0][ C1] Kryo L1 Correctable Error\n");
    EXPECT_VERDICT(Parse(), CRASH_KPANIC, "[ 1.5][ T1] Trigger a crash");
}

// cpu|status|misc, or nothing when the line is refused.
TEST(EdacDiag, SplitsTheThreeWordsAfterTheCode) {
    const std::pair<std::string, std::string> lines[] = {
            {"[0x2c1a88f1] (700181 2 cc800002 30000000)\r\n", "2|cc800002|30000000"},
            {"(700181, 7,\tce000002, 0)", "7|ce000002|0"},
            {"(700181 1 " + std::string(100, 'f') + " 2)", "1|" + std::string(31, 'f') + "|2"},
            {"(700181 2 cc800002)", ""},
            {"(7001810 2 cc800002 0)", ""},
            {"no code 2 cc800002 0", ""},
    };
    for (const auto& [line, words] : lines) {
        std::string cpu, status, misc;
        const bool split = split_edac_diag_log(line, cpu, status, misc);
        EXPECT_EQ(split ? cpu + "|" + status + "|" + misc : "", words) << line;
    }
}

}  // namespace
}  // namespace zelkor::tessel::testing
