// The hardware-info module in the real daemon: sources under the root, the
// kernel node and the blackbox region read back, the region decrypted with
// the development private key.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>

#include "DaemonRoot.h"
#include "TempRoot.h"
#include "hwinfo/DevKey.h"
#include "platform/Platform.h"
#include "platform/Properties.h"

namespace zelkor::tessel::testing {
namespace {

namespace fs = std::filesystem;

constexpr char kNode[] = "/sys/kernel/hardware_info_to_dump/hardw_info";
constexpr char kImage[] = "/dev/block/by-name/blackbox";
constexpr uint64_t kHwinfoOffset = 0x9882000;
constexpr size_t kRecordSize = 346;

class HwInfoE2ETest : public ::testing::Test {
  protected:
    void SetUp() override {
        InstallDaemonManifest(mRoot.path());
        ASSERT_TRUE(platform::SetRoot(mRoot.path()));
        fs::create_directories(Host("/dev/block/by-name"));
        Subprocess image({"tessel-image", "blackbox", "create", Host(kImage)}, Host("/image"));
        ASSERT_EQ(image.wait(), 0);
        Put(kNode, "");
    }
    std::string Host(const std::string& path) const { return mRoot.path() + path; }
    void Put(const std::string& path, const std::string& text) const {
        fs::create_directories(fs::path(Host(path)).parent_path());
        std::ofstream(Host(path)) << text;
    }
    // Every file source, and every property but the front camera's.
    void AllSources() const {
        Put("/proc/mv", "LPDDR5X 12GB\nUFS4.0 256GB\n");
        Put("/sys/devices/soc0/revision", "2.0\n");
        Put("/sys/devices/soc0/serial_number", "0x5eed\n");
        Put("/sys/devices/soc0/soc_id", "557\n");
        Put("/sys/class/zk_display/disp-DSI-0/panel_info", "panel_a 6.7\n");
        Put("/proc/tp_fw_version", "fw 12\n");
        Put("/proc/tp_lockdown_info", "lock 34\n");
        Put("/sys/bootinfo/powerup_reason", "0x20 PON_KPDPWR\n");
        Put("/sys/bootinfo/poweroff_reason", "0x0 OTHER\n");
        Put("/sys/class/qcom-battery/fg_vendor", "ATL\n");
        for (const char* key :
             {"persist.vendor.sys.fp.vendor", "vendor.wlan.firmware.version",
              "ro.vendor.se.chip.model", "vendor.camera.sensor.rearMain.fuseID",
              "vendor.camera.sensor.rearTele.fuseID", "vendor.camera.sensor.rearUltra.fuseID"}) {
            ASSERT_TRUE(platform::SetProperty(key, std::string("v-") + key));
        }
    }
    void Start() {
        mDaemon = std::make_unique<Subprocess>(
                std::vector<std::string>{"tesseld", "--root", mRoot.path()}, Host("/tesseld"));
    }
    std::string Log() const { return mDaemon->err(); }
    std::vector<std::string> NodeLines() const {
        std::ifstream in(Host(kNode));
        std::vector<std::string> lines;
        for (std::string line; std::getline(in, line);) lines.push_back(line + "\n");
        return lines;
    }
    // The region's records, decrypted; stops at the first that is not one.
    std::vector<std::string> RegionRecords() const {
        std::ifstream in(Host(kImage), std::ios::binary);
        in.seekg(kHwinfoOffset);
        std::vector<std::string> records;
        for (std::string record(kRecordSize, '\0');
             in.read(record.data(), kRecordSize) && record.substr(344) == std::string("\n\0", 2);) {
            records.push_back(DecryptWithDevKey(DecodeBase64(record.substr(0, 344))));
        }
        return records;
    }
    bool Done() const { return Log().find("failed after retry") != std::string::npos; }

