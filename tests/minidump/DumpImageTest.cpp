// tessel-image's dump writer and inspector: the bytes it writes, checked at
// explicit offsets, and the boot run taking the dump it wrote.
#include <sys/stat.h>

#include <random>
#include <sstream>
#include <thread>

#include "MinidumpTestSupport.h"
#include "tools/tessel-image/dump/DumpImage.h"

namespace zelkor::tessel::testing {
namespace {

using namespace Minidump;
using image::DumpAddOptions;

constexpr uint64_t kArea = 0x200000;
constexpr uint64_t kImageSize = 0x7000000;

class DumpImageTest : public MinidumpTest {
  protected:
    void SetUp() override {
        MinidumpTest::SetUp();
        // Sparse, with room for ten 10 MiB slots below the control block.
        MakeImage(kBlackbox, kImageSize);
        Put64(kBlackbox, 0, 0x56775AF41BCDE0F0ull);
        Put32(kBlackbox, 24, kArea);      // minidump_offset
        Put32(kBlackbox, 32, 0x6F00000);  // control_content_offset
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

TEST_F(DumpImageTest, ArgumentsAreChecked) {
    DumpAddOptions o;
    std::string error;
    ASSERT_TRUE(image::ParseDumpAddArgs(
            {"img", "--minidump-partition", "--slot", "3", "--version", "0x1000", "--time",
             "2024-05-06 7:08:09", "--boot-index", "12", "--section", "md_kmsg=k.bin", "--section",
             "md_cpusys=c=1.txt"},
            &o, &error))
            << error;
    EXPECT_EQ(o.image, "img");
    EXPECT_TRUE(o.minidumpPartition);
    EXPECT_EQ(o.slot, 3u);
    EXPECT_EQ(o.version, 0x1000u);
    EXPECT_EQ(o.bootIndex, 12u);
    ASSERT_EQ(o.sections.size(), 2u);
    EXPECT_EQ(o.sections[1].name, "md_cpusys");
    EXPECT_EQ(o.sections[1].dataFile, "c=1.txt");

    for (std::vector<std::string> bad :
         {std::vector<std::string>{"img", "--section", "a=b"},  // no slot
          {"img", "--slot", "10", "--section", "a=b"},          // slot 10
          {"img", "--slot", "-1", "--section", "a=b"},
          {"img", "--slot", "1"},  // no section
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

TEST_F(DumpImageTest, NewRawDumpInBlackboxIsWhatTheBootRunTakes) {
    const std::string img = Host(kBlackbox);
    ASSERT_EQ(Add({img, "--slot", "0", "--time", "2024-05-06 7:08:09", "--boot-index", "12",
                   "--section", "md_cpusys=" + Data("cpu", "cpu text\n"), "--section",
                   "md_XBL_LOG=" + Data("xbl", "xbl\r\n")}),
              0);

    EXPECT_EQ(Get(kBlackbox, kArea, 8), "Raw_Dmp!");
    EXPECT_EQ(GetLE(kBlackbox, kArea + 8, 4), 0u);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 12, 4), 0u);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 16, 8), 0x400u);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 40, 8), 0xA00000u);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 48, 8), 0x600000u);
    const uint64_t slot = kArea + 0x400;
    EXPECT_EQ(Get(kBlackbox, slot, 8), "Raw_Dmp!");
    EXPECT_EQ(GetLE(kBlackbox, slot + 8, 4), 0x2000u);
    EXPECT_EQ(Get(kBlackbox, slot + 16, 8), std::string(8, '\0'));
    EXPECT_EQ(GetLE(kBlackbox, slot + 52, 4), 2u);
    EXPECT_EQ(Get(kBlackbox, slot + 56, 20), std::string("2024-05-06 7:08:09\0\0", 20));
    EXPECT_EQ(GetLE(kBlackbox, slot + 76, 4), 12u);
    // Headers end at 56 + 32 + 2 * 64 = 216; the data follows at 16-byte steps.
    EXPECT_EQ(GetLE(kBlackbox, slot + 88, 4), 1u);
    EXPECT_EQ(GetLE(kBlackbox, slot + 88 + 12, 8), slot + 224);
    EXPECT_EQ(GetLE(kBlackbox, slot + 88 + 20, 8), 9u);
    EXPECT_EQ(Get(kBlackbox, slot + 88 + 44, 10), std::string("md_cpusys\0", 10));
    EXPECT_EQ(Get(kBlackbox, slot + 224, 9), "cpu text\n");
    EXPECT_EQ(GetLE(kBlackbox, slot + 152 + 12, 8), slot + 240);

    ASSERT_EQ(handle_mini_lastlog_header(), 1);
    ASSERT_EQ(handle_minidump_partition(0, 0), 0);
    EXPECT_EQ(ReadFile(std::string(kDiag) + "/last_cpusys"), "cpu text\n");
    EXPECT_EQ(ReadFile(std::string(kDiag) + "/last_warmreset_xbllog"), "xbl\r\n");

    Json::Value area = Inspect(kBlackbox, true);
    EXPECT_EQ(area["areaOffset"].asUInt64(), kArea);
    EXPECT_EQ(area["lastLog"]["magic"].asString(), "Raw_Dmp!");
    EXPECT_TRUE(area["lastLog"]["trusted"].asBool());
    ASSERT_EQ(area["slots"].size(), 10u);
    const Json::Value& slot0 = area["slots"][0];
    EXPECT_TRUE(slot0["valid"].asBool());
    EXPECT_TRUE(slot0["parsed"].asBool()) << "taken by the boot run above";
    EXPECT_EQ(slot0["time"].asString(), "2024-05-06 7:08:09");
    ASSERT_EQ(slot0["sections"].size(), 2u);
    EXPECT_EQ(slot0["sections"][1]["name"].asString(), "md_XBL_LOG");
    EXPECT_EQ(slot0["sections"][1]["size"].asUInt64(), 5u);
    EXPECT_TRUE(slot0["sections"][1]["trusted"].asBool());
    EXPECT_FALSE(area["slots"][1]["valid"].asBool());
}

