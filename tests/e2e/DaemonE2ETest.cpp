// Drives the real tesseld and tesselctl binaries on temporary roots.
#include <gtest/gtest.h>

#include <fstream>

#include "DaemonTest.h"

namespace zelkor::tessel::testing {
namespace {

using DaemonE2ETest = DaemonTest;

// A root is an existing folder however it is given; anything else is named,
// with exit status 2, before the program does anything.
TEST_F(DaemonE2ETest, RootMustBeAnExistingFolder) {
    const std::string file = Scratch("plain-file");
    std::ofstream(file) << "x";
    const struct {
        std::vector<std::string> args, env;
        std::string message;
    } cases[] = {
            {{"--root", file}, {}, "--root " + file + ": not a folder"},
            {{"--root", "/nonexistent"}, {}, "--root /nonexistent: not a folder"},
            {{"--root"}, {}, "--root needs a folder"},
            // An empty value does not fall back to a good TESSEL_ROOT.
            {{"--root="}, {"TESSEL_ROOT=" + mRoot.path()}, "--root needs a folder"},
            {{"--root", ""}, {"TESSEL_ROOT=" + mRoot.path()}, "--root needs a folder"},
            {{}, {"TESSEL_ROOT=" + file}, "TESSEL_ROOT " + file + ": not a folder"},
            {{}, {"TESSEL_ROOT=/nonexistent"}, "TESSEL_ROOT /nonexistent: not a folder"},
            {{}, {"TESSEL_ROOT="}, "no host root: pass --root DIR or set TESSEL_ROOT"},
    };
    for (const std::string program : {"tesseld", "tesselctl", "tessel-peer"}) {
        for (const auto& c : cases) {
            std::vector<std::string> args{program};
            if (program == "tesselctl") args.push_back("list");
            args.insert(args.end(), c.args.begin(), c.args.end());
            const ToolRun r = Run(args, "", c.env);
            EXPECT_EQ(r.status, 2) << program << " " << c.message;
            EXPECT_NE(r.err.find(c.message), npos) << program << ": " << r.err;
        }
    }
}

// Commands tesselctl cannot run, with no daemon on the root: wrong ones exit
// with 2, calls to the missing daemon with 1.
TEST_F(DaemonE2ETest, TesselctlNamesWhatItCannotDo) {
    const struct {
        std::vector<std::string> args;
        int status;
        std::string message;
    } cases[] = {
            {{"frobnicate"}, 2, "unknown command 'frobnicate'"},
            {{"setprop", "only.key"}, 2, "setprop: wrong number of arguments"},
            {{"transfer", "a", "{}"},
             1,
             "transfer: vendor.zelkor.hardware.tessel.common.IHalvexIntl/default is not running"},
            {{"dump"},
             1,
             "dump: vendor.zelkor.hardware.tessel.common.ITesselImpl/default is not running"},
    };
    for (const auto& c : cases) {
        const ToolRun r = Ctl(c.args);
        EXPECT_EQ(r.status, c.status) << c.message;
        EXPECT_NE(r.err.find(c.message), npos) << r.err;
    }
    const ToolRun list = Ctl({"list"});
    EXPECT_EQ(list.status, 0);
    EXPECT_EQ(list.out, "");
}

// A log-folder configuration is checked as the daemon would convert it, with
// no root and no daemon: what it keeps, where each folder lies, and the first
// record and key it refuses.
TEST_F(DaemonE2ETest, TesselctlChecksALogConfiguration) {
    std::ofstream(Scratch("good.json")) << R"([{"folderName": "modem", "inVendor": true,
        "maxSize": 204800, "maxValidDay": 7, "compress": true, "children": [{"folderName": "ssr",
        "maxLogNumber": 5}]}])";
    const ToolRun ok = Run({"tesselctl", "logconfig", Scratch("good.json")});
    EXPECT_EQ(ok.status, 0) << ok.err;
    EXPECT_EQ(ok.out,
              "modem: /data/vendor/bsplog/modem\n"
              "  maxSize 204800 KiB, reuseMaxSize 0 KiB, maxValidDay 7, maxLogNumber 0, "
              "compressLatestAfterSec 0\n"
              "  compress 1, delayCompress 0, pushEventOnly 0, watchSSRRamdumpHack 0, inVendor 1\n"
              "  ssr: /data/vendor/bsplog/modem/ssr\n"
              "    maxSize 0 KiB, reuseMaxSize 0 KiB, maxValidDay 0, maxLogNumber 5, "
              "compressLatestAfterSec 0\n"
              "    compress 0, delayCompress 0, pushEventOnly 0, watchSSRRamdumpHack 0, "
              "inVendor 0\n");

    const struct {
        std::string json, message;
    } bad[] = {
            {R"([{"folderName": "a"}, {"folderName": "b", "children": [{"maxSize": -1}]}])",
             "logconfig: record 1, children[0], key \"maxSize\": -1 is not an unsigned 64-bit "
             "number; the daemon keeps the 1 record(s) before it"},
            {R"([{"compress": "yes"}])",
             "record 0, key \"compress\": \"yes\" is not true or false"},
            {R"([{"children": null}])", "record 0, key \"children\": null is not an array"},
            {R"([5])", "record 0: 5 is not an object"},
            {R"({"folderName": "a"})", "holds {\"folderName\":\"a\"}, not an array of records"},
            {R"([{"folderName": )", "is not JSON"},
            {"", "logconfig: cannot read " + Scratch("missing.json")},
    };
    for (const auto& c : bad) {
        const std::string path = Scratch(c.json.empty() ? "missing.json" : "bad.json");
        if (!c.json.empty()) std::ofstream(path) << c.json;
        const ToolRun check = Ctl({"logconfig", path});
        EXPECT_EQ(check.status, 1) << c.json;
        EXPECT_NE(check.err.find(c.message), npos) << check.err;
    }
}

TEST_F(DaemonE2ETest, PropertiesCrossProcessesAndWakeTheirWaiters) {
    Subprocess creation({"tesselctl", "--root", mRoot.path(), "waitprop", "vendor.camera.ready"},
                        Scratch("wait1"));
    Subprocess value({"tesselctl", "--root", mRoot.path(), "waitprop", "vendor.camera.state", "on"},
                     Scratch("wait2"));
    ASSERT_TRUE(creation.started() && value.started());
    ASSERT_EQ(Ctl({"setprop", "vendor.camera.state", "off"}).status, 0);
    ASSERT_EQ(Ctl({"setprop", "vendor.camera.ready", "1"}).status, 0);
    EXPECT_EQ(creation.wait(), 0);
    EXPECT_TRUE(value.running()) << "waits for the value, not just the property";
    EXPECT_EQ(Ctl({"getprop", "vendor.camera.state"}).out, "off\n");
    EXPECT_EQ(Ctl({"getprop", "vendor.unset", "fallback"}).out, "fallback\n");
    EXPECT_EQ(Ctl({"setprop", "bad..name", "1"}).status, 1);
    EXPECT_EQ(Ctl({"waitprop", "vendor.never", "--timeout", "30"}).status, 1);
    ASSERT_EQ(Ctl({"setprop", "vendor.camera.state", "on"}).status, 0);
    EXPECT_EQ(value.wait(), 0);
}

}  // namespace
}  // namespace zelkor::tessel::testing
