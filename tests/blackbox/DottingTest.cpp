#include <gtest/gtest.h>

#include <cerrno>

#include "BlackBoxFixture.h"
#include "LogCapture.h"
#include "modules/blackbox/BlackBoxDotting.h"

namespace zelkor::tessel::testing {
namespace {

constexpr uint64_t kArea = kSlot1 + kDottingArea;
constexpr uint64_t kRingStart = kSlot1 + 116;
constexpr uint64_t kWriteOffset = kSlot1 + 128;

class DottingTest : public BlackBoxTest {
  protected:
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
    EXPECT_EQ(mImage->Bytes(kArea + kDottingAreaSize - 5, 13), std::string(13, '\0'));
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

}  // namespace
}  // namespace zelkor::tessel::testing
