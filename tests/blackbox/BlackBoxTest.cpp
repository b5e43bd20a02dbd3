// The daemon's blackbox partition writer: the header pass, the dotting ring
// and the kernel boot log copy.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cerrno>
#include <cstdio>
#include <fstream>

#include "BlackBoxFixture.h"
#include "LogCapture.h"
#include "modules/blackbox/BlackBoxDotting.h"
#include "modules/blackbox/BlackBoxHwinfo.h"
#include "modules/blackbox/BlackBoxKmsg.h"
#include "platform/Properties.h"

namespace zelkor::tessel::testing {
namespace {

using HeaderPassTest = BlackBoxTest;

// The layout a boot loader reads, spelled out byte by byte.
TEST_F(HeaderPassTest, ZeroedPartitionGetsEveryDefaultHeader) {
    TestImage expected(mRoot.path() + "/expected.img", kImageSize);
    expected.PutU64(0x0, 0x56775AF41BCDE0F0);
    expected.PutWords(0x8, {0x1000, 0x400, 1, 0x400, 0x3000000, 0, 0x9800000});
    expected.PutU64(0x400, 0xE99BB480DD25E1F0);
    expected.PutWords(0x408, {0x1000, 0x400, 0x1000, 1, 0x800000});
    expected.PutU64(kSlot1, 0xB5C4D2A5E936DB79);
    expected.PutWords(kSlot1 + 8, {0x1000, 0x1000, 0x1000, 0x1000, 0x4000, 0x7000, 0xA000, 0x12000,
                                   0x112000, 0x312000, 0x512000});
    expected.PutLabel(kSlot1 + 52, "uefi_log");
    expected.PutLabel(kSlot1 + 72, "dotting");
    expected.PutU64(kSlot1 + 92, 0x7C1C918ADF6BC8CC);
    expected.PutU32(kSlot1 + 100, 4096);
    expected.PutWords(kSlot1 + 116, {0xFFFFFFFF, 512, 3000});  // ring_start .. boot_dotting_max
    expected.PutU64(kControl, 0x9DBFA34954526BEC);
    expected.PutWords(kControl + 8, {0x1000, 0x1000, 0x9801000, 0x9881000, 0x9882000});
    ASSERT_TRUE(expected.ok());
    MakeImage();

    EXPECT_EQ(RunPass(), 140);

    for (uint64_t offset : {uint64_t(0), uint64_t(0x400), kSlot1, kControl}) {
        EXPECT_TRUE(mImage->Bytes(offset, 140) == expected.Bytes(offset, 140))
                << std::hex << offset;
    }
    EXPECT_EQ(mImage->size(), kImageSize);
    EXPECT_TRUE(Contains(mPrinted,
                         "log_table_header: header info before write: version = 4096, "
                         "minidump_is_valid = 0x0, boot_index = 1 \n"));
    EXPECT_TRUE(Contains(mPrinted,
                         "log_content_header: header info before write: version = "
                         "0x1000, dump_count = 1 \n"));
    EXPECT_EQ(platform::GetProperty("vendor.blackbox.boot_index", ""), "1");
}

TEST_F(HeaderPassTest, ValidHeadersAreKeptAndDumpCountPicksTheSlot) {
    TestImage& image = MakeImage();
    image.PutDefaultHeaders(3);
    image.PutU32(0x10, 4000000000u);        // boot_index, published unsigned
    image.PutU32(0x1001000 + 36, 0x22000);  // kmsg_offset
    image.PutU64(0x1001000 + 104, 77);      // dotting_count
    const std::string before = image.Bytes(0, 0x2000) + image.Bytes(0x1001000, 140);

    EXPECT_EQ(RunPass(), 140);

    EXPECT_EQ(mHeaders.slot_offset(), 0x1001000);
    EXPECT_EQ(mHeaders.log.kmsg_offset, 0x22000u);
    EXPECT_EQ(mHeaders.log.dotting_count, 77u);
    EXPECT_TRUE(image.Bytes(0, 0x2000) + image.Bytes(0x1001000, 140) == before) << "rewritten";
    EXPECT_EQ(platform::GetProperty("vendor.blackbox.boot_index", ""), "4000000000");
}

TEST_F(HeaderPassTest, BadDottingMagicIsRepairedJustPastTheHeader) {
    TestImage& image = MakeImage();
    image.PutDefaultHeaders();
    image.PutU64(kSlot1 + 92, 0x1111111111111111);              // dotting_magic
    image.PutU64(kSlot1 + 104, 55);                             // dotting_count
    image.PutWords(kSlot1 + 116, {100, 512, 3000, 500, 0, 1});  // ring_start .. dump_process_fail
    const std::string slotBefore = image.Bytes(kSlot1, 140);
    TestImage expected(mRoot.path() + "/expected.img", 140);
    expected.PutDefaultSlotHeader(0);
    expected.PutU32(136, 1);  // dump_process_fail is no dotting field

    EXPECT_EQ(RunPass(), 140);

    EXPECT_TRUE(image.Bytes(kSlot1, 140) == slotBefore) << "the slot start is not touched";
    EXPECT_TRUE(image.Bytes(kSlot1 + 140, 140) == expected.Bytes(0, 140));
    EXPECT_EQ(mHeaders.log.ring_start, -1);
    EXPECT_EQ(mHeaders.log.dotting_count, 0u);
}

TEST_F(HeaderPassTest, UnreachableHeadersAreReportedAndNothingWrittenOutside) {
    LogCapture log;
    TestImage& image = MakeImage(kSlot1 + 60);
    EXPECT_EQ(RunPass(), -1);
    EXPECT_EQ(image.size(), kSlot1 + 60);
    EXPECT_EQ(image.U64(0x400), 0xE99BB480DD25E1F0u) << "headers inside the image are stamped";
    EXPECT_TRUE(image.Bytes(kSlot1, 60) == std::string(60, '\0'));
    EXPECT_TRUE(Contains(mPrinted, "Read log_content_header error!!!\n"));
    EXPECT_TRUE(Contains(mPrinted, "Read control_content_header error!!!\n"));
    EXPECT_EQ(log.count(kTag, "write black_box_log_header failed 28(No space left on device)"), 1);
    EXPECT_EQ(log.count(kTag, "write control_content_header failed 28("), 1);

    MakeImage(0);
    EXPECT_EQ(RunPass(), -1);
    EXPECT_TRUE(Contains(mPrinted, "Read log_table_header error!!!\n"));
    EXPECT_EQ(mImage->size(), 0u);

    // Slot 0 lies before the partition: 0x1000 - 0x800000 in 32 bits, sign-extended.
    MakeImage().PutDefaultHeaders(0);
    mHeaders = {};  // a short read keeps what the buffers held
    const std::string start = mImage->Bytes(0, 0x2000);
    EXPECT_EQ(RunPass(), -1);
    EXPECT_EQ(mHeaders.slot_offset(), -0x7FF000);
    EXPECT_TRUE(mImage->Bytes(0, 0x2000) == start);
    EXPECT_EQ(log.count(kTag, "write black_box_log_header failed 22(Invalid argument)"), 1);
}

TEST_F(HeaderPassTest, ReadOnlyPassRepairsInMemoryOnly) {
    LogCapture log;
    TestImage& image = MakeImage(kSlot1 + 10);
    EXPECT_EQ(RunPass(blackbox::HeaderPassMode::kReadOnly), -1);

    EXPECT_TRUE(image.Bytes(0, kSlot1 + 10) == std::string(kSlot1 + 10, '\0'));
    EXPECT_EQ(mHeaders.table.magic, 0x56775AF41BCDE0F0u);
    EXPECT_EQ(mHeaders.control.hwinfo_offset, 0x9882000u);
    EXPECT_STREQ(mHeaders.log.cur_name, "boot_kmesg");
    EXPECT_STREQ(mHeaders.log.prev_name, "uefi_log");
    EXPECT_EQ(platform::GetProperty("vendor.blackbox.boot_index", "unset"), "unset");
    bool logged = false;
    for (const auto& line : log.all()) logged |= line.message == "Read log_header error!!!";
    EXPECT_TRUE(logged);
}

TEST_F(HeaderPassTest, HardwareInfoReaderFallsBackWithoutWriting) {
    TestImage& image = MakeImage(0x4000);
    int fd = open(image.path().c_str(), O_RDONLY | O_CLOEXEC);
    blackbox::HwinfoLocation where = blackbox::read_hwinfo_location(fd);
    EXPECT_FALSE(where.table_valid);
    EXPECT_TRUE(where.control_short_read) << "0x9800000 is past this image";
    EXPECT_EQ(where.control_content_offset, 0x9800000u);
    EXPECT_EQ(where.boot_index, 1u);
    EXPECT_EQ(where.hwinfo_offset, 0x9882000u);

    image.PutU64(0, 0x56775AF41BCDE0F0);
    image.PutWords(0x10, {9, 0, 0, 0, 0x2000});  // boot_index .. control_content_offset
    image.PutU64(0x2000, 0x9DBFA34954526BEC);
    image.PutU32(0x2000 + 24, 0x3000);  // hwinfo_offset
    where = blackbox::read_hwinfo_location(fd);
    EXPECT_TRUE(where.table_valid && where.control_valid);
    EXPECT_EQ(where.boot_index, 9u);
    EXPECT_EQ(where.hwinfo_offset, 0x3000u);

    image.PutU64(0x2000, 0);
    where = blackbox::read_hwinfo_location(fd);
    EXPECT_EQ(where.hwinfo_offset, 0x9882000u);
    EXPECT_EQ(image.U64(0x2000), 0u);
    close(fd);
}

class DottingTest : public BlackBoxTest {
  protected:
    static constexpr uint64_t kArea = kSlot1 + kDottingArea;
    static constexpr uint64_t kRingStart = kSlot1 + 116;
    static constexpr uint64_t kWriteOffset = kSlot1 + 128;

