// The trust-zone ("md_TZ_DIAG", "md_ltz", "md_TZ_IMEM"), hypervisor
// ("md_HYP_DIAG") and log-key sections, and the trust-zone log translation
// with "/vendor/etc/tzlog.dict".
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
        Dict("42:MOD:started\n7:MOD:value %d of %d\n");
    }
    void Dict(const std::string& text) {
        std::filesystem::create_directories(Host("/vendor/etc"));
        std::ofstream(Host("/vendor/etc/tzlog.dict"), std::ios::binary) << text;
    }
    // A diagnostic area of `version` with `cpus` CPUs; the ring of `ringLen`
    // bytes at 0x400 holds `ring`, wrapped `wrap` times, written from `next` on.
    void TzDiag(uint32_t version, uint32_t cpus, const std::string& ring, uint32_t ringLen,
                uint16_t wrap, uint16_t next) {
        // Magic, version, CPUs, then the offsets of the vmid table, the boot
        // info (8 x 24 bytes), the reset info, the interrupts and the ring.
        PutWords(kMinidump, kAt, {0x747A6461, version, cpus, 40, 168, 360, 428, 0x400, ringLen});
        PutWords(kMinidump, kAt + 360, {1, 2, 99});  // SECURE_WDT twice; no such reason
        Put16(kMinidump, kAt + 0x3FC, wrap);
        Put16(kMinidump, kAt + 0x3FE, next);
        Put(kMinidump, kAt + 0x400, ring);
    }
    void Parse(const char* name, uint64_t size, uint32_t late = 0) {
        ParseAt(kMinidump, name, kAt, size, late);
    }
    // The tail of "last_tzlog" from its "Diag Log :" line on.
    std::string DiagLog(const std::string& file = "last_tzlog") const {
        const std::string tzlog = DiagText(file);
        const size_t at = tzlog.find("Diag Log :\n");
        return at == std::string::npos ? "<no log in: " + tzlog + ">" : tzlog.substr(at + 11);
    }
};

// The ring oldest first in the numbered "last_tzlog", translated into the one
// unnumbered "last_tzlog_parsed".
TEST_F(TzDiagTest, RingIsCopiedOldestFirstAndTranslated) {
    const std::string lines = "[1.0](42)\n[2.0](7 3 9)\nno time\n";
    struct Case {
        uint32_t version, cpus;
        std::string ring;
        uint32_t ringLen;
        uint16_t wrap, next;
        std::string log, parsed;
    } cases[] = {
            {0x30001, 2, lines, 0x80, 0, 31, lines, "[1.0] MOD started\n[2.0] MODvalue 3 of 9\n"},
            // Wrapped: from the next write position on, then the start; each
            // line translated once.
            {0x30001, 2, "EFGHABCD", 8, 1, 4, "ABCDEFGH", ""},
            {0x30001, 2, "[2](42)\n[1](42)\n", 16, 1, 8, "[1](42)\n[2](42)\n",
             "[1] MOD started\n[2] MOD started\n"},
            // A legacy area keeps its text up to the terminator.
            {0x20000, 2, std::string("legacy\n\0stale", 13), 0x80, 0, 0, "legacy\n", ""},
            // A ring of one byte; 1000 CPUs and a ring past the area: what fits.
            {0x30001, 2, "y", 1, 0, 1, "y", ""},
            {0x30001, 1000, "x\n", 0xFFFFFFF0, 0, 2, "x\n", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.log);
        TzDiag(c.version, c.cpus, c.ring, c.ringLen, c.wrap, c.next);
        Parse("md_TZ_DIAG", 0x500, 2);
        EXPECT_TRUE(DiagLog("last_tzlog_2") == c.log) << DiagLog("last_tzlog_2").size();
        EXPECT_EQ(DiagText("last_tzlog_parsed"), c.parsed);
    }
    EXPECT_FALSE(Exists(Diag("last_tzlog_parsed_2")));
    EXPECT_EQ(mLog.count(kTag, "tzdiag says 1000 cpus"), 1);
    EXPECT_EQ(ModeOf("/vendor/etc/tzlog.dict"), 0640u);

    // A ring right behind the magic takes its positions from the magic word:
    // wrapped at 0x6461, next write at 0x747A.
    TzDiag(0x00030001, 2, "", 0, 0, 0);
    PutWords(kMinidump, kAt + 28, {4, 0x8000});
    Put(kMinidump, kAt + 4 + 0x747A - 4, "new\nold\n");
    Parse("md_TZ_DIAG", 0x8004);
    const std::string atStart = DiagLog();
    EXPECT_EQ(atStart.substr(0, 4), "old\n");
    EXPECT_EQ(atStart.substr(atStart.size() - 4), "new\n");
}

