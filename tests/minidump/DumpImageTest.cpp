// tessel-image's dump writer and inspector: the bytes it writes, checked at
// explicit offsets, and the boot run taking the dump it wrote.
#include <sys/stat.h>

#include <sstream>
#include <thread>

#include "MinidumpTestSupport.h"
#include "tools/tessel-image/dump/DumpImage.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;

constexpr uint64_t kArea = 0x200000;
constexpr uint64_t kDumpImageSize = 0x7000000;

class DumpImageTest : public MinidumpTest {
  protected:
    void SetUp() override {
        MinidumpTest::SetUp();
        // Sparse, with room for ten 10 MiB slots below the control block.
        Blackbox(kDumpImageSize, kArea, 0x6F00000);
    }
    std::string Data(const std::string& name, const std::string& bytes) {
        std::string path = mRoot.path() + "/" + name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }
    int Add(std::vector<std::string> args, std::string* err = nullptr) {
        std::ostringstream out, errors;
        int rc = image::RunDumpAdd(args, out, errors);
        if (err != nullptr) *err = errors.str();
        return rc;
    }
    Json::Value Inspect(const char* dev, bool inBlackbox) {
        int fd = OpenImage(dev);
        EXPECT_GE(fd, 0);
        Json::Value v =
                image::InspectDumpArea(fd, std::filesystem::file_size(Host(dev)), inBlackbox);
        close(fd);
        return v;
    }
};

// Slots outside 0 .. 9 are refused by the tessel-image end-to-end test.
TEST_F(DumpImageTest, BadArgumentsAreRefused) {
    for (std::vector<std::string> bad :
         {std::vector<std::string>{"img", "--section", "a=b"},  // no slot
          {"img", "--slot", "1"},                               // no section
          {"img", "--slot", "1", "--section", "=b"},
          {"img", "--slot", "1", "--section", "a"},
          {"img", "--slot", "1", "--section", "md_name_of_20_chars_=b"},
          {"img", "--slot", "1", "--section", "a=b", "--time", "2024-05-06 17:08:090"},
          {"img", "--slot", "1", "--section", "a=b", "--bogus"},
          {"img", "--slot", "1", "--section", "a=b", "--version"},
          {"--slot", "1", "--section", "a=b"}}) {
        EXPECT_EQ(Add(bad), 2) << ::testing::PrintToString(bad);
    }
}

// Slots 7, 8 and 9 into a new area, then slot 0: the last-log header counts
// the three before it, and the boot run takes slot 0.
TEST_F(DumpImageTest, DumpsAddedInTurnAreWhatTheBootRunTakes) {
    const std::string img = Host(kBlackbox);
    for (int slot : {7, 8, 9}) {
        ASSERT_EQ(Add({img, "--slot", std::to_string(slot), "--section",
                       "md_cpusys=" + Data("s", "slot" + std::to_string(slot))}),
                  0);
    }
    ASSERT_EQ(Add({img, "--slot", "0", "--time", "2024-05-06 17:08:09", "--boot-index", "12",
                   "--section", "md_cpusys=" + Data("c=1", "cpu text\n"), "--section",
                   "md_XBL_LOG=" + Data("xbl", "xbl\r\n")}),
              0);

    const uint64_t slot = kArea + 0x400;
    EXPECT_EQ(Get(kBlackbox, kArea, 8), "Raw_Dmp!");
    EXPECT_EQ(Get(kBlackbox, slot, 8), "Raw_Dmp!");
    EXPECT_TRUE(Get(kBlackbox, slot + 16, 8) == std::string(8, '\0'));
    EXPECT_TRUE(Get(kBlackbox, slot + 56, 20) == std::string("2024-05-06 17:08:09\0", 20));
    EXPECT_TRUE(Get(kBlackbox, slot + 88 + 44, 10) == std::string("md_cpusys\0", 10));
    EXPECT_EQ(Get(kBlackbox, slot + 224, 9), "cpu text\n");
    // Headers end at 56 + 32 + 2 * 64 = 216; the data follows at 16-byte steps.
    ExpectFields(kBlackbox, {U32(kArea + 8, 0), U32(kArea + 12, 3), U64(kArea + 16, 0x400),
                             U64(kArea + 40, 0xA00000), U64(kArea + 48, 0x600000),
                             U32(slot + 8, 0x2000), U32(slot + 52, 2), U32(slot + 76, 12),
                             U32(slot + 88, 1), U64(slot + 88 + 12, slot + 224),
                             U64(slot + 88 + 20, 9), U64(slot + 152 + 12, slot + 240)});

    ASSERT_EQ(handle_mini_lastlog_header(), 1);
    ASSERT_EQ(handle_minidump_partition(0, 0), 0);
    EXPECT_EQ(DiagText("last_warmreset_xbllog"), "xbl\r\n");

    Json::Value area = Inspect(kBlackbox, true);
    EXPECT_EQ(area["areaOffset"].asUInt64(), kArea);
    EXPECT_EQ(area["lastLog"]["magic"].asString(), "Raw_Dmp!");
    EXPECT_TRUE(area["lastLog"]["trusted"].asBool());
    ASSERT_EQ(area["slots"].size(), 10u);
    const Json::Value& slot0 = area["slots"][0];
    EXPECT_TRUE(slot0["valid"].asBool());
    EXPECT_TRUE(slot0["parsed"].asBool()) << "taken by the boot run above";
    EXPECT_EQ(slot0["time"].asString(), "2024-05-06 17:08:09");
    ASSERT_EQ(slot0["sections"].size(), 2u);
    EXPECT_EQ(slot0["sections"][1]["name"].asString(), "md_XBL_LOG");
    EXPECT_EQ(slot0["sections"][1]["size"].asUInt64(), 5u);
    EXPECT_TRUE(slot0["sections"][1]["trusted"].asBool());
    EXPECT_FALSE(area["slots"][1]["valid"].asBool());
}

