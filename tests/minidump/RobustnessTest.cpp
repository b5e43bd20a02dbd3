// Zeroed, truncated and random partitions, and sizes far beyond memory: the
// run completes, reads nothing outside the partition and allocates little.
#include <android-base/file.h>
#include <sys/ioctl.h>
#include <sys/resource.h>

#include <random>

#include "MinidumpTestSupport.h"
#include "modules/BSPLogProcessor/minidump/SectionStream.h"
#include "modules/BSPLogProcessor/minidump/SectionWriters.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

constexpr const char* kSectionNames[] = {
        "md_KMDT0x110.BIN", "md_kmsg",      "md_pmsg",    "md_cpusys",      "md_TZ_IMEM",
        "md_ltz",           "md_HYP_DIAG",  "md_TZ_DIAG", "md_XBL_LOG",     "md_TZ_AES_KEY",
        "md_encr_key_aes",  "md_TZ_AES_IV", "md_TZ_HMAC", "md_encr_key_iv", "md_encr_key_mac",
        "md_TZ_DUMP",       "md_MDMP_LOG",  "load.cmm",   "md_unknown"};

std::string RandomBytes(size_t len, std::mt19937_64& random) {
    std::string bytes(len, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    return bytes;
}

class RobustnessTest : public MinidumpTest {
  protected:
    // The minidump steps of one boot run, as the run calls them.
    void RunSteps() {
        reset_minidump_state();
        time_init();
        delete_log();
        RepairFailedDump();
        int result = handle_mini_lastlog_header();
        if (result == 1) {
            handle_minidump_partition(0, 0);
            compress_minidump();
        }
        if (result >= 0) handle_stored_minidumps();
    }
};

TEST_F(RobustnessTest, ZeroedAndTruncatedPartitionsComplete) {
    MakeImage(kBlackbox, 0x4000000);
    MakeImage(kRawdump, 0x10000);
    RunSteps();
    EXPECT_EQ(handle_mini_lastlog_header(), 0) << "the repair leaves a history behind";
    // ... behind the default table header, which only the header pass stamps.
    EXPECT_EQ(GetLE(kBlackbox, 0, 8), 0u);
    for (uint64_t size : {0, 7, 36, 60, 100, 1100}) {
        MakeImage(kBlackbox, size);
        if (size >= 36) {
            // The dump area begins 20 bytes before the end: its header is cut.
            Put64(kBlackbox, 0, 0x56775AF41BCDE0F0ull);
            Put32(kBlackbox, 24, size - 20);
            if (size - 20 >= 36) Put(kBlackbox, size - 20, "Raw_Dmp!");
        }
        RunSteps();
        EXPECT_EQ(handle_mini_lastlog_header(), -1) << size;
    }
    reset_minidump_state();
    std::filesystem::remove(Host(kBlackbox));
    MakeImage(kMinidump, 0x100000);
    RunSteps();
}

TEST_F(RobustnessTest, RandomPartitionsComplete) {
    constexpr uint64_t kSize = 0x40000;
    int filesWritten = 0;
    for (uint64_t seed = 1; seed <= 40; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937_64 random(seed);
        MakeImage(kBlackbox, 0);
        Put(kBlackbox, 0, RandomBytes(kSize, random));
        if (seed % 4 != 0) {
            // Plant the magics so that the run gets past them into the sections.
            const uint64_t area = random() % 0x8000;
            Put64(kBlackbox, 0, 0x56775AF41BCDE0F0ull);
            Put32(kBlackbox, 24, area);
            LastLog(kBlackbox, area, seed % 2 ? "Raw_Dmp!" : "cigamgol", random() % 12,
                    random() % 12, 0x4000 + random() % 0x1000, 0);
            Put64(kBlackbox, area + 16, 0x400 + random() % 0x100);
            for (uint64_t n = 0; n < 10; ++n) {
                uint64_t slot = area + 0x400 + n * 0x4000;
                if (slot + 0x1000 > kSize) break;
                DumpHeader(kBlackbox, slot, 0x2000, random() % 30);
                for (int i = 0; i < 20; ++i) {
                    SectionHeader(kBlackbox, slot + 88, i, 1,
                                  kSectionNames[random() % std::size(kSectionNames)],
                                  random() % (kSize + 0x100),
                                  random() % 3 ? random() % 0x2000 : random());
                }
            }
        }
        RunSteps();
        filesWritten += std::distance(std::filesystem::directory_iterator(Host(kDiag)),
                                      std::filesystem::directory_iterator());
    }
    // The planted sections, random bytes at random places under every name,
    // reached the writers.
    EXPECT_GT(filesWritten, 0);
}

void ParseUnderLimit(int fd, uint64_t at, uint64_t size) {
    struct rlimit limit = {512u << 20, 512u << 20};
    setrlimit(RLIMIT_AS, &limit);
    for (const char* name :
         {"md_kmsg", "md_KMDT0x110.BIN", "md_TZ_DIAG", "md_HYP_DIAG", "md_TZ_IMEM"}) {
        parse_log(fd, name, at, size, 0);
    }
    parse_log(fd, "md_pmsg", at + 0x10000, size - 0x10000, 0);
    // Output that cannot be written is dropped, not held: a gigabyte to a
    // full disk.
    OutBuffer full(open("/dev/full", O_WRONLY | O_CLOEXEC));
    const std::string piece(1 << 20, 'x');
    for (int i = 0; i < 1024; ++i) full.Append(piece);
    exit(0);
}

TEST_F(RobustnessTest, HugeSectionsAndUnwritableOutputTakeBoundedMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "an address-space limit does not mix with a sanitizer's shadow memory";
#endif
    constexpr uint64_t k4G = uint64_t(1) << 32;
    constexpr uint64_t kAt = 0x100000;
    MakeImage(kMinidump, kAt + k4G);
    // A trust-zone area whose ring claims 4 GiB, and a pstore header that
    // bounds the pmsg ring to 100 bytes.
    PutWords(kMinidump, kAt, {0x747A6461, 0x00030000});
    PutWords(kMinidump, kAt + 28, {0x400, 0xFFFFFFFF});
    Put32(kMinidump, kAt + 0x3FE, 16);
    Put(kMinidump, kAt + 0x10000, "DBGC" + LittleEndian(0, 4) + LittleEndian(100, 4));
    // In a child with 512 MiB of address space: a 4 GiB allocation fails there.
    EXPECT_EXIT(ParseUnderLimit(OpenImage(kMinidump), kAt, k4G), ::testing::ExitedWithCode(0), "");
}

// What the writers produce reaches the file in pieces as it grows, and a
// failed write is logged once.
TEST_F(RobustnessTest, OutputGoesOutAsItGrowsAndAFailedWriteDropsTheRest) {
    int pipeFds[2];
    ASSERT_EQ(pipe2(pipeFds, O_CLOEXEC), 0);
    ASSERT_GE(fcntl(pipeFds[1], F_SETPIPE_SZ, 1 << 20), 1 << 20);
    {
        OutBuffer out(pipeFds[1]);
        out.Append(std::string(100, 'a'));
        int ready = -1;
        ASSERT_EQ(ioctl(pipeFds[0], FIONREAD, &ready), 0);
        EXPECT_EQ(ready, 0) << "a small piece waits";
        out.Append(std::string(64 << 10, 'b'));
        ASSERT_EQ(ioctl(pipeFds[0], FIONREAD, &ready), 0);
        EXPECT_EQ(ready, 100 + (64 << 10));
        // Formatted lines of any length, around the size of the format buffer.
        for (size_t len : {1023, 1024, 1025, 5000})
            out.Printf("%s|", std::string(len, 'c').c_str());
    }
    close(pipeFds[1]);
    std::string written;
    ASSERT_TRUE(android::base::ReadFdToString(pipeFds[0], &written));
    close(pipeFds[0]);
    std::string expected = std::string(100, 'a') + std::string(64 << 10, 'b');
    for (size_t len : {1023, 1024, 1025, 5000}) expected += std::string(len, 'c') + "|";
    EXPECT_TRUE(written == expected) << written.size() << " bytes against " << expected.size();

    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    {
        OutBuffer out(full);
        for (int i = 0; i < 4; ++i) out.Append(std::string(64 << 10, 'x'));
    }
    close(full);
    EXPECT_EQ(mLog.count(kTag, "write last log file fail 28"), 1);
}

// A partition read that fails inside a section (an I/O error on the flash) is
// an error the writers log, not the end of the section's data.
TEST_F(RobustnessTest, UnreadablePartitionIsLoggedAndWritesNothing) {
    // Written but not readable through this descriptor: every read fails
    // with EBADF, as a failing flash read would fail with EIO.
    MakeImage(kMinidump, 4096);
    const int in = open(Host(kMinidump).c_str(), O_WRONLY | O_CLOEXEC);
    const int out = open(Host(Diag("out")).c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(in, 0);
    ASSERT_GE(out, 0);
    const Section section{in, "md_cpusys", 0, 4096};
    WriteText(section, out);
    WriteHexDump(section, out);
    close(in);
    close(out);
    EXPECT_EQ(mLog.count(kTag, "read section fail 9(Bad file descriptor)"), 2);
    EXPECT_EQ(DiagText("out"), "");
}

}  // namespace
}  // namespace zelkor::tessel::testing