// Boot status, then reset status. The table has room for 8 CPUs: 192 bytes to
// the reset info make the 24-byte 32-bit form, 320 bytes the 40-byte 64-bit one.
TEST_F(TzDiagTest, BootStatusInBothFormsThenResetStatus) {
    using Form = std::pair<uint32_t, std::string>;  // boot info offset, CPU 1's jump address
    for (const auto& [bootOff, jump] : {Form{168, "0x80001001"}, Form{40, "0x1234567800000001"}}) {
        const bool wide = bootOff == 40;
        TzDiag(0x00030001, 2, "x\n", 0x80, 0, 2);
        Put32(kMinidump, kAt + 16, bootOff);
        // CPU 0 all zero; CPU 1's counters and jump address.
        const uint64_t cpu1 = kAt + bootOff + (wide ? 40 : 24);
        PutWords(kMinidump, cpu1, {0x11, 0x21, 0x31, 0x41});
        if (wide) {
            Put64(kMinidump, cpu1 + 24, 0x1234567800000001ull);
        } else {
            Put32(kMinidump, cpu1 + 16, 0x80001001);
        }
        Parse("md_TZ_DIAG", 0x500);
        EXPECT_EQ(DiagText("last_tzlog"),
                  "TZ diag version 0x30001, 2 CPUs\nBoot Status :\n"
                  "  CPU #: 0\n  Warm boot jump address    : 0x0\n"
                  "  Warm boot entry / exit    : 0x0 / 0x0\n"
                  "  Power collapse entry / exit: 0x0 / 0x0\n"
                  "  CPU #: 1\n  Warm boot jump address    : " +
                          jump +
                          "\n  Warm boot entry / exit    : 0x11 / 0x21\n"
                          "  Power collapse entry / exit: 0x31 / 0x41\n"
                          "Reset Status :\n  CPU #: 0\n  Reset Type Value          : 1\n"
                          "   Reset Type (reason)       : SECURE_WDT\n"
                          "  Reset counter             : 0x2\n"
                          "  CPU #: 1\n  Reset Type Value          : 99\n"
                          "   Reset Type (reason)       : UNKNOWN\n"
                          "  Reset counter             : 0x0\n"
                          "Diag Log :\nx\n");
    }
}

TEST_F(TzDiagTest, BadMagicOrEmptyRingIsReported) {
    TzDiag(0x00030001, 2, "x\n", 0x80, 0, 2);
    Put32(kMinidump, kAt, 0x12345678);
    Parse("md_TZ_DIAG", 0x500);
    EXPECT_TRUE(mLog.contains(kTag, "tzdiag magic is 0x12345678, not 0x747A6461, wrong return\n"));
    EXPECT_EQ(DiagText("last_tzlog"), "");

    TzDiag(0x00030001, 2, "y", 0, 0, 0);
    Parse("md_TZ_DIAG", 0x500);
    EXPECT_EQ(mLog.count(kTag, "tzdiag ring at 0x400, 0x0 bytes, outside the area"), 1);
    EXPECT_EQ(DiagLog(), "");
}

TEST_F(TzDiagTest, TzLogSectionIsCopiedRawAndTranslatedAndTzImemIsAHexDump) {
    const std::string raw(
            "[5](4\0"
            "2)\n[6](1 2)\0\0",
            19);
    Put(kMinidump, kAt, raw);
    Parse("md_ltz", raw.size(), 1);
    // NUL bytes and all, as the trust zone left it.
    EXPECT_TRUE(DiagText("last_tzlog_1") == raw) << DiagText("last_tzlog_1").size();
    // Text after the last newline is not translated; an unknown id keeps the line.
    EXPECT_EQ(DiagText("last_tzlog_parsed_1"), "[5] MOD started\n");
    // Both readable by all once written.
    EXPECT_EQ(ModeOf(Diag("last_tzlog_1")), 0644u);
    EXPECT_EQ(ModeOf(Diag("last_tzlog_parsed_1")), 0644u);

    // A translation that cannot be written does not cost the log itself.
    std::filesystem::create_directories(Host(Diag("last_tzlog_parsed")));
    Parse("md_ltz", raw.size());
    EXPECT_TRUE(DiagText("last_tzlog") == raw) << DiagText("last_tzlog").size();
    EXPECT_EQ(mLog.count(kTag, "chmod"), 0) << "only opened files are closed";
    // A log that cannot be made is left out: nothing is written to or closed.
    std::filesystem::create_directories(Host(Diag("last_tzlog_3")));
    for (const char* section : {"md_ltz", "md_TZ_IMEM"}) Parse(section, raw.size(), 3);
    EXPECT_EQ(mLog.count(kTag, "open /data/vendor/diag/last_tzlog_3 fail 21"), 2);
    EXPECT_EQ(mLog.count(kTag, "chmod") + mLog.count(kTag, "write last log file fail"), 0);

    Put(kMinidump, kAt, "TZ imem\x01");
    Parse("md_TZ_IMEM", 8);
    EXPECT_EQ(DiagText("last_tzlog"),
              "00000000  54 5a 20 69 6d 65 6d 01                          |TZ imem.|\n");
}

