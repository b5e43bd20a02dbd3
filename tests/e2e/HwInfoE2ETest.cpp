// The hardware-info module in the real daemon: sources under the root, the
// kernel node and the blackbox region read back, the region decrypted with
// the development private key.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>

#include "DaemonTest.h"
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

// A root with a blackbox image, an empty kernel node and every source the
// module reads, the front camera's fuse id included.
class HwInfoE2ETest : public DaemonTest {
  protected:
    void SetUp() override {
        ASSERT_TRUE(platform::SetRoot(mRoot.path()));
        fs::create_directories(Host("/dev/block/by-name"));
        ASSERT_EQ(Run({"tessel-image", "blackbox", "create", Host(kImage)}).status, 0);
        Put(kNode, "");
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
        ASSERT_TRUE(platform::SetProperty("vendor.camera.sensor.frontMain.fuseID", "F-1"));
    }
    void Start() {
        mDaemon.reset();
        mDaemon = StartDaemon();
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

    std::unique_ptr<Subprocess> mDaemon;
};

TEST_F(HwInfoE2ETest, TheCameraGateHoldsTheRunThenEighteenRecordsGoToBothPlaces) {
    fs::remove(Host("/dev/__properties__/vendor.camera.sensor.frontMain.fuseID"));
    Start();
    ASSERT_TRUE(Logged(*mDaemon, "not ready, waiting for camera hal init")) << Log();
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

    // The offline reader finds the region through the headers (or their
    // defaults when they are garbage) and prints what the node holds; a
    // damaged record is reported by its place and the rest still shown.
    const std::vector<std::string> reader = {
            "tessel-image", "hwinfo", Host(kImage), "--key",
            std::string(TESSEL_SOURCE_DIR) + "/keys/hwinfo_dev_ONLY_private.pem"};
    const ToolRun whole = Run(reader);
    EXPECT_EQ(whole.status, 0);
    EXPECT_EQ(whole.out, ReadWholeFile(Host(kNode)));
    {
        std::fstream image(Host(kImage), std::ios::in | std::ios::out | std::ios::binary);
        image << "garbage headers";
        image.seekp(kHwinfoOffset + 2 * kRecordSize + 10);
        image << '*';
    }
    const ToolRun damaged = Run(reader);
    EXPECT_EQ(damaged.status, 1);
    EXPECT_EQ(damaged.err, "record 2 at 0x98822b4: not base64\n");
    std::string expected;
    for (size_t i = 0; i < lines.size(); ++i) expected += i == 2 ? "" : lines[i];
    EXPECT_EQ(damaged.out, expected);
    const ToolRun inspect = Run({"tessel-image", "inspect", Host(kImage), "--json"});
    EXPECT_NE(inspect.out.find("\"records\" : 18"), npos) << inspect.out;
}

// The rear main camera's fuse id comes during its wait and is written in its
// place; the panel file comes during the first pass and its retry writes it
// after every first-pass record; the UFS line and the touch firmware file
// never come, and their retries run after the whole first pass.
TEST_F(HwInfoE2ETest, LateValuesLandInTheirPlaceOrAfterTheFirstPassMissingOnesAreLeftOut) {
    fs::remove(Host("/dev/__properties__/vendor.camera.sensor.rearMain.fuseID"));
    fs::remove(Host("/sys/class/zk_display/disp-DSI-0/panel_info"));
    fs::remove(Host("/proc/tp_fw_version"));
    Put("/proc/mv", "LPDDR5X 12GB\n");  // no UFS line
    Start();
    ASSERT_TRUE(Logged(*mDaemon, "retry or waiting for DISPLAY")) << Log();
    Put("/sys/class/zk_display/disp-DSI-0/panel_info", std::string(250, 'p') + "\n");
    ASSERT_TRUE(Logged(*mDaemon, "retry or waiting for CAMERA_REARMAIN")) << Log();
    ASSERT_TRUE(platform::SetProperty("vendor.camera.sensor.rearMain.fuseID", "R-1"));
    ASSERT_TRUE(Logged(*mDaemon, "TP_IC_FW_VERSION failed after retry")) << Log();
    ASSERT_TRUE(WaitFor([&] { return NodeLines().size() == 16; })) << Log();
    const std::string log = Log();
    // UFS (item 2) is retried after TP_IC_FW_VERSION (item 7) was first read.
    EXPECT_LT(log.find("retry or waiting for TP_IC_FW_VERSION"),
              log.find("Getting info for UFS failed after retry! ignored!"));
    EXPECT_EQ(log.find("line index is invalid"), npos);
    const std::vector<std::string> lines = NodeLines();
    EXPECT_EQ(lines[12], "[CAMERA_REARMAIN]: R-1\n");
    EXPECT_EQ(lines[15], "[DISPLAY]: " + std::string(250, 'p') + "\n");
    // The 262-byte record is too long for the key: the node only, and quietly.
    EXPECT_EQ(RegionRecords(), std::vector<std::string>(lines.begin(), lines.end() - 1));
    EXPECT_EQ(log.find("Write to blackbox failed!"), npos);
}

TEST_F(HwInfoE2ETest, WithoutABlackboxOnlyTheNodeIsWritten) {
    fs::remove(Host(kImage));
    Start();
    ASSERT_TRUE(WaitFor([&] { return NodeLines().size() == 18; })) << Log();
    EXPECT_NE(Log().find("Open blackbox partition failed! This device may not supported "
                         "blackbox."),
              npos);
    EXPECT_FALSE(fs::exists(Host(kImage)));
}

// A kernel node holding an earlier run's text, or none at all: the module
// removes itself and writes nowhere.
TEST_F(HwInfoE2ETest, AFilledOrMissingKernelNodeStopsTheModuleWithoutWrites) {
    const std::pair<const char*, const char*> cases[] = {
            {"[DDR]: from an earlier run\n", "kernel buff is not empty, will not continue!"},
            {nullptr, "Open kernel node failed! can not continue!! error: 2("}};
    for (const auto& [node, message] : cases) {
        SCOPED_TRACE(message);
        if (node != nullptr) Put(kNode, node);
        if (node == nullptr) fs::remove(Host(kNode));
        Start();
        ASSERT_TRUE(WaitFor([&] {
            return std::regex_search(Log(), std::regex(R"(HardWareInfo\(\d+\) exit loop)"));
        })) << Log();
        EXPECT_NE(Log().find(message), npos) << Log();
        EXPECT_EQ(ReadWholeFile(Host(kNode)), node != nullptr ? node : "");
        EXPECT_TRUE(RegionRecords().empty());
    }
}

}  // namespace
}  // namespace zelkor::tessel::testing