TEST_F(DumpImageTest, DumpsAddedInTurnAreWalkedByTheBootRun) {
    const std::string img = Host(kBlackbox);
    for (int slot : {7, 8, 9, 0}) {
        ASSERT_EQ(Add({img, "--slot", std::to_string(slot), "--section",
                       "md_cpusys=" + Data("s", "slot" + std::to_string(slot))}),
                  0);
    }
    EXPECT_EQ(GetLE(kBlackbox, kArea + 8, 4), 0u);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 12, 4), 3u);

    ASSERT_EQ(handle_mini_lastlog_header(), 1);
    ASSERT_EQ(handle_minidump_partition(0, 0), 0);
    handle_stored_minidumps();
    EXPECT_EQ(ReadFile(std::string(kDiag) + "/last_cpusys"), "slot9");
    EXPECT_EQ(ReadFile(std::string(kDiag) + "/last_cpusys_1"), "slot8");
    EXPECT_EQ(ReadFile(std::string(kDiag) + "/last_cpusys_2"), "slot7");
}

TEST_F(DumpImageTest, HistoryGetsANewEntry) {
    Put(kBlackbox, kArea, "cigamgol");
    Put32(kBlackbox, kArea + 8, 2);
    Put32(kBlackbox, kArea + 12, 10);
    Put64(kBlackbox, kArea + 16, 0x800);
    Put64(kBlackbox, kArea + 40, 0x100000);
    ASSERT_EQ(Add({Host(kBlackbox), "--slot", "3", "--version", "0x1000", "--section",
                   "md_cpusys=" + Data("c", "third")}),
              0);
    EXPECT_EQ(Get(kBlackbox, kArea, 8), "cigamgol");
    EXPECT_EQ(GetLE(kBlackbox, kArea + 8, 4), 3u);
    EXPECT_EQ(GetLE(kBlackbox, kArea + 12, 4), 10u);
    // The history's own geometry places the slot; version 1 has no extension.
    const uint64_t slot = kArea + 0x800 + 3 * 0x100000;
    EXPECT_EQ(Get(kBlackbox, slot, 8), "Raw_Dmp!");
    EXPECT_EQ(GetLE(kBlackbox, slot + 56 + 12, 8), slot + 128);
    EXPECT_EQ(Get(kBlackbox, slot + 128, 5), "third");
}

