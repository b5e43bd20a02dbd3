// Drives the real tesseld and tesselctl binaries on temporary roots.
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <fstream>

#include "Subprocess.h"
#include "TempRoot.h"

namespace zelkor::tessel::testing {
namespace {

class DaemonE2ETest : public ::testing::Test {
  protected:
    std::string out(const std::string& name) const { return mRoot.path() + "/" + name; }
    std::string ctl(std::vector<std::string> args, int* status = nullptr) {
        args.insert(args.begin(), {"tesselctl", "--root", mRoot.path()});
        std::string stdoutText;
        int rc = RunTool(args, out("ctl"), &stdoutText);
        if (status != nullptr) *status = rc;
        return stdoutText;
    }
    TempRoot mRoot;
};

// A root is an existing folder however it is given; anything else is named,
// with exit status 2, before the program does anything.
TEST_F(DaemonE2ETest, RootMustBeAnExistingFolder) {
    const std::string file = out("plain-file");
    { std::ofstream(file) << "x"; }
    struct Case {
        std::vector<std::string> args;
        std::vector<std::string> env;
        std::string message;
    } cases[] = {
            {{"--root", file}, {}, "--root " + file + ": not a folder"},
            {{"--root", "/nonexistent"}, {}, "--root /nonexistent: not a folder"},
            {{}, {"TESSEL_ROOT=" + file}, "TESSEL_ROOT " + file + ": not a folder"},
            {{}, {"TESSEL_ROOT=/nonexistent"}, "TESSEL_ROOT /nonexistent: not a folder"},
            {{}, {"TESSEL_ROOT="}, "no host root: pass --root DIR or set TESSEL_ROOT"},
    };
    for (const char* program : {"tesseld", "tesselctl", "tessel-peer"}) {
        for (const Case& c : cases) {
            SCOPED_TRACE(std::string(program) + " " + c.message);
            std::vector<std::string> args{program};
            args.insert(args.end(), c.args.begin(), c.args.end());
            if (std::string(program) == "tesselctl") args.push_back("list");
            Subprocess tool(args, out("root"), c.env);
            EXPECT_EQ(tool.wait(), 2);
            EXPECT_NE(tool.err().find(c.message), std::string::npos) << tool.err();
        }
    }
}

TEST_F(DaemonE2ETest, TesselctlNamesWhatItDoesNotKnow) {
    Subprocess unknown({"tesselctl", "--root", mRoot.path(), "frobnicate"}, out("ctl"));
    EXPECT_EQ(unknown.wait(), 2);
    EXPECT_NE(unknown.err().find("unknown command 'frobnicate'"), std::string::npos);
    Subprocess wrong({"tesselctl", "--root", mRoot.path(), "setprop", "only.key"}, out("ctl"));
    EXPECT_EQ(wrong.wait(), 2);
    EXPECT_NE(wrong.err().find("setprop: wrong number of arguments"), std::string::npos);
}

// A log-folder configuration is checked as the daemon would convert it, with
// no root and no daemon: what it keeps, where each folder lies, and the first
// record and key it refuses.
TEST_F(DaemonE2ETest, TesselctlChecksALogConfiguration) {
    const std::string good = out("good.json");
    std::ofstream(good) << R"([{"folderName": "modem", "inVendor": true, "maxSize": 204800,
        "maxValidDay": 7, "compress": true, "children": [{"folderName": "ssr",
        "maxLogNumber": 5}]}, {"folderName": "wlan", "folderPath": "/data/vendor/wlan_logs"}])";
    Subprocess ok({"tesselctl", "logconfig", good}, out("ctl"));
    EXPECT_EQ(ok.wait(), 0) << ok.err();
    EXPECT_EQ(ok.out(),
              "modem: /data/vendor/bsplog/modem\n"
              "  maxSize 204800 KiB, reuseMaxSize 0 KiB, maxValidDay 7, maxLogNumber 0, "
              "compressLatestAfterSec 0\n"
              "  compress 1, delayCompress 0, pushEventOnly 0, watchSSRRamdumpHack 0, inVendor 1\n"
              "  ssr: /data/vendor/bsplog/modem/ssr\n"
              "    maxSize 0 KiB, reuseMaxSize 0 KiB, maxValidDay 0, maxLogNumber 5, "
              "compressLatestAfterSec 0\n"
              "    compress 0, delayCompress 0, pushEventOnly 0, watchSSRRamdumpHack 0, "
              "inVendor 0\n"
              "wlan: /data/vendor/wlan_logs\n"
              "  maxSize 0 KiB, reuseMaxSize 0 KiB, maxValidDay 0, maxLogNumber 0, "
              "compressLatestAfterSec 0\n"
              "  compress 0, delayCompress 0, pushEventOnly 0, watchSSRRamdumpHack 0, "
              "inVendor 0\n");

    const struct {
        std::string json;
        std::string message;
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
    };
    for (const auto& c : bad) {
        SCOPED_TRACE(c.json);
        std::ofstream(out("bad.json")) << c.json;
        Subprocess check({"tesselctl", "--root", mRoot.path(), "logconfig", out("bad.json")},
                         out("ctl"));
        EXPECT_EQ(check.wait(), 1);
        EXPECT_NE(check.err().find(c.message), std::string::npos) << check.err();
    }
    Subprocess missing({"tesselctl", "logconfig", out("missing.json")}, out("ctl"));
    EXPECT_EQ(missing.wait(), 1);
    EXPECT_NE(missing.err().find("logconfig: cannot read " + out("missing.json")),
              std::string::npos);
}

