// The daemon's boot run on temporary roots, driven the way a BSP engineer
// drives it: partition images made with tessel-image, tessel-peer serving
// the core service, tesseld booted on the root, then the properties, the
// diagnostic files, the crash events and the images inspected afterwards.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>

#include "BootRunRoot.h"

namespace zelkor::tessel::testing {
namespace {

namespace fs = std::filesystem;

class BootRunE2ETest : public ::testing::Test, public BootRunRoot {};

TEST_F(BootRunE2ETest, RealArm64OopsIsKpanicReportedRecordedAndTakenOnce) {
    MakeBlackbox();
    AddOopsDump();

    ExpectOopsReported(Boot(), 1);
    EXPECT_EQ(MdHistory().size(), 1u);
    const std::string lastKmsg = Read(std::string(kDiag) + "/last_kmsg");
    EXPECT_NE(lastKmsg.find("[  163.748713][    L0]  faulty_write+0x14/0x20 [faulty]\n"),
              std::string::npos)
            << lastKmsg;
    struct stat gz {};
    ASSERT_EQ(stat(Host(std::string(kDiag) + "/minidump.gz").c_str(), &gz), 0);
    EXPECT_GT(gz.st_size, 0);

    const Json::Value image = Inspect(Host(kBlackbox));
    const Json::Value& history = image["crash_history"];
    EXPECT_TRUE(history["valid"].asBool()) << history;
    EXPECT_EQ(history["header"]["current_num"].asUInt(), 1u);
    ASSERT_EQ(history["records"].size(), 1u);
    EXPECT_EQ(history["records"][0]["text"].asString(), MdHistory().back());
    const Json::Value& dotting = image["blackbox"]["dotting"]["boot"];
    ASSERT_EQ(dotting.size(), 1u) << image["blackbox"]["dotting"];
    EXPECT_NE(dotting[0].asString().find(
                      "\"powerup_reason:0x20 PON_KPDPWR, power_off_reason:0x0 OTHER_HARDRESET\""),
              std::string::npos)
            << dotting[0];

    // The next boot finds the dump marked as taken: its files are written
    // again, but the boot is a normal one and nothing new is reported.
    Boot();
    EXPECT_EQ(GetProp("vendor.minidump.crash_reason"), "Normal");
    EXPECT_EQ(GetProp("vendor.minidump.is.valid"), "0");
    EXPECT_EQ(Events().size(), 1u);
    EXPECT_EQ(MdHistory().size(), 1u);
    EXPECT_EQ(Read(std::string(kDiag) + "/last_kmsg"), lastKmsg);
}

// Without any partition the run completes and the module leaves; with a
// blackbox but no dump the boot is a normal one, without event or record.
TEST_F(BootRunE2ETest, BootsWithoutADumpAreNormalWithoutEventOrRecord) {
    const std::string log = Boot();
    EXPECT_NE(log.find("[OnAllModulesLoaded] log utils done, quit"), std::string::npos) << log;
    EXPECT_EQ(GetProp("vendor.minidump.is.valid"), "0");
    EXPECT_FALSE(fs::exists(Host("/data/vendor/pellora/events.jsonl")));

    MakeBlackbox();
    Boot();
    EXPECT_EQ(GetProp("vendor.minidump.crash_reason"), "Normal");
    EXPECT_EQ(GetProp("vendor.minidump.is.valid"), "0");
    EXPECT_EQ(GetProp("vendor.blackbox.boot_index"), std::to_string(kBootIndex));
    EXPECT_FALSE(fs::exists(Host("/data/vendor/pellora/events.jsonl")));
    EXPECT_TRUE(MdHistory().empty());
    EXPECT_FALSE(fs::exists(Host(std::string(kDiag) + "/minidump.gz")));
    const Json::Value history = Inspect(Host(kBlackbox))["crash_history"];
    EXPECT_FALSE(history["initialised"].asBool()) << history;
}

// A loop device over the image: the run sizes and reads a real block device.
TEST_F(BootRunE2ETest, BlackboxOnALoopDevice) {
    MakeBlackbox();
    AddOopsDump();
    const std::string image = mRoot.path() + "/blackbox.img";
    fs::rename(Host(kBlackbox), image);
    FILE* attach = popen(("losetup --find --show " + image + " 2>&1").c_str(), "r");
    ASSERT_NE(attach, nullptr);
    char output[256] = {};
    const bool read = fgets(output, sizeof(output), attach) != nullptr;
    const int status = pclose(attach);
    std::string device = read ? output : "";
    if (!device.empty() && device.back() == '\n') device.pop_back();
    if (status != 0 || device.rfind("/dev/loop", 0) != 0) {
        GTEST_SKIP() << "this machine does not allow losetup: " << device;
    }
    struct Detach {
        std::string device;
        ~Detach() { (void)system(("losetup -d " + device).c_str()); }
    } detach{device};
    fs::create_symlink(device, Host(kBlackbox));

    ExpectOopsReported(Boot(), 1);
    const Json::Value image_view = Inspect(device);
    EXPECT_EQ(image_view["size"].asUInt64(), fs::file_size(image));
    EXPECT_EQ(image_view["crash_history"]["header"]["current_num"].asUInt(), 1u);
}

}  // namespace
}  // namespace zelkor::tessel::testing
