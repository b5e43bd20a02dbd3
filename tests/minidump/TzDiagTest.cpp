// The trust-zone ("md_TZ_DIAG", "md_ltz", "md_TZ_IMEM") and hypervisor
// ("md_HYP_DIAG") sections.
#include <filesystem>

#include "MinidumpTestSupport.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

constexpr uint64_t kAt = 0x1000;  // where the section lies in the image

class TzDiagTest : public MinidumpTest {
  protected:
    void SetUp() override {
        MinidumpTest::SetUp();
        MakeImage(kMinidump, 0x10000);
        std::filesystem::create_directories(Host("/vendor/etc"));
        std::ofstream(Host("/vendor/etc/tzlog.dict")) << "42:MOD:started\n7:MOD:value %d of %d\n";
    }
    // A diagnostic area of major version 3 with two CPUs; the ring of
    // `ringLen` bytes at 0x400 holds `ring`, written from `next` on.
    void TzDiag(uint32_t version, uint32_t cpus, const std::string& ring, uint32_t ringLen,
                uint16_t wrap, uint16_t next) {
        Put32(kMinidump, kAt + 0, 0x747A6461);
        Put32(kMinidump, kAt + 4, version);
        Put32(kMinidump, kAt + 8, cpus);
        Put32(kMinidump, kAt + 12, 40);   // vmid table
        Put32(kMinidump, kAt + 16, 168);  // boot info, 8 x 24 bytes
        Put32(kMinidump, kAt + 20, 360);  // reset info
        Put32(kMinidump, kAt + 24, 428);  // interrupts
        Put32(kMinidump, kAt + 28, 0x400);
        Put32(kMinidump, kAt + 32, ringLen);
        for (uint32_t cpu = 0; cpu < 2; ++cpu) {
            const uint64_t boot = kAt + 168 + 24 * cpu;
            Put32(kMinidump, boot + 0, 0x10 + cpu);   // warm boot entries
            Put32(kMinidump, boot + 4, 0x20 + cpu);   // warm boot exits
            Put32(kMinidump, boot + 8, 0x30 + cpu);   // power collapse entries
            Put32(kMinidump, boot + 12, 0x40 + cpu);  // power collapse exits
            Put32(kMinidump, boot + 16, 0x80001000 + cpu);
        }
        Put32(kMinidump, kAt + 360, 1);  // cpu 0: SECURE_WDT
        Put32(kMinidump, kAt + 364, 2);
        Put32(kMinidump, kAt + 368, 99);  // cpu 1: no such reason
        Put32(kMinidump, kAt + 372, 0);
        Put16(kMinidump, kAt + 0x3FC, wrap);
        Put16(kMinidump, kAt + 0x3FE, next);
        Put(kMinidump, kAt + 0x400, ring);
    }
    void Parse(const char* name, uint64_t size, uint32_t late) {
        int fd = OpenImage(kMinidump);
        ASSERT_GE(fd, 0);
        parse_log(fd, name, kAt, size, late);
        close(fd);
    }
    std::string Diag(const std::string& name) { return ReadFile(std::string(kDiag) + "/" + name); }
};

TEST_F(TzDiagTest, BootAndResetStatusThenTheLogAndItsTranslation) {
    const std::string ring = "[1.0](42)\n[2.0](7 3 9)\nno time\n";
    TzDiag(0x00030001, 2, ring, 0x80, 0, ring.size());
    Parse("md_TZ_DIAG", 0x500, 2);

    const std::string tzlog = Diag("last_tzlog_2");
    const size_t boot = tzlog.find("Boot Status :\n");
    const size_t reset = tzlog.find(
            "  CPU #: 0\n  Reset Type Value          : 1\n"
            "   Reset Type (reason)       : SECURE_WDT\n  Reset counter             : 0x2\n"
            "  CPU #: 1\n  Reset Type Value          : 99\n"
            "   Reset Type (reason)       : UNKNOWN\n  Reset counter             : 0x0\n");
    ASSERT_NE(boot, std::string::npos) << tzlog;
    ASSERT_NE(reset, std::string::npos) << tzlog;
    EXPECT_LT(boot, reset);
    EXPECT_TRUE(EndsWith(tzlog, "Diag Log :\n" + ring)) << tzlog;
    // The translation goes to the one unnumbered parsed file.
    EXPECT_EQ(Diag("last_tzlog_parsed"), "[1.0] MOD started\n[2.0] MODvalue 3 of 9\n");
    EXPECT_FALSE(std::filesystem::exists(Host(std::string(kDiag) + "/last_tzlog_parsed_2")));
    EXPECT_EQ(ModeOf("/vendor/etc/tzlog.dict"), 0640u);
}

