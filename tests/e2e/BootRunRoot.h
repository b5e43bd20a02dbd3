// A temporary root for boot runs of tesseld, driven the way a BSP engineer
// drives it: partition images made with tessel-image, tessel-peer serving
// the core service, tesseld booted on the root, then the properties, the
// diagnostic files, the crash events and the images inspected afterwards.
#pragma once

#include <gtest/gtest.h>
#include <json/json.h>
#include <signal.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "DaemonTest.h"
#include "LogRecords.h"

namespace zelkor::tessel::testing {

constexpr char kBlackbox[] = "/dev/block/by-name/blackbox";
constexpr char kDiag[] = "/data/vendor/diag";
constexpr char kBuild[] = "e2e.20261121";
// The boot counter the blackbox is created with; the crashed boot is the one
// before it.
constexpr int kBootIndex = 42;
constexpr char kSummary[] =
        "[  163.745001][    L1] Unable to handle kernel NULL pointer dereference at virtual "
        "address 0000000000000000";
constexpr char kFrames[] =
        "  faulty_write+0x14;  ksys_write+0x68;  __arm64_sys_write+0x20;  invoke_syscall+0x54;"
        "  el0_svc_common.constprop.0+0x44;  do_el0_svc+0x40;  el0_svc+0x20;"
        "  el0t_64_sync_handler+0xe8;";

// The kernel's printk records for the lines of a /dev/kmsg dump
// ("level,seq,usec,flags;text").
inline std::string PrintkRecords(const std::string& kmsgPath) {
    std::ifstream in(kmsgPath);
    std::string records;
    for (std::string line; std::getline(in, line);) {
        const size_t semicolon = line.find(';');
        unsigned level = 0, seq = 0;
        unsigned long long usec = 0;
        if (semicolon == std::string::npos ||
            sscanf(line.c_str(), "%u,%u,%llu", &level, &seq, &usec) != 3) {
            ADD_FAILURE() << "not a kmsg line: " << line;
            continue;
        }
        records += PrintkRecord(usec * 1000, level & 7, line.substr(semicolon + 1));
    }
    return records;
}

class BootRunRoot : public ToolRoot {
  public:
    BootRunRoot() {
        PrepareBootRoot(mRoot.path());
        Out(Ctl({"setprop", "ro.build.version.incremental", kBuild}));
    }

    std::string GetProp(const std::string& name) {
        std::string value = Out(Ctl({"getprop", name}));
        if (!value.empty() && value.back() == '\n') value.pop_back();
        return value;
    }

    void MakeBlackbox() {
        Out(Run({"tessel-image", "blackbox", "create", Host(kBlackbox), "--boot-index",
                 std::to_string(kBootIndex)}));
    }
    // A new raw dump of the real arm64 oops in slot 0, and a raw dump
    // partition for "minidump.gz".
    void AddOopsDump() {
        const std::string kmsg = Scratch("md_kmsg.bin");
        std::ofstream(kmsg, std::ios::binary) << PrintkRecords(
                std::string(TESSEL_SOURCE_DIR) + "/tests/data/arm64-null-write-oops.kmsg");
        Out(Run({"tessel-image", "dump", "add", Host(kBlackbox), "--slot", "0", "--version",
                 "0x2000", "--boot-index", std::to_string(kBootIndex - 1), "--section",
                 "md_kmsg=" + kmsg}));
        Put("/dev/block/by-name/rawdump", std::string(64 << 10, 'r'));
    }
    Json::Value Inspect(const std::string& hostPath) {
        return ParseJson(Out(Run({"tessel-image", "inspect", hostPath, "--json"})));
    }
    std::vector<Json::Value> Events() const {
        std::vector<Json::Value> events;
        std::istringstream in(Read("/data/vendor/pellora/events.jsonl"));
        for (std::string line; std::getline(in, line);) events.push_back(ParseJson(line));
        return events;
    }
    std::vector<std::string> MdHistory() const {
        std::vector<std::string> lines;
        std::istringstream in(Read(std::string(kDiag) + "/md_history"));
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

    // Boots tesseld on the root next to tessel-peer, waits until the boot
    // run has ended with the module removed, stops both and returns the
    // daemon's log. With a kill switch ("TESSEL_KILL_AT_...=") the daemon may
    // die on the way instead: `killed` tells whether it did.
    std::string Boot(const std::string& killSwitch = "", bool* killed = nullptr) {
        const std::unique_ptr<Subprocess> peer = StartPeer(mRoot.path());
        EXPECT_TRUE(PeerServing(*peer)) << peer->err();
        Subprocess daemon({"tesseld", "--root", mRoot.path()}, Host("/tesseld"),
                          killSwitch.empty() ? std::vector<std::string>{}
                                             : std::vector<std::string>{killSwitch});
        // A run set to be killed is waited for until it dies: its kill point
        // may be a line of another thread that comes after the boot run's
        // last line.
        const bool ended = WaitFor([&] {
            return !daemon.running() ||
                   (killed == nullptr && daemon.err().find("Bye~ BSPLogProcessor") != npos);
        });
        if (killed != nullptr) {
            *killed = daemon.wait(std::chrono::milliseconds(0)) == 128 + SIGKILL;
        } else {
            EXPECT_TRUE(ended) << daemon.err();
            const std::string modules = Out(Ctl({"dump", "ModuleManager", "dump"}));
            EXPECT_NE(modules.find("BSPLogProcessor\t\tStopped"), npos) << modules;
            EXPECT_TRUE(daemon.running()) << "the daemon keeps serving after the run";
        }
        daemon.signal(SIGTERM);
        peer->signal(SIGTERM);
        daemon.wait();
        peer->wait();
        return daemon.err();
    }

    // What one boot after the oops leaves, for crash number `crashNumber`.
    void ExpectOopsReported(const std::string& log, int crashNumber) {
        EXPECT_EQ(GetProp("vendor.minidump.crash_reason"), "kpanic");
        EXPECT_EQ(GetProp("vendor.minidump.is.valid"), "1");

        const std::vector<Json::Value> events = Events();
        ASSERT_EQ(events.size(), 1u);
        const Json::Value& event = events[0];
        EXPECT_EQ(event["id"].asUInt(), 901006001u);
        EXPECT_EQ(event["values"]["Type"].asString(), "kpanic");
        EXPECT_EQ(event["values"]["Summary"].asString(), kSummary);
        EXPECT_EQ(event["values"]["Stacktrace"].asString(), kFrames);
        const std::string now = event["values"]["CurrentTime"].asString();
        EXPECT_TRUE(std::regex_match(now, std::regex(R"(\d{4}-\d\d-\d\d \d{1,2}:\d\d:\d\d)")))
                << now;
        EXPECT_EQ(log.find("NOT VALID LINE"), npos);

        const std::vector<std::string> history = MdHistory();
        ASSERT_FALSE(history.empty());
        EXPECT_EQ(history.back(), std::to_string(crashNumber) + ")[" +
                                          std::to_string(kBootIndex - 1) + "] " + kBuild + "|" +
                                          now + "|kpanic|" + kSummary);
    }
};

}  // namespace zelkor::tessel::testing
