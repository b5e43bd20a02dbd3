#include <gtest/gtest.h>

#include "BlackBoxFixture.h"
#include "LogCapture.h"
#include "modules/blackbox/BlackBoxHwinfo.h"
#include "platform/Properties.h"

namespace zelkor::tessel::testing {
namespace {

using HeaderPassTest = BlackBoxTest;

TEST_F(HeaderPassTest, ZeroedPartitionGetsEveryDefaultHeader) {
    TestImage expected(mRoot.path() + "/expected.img", kImageSize);
    expected.PutDefaultHeaders();
    ASSERT_TRUE(expected.ok());
    MakeImage();

    EXPECT_EQ(RunPass(), 140);

    for (uint64_t offset : {uint64_t(0), uint64_t(0x400), kSlot1, kControl}) {
        EXPECT_EQ(mImage->Bytes(offset, 140), expected.Bytes(offset, 140)) << std::hex << offset;
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
    EXPECT_EQ(image.Bytes(0, 0x2000) + image.Bytes(0x1001000, 140), before) << "rewritten";
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

    EXPECT_EQ(image.Bytes(kSlot1, 140), slotBefore) << "the slot start is not touched";
    EXPECT_EQ(image.Bytes(kSlot1 + 140, 140), expected.Bytes(0, 140));
    EXPECT_EQ(mHeaders.log.ring_start, -1);
    EXPECT_EQ(mHeaders.log.dotting_count, 0u);
}

TEST_F(HeaderPassTest, UnreachableHeadersAreReportedAndNothingWrittenOutside) {
    LogCapture log;
    TestImage& image = MakeImage(kSlot1 + 60);
    EXPECT_EQ(RunPass(), -1);
    EXPECT_EQ(image.size(), kSlot1 + 60);
    EXPECT_EQ(image.U64(0x400), 0xE99BB480DD25E1F0u) << "headers inside the image are stamped";
    EXPECT_EQ(image.Bytes(kSlot1, 60), std::string(60, '\0'));
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
    EXPECT_EQ(mImage->Bytes(0, 0x2000), start);
    EXPECT_EQ(log.count(kTag, "write black_box_log_header failed 22(Invalid argument)"), 1);
}

TEST_F(HeaderPassTest, ReadOnlyPassRepairsInMemoryOnly) {
    LogCapture log;
    TestImage& image = MakeImage(kSlot1 + 10);
    EXPECT_EQ(RunPass(blackbox::HeaderPassMode::kReadOnly), -1);

    EXPECT_EQ(image.Bytes(0, kSlot1 + 10), std::string(kSlot1 + 10, '\0'));
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

}  // namespace
}  // namespace zelkor::tessel::testing