// A hypervisor area: a 88-byte header (two CPUs here), the ring behind it,
// always written to the unnumbered "last_hyplog".
TEST_F(TzDiagTest, HypervisorHeaderThenItsRingOldestFirst) {
    const std::string header =
            "Hyp diag: 2 CPUs, stage 2 faults: 3\n"
            "  CPU #: 0  warm boot entry / exit: 0x10 / 0x20\n"
            "  CPU #: 1  warm boot entry / exit: 0x11 / 0x21\n"
            "Hyp Log :\n";
    struct Case {
        uint32_t ringOff;
        uint16_t wrap, next;
        std::string ring;
        uint64_t size;
        std::string log, error;
    } cases[] = {
            // The ring of 16 bytes at 88, wrapped at 6: from there on, then the start.
            {88, 1, 6, "der 2\nnewer 1\nol", 88 + 16, "newer 1\nolder 2\n", ""},
            // Not wrapped: up to the next write position.
            {88, 0, 12, "hyp says hi\nstale", 88 + 64, "hyp says hi\n", ""},
            // A ring inside the header or at the very end is outside the area.
            {84, 0, 0, "", 88 + 64, "", "hypdiag ring at 0x54 outside the area"},
            {88, 0, 0, "", 88, "", "hypdiag ring at 0x58 outside the area"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.log + c.error);
        PutWords(kMinidump, kAt, {0x6879706D, 2, c.ringOff});  // "hypm", CPUs, ring
        Put16(kMinidump, kAt + 12, c.wrap);
        Put16(kMinidump, kAt + 14, c.next);
        // Stage 2 faults; per CPU warm boot entries and exits.
        PutWords(kMinidump, kAt + 20, {3, 0x10, 0x20, 0x11, 0x21});
        Put(kMinidump, kAt + 88, c.ring);
        Parse("md_HYP_DIAG", c.size, 3);
        EXPECT_EQ(DiagText("last_hyplog"), header + c.log);
        if (!c.error.empty()) {
            EXPECT_EQ(mLog.count(kTag, c.error), 1);
        }
    }

    // Shorter than the header, or another magic: nothing.
    Parse("md_HYP_DIAG", 87);
    EXPECT_EQ(mLog.count(kTag, "hypdiag area of 87 bytes has no header"), 1);
    Put32(kMinidump, kAt, 0x70797868);
    Parse("md_HYP_DIAG", 88 + 64);
    EXPECT_EQ(mLog.count(kTag, "hypdiag magic is 0x70797868"), 1);
    EXPECT_EQ(DiagText("last_hyplog"), "");
}

// The trust zone's log-key regions gathered in "last_tzlog_key".
TEST_F(TzDiagTest, KeyRegionsStartOrAppendToTheKeyFileAndAnEmptyOneCleansIt) {
    Put(kMinidump, 0x100, std::string("KEY\0\x01", 5));
    Put(kMinidump, 0x200, "IV");
    Put(kMinidump, 0x300, "MAC");
    const std::string keyFile = Diag("last_tzlog_key");

    ParseAt(kMinidump, "md_encr_key_aes", 0x100, 3, 4);
    ParseAt(kMinidump, "md_encr_key_iv", 0x200, 0, 4);
    EXPECT_EQ(ReadFile(keyFile + "_4"), "");
    EXPECT_EQ(ModeOf(keyFile + "_4"), 0644u);
    EXPECT_TRUE(mLog.contains(kTag, "no tz log key, clean /data/vendor/diag/last_tzlog_key_4 \n"));
    // Appending regions of other names, and one that starts a file from nothing.
    ParseAt(kMinidump, "load.cmm", 0x300, 3, 4);
    ParseAt(kMinidump, "md_MDMP_LOG", 0x200, 2, 4);
    EXPECT_EQ(ReadFile(keyFile + "_4"),
              "tz log key region load.cmm:\nMACtz log key region md_MDMP_LOG:\nIV");
    EXPECT_FALSE(Exists(keyFile));

    // The key region starts the file, whatever an earlier dump left.
    std::ofstream(Host(keyFile)) << "left from an earlier dump\n";
    ParseAt(kMinidump, "md_TZ_AES_KEY", 0x100, 5);
    ParseAt(kMinidump, "md_TZ_AES_IV", 0x200, 2);
    ParseAt(kMinidump, "md_TZ_HMAC", 0x300, 3);
    EXPECT_TRUE(ReadFile(keyFile) == "tz log key region md_TZ_AES_KEY:\n" +
                                             std::string("KEY\0\x01", 5) +
                                             "tz log key region md_TZ_AES_IV:\nIV"
                                             "tz log key region md_TZ_HMAC:\nMAC")
            << ReadFile(keyFile).size();
    EXPECT_EQ(ModeOf(keyFile), 0644u);
}