TEST_F(DumpImageTest, MinidumpPartitionImageIsCreated) {
    ASSERT_EQ(Add({Host(kMinidump), "--minidump-partition", "--slot", "1", "--section",
                   "md_cpusys=" + Data("c", "md")}),
              0);
    const uint64_t slot = 0x400 + 0x600000;
    EXPECT_EQ(Get(kMinidump, 0, 8), "Raw_Dmp!");
    EXPECT_EQ(GetLE(kMinidump, 8, 4), 1u);
    EXPECT_EQ(Get(kMinidump, slot, 8), "Raw_Dmp!");

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

// A section's data from a FIFO: stat() says 0 bytes, the reader gets what the
// other end writes. `bytes` are written at once (less than a pipe holds) and
// the write end closed.
class FifoWriter {
  public:
    FifoWriter(const std::string& path, std::string bytes) : mBytes(std::move(bytes)) {
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        mThread = std::thread([this, path] {
            int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);  // waits for the reader
            if (fd < 0) return;
            mWritten = write(fd, mBytes.data(), mBytes.size());
            close(fd);
        });
    }
    ~FifoWriter() {
        if (mThread.joinable()) mThread.join();
    }
    // What write() returned, once the other end has been read.
    ssize_t written() {
        if (mThread.joinable()) mThread.join();
        return mWritten;
    }

  private:
    std::string mBytes;
    ssize_t mWritten = -1;
    std::thread mThread;
};

TEST_F(DumpImageTest, DataBeyondTheSlotRoomFromAFifoIsRejected) {
    // A history with 4 KiB minidump slots: slot 0 at 0x400, its data from
    // 0x400 + 160 (v2 header, one section header, 16-byte aligned), so 3936
    // bytes of room.
    MakeImage(kMinidump, 0x4000);
    LastLog(kMinidump, 0, "cigamgol", 0, 1, 0, 0x1000);
    const std::string image = Get(kMinidump, 0, 0x4000);

    const std::string tooBig = mRoot.path() + "/too-big";
    FifoWriter big(tooBig, std::string(3937, 'k'));
    std::string err;
    EXPECT_EQ(Add({Host(kMinidump), "--minidump-partition", "--slot", "0", "--section",
                   "md_kmsg=" + tooBig},
                  &err),
              1);
    EXPECT_EQ(big.written(), 3937);
    EXPECT_NE(err.find(tooBig + ": more than 3936 bytes do not fit in the dump slot"),
              std::string::npos)
            << err;
    EXPECT_EQ(Get(kMinidump, 0, 0x4000), image) << "nothing is written";

    const std::string fits = mRoot.path() + "/fits";
    FifoWriter exact(fits, std::string(3936, 'k'));
    EXPECT_EQ(Add({Host(kMinidump), "--minidump-partition", "--slot", "0", "--section",
                   "md_kmsg=" + fits},
                  &err),
              0)
            << err;
    EXPECT_EQ(exact.written(), 3936);
    EXPECT_EQ(GetLE(kMinidump, 0x400 + 88 + 12, 8), 0x400u + 160);  // position
    EXPECT_EQ(GetLE(kMinidump, 0x400 + 88 + 20, 8), 3936u);         // size
    EXPECT_EQ(Get(kMinidump, 0x400 + 160, 3937), std::string(3936, 'k') + '\0');
}

TEST_F(DumpImageTest, InspectorDoesNotTrustWhatDoesNotFit) {
    ASSERT_EQ(Add({Host(kBlackbox), "--slot", "0", "--section", "md_cpusys=" + Data("c", "x")}), 0);
    Put64(kBlackbox, kArea + 0x400 + 88 + 12, kImageSize - 4);  // position
    Put64(kBlackbox, kArea + 0x400 + 88 + 20, 16);              // size
    Json::Value area = Inspect(kBlackbox, true);
    EXPECT_FALSE(area["slots"][0]["sections"][0]["trusted"].asBool());

    // Random bytes and a cut image: reported, never read past the end.
    std::mt19937_64 random(3);
    std::string bytes(0x1000, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    MakeImage(kMinidump, 0);
    Put(kMinidump, 0, bytes);
    Put(kMinidump, 0, "Raw_Dmp!");
    Json::Value noise = Inspect(kMinidump, false);
    EXPECT_EQ(noise["slots"].size(), 10u);
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