TEST_F(DumpImageTest, HistoryGetsANewEntry) {
    LastLog(kBlackbox, kArea, "cigamgol", 2, 10, 0x100000, 0);
    Put64(kBlackbox, kArea + 16, 0x800);
    ASSERT_EQ(Add({Host(kBlackbox), "--slot", "3", "--version", "0x1000", "--section",
                   "md_cpusys=" + Data("c", "third")}),
              0);
    EXPECT_EQ(Get(kBlackbox, kArea, 8), "cigamgol");
    // The history's own geometry places the slot; version 1 has no extension.
    const uint64_t slot = kArea + 0x800 + 3 * 0x100000;
    ExpectFields(kBlackbox,
                 {U32(kArea + 8, 3), U32(kArea + 12, 10), U64(slot + 56 + 12, slot + 128)});
    EXPECT_EQ(Get(kBlackbox, slot, 8), "Raw_Dmp!");
    EXPECT_EQ(Get(kBlackbox, slot + 128, 5), "third");
}

TEST_F(DumpImageTest, MinidumpPartitionImageIsCreated) {
    ASSERT_EQ(Add({Host(kMinidump), "--minidump-partition", "--slot", "1", "--section",
                   "md_cpusys=" + Data("c", "md")}),
              0);
    const uint64_t slot = 0x400 + 0x600000;
    EXPECT_EQ(Get(kMinidump, 0, 8) + Get(kMinidump, slot, 8), "Raw_Dmp!Raw_Dmp!");
    EXPECT_EQ(GetLE(kMinidump, 8, 4), 1u);

    Json::Value area = Inspect(kMinidump, false);
    EXPECT_EQ(area["slots"][1]["offset"].asInt64(), static_cast<int64_t>(slot));
    EXPECT_EQ(area["slots"][1]["sections"][0]["name"].asString(), "md_cpusys");
    // Slots past the end of the image file are not read.
    EXPECT_FALSE(area["slots"][2]["trusted"].asBool());
}

TEST_F(DumpImageTest, WriteFailuresAreReported) {
    std::string err;
    EXPECT_EQ(Add({Host(kBlackbox), "--slot", "0", "--section", "md_kmsg=/nonexistent"}, &err), 1);
    EXPECT_NE(err.find("/nonexistent"), std::string::npos) << err;
    // 11 MiB of data in a 10 MiB slot.
    std::string big = Data("big", "");
    std::filesystem::resize_file(big, 11 << 20);
    EXPECT_EQ(Add({Host(kBlackbox), "--slot", "0", "--section", "md_kmsg=" + big}, &err), 1);
    EXPECT_NE(err.find("do not fit"), std::string::npos) << err;
    // Slot 9 would run past the control block of a small map.
    Put32(kBlackbox, 32, kArea + 0x400 + 9 * 0xA00000 + 100);
    EXPECT_EQ(
            Add({Host(kBlackbox), "--slot", "9", "--section", "md_kmsg=" + Data("k", "0123456789")},
                &err),
            1);
}