class TzLogDictTest : public TzDiagTest {
  protected:
    std::string Translate(const std::string& text) {
        int fd = open(Host(Diag("out")).c_str(), O_RDWR | O_CREAT | O_TRUNC, 0600);
        EXPECT_GE(fd, 0);
        translate_tzlog(fd, text.data(), text.size());
        close(fd);
        return DiagText("out");
    }
};

TEST_F(TzLogDictTest, LinesAreExpandedWithTheDictionary) {
    Dict("42:MOD:started\n7:MOD:value %d of %d\n7:OTHER:never used\nno colon here\n"
         "9:only one\n5:BARE:\n3:M:%d|%d|%d tail\n1:A:one\n11:L:" +
         std::string(490, 'f') + "\n");
    ASSERT_EQ(load_tzlog_dict(), 0);
    EXPECT_EQ(Translate("[12.3](42)\n"), "[12.3] MOD started\n");
    // The first entry of an id wins; no blank between module and format.
    EXPECT_EQ(Translate("[1](7 3 9)\n"), "[1] MODvalue 3 of 9\n");
    // A format that is only the newline: module, a blank, the newline.
    EXPECT_EQ(Translate("[2](5)\n"), "[2] BARE\n");
    // Fewer arguments than placeholders: the format stops after the last one,
    // whose final character gives way to the newline.
    EXPECT_EQ(Translate("[3](3 ab cd)\n"), "[3] Mab|cd\n");
    // More arguments than placeholders: the output ends with the last one
    // used, and its final character gives way to the newline.
    EXPECT_EQ(Translate("[4](7 1 2 3 4)\n"), "[4] MODvalue 1 of \n");
    // Unknown ids, with and without arguments, keep the whole line.
    EXPECT_EQ(Translate("[5](99)\n[6](99 1)\n"), "[5] [5](99\n[6] [6](99 1\n");
    // Ids from lines with fewer than two ':' are not in the dictionary.
    EXPECT_EQ(Translate("[7](9)\n[8](no colon here)\n"), "[7] [7](9\n[8] [8](no colon here\n");
    // Lines without a time, an id or a newline are skipped.
    EXPECT_EQ(Translate("no brackets (1)\n[1] no paren\n[2](1\n[3](1)\n[4](1)"), "[3] A one\n");
    EXPECT_EQ(mLog.count(kTag, "The tzlog has no time id in this line."), 1);
    EXPECT_EQ(mLog.count(kTag, "The tzlog has no fatmat in this line."), 1);
    EXPECT_EQ(Translate(""), "");

    // Long lines are cut at the line buffer. No placeholder: the module's
    // last letter gives way to the newline; and an unknown id with a
    // 9000-character line is cut to 5120 characters.
    std::string args;
    for (int i = 0; i < 1000; ++i) args += " 12345678";
    EXPECT_EQ(Translate("[1](11" + args + ")\n"), "[1] \n");
    const std::string cut = Translate("[1](2" + args + ")\n");
    EXPECT_EQ(cut.size(), 5120u);
    EXPECT_EQ(cut.back(), '\n');
}

TEST_F(TzLogDictTest, MissingDictionaryKeepsEveryLine) {
    std::filesystem::remove(Host("/vendor/etc/tzlog.dict"));
    EXPECT_EQ(load_tzlog_dict(), -1);
    EXPECT_EQ(Translate("[1](42)\n"), "[1] [1](42\n");
    // A dictionary installed later is read on the next explicit load only.
    Dict("42:MOD:started\n");
    ensure_tzlog_dict();
    EXPECT_EQ(Translate("[1](42)\n"), "[1] [1](42\n");
    clear_tzlog_dict();
    ensure_tzlog_dict();
    EXPECT_EQ(Translate("[1](42)\n"), "[1] MOD started\n");
    // An explicit load replaces what was loaded.
    Dict("42:NEW:meaning\n");
    ASSERT_EQ(load_tzlog_dict(), 0);
    EXPECT_EQ(Translate("[1](42)\n"), "[1] NEW meaning\n");
}

}  // namespace
}  // namespace zelkor::tessel::testing
