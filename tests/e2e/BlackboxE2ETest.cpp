// The blackbox service of the real daemon through tesselctl blackbox, on a
// root whose partition tessel-image made; tessel-image reads the result back.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "DaemonTest.h"

namespace zelkor::tessel::testing {
namespace {

namespace fs = std::filesystem;

class BlackboxE2ETest : public DaemonTest {
  protected:
    void SetUp() override {
        fs::create_directories(Host("/dev/block/by-name"));
        ASSERT_EQ(Run({"tessel-image", "blackbox", "create", Host(kImage)}).status, 0);
        mDaemon = StartDaemon();
    }
    ToolRun Box(std::vector<std::string> args) {
        args.insert(args.begin(), "blackbox");
        return Ctl(std::move(args));
    }
    // The image's dotting records, as tessel-image reads them.
    std::vector<std::string> Records() {
        const Json::Value root =
                ParseJson(Run({"tessel-image", "inspect", Host(kImage), "--json"}).out);
        std::vector<std::string> records;
        for (const char* part : {"boot", "ring"}) {
            for (const Json::Value& record : root["blackbox"]["dotting"][part]) {
                records.push_back(record.asString());
            }
        }
        return records;
    }

    static constexpr char kImage[] = "/dev/block/by-name/blackbox";
    std::unique_ptr<Subprocess> mDaemon;
};

// Arguments that do not fit are refused before any call; every method
// then called leaves its record, the runtime log excepted.
TEST_F(BlackboxE2ETest, BadArgumentsReachNothingAndEveryMethodLeavesItsRecord) {
    for (const std::vector<std::string>& args : {std::vector<std::string>{"log", "--type"},
                                                 {"log", "--slot", "x"},
                                                 {"config", "isUartEnable", "4294967296"},
                                                 {"dot", "only", "two"},
                                                 {"frob"}}) {
        const ToolRun r = Box(args);
        EXPECT_EQ(r.status, 2) << args[0];
        EXPECT_NE(r.err.find("blackbox "), npos);
    }
    EXPECT_EQ(Records().size(), 0u) << "nothing reached the service";

    const ToolRun dot = Box({"dot", "e2e", "2026-11-25 8:00:00", "hello"});
    EXPECT_EQ(dot.status, 1);
    EXPECT_EQ(dot.err.rfind("blackbox dot: UNKNOWN_ERROR (0x80000000)\n", 0), 0u) << dot.err;

    EXPECT_EQ(Box({"config", "isUartEnable", "1"}).out, "1\n");
    EXPECT_EQ(Box({"config", "isUartEnable"}).out, "1\n");
    EXPECT_EQ(Box({"config", "--json", R"({"isOEMDebugUartLogLevel": true})"}).out, "1\n");
    EXPECT_EQ(Box({"config"}).out,
              "{\"isForceQpstWhenFulldump\":0,\"isOEMDebugUartLogLevel\":1,\"isUartEnable\":0}\n");
    const ToolRun unknown = Box({"config", "IsUartEnable"});
    EXPECT_EQ(unknown.status, 1);
    EXPECT_EQ(unknown.err, "blackbox config: INVALID_OPERATION (-38)\n");

    Put("/sys/kernel/hardware_info_to_dump/hardw_info", "panel: x\n");
    EXPECT_EQ(Box({"hwinfo"}).out, "panel: x\n");
    Put("/dev/kmsg", "6,1,0,-;booted\n");
    EXPECT_EQ(Box({"runtime-log"}).out, "6,1,0,-;booted\n");
    const std::string kmsg = Scratch("kmsg");
    EXPECT_EQ(Box({"runtime-log", "--out", kmsg}).status, 0);
    EXPECT_EQ(ReadWholeFile(kmsg), "6,1,0,-;booted\n");
    const std::string slot = Scratch("slot0");
    EXPECT_EQ(Box({"log", "--slot", "0", "--out", slot}).status, 0);
    EXPECT_EQ(fs::file_size(slot), 512000u);
    EXPECT_EQ(Box({"log", "--slot", "6"}).err, "blackbox log: INVALID_OPERATION (-38)\n");
    EXPECT_EQ(Box({"log", "--type", "6"})
                      .out.rfind("{\"1\", \"e2e\", \"2026-11-25 8:00:00\", "
                                 "\"hello\"}\n",
                                 0),
              0u);

    const std::vector<std::string> records = Records();
    ASSERT_GE(records.size(), 7u);
    EXPECT_EQ(records[0], "{\"1\", \"e2e\", \"2026-11-25 8:00:00\", \"hello\"}");
    std::vector<std::string> operations;
    for (size_t i = 1; i < records.size(); ++i) {
        const size_t at = records[i].rfind(", \"");
        operations.push_back(records[i].substr(at + 3, records[i].size() - at - 5));
    }
    EXPECT_EQ(operations,
              (std::vector<std::string>{"setBlackboxConfig", "getBlackboxConfig",
                                        "setAllBlackboxConfig", "getAllBlackboxConfig",
                                        "getHardwareInfo", "getStreamLogByPfd", "getStreamLog"}))
            << "the runtime log leaves no record";
    EXPECT_TRUE(mDaemon->running());
}

}  // namespace
}  // namespace zelkor::tessel::testing