    void SetUp() override {
        BlackBoxTest::SetUp();
        MakeDefaultImage();
    }
    // Ring mode at the given offsets, after record 9.
    void StartRing(uint32_t ring_start, uint32_t write_offset) {
        mImage->PutU32(kRingStart, ring_start);
        mImage->PutU32(kWriteOffset, write_offset);
        mImage->PutU64(kSlot1 + 104, 9);
        RunPass();
    }
    // One record with the next index, at uptime mUptime (or a failing clock).
    ssize_t Dot(const std::string& record) {
        return Printing([&] {
            int fd = open(mImage->path().c_str(), O_RDWR | O_CLOEXEC);
            ssize_t result = blackbox::write_black_box_dotting(
                    fd, &mHeaders, record, blackbox::next_dotting_index(mHeaders.log.dotting_count),
                    [this](struct sysinfo* info) {
                        errno = mUptimeError;
                        info->uptime = mUptime;
                        return mUptimeError != 0 ? -1 : 0;
                    });
            close(fd);
            return result;
        });
    }

    long mUptime = 30;
    int mUptimeError = 0;
};

TEST_F(DottingTest, BootPhaseAppendsFromTheAreaStart) {
    LogCapture log;
    mUptime = 100;
    for (const std::string& record :
         {std::string("first record\n"), std::string("second\n"), std::string(600, 'x')}) {
        EXPECT_EQ(Dot(record), 140);
        EXPECT_EQ(mPrinted, "runtime:100\n");
    }

    EXPECT_EQ(mImage->Bytes(kArea, 20), "first record\nsecond\n");
    EXPECT_EQ(mImage->Bytes(kArea + 20, 512), std::string(511, 'x') + '\0') << "cut to 511";
    EXPECT_EQ(mImage->U32(kWriteOffset), 20u + 511u);
    EXPECT_EQ(mImage->U32(kRingStart), 0xFFFFFFFFu) << "boot phase still open";
    EXPECT_EQ(mImage->U64(kSlot1 + 104), 3u);
    EXPECT_TRUE(log.contains(kTag, "blackbox is in or at boot 100s, write 13 bytes.\n"));
}

TEST_F(DottingTest, BootPhaseClosesAtUptime101AtBootDottingMaxOrWithoutClock) {
    const struct {
        long uptime;
        int error;
        uint32_t boot_dotting_max;
        const char* printed;
    } cases[] = {
            {101, 0, 3000, "runtime:101\n"},
            {30, 0, 2, "runtime:30\n"},
            {30, EFAULT, 3000, "Failed to get sysinfo, errno:14, reason:Bad address\n"},
    };
    for (const auto& c : cases) {
        MakeImage().PutDefaultHeaders();
        mImage->PutU64(kSlot1 + 104, 1);  // the next record is number 2
        mImage->PutU32(kSlot1 + 124, c.boot_dotting_max);
        RunPass();
        mUptime = c.uptime;
        mUptimeError = c.error;
        Dot("closing\n");
        EXPECT_EQ(mPrinted, c.printed);
        EXPECT_EQ(mImage->U32(kRingStart), 8u) << c.printed;
        EXPECT_EQ(mImage->U32(kSlot1 + 112), 2u) << "boot_dotting_end";
        EXPECT_EQ(mImage->U32(kWriteOffset), 8u);
    }
}

// A record that runs past the area's end goes on at ring_start; one that ends
// exactly there moves the write offset back to ring_start.
TEST_F(DottingTest, RingWrapsBackToRingStart) {
    LogCapture log;
    StartRing(0x40, kDottingAreaSize - 10);
    EXPECT_EQ(Dot("0123456789abcdefghijklmnopqrst"), 140);

    EXPECT_EQ(mImage->Bytes(kArea + kDottingAreaSize - 10, 10), "0123456789");
    EXPECT_EQ(mImage->Bytes(kArea + 0x3F, 22), std::string("\0abcdefghijklmnopqrst\0", 22));
    EXPECT_EQ(mImage->Bytes(kSlot1 + kSlotSize, 8), std::string(8, '\0')) << "next slot";
    EXPECT_EQ(mImage->U32(kWriteOffset), 0x40u + 20u);
    EXPECT_EQ(mImage->U64(kSlot1 + 104), 10u);
    EXPECT_TRUE(log.contains(kTag, "write ringFreeSize 10 bytes.\n"));
    EXPECT_TRUE(log.contains(kTag, "write 20 bytes.\n"));

    StartRing(0x40, kDottingAreaSize - 30);
    Dot(std::string(30, 'e'));
    EXPECT_EQ(mImage->Bytes(kArea + kDottingAreaSize - 30, 30), std::string(30, 'e'));
    EXPECT_EQ(mImage->U32(kWriteOffset), 0x40u);
    EXPECT_TRUE(log.contains(kTag, "write 30 bytes, index: 10\n"));
    Dot("next\n");
    EXPECT_EQ(mImage->Bytes(kArea + 0x40, 5), "next\n");
    EXPECT_EQ(mImage->U32(kWriteOffset), 0x45u);
}

TEST_F(DottingTest, LabelsAcrossTheIndexWrap) {
    mImage->PutU64(kSlot1 + 104, 2047);
    mImage->PutLabel(kSlot1 + 72, "dotting 12");
    RunPass();
    Dot("a\n");
    EXPECT_EQ(mImage->U64(kSlot1 + 104), 2048u);
    EXPECT_EQ(mImage->Bytes(kSlot1 + 52, 10), std::string("dotting 0\0", 10));
    EXPECT_EQ(mImage->Bytes(kSlot1 + 72, 11), std::string("boot_km 12\0", 11))
            << "only the first seven bytes of cur_name change";

    mImage->PutLabel(kSlot1 + 52, "uefi_log");
    RunPass();
    Dot("b\n");
    EXPECT_EQ(mImage->U64(kSlot1 + 104), 0u);
    EXPECT_EQ(mImage->Bytes(kSlot1 + 52, 9), std::string("dottingg\0", 9)) << "no terminator";
    Dot("c\n");
    EXPECT_EQ(mImage->Bytes(kSlot1 + 52, 10), std::string("dotting 1\0", 10));
}

TEST_F(DottingTest, UntrustedOffsetsNeverWriteOutsideTheArea) {
    LogCapture log;
    StartRing(0x40, kDottingAreaSize + 1);
    EXPECT_EQ(Dot("x\n"), -1);
    EXPECT_EQ(log.count(kTag, "dotting area out of range"), 1);
    EXPECT_EQ(mImage->U32(kWriteOffset), kDottingAreaSize + 1) << "header not rewritten";

    mImage->PutU32(kRingStart, 0xFFFFFFFF);
    mImage->PutU32(kWriteOffset, kDottingAreaSize - 5);
    RunPass();
    EXPECT_EQ(Dot(std::string(30, 'z')), 140);
    EXPECT_TRUE(log.contains(kTag, "write string failed! error: 28(No space left on device)\n"));
    EXPECT_TRUE(mImage->Bytes(kArea + kDottingAreaSize - 5, 13) == std::string(13, '\0'));
    // A boot phase that fills the area exactly carries on from ring_start,
    // which is still -1; the next record then has nowhere to go.
    Dot("12345");
    EXPECT_EQ(mImage->Bytes(kArea + kDottingAreaSize - 5, 5), "12345");
    EXPECT_EQ(mImage->U32(kWriteOffset), 0xFFFFFFFFu);

    mImage->PutU32(kSlot1 + 48, kSlotSize);  // dotting_offset at the slot end
    RunPass();
    EXPECT_EQ(Dot("y\n"), -1);
    EXPECT_EQ(mImage->size(), kImageSize);
}

class KmsgCopyTest : public BlackBoxTest {
  protected:
    static constexpr uint64_t kArea = kSlot1 + kKmsgArea;