// The table has room for 8 CPUs: 192 bytes to the reset info make the
// 24-byte 32-bit form, 320 bytes the 40-byte 64-bit one.
TEST_F(TzDiagTest, BootStatusInBothForms) {
    for (const uint32_t bootOff : {168u, 40u}) {
        const bool wide = bootOff == 40;
        TzDiag(0x00030001, 2, "x\n", 0x80, 0, 2);
        Put32(kMinidump, kAt + 16, bootOff);
        std::string expected = "Boot Status :\n";
        for (uint32_t cpu = 0; cpu < 2; ++cpu) {
            const uint64_t info = kAt + bootOff + (wide ? 40 : 24) * cpu;
            for (uint32_t field = 0; field < 4; ++field) {
                Put32(kMinidump, info + 4 * field, 0x10 * (field + 1) + cpu);
            }
            if (wide) {
                Put64(kMinidump, info + 24, 0x1234567800000000ull + cpu);
            } else {
                Put32(kMinidump, info + 16, 0x80001000 + cpu);
            }
            expected += "  CPU #: " + std::to_string(cpu) + "\n  Warm boot jump address    : " +
                        (wide ? "0x123456780000000" : "0x8000100") + std::to_string(cpu) +
                        "\n  Warm boot entry / exit    : 0x1" + std::to_string(cpu) + " / 0x2" +
                        std::to_string(cpu) + "\n  Power collapse entry / exit: 0x3" +
                        std::to_string(cpu) + " / 0x4" + std::to_string(cpu) + "\n";
        }
        Parse("md_TZ_DIAG", 0x500, 0);
        EXPECT_NE(Diag("last_tzlog").find(expected + "Reset Status :\n"), std::string::npos)
                << Diag("last_tzlog");
    }
}

TEST_F(TzDiagTest, WrappedRingIsReadOldestFirst) {
    TzDiag(0x00030001, 2, "EFGHABCD", 8, 1, 4);
    Parse("md_TZ_DIAG", 0x500, 0);
    const std::string tzlog = Diag("last_tzlog");
    EXPECT_TRUE(EndsWith(tzlog, "Diag Log :\nABCDEFGH")) << tzlog;

    // Translated in the same order, each line once.
    TzDiag(0x00030001, 2, "[2](42)\n[1](42)\n", 16, 1, 8);
    Parse("md_TZ_DIAG", 0x500, 0);
    EXPECT_TRUE(EndsWith(Diag("last_tzlog"), "Diag Log :\n[1](42)\n[2](42)\n"));
    EXPECT_EQ(Diag("last_tzlog_parsed"), "[1] MOD started\n[2] MOD started\n");
    EXPECT_EQ(mLog.count(kTag, "The tzlog has no time id"), 0);

    // A ring right behind the magic takes its positions from the magic word:
    // wrapped at 0x6461, next write at 0x747A.
    TzDiag(0x00030001, 2, "", 0, 0, 0);
    Put32(kMinidump, kAt + 28, 4);
    Put32(kMinidump, kAt + 32, 0x8000);
    Put(kMinidump, kAt + 4 + 0x747A - 4, "new\n");
    Put(kMinidump, kAt + 4 + 0x747A, "old\n");
    Parse("md_TZ_DIAG", 0x8004, 0);
    const std::string atStart = Diag("last_tzlog");
    EXPECT_NE(atStart.find("Diag Log :\nold\n"), std::string::npos);
    EXPECT_TRUE(EndsWith(atStart, "new\n"));
}

TEST_F(TzDiagTest, LegacyAreaKeepsTextUpToItsTerminator) {
    TzDiag(0x00020000, 2, std::string("legacy\n\0stale", 13), 0x80, 0, 0);
    Parse("md_TZ_DIAG", 0x500, 0);
    const std::string tzlog = Diag("last_tzlog");
    EXPECT_TRUE(EndsWith(tzlog, "Diag Log :\nlegacy\n")) << tzlog;
}

TEST_F(TzDiagTest, BadMagicOrCountsAreReported) {
    TzDiag(0x00030001, 2, "x\n", 0x80, 0, 2);
    Put32(kMinidump, kAt, 0x12345678);
    Parse("md_TZ_DIAG", 0x500, 0);
    EXPECT_TRUE(mLog.contains(kTag, "tzdiag magic is 0x12345678, not 0x747A6461, wrong return\n"));
    EXPECT_EQ(Diag("last_tzlog"), "");

    // 1000 CPUs and a ring past the area: what fits is shown.
    TzDiag(0x00030001, 1000, "x\n", 0xFFFFFFF0, 0, 2);
    Parse("md_TZ_DIAG", 0x500, 0);
    EXPECT_EQ(mLog.count(kTag, "tzdiag says 1000 cpus"), 1);
    EXPECT_NE(Diag("last_tzlog").find("Diag Log :\nx\n"), std::string::npos);

    // An empty ring is no ring; one of a byte is that byte.
    TzDiag(0x00030001, 2, "y", 0, 0, 0);
    Parse("md_TZ_DIAG", 0x500, 0);
    EXPECT_EQ(mLog.count(kTag, "tzdiag ring at 0x400, 0x0 bytes, outside the area"), 1);
    TzDiag(0x00030001, 2, "y", 1, 0, 1);
    Parse("md_TZ_DIAG", 0x500, 0);
    EXPECT_TRUE(EndsWith(Diag("last_tzlog"), "Diag Log :\ny")) << Diag("last_tzlog");
}

