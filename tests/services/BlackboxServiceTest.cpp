// The blackbox service in process, on a host root holding a blackbox image.
// How records are cut, labelled and placed in the ring is BlackBoxTest's; here
// what the service makes of them.
#include <fcntl.h>
#include <unistd.h>

#include <fstream>
#include <regex>

#include "FileServiceFixture.h"
#include "blackbox/BlackBoxFixture.h"
#include "common/default/service/BlackboxImpl.h"
#include "common/default/service/BlackboxPartition.h"

namespace zelkor::tessel::testing {
namespace {

using ::aidl::vendor::zelkor::hardware::blackbox::IBlackboxImpl;

constexpr binder_status_t kUnknownError = static_cast<binder_status_t>(0x80000000);
constexpr uint64_t kHeader = kSlot1;  // the current slot's header (slot 1)
constexpr uint64_t kDotting = kSlot1 + kDottingArea;
constexpr uint64_t kConfig = 0x9881000;

class BlackboxServiceTest : public BlackBoxTest {
  protected:
    void SetUp() override {
        BlackBoxTest::SetUp();
        MakeImage();
        mService = ndk::SharedRefBase::make<BlackboxImpl>();
    }
    // The dotting records written so far, one per line.
    std::vector<std::string> Records() const {
        std::string area = mImage->Bytes(kDotting, 64 * 1024);
        area.resize(strnlen(area.data(), area.size()));
        std::vector<std::string> lines;
        for (size_t at = 0, end; (end = area.find('\n', at)) != std::string::npos; at = end + 1) {
            lines.push_back(area.substr(at, end - at + 1));
        }
        return lines;
    }
    std::string TempFile(const std::string& name) const { return mRoot.path() + "/" + name; }
    // A new descriptor on the emptied file `name` under the root.
    ndk::ScopedFileDescriptor OutFd(const std::string& name) const {
        return ndk::ScopedFileDescriptor(
                open(TempFile(name).c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
    }

    std::shared_ptr<BlackboxImpl> mService;
};

TEST_F(BlackboxServiceTest, ADotIsWrittenAndStillAnsweredWithTheUnknownError) {
    int32_t result = 0;
    EXPECT_EQ(StatusOf(mService->dotFromExternal("camera", "", "open", &result)), kUnknownError);
    EXPECT_EQ(result, 140) << "the header write's byte count";
    EXPECT_EQ(StatusOf(mService->dotFromExternal("camera", "12:00", "close", &result)),
              kUnknownError);
    std::vector<std::string> records = Records();
    ASSERT_EQ(records.size(), 2u);
    // The stamp's hour has a blank for a sign and no leading zero.
    EXPECT_TRUE(std::regex_match(
            records[0],
            std::regex(R"(\{"1", "camera", "\d{4}-\d\d-\d\d (\d|[12]\d):\d\d:\d\d", "open"\}\n)")))
            << records[0];
    EXPECT_EQ(records[1], "{\"2\", \"camera\", \"12:00\", \"close\"}\n");
    EXPECT_EQ(mImage->Le(kHeader + 104, 8), 2u) << "dotting_count";
}

// A client that closed its end of the pipe costs it the bytes, not the daemon
// its life.
TEST_F(BlackboxServiceTest, AClosedPipeIsNoSignal) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    close(ends[0]);
    mImage->PutBytes(kSlot1, "slot bytes");
    EXPECT_TRUE(mService->getStreamLogByPfd("t", 0, 0, ndk::ScopedFileDescriptor(ends[1])).isOk());
}

TEST_F(BlackboxServiceTest, LogsAreSelectedByTypeFromTheCurrentHeadersOffsets) {
    // A first record makes the slot header valid on the partition; then its
    // PBL stretch is 0x100..0x180 and its kernel stretch 0x200..0x208.
    int32_t result;
    mService->dotFromExternal("t", "", "first", &result);
    mImage->PutWords(kHeader + 20, {0x100, 0x180});
    mImage->PutWords(kHeader + 40, {0x200, 0x208});
    const uint64_t slot2 = kSlot1 + 2 * kSlotSize;
    mImage->PutBytes(slot2 + 0x100, "pbl of slot two");
    mImage->PutBytes(slot2 + 0x200, "pmsg-0123456789");
    std::string text;
    ASSERT_TRUE(mService->getStreamLog("t", IBlackboxImpl::LOG_TYPE_PBL, 2, &text).isOk());
    EXPECT_EQ(text, "pbl of slot two");
    ASSERT_TRUE(mService->getStreamLog("t", IBlackboxImpl::LOG_TYPE_KERNEL, 2, &text).isOk());
    EXPECT_EQ(text, "pmsg-012") << "the stretch ends at the pair's second offset";
    mImage->PutBytes(kSlot1 + 3 * kSlotSize + kDottingArea, "ring of slot three");
    ASSERT_TRUE(mService->getStreamLog("t", IBlackboxImpl::LOG_TYPE_DOTTING, 3, &text).isOk());
    EXPECT_EQ(text, "ring of slot three");

    for (int32_t slot : {6, 7, -1}) {
        EXPECT_EQ(StatusOf(mService->getStreamLog("t", 0, slot, &text)), STATUS_INVALID_OPERATION);
        EXPECT_EQ(text, "");
    }

    // The whole slot, capped at 512000 bytes, to a descriptor.
    mImage->PutBytes(kSlot1 + 511999, "Z");
    mImage->PutBytes(kSlot1 + 512000, "beyond");
    ASSERT_TRUE(mService->getStreamLogByPfd("t", 0, 0, OutFd("slot.bin")).isOk());
    const std::string whole = Slurp(TempFile("slot.bin"));
    ASSERT_EQ(whole.size(), 512000u);
    EXPECT_EQ(whole.back(), 'Z');
    ndk::ScopedAStatus invalid =
            mService->getStreamLogByPfd("t", 0, 0, ndk::ScopedFileDescriptor());
    EXPECT_EQ(invalid.getExceptionCode(), EX_ILLEGAL_ARGUMENT);
    EXPECT_STREQ(invalid.getMessage(), "Invalid file descriptor");
}

TEST_F(BlackboxServiceTest, ConfigKeysMatchExactlyAndUnchangedValuesAreNotWritten) {
    int32_t result = 0;
    ASSERT_TRUE(mService->setBlackboxConfig("t", "isForceQpstWhenFulldump", 5, &result).isOk());
    EXPECT_EQ(result, 1);
    EXPECT_EQ(mImage->Le(kConfig + 4, 4), 5u);
    ASSERT_TRUE(mService->getBlackboxConfig("t", "isForceQpstWhenFulldump", &result).isOk());
    EXPECT_EQ(result, 5);
    EXPECT_EQ(StatusOf(mService->getBlackboxConfig("t", "isuartenable", &result)),
              STATUS_INVALID_OPERATION);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(StatusOf(mService->setBlackboxConfig("t", "isUartEnable ", 1, &result)),
              STATUS_INVALID_OPERATION);

    // Setting the value a switch holds writes nothing and still leaves a record.
    mImage->PutBytes(kConfig + 12, "guard");
    const size_t before = Records().size();
    ASSERT_TRUE(mService->setBlackboxConfig("t", "isForceQpstWhenFulldump", 5, &result).isOk());
    EXPECT_EQ(result, 1);
    ASSERT_EQ(Records().size(), before + 1);
    EXPECT_NE(Records().back().find("\"setBlackboxConfig\"}"), std::string::npos);

    const std::string two = "{\"isUartEnable\": true,\n \"isOEMDebugUartLogLevel\": 1}";
    ASSERT_TRUE(mService->setAllBlackboxConfig("t", two, &result).isOk());
    EXPECT_EQ(mImage->Bytes(kConfig, 12), std::string("\1\0\0\0\0\0\0\0\1\0\0\0", 12))
            << "a missing key counts as false";
    const std::vector<std::string> malformed = {"{\"isUartEnable\": fals", "[true]", "",
                                                std::string(5000, '[')};
    for (const std::string& bad : malformed) {
        result = 7;
        EXPECT_TRUE(mService->setAllBlackboxConfig("t", bad, &result).isOk());
        EXPECT_EQ(result, 0);
    }
    EXPECT_EQ(mImage->Bytes(kConfig, 12), std::string("\1\0\0\0\0\0\0\0\1\0\0\0", 12));
}

TEST_F(BlackboxServiceTest, RuntimeLogAndHardwareInfoComeFromTheKernelFiles) {
    EXPECT_EQ(StatusOf(mService->getRuntimeLog("t", 0, OutFd("kmsg.out"))), -1) << "no /dev/kmsg";
    EXPECT_EQ(Slurp(TempFile("kmsg.out")), "");
    std::string kmsg;
    for (int i = 0; i < 3000; ++i) kmsg += "6,1," + std::to_string(i) + ",-;line\n";
    std::ofstream(RootPath("/dev/kmsg")) << kmsg;
    ASSERT_TRUE(mService->getRuntimeLog("t", 0, OutFd("kmsg.out")).isOk());
    EXPECT_TRUE(Slurp(TempFile("kmsg.out")) == kmsg) << "read in chunks until the end";

    std::string info;
    EXPECT_EQ(StatusOf(mService->getHardwareInfo("t", &info)), -1) << "no node";
    std::filesystem::create_directories(RootPath("/sys/kernel/hardware_info_to_dump"));
    std::ofstream(RootPath("/sys/kernel/hardware_info_to_dump/hardw_info")) << "soc: sm8650\n";
    ASSERT_TRUE(mService->getHardwareInfo("reader", &info).isOk());
    EXPECT_EQ(info, "soc: sm8650\n");
    EXPECT_NE(Records().back().find("\"reader\", "), std::string::npos);
    EXPECT_NE(Records().back().find("\"getHardwareInfo\"}"), std::string::npos);
}

TEST_F(BlackboxServiceTest, AMissingPartitionGivesEachMethodsFailure) {
    mImage.reset();
    std::filesystem::remove(RootPath("/dev/block/by-name/blackbox"));
    int32_t result = 0;
    std::string text;
    EXPECT_EQ(StatusOf(mService->dotFromExternal("t", "", "x", &result)), kUnknownError);
    EXPECT_EQ(result, -1);
    EXPECT_EQ(StatusOf(mService->getStreamLog("t", 0, 0, &text)), kUnknownError);
    text = "stale";
    EXPECT_EQ(StatusOf(mService->getAllBlackboxConfig("t", &text)), -1);
    EXPECT_EQ(text, "");
    EXPECT_EQ(StatusOf(mService->getBlackboxConfig("t", "isUartEnable", &result)), -1);
    EXPECT_EQ(StatusOf(mService->setBlackboxConfig("t", "isUartEnable", 1, &result)), -1);
    EXPECT_EQ(StatusOf(mService->setAllBlackboxConfig("t", "{}", &result)), -1);
}

}  // namespace
}  // namespace zelkor::tessel::testing