    void SetUp() override {
        BlackBoxTest::SetUp();
        unsetenv("ANDROID_FILE__dev_kmsg");
        MakeDefaultImage();
    }
    void TearDown() override { unsetenv("ANDROID_FILE__dev_kmsg"); }

    void WriteKmsg(const std::string& text) {
        std::ofstream(RootPath("/dev/kmsg"), std::ios::binary) << text;
    }
    int64_t Copy() {
        return Printing([&] { return blackbox::copy_kmsg_to_black_box(&mHeaders); });
    }
    // The area's text up to the first byte never written.
    std::string Area(size_t length) const {
        const std::string bytes = mImage->Bytes(kArea, length + 1);
        return bytes.substr(0, bytes.find('\0'));
    }
};

TEST_F(KmsgCopyTest, OneLinePerRecordUntilOnePast100Seconds) {
    LogCapture log;
    WriteKmsg(
            "6,1,1500000,-;first line\n SUBSYSTEM=acpi\n DEVICE=+acpi:LNXPWRBN:00\n"
            "not a record\n4,2,2000001,-,caller=T42;second\n6,3;no time or flags\n"
            "12,4,99000000,c;third\n"
            // Flags and caller of 21 characters at most.
            "6,5,99000001,-,caller=T12345678901;widest\n6,6,99000002,-,caller=T123456789012;x\n"
            "6,7,99000003,-,no separator\n6,8,99000004,;no flags\n6,9,99s,-;not a "
            "number\n6,,99000007,-;no sequence\n"
            // Blanks before the text are dropped; a NUL ends the record.
            "6,10,99000005,-; \t spaced\n" +
            std::string("6,11,99000006,-;cut\0hidden\n6,12,9\0,-;x\n", 39) +
            "6,13,100999999,-;last kept\n6,14,101000000,-;too late\n6,15,5000000,-;after\n");
    const std::string expected =
            "[    1.500000][ -] first line\n[    2.000001][ T42] second\n"
            "[   99.000000][ c] third\n[   99.000001][ T12345678901] widest\n"
            "[   99.000005][ -] spaced\n[   99.000006][ -] cut\n[  100.999999][ -] last kept\n";
    EXPECT_EQ(Copy(), static_cast<int64_t>(expected.size()));
    EXPECT_EQ(mPrinted, "time >= 100s, stop write.\n");
    EXPECT_EQ(Area(expected.size()), expected);
    EXPECT_EQ(mImage->Bytes(kSlot1 + 52, 11), std::string("boot_kmesg\0", 11));
    EXPECT_EQ(mImage->Bytes(kSlot1 + 72, 10), std::string("dotting 1\0", 10));
    EXPECT_TRUE(log.contains(kTag, "get /dev/kmsg fd by android_get_control_file failed!"));
}

TEST_F(KmsgCopyTest, OverlongRecordIsCutAndAnUnterminatedLastOneKept) {
    const std::string head = "6,1,2000000,-;";
    // Past the first 8192 bytes, even text that looks like a record is dropped.
    WriteKmsg(head + std::string(8192 - head.size(), 'L') + "6,5,4000000,-;ghost" +
              std::string(20000, 'L') + "\n6,2,3000000,-;tail");
    Copy();
    const std::string expected = "[    2.000000][ -] " + std::string(8192 - head.size(), 'L') +
                                 "\n[    3.000000][ -] tail\n";
    EXPECT_EQ(Area(expected.size()), expected);
}

TEST_F(KmsgCopyTest, StopsWhenTheAreaIsFull) {
    // Records longer than half a read, so that they straddle read boundaries.
    const std::string message(5000, 'm');
    std::string kmsg, lines;
    for (int i = 0; lines.size() < 0x500000 + 10000; ++i) {
        kmsg += "6," + std::to_string(i) + ",1000000,-;" + message + "\n";
        lines += "[    1.000000][ -] " + message + "\n";
    }
    WriteKmsg(kmsg);
    mImage->PutBytes(kSlot1 + kDottingArea, "D");  // first byte of the dotting area

    EXPECT_EQ(Copy(), 0x500000);
    EXPECT_EQ(mPrinted, "size >= 1M, stop write.\n");
    EXPECT_TRUE(mImage->Bytes(kArea, 0x500000) == lines.substr(0, 0x500000));
    EXPECT_EQ(mImage->Bytes(kSlot1 + kDottingArea, 1), "D");
}

// kmsg_offset comes from the partition: the copy stays inside the slot and
// fills a partition that ends inside the area up to its end, without growing it.
TEST_F(KmsgCopyTest, UntrustedAreaIsBoundedByTheSlotAndThePartition) {
    LogCapture log;
    const std::string line = "[    1.000000][ -] " + std::string(200, 'k') + "\n";
    WriteKmsg("6,1,1000000,-;" + std::string(200, 'k') + "\n6,2,1000000,-;more\n");
    ASSERT_EQ(truncate(mImage->path().c_str(), kArea + 100), 0);
    EXPECT_EQ(Copy(), 100);
    EXPECT_EQ(mImage->size(), kArea + 100);
    EXPECT_EQ(Area(100), line.substr(0, 100));

    ASSERT_EQ(truncate(mImage->path().c_str(), kImageSize), 0);
    mHeaders.log.kmsg_offset = kSlotSize;  // the slot's end, inside the partition
    EXPECT_EQ(Copy(), -1);
    EXPECT_EQ(log.count(kTag, "kmsg area out of range"), 1);
}

// Init's descriptor is used and left open; without it, /dev/kmsg is opened, and
// without that or the partition nothing is written.
TEST_F(KmsgCopyTest, KernelLogSources) {
    LogCapture log;
    const std::string slotBefore = mImage->Bytes(kSlot1, 140);
    EXPECT_EQ(Copy(), -1);
    EXPECT_TRUE(log.contains(kTag, "open /dev/kmsg fail 2(No such file or directory)\n"));
    EXPECT_TRUE(mImage->Bytes(kSlot1, 140) == slotBefore);

    WriteKmsg("6,1,7000000,kern;from init\n");
    int fd = open(RootPath("/dev/kmsg").c_str(), O_RDONLY | O_CLOEXEC);
    setenv("ANDROID_FILE__dev_kmsg", std::to_string(fd).c_str(), 1);
    Copy();
    EXPECT_EQ(Area(100), "[    7.000000][ kern] from init\n");
    EXPECT_EQ(log.count(kTag, "android_get_control_file failed"), 1) << "init's descriptor taken";
    EXPECT_GE(fcntl(fd, F_GETFD), 0) << "init's descriptor is not ours to close";
    close(fd);

    std::remove(mImage->path().c_str());
    EXPECT_EQ(Copy(), -1);
    EXPECT_TRUE(
            log.contains(kTag, "open black_box_log partition fail 2(No such file or directory)\n"));
}

}  // namespace
}  // namespace zelkor::tessel::testing