    TempRoot mRoot;
    std::unique_ptr<Subprocess> mDaemon;
};

TEST_F(HwInfoE2ETest, TheCameraGateHoldsTheRunThenEighteenRecordsGoToBothPlaces) {
    AllSources();
    Start();
    ASSERT_TRUE(WaitFor([&] {
        return Log().find("not ready, waiting for camera hal init") != std::string::npos;
    })) << Log();
    EXPECT_TRUE(NodeLines().empty()) << "nothing before the front camera's fuse id";
    ASSERT_TRUE(platform::SetProperty("vendor.camera.sensor.frontMain.fuseID", "F-1"));
    ASSERT_TRUE(WaitFor([&] { return NodeLines().size() == 18; })) << Log();
    const std::vector<std::string> lines = NodeLines();
    EXPECT_EQ(lines[0], "[DDR]: LPDDR5X 12GB\n");
    EXPECT_EQ(lines[1], "[UFS]: UFS4.0 256GB\n");
    EXPECT_EQ(lines[14], "[CAMERA_FRONTMAIN]: F-1\n");
    EXPECT_EQ(lines[17], "[CAMERA_REARULTRA]: v-vendor.camera.sensor.rearUltra.fuseID\n");
    ASSERT_TRUE(WaitFor([&] { return RegionRecords().size() == 18; }));
    EXPECT_EQ(RegionRecords(), lines) << "the region decrypts to the node's text, in order";
    // A reader that shares nothing with this project, the openssl tool, with
    // the development private key, decrypts every record to the node's line.
    std::ifstream in(Host(kImage), std::ios::binary);
    in.seekg(kHwinfoOffset);
    for (size_t i = 0; i < lines.size(); ++i) {
        std::string record(kRecordSize, '\0');
        in.read(record.data(), kRecordSize);
        const std::string cipher = Host("/record.bin");
        std::ofstream(cipher, std::ios::binary) << DecodeBase64(record.substr(0, 344));
        const std::string command = "openssl pkeyutl -decrypt -inkey " +
                                    std::string(TESSEL_SOURCE_DIR) +
                                    "/keys/hwinfo_dev_ONLY_private.pem -in " + cipher;
        FILE* pipe = popen(command.c_str(), "r");
        ASSERT_NE(pipe, nullptr);
        std::string plain;
        for (int c; (c = fgetc(pipe)) != EOF;) plain += static_cast<char>(c);
        ASSERT_EQ(pclose(pipe), 0) << "openssl is installed by make deps";
        EXPECT_EQ(plain, lines[i]);
    }

    // The offline reader finds the region through the headers (or their
    // defaults when they are garbage) and prints what the node holds; a
    // damaged record is reported by its place and the rest still shown.
    const std::string key = std::string(TESSEL_SOURCE_DIR) + "/keys/hwinfo_dev_ONLY_private.pem";
    Subprocess reader({"tessel-image", "hwinfo", Host(kImage), "--key", key}, Host("/reader"));
    EXPECT_EQ(reader.wait(), 0);
    EXPECT_EQ(reader.out(), ReadWholeFile(Host(kNode)));
    {
        std::fstream image(Host(kImage), std::ios::in | std::ios::out | std::ios::binary);
        image.seekp(0);
        image << "garbage headers";
        image.seekp(kHwinfoOffset + 2 * kRecordSize + 10);
        image << '*';
    }
    Subprocess damaged({"tessel-image", "hwinfo", Host(kImage), "--key", key}, Host("/damaged"));
    EXPECT_EQ(damaged.wait(), 1);
    EXPECT_EQ(damaged.err(), "record 2 at 0x98822b4: not base64\n");
    std::string expected;
    for (size_t i = 0; i < lines.size(); ++i) expected += i == 2 ? "" : lines[i];
    EXPECT_EQ(damaged.out(), expected);
    Subprocess inspect({"tessel-image", "inspect", Host(kImage), "--json"}, Host("/inspect"));
    inspect.wait();
    EXPECT_NE(inspect.out().find("\"records\" : 18"), std::string::npos) << inspect.out();
}

// The rear main camera's fuse id comes during its wait and is written in its
// place; the panel file comes during the first pass and its retry writes it
// after every first-pass record.
TEST_F(HwInfoE2ETest, LateValuesLandInTheirPlaceOrAfterTheFirstPass) {
    AllSources();
    ASSERT_TRUE(platform::SetProperty("vendor.camera.sensor.frontMain.fuseID", "F-1"));
    fs::remove(Host("/dev/__properties__/vendor.camera.sensor.rearMain.fuseID"));
    fs::remove(Host("/sys/class/zk_display/disp-DSI-0/panel_info"));
    Start();
    ASSERT_TRUE(WaitFor([&] {
        return Log().find("retry or waiting for DISPLAY") != std::string::npos;
    })) << Log();
    Put("/sys/class/zk_display/disp-DSI-0/panel_info", "late panel\n");
    ASSERT_TRUE(WaitFor([&] {
        return Log().find("retry or waiting for CAMERA_REARMAIN") != std::string::npos;
    })) << Log();
    ASSERT_TRUE(platform::SetProperty("vendor.camera.sensor.rearMain.fuseID", "R-1"));
    ASSERT_TRUE(WaitFor([&] { return NodeLines().size() == 18; })) << Log();
    const std::vector<std::string> lines = NodeLines();
    EXPECT_EQ(lines[14], "[CAMERA_REARMAIN]: R-1\n");
    EXPECT_EQ(lines[17], "[DISPLAY]: late panel\n");
    ASSERT_TRUE(WaitFor([&] { return RegionRecords().size() == 18; }));
    EXPECT_EQ(RegionRecords(), lines);
}

TEST_F(HwInfoE2ETest, MissingValuesAreRetriedAfterTheFirstPassAndLongOnesStayInTheNode) {
    AllSources();
    ASSERT_TRUE(platform::SetProperty("vendor.camera.sensor.frontMain.fuseID", "F-1"));
    Put("/proc/mv", "LPDDR5X 12GB\n");  // no UFS line
    fs::remove(Host("/proc/tp_fw_version"));
    Put("/sys/class/zk_display/disp-DSI-0/panel_info", std::string(250, 'p') + "\n");
    Start();
    ASSERT_TRUE(WaitFor([&] {
        return Log().find("TP_IC_FW_VERSION failed after retry") != std::string::npos;
    })) << Log();
    const std::string log = Log();
    // UFS (item 2) is retried after TP_IC_FW_VERSION (item 7) was first read.
    EXPECT_LT(log.find("retry or waiting for TP_IC_FW_VERSION"),
              log.find("Getting info for UFS failed after retry! ignored!"))
            << "retries run after the whole first pass";
    EXPECT_EQ(log.find("line index is invalid"), std::string::npos);
    const std::vector<std::string> lines = NodeLines();
    ASSERT_EQ(lines.size(), 16u);
    EXPECT_EQ(lines[4], "[DISPLAY]: " + std::string(250, 'p') + "\n");
    // The 262-byte record is too long for the key: the node only, and quietly.
    std::vector<std::string> records = RegionRecords();
    ASSERT_EQ(records.size(), 15u);
    EXPECT_EQ(records[4], lines[5]);
    EXPECT_EQ(log.find("Write to blackbox failed!"), std::string::npos);
}

TEST_F(HwInfoE2ETest, AFilledKernelNodeStopsTheModuleWithoutWrites) {
    AllSources();
    ASSERT_TRUE(platform::SetProperty("vendor.camera.sensor.frontMain.fuseID", "F-1"));
    Put(kNode, "[DDR]: from an earlier run\n");
    Start();
    ASSERT_TRUE(WaitFor([&] {
        return Log().find("kernel buff is not empty, will not continue!") != std::string::npos;
    })) << Log();
    ASSERT_TRUE(WaitFor([&] {
        return std::regex_search(Log(), std::regex(R"(HardWareInfo\(\d+\) exit loop)"));
    })) << "the module removes itself";
    EXPECT_EQ(ReadWholeFile(Host(kNode)), "[DDR]: from an earlier run\n");
    EXPECT_TRUE(RegionRecords().empty());
}

TEST_F(HwInfoE2ETest, WithoutABlackboxOnlyTheNodeIsWritten) {
    AllSources();
    ASSERT_TRUE(platform::SetProperty("vendor.camera.sensor.frontMain.fuseID", "F-1"));
    fs::remove(Host(kImage));
    Start();
    ASSERT_TRUE(WaitFor([&] { return NodeLines().size() == 18; })) << Log();
    EXPECT_NE(Log().find("Open blackbox partition failed! This device may not supported "
                         "blackbox."),
              std::string::npos);
    EXPECT_FALSE(fs::exists(Host(kImage)));
}

TEST_F(HwInfoE2ETest, WithoutTheKernelNodeTheModuleStops) {
    AllSources();
    ASSERT_TRUE(platform::SetProperty("vendor.camera.sensor.frontMain.fuseID", "F-1"));
    fs::remove(Host(kNode));
    Start();
    ASSERT_TRUE(WaitFor([&] {
        return std::regex_search(Log(), std::regex(R"(HardWareInfo\(\d+\) exit loop)"));
    })) << Log();
    EXPECT_NE(Log().find("Open kernel node failed! can not continue!! error: 2("),
              std::string::npos);
    EXPECT_TRUE(RegionRecords().empty());
}

}  // namespace
}  // namespace zelkor::tessel::testing