// A sanitizer in a child writes its report to "<log_path>.<pid>"; such a file
// fails the test that started the child, whatever the child's exit status.
TEST_F(DaemonE2ETest, AChildsSanitizerReportFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(
            {
                Subprocess child({"tesselctl", "--root", mRoot.path(), "list"}, out("child"));
                ASSERT_EQ(child.wait(), 0);
                std::ofstream(out("child") + ".sanitizer." + std::to_string(child.pid()))
                        << "ERROR: AddressSanitizer: heap-use-after-free";
            },
            "sanitizer report from");
    // Without a report nothing is added.
    Subprocess clean({"tesselctl", "--root", mRoot.path(), "list"}, out("clean"));
    EXPECT_EQ(clean.wait(), 0);
    EXPECT_EQ(clean.sanitizerReport(), "");
}

TEST_F(DaemonE2ETest, PropertiesCrossProcesses) {
    int status = -1;
    ctl({"setprop", "vendor.blackbox.boot_index", "17"}, &status);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(ctl({"getprop", "vendor.blackbox.boot_index"}), "17\n");
    EXPECT_EQ(ctl({"getprop", "vendor.unset", "fallback"}), "fallback\n");
    ctl({"setprop", "bad..name", "1"}, &status);
    EXPECT_EQ(status, 1);
    ctl({"waitprop", "vendor.never", "--timeout", "30"}, &status);
    EXPECT_EQ(status, 1);
}

TEST_F(DaemonE2ETest, WaiterInAnotherProcessWakesOnSet) {
    Subprocess creation({"tesselctl", "--root", mRoot.path(), "waitprop", "vendor.camera.ready"},
                        out("wait1"));
    Subprocess value({"tesselctl", "--root", mRoot.path(), "waitprop", "vendor.camera.state", "on"},
                     out("wait2"));
    ASSERT_TRUE(creation.started());
    ASSERT_TRUE(value.started());
    int status = -1;
    ctl({"setprop", "vendor.camera.state", "off"}, &status);
    ASSERT_EQ(status, 0);
    ctl({"setprop", "vendor.camera.ready", "1"}, &status);
    ASSERT_EQ(status, 0);
    EXPECT_EQ(creation.wait(), 0);
    EXPECT_TRUE(value.running()) << "waits for the value, not just the property";
    ctl({"setprop", "vendor.camera.state", "on"}, &status);
    EXPECT_EQ(value.wait(), 0);
}

TEST_F(DaemonE2ETest, DaemonStartsModulesAndParks) {
    Subprocess daemon({"tesseld", "--root", mRoot.path()}, out("tesseld"));
    ASSERT_TRUE(daemon.started());
    // Modules load on the manager's thread while main goes on: wait for both.
    ASSERT_TRUE(WaitFor([&] {
        const std::string log = daemon.err();
        return log.find("[_loadModules] Loaded") != std::string::npos &&
               log.find("Tessel is started!") != std::string::npos;
    })) << daemon.err();
    const std::string log = daemon.err();
    size_t starting = log.find("Tessel is starting...");
    size_t started = log.find("Tessel is started!");
    ASSERT_NE(starting, std::string::npos);
    ASSERT_NE(started, std::string::npos);
    EXPECT_LT(starting, started);
    EXPECT_NE(log.find("[run] ModuleManager("), std::string::npos);
    EXPECT_TRUE(daemon.running()) << "the daemon parks instead of returning";
    daemon.signal(SIGTERM);
    EXPECT_EQ(daemon.wait(), 128 + SIGTERM);
}

TEST_F(DaemonE2ETest, RefusesToRunWithoutARoot) {
    unsetenv("TESSEL_ROOT");
    Subprocess missing({"tesseld", "--root", mRoot.path() + "/missing"}, out("bad"));
    EXPECT_EQ(missing.wait(), 2);
    EXPECT_NE(missing.err().find("not a folder"), std::string::npos);
    Subprocess dangling({"tesselctl", "getprop", "a.b", "--root"}, out("dangling"));
    EXPECT_EQ(dangling.wait(), 2);
    EXPECT_NE(dangling.err().find("--root needs a folder"), std::string::npos);
    Subprocess none({"tesseld"}, out("none"));
    EXPECT_EQ(none.wait(), 2);
    EXPECT_NE(none.err().find("no host root"), std::string::npos);
}

}  // namespace
}  // namespace zelkor::tessel::testing
