#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <fstream>

#include "BlackBoxFixture.h"
#include "LogCapture.h"
#include "modules/blackbox/BlackBoxKmsg.h"

namespace zelkor::tessel::testing {
namespace {

constexpr uint64_t kArea = kSlot1 + kKmsgArea;

class KmsgCopyTest : public BlackBoxTest {
  protected:
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
    EXPECT_EQ(mImage->Bytes(kArea, 0x500000), lines.substr(0, 0x500000));
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
    EXPECT_EQ(mImage->Bytes(kSlot1, 140), slotBefore);

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