// A history with 4 KiB minidump slots: slot 0 at 0x400, its data from 0x400 +
// 160 (v2 header, one section header, 16-byte aligned), so 3936 bytes of room.
// The data comes from a FIFO: stat() says 0 bytes, the reader gets what the
// other end writes at once (less than a pipe holds) before closing it.
TEST_F(DumpImageTest, DataBeyondTheSlotRoomFromAFifoIsRejected) {
    MakeImage(kMinidump, 0x4000);
    LastLog(kMinidump, 0, "cigamgol", 0, 1, 0, 0x1000);
    const std::string image = Get(kMinidump, 0, 0x4000);
    for (size_t size : {3937u, 3936u}) {
        const std::string fifo = mRoot.path() + "/fifo" + std::to_string(size);
        ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
        ssize_t written = -1;
        std::thread writer([&] {
            int fd = open(fifo.c_str(), O_WRONLY | O_CLOEXEC);  // waits for the reader
            if (fd < 0) return;
            written = write(fd, std::string(size, 'k').data(), size);
            close(fd);
        });
        std::string err;
        const int rc = Add({Host(kMinidump), "--minidump-partition", "--slot", "0", "--section",
                            "md_kmsg=" + fifo},
                           &err);
        writer.join();
        EXPECT_EQ(written, static_cast<ssize_t>(size));
        if (size == 3937) {
            EXPECT_EQ(rc, 1);
            EXPECT_NE(err.find(fifo + ": more than 3936 bytes do not fit in the dump slot"),
                      std::string::npos)
                    << err;
            EXPECT_TRUE(Get(kMinidump, 0, 0x4000) == image) << "nothing is written";
        } else {
            EXPECT_EQ(rc, 0) << err;
            ExpectFields(kMinidump,
                         {U64(0x400 + 88 + 12, 0x400 + 160), U64(0x400 + 88 + 20, 3936)});
            EXPECT_TRUE(Get(kMinidump, 0x400 + 160, 3937) == std::string(3936, 'k') + '\0');
        }
    }
}

TEST_F(DumpImageTest, InspectorDoesNotTrustWhatDoesNotFit) {
    ASSERT_EQ(Add({Host(kBlackbox), "--slot", "0", "--section", "md_cpusys=" + Data("c", "x")}), 0);
    Put64(kBlackbox, kArea + 0x400 + 88 + 12, kDumpImageSize - 4);  // position
    Put64(kBlackbox, kArea + 0x400 + 88 + 20, 16);                  // size
    Json::Value area = Inspect(kBlackbox, true);
    EXPECT_FALSE(area["slots"][0]["sections"][0]["trusted"].asBool());

    // An image cut inside the last-log header.
    MakeImage(kMinidump, 20);
    EXPECT_FALSE(Inspect(kMinidump, false)["lastLog"]["trusted"].asBool());

    // Seventy headers, one unused, in an image that ends inside the 67th:
    // the 65 used ones before it are shown with their own indexes.
    MakeImage(kMinidump, 0x4000);
    LastLog(kMinidump, 0, "Raw_Dmp!", 0, 0, 0, 0x2000);
    DumpHeader(kMinidump, 0x400, 0, 70);
    for (int i = 0; i < 70; ++i) {
        if (i != 3) SectionHeader(kMinidump, 0x400 + 56, i, 1, "s" + std::to_string(i), 0, 1);
    }
    std::filesystem::resize_file(Host(kMinidump), 0x400 + 56 + 66 * 64 + 10);
    const Json::Value sections = Inspect(kMinidump, false)["slots"][0]["sections"];
    ASSERT_EQ(sections.size(), 65u);
    EXPECT_EQ(sections[3]["index"].asUInt(), 4u);
    EXPECT_EQ(sections[63]["index"].asUInt(), 64u);
    EXPECT_EQ(sections[64]["index"].asUInt(), 65u);
    EXPECT_EQ(sections[64]["name"].asString(), "s65");
}

}  // namespace
}  // namespace zelkor::tessel::testing