TEST_F(TzDiagTest, TzLogSectionIsCopiedRawAndTranslated) {
    const std::string raw(
            "[5](4\0"
            "2)\n[6](1 2)\0\0",
            19);
    Put(kMinidump, kAt, raw);
    Parse("md_ltz", raw.size(), 1);
    // NUL bytes and all, as the trust zone left it.
    EXPECT_EQ(Diag("last_tzlog_1"), raw);
    // Text after the last newline is not translated; an unknown id keeps the line.
    EXPECT_EQ(Diag("last_tzlog_parsed_1"), "[5] MOD started\n");
    // Both readable by all once written.
    EXPECT_EQ(ModeOf(std::string(kDiag) + "/last_tzlog_1"), 0644u);
    EXPECT_EQ(ModeOf(std::string(kDiag) + "/last_tzlog_parsed_1"), 0644u);

    // A translation that cannot be written does not cost the log itself.
    std::filesystem::create_directories(Host(std::string(kDiag) + "/last_tzlog_parsed"));
    Parse("md_ltz", raw.size(), 0);
    EXPECT_EQ(Diag("last_tzlog"), raw);
    EXPECT_EQ(mLog.count(kTag, "chmod"), 0) << "only opened files are closed";
}

TEST_F(TzDiagTest, TzImemIsAHexDump) {
    Put(kMinidump, kAt, "TZ imem\x01");
    Parse("md_TZ_IMEM", 8, 0);
    EXPECT_EQ(Diag("last_tzlog"),
              "00000000  54 5a 20 69 6d 65 6d 01                          |TZ imem.|\n");
}

// A hypervisor area: a 88-byte header (two CPUs here), the ring behind it.
TEST_F(TzDiagTest, HypervisorHeaderThenItsRingOldestFirstAndNeverNumbered) {
    auto hyp = [&](uint32_t ringOff, uint16_t wrap, uint16_t next) {
        Put32(kMinidump, kAt + 0, 0x6879706D);  // "hypm"
        Put32(kMinidump, kAt + 4, 2);           // cpus
        Put32(kMinidump, kAt + 8, ringOff);
        Put16(kMinidump, kAt + 12, wrap);
        Put16(kMinidump, kAt + 14, next);
        Put32(kMinidump, kAt + 20, 3);  // stage 2 faults
        for (uint32_t cpu = 0; cpu < 2; ++cpu) {
            Put32(kMinidump, kAt + 24 + 8 * cpu, 0x10 + cpu);  // warm boot entries
            Put32(kMinidump, kAt + 28 + 8 * cpu, 0x20 + cpu);  // warm boot exits
        }
    };
    const std::string header =
            "Hyp diag: 2 CPUs, stage 2 faults: 3\n"
            "  CPU #: 0  warm boot entry / exit: 0x10 / 0x20\n"
            "  CPU #: 1  warm boot entry / exit: 0x11 / 0x21\n"
            "Hyp Log :\n";
    // The ring of 16 bytes at 88, wrapped at 6: from there on, then the start.
    hyp(88, 1, 6);
    Put(kMinidump, kAt + 88, "der 2\nnewer 1\nol");
    Parse("md_HYP_DIAG", 88 + 16, 3);
    EXPECT_EQ(Diag("last_hyplog"), header + "newer 1\nolder 2\n");

    // Not wrapped: up to the next write position.
    hyp(88, 0, 12);
    Put(kMinidump, kAt + 88, "hyp says hi\nstale");
    Parse("md_HYP_DIAG", 88 + 64, 3);
    EXPECT_EQ(Diag("last_hyplog"), header + "hyp says hi\n");

    // A ring inside the header or at the very end is outside the area; the
    // header is still written.
    hyp(84, 0, 0);
    Parse("md_HYP_DIAG", 88 + 64, 0);
    EXPECT_EQ(mLog.count(kTag, "hypdiag ring at 0x54 outside the area"), 1);
    EXPECT_EQ(Diag("last_hyplog"), header);
    hyp(88, 0, 0);
    Parse("md_HYP_DIAG", 88, 0);
    EXPECT_EQ(mLog.count(kTag, "hypdiag ring at 0x58 outside the area"), 1);

    // Shorter than the header, or another magic: nothing.
    Parse("md_HYP_DIAG", 87, 0);
    EXPECT_EQ(mLog.count(kTag, "hypdiag area of 87 bytes has no header"), 1);
    Put32(kMinidump, kAt, 0x70797868);
    Parse("md_HYP_DIAG", 88 + 64, 0);
    EXPECT_EQ(mLog.count(kTag, "hypdiag magic is 0x70797868"), 1);
    EXPECT_EQ(Diag("last_hyplog"), "");
}

}  // namespace
}  // namespace zelkor::tessel::testing
