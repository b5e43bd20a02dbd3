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

#include "DaemonRoot.h"
#include "LogRecords.h"
#include "TempRoot.h"

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

inline Json::Value ParseJson(const std::string& text) {
    Json::Value value;
    std::istringstream in(text);
    std::string errors;
    EXPECT_TRUE(Json::parseFromStream(Json::CharReaderBuilder(), in, &value, &errors))
            << errors << "\n"
            << text;
    return value;
}

class BootRunRoot {
  public:
    BootRunRoot() {
        PrepareBootRoot(mRoot.path());
        Tool({"tesselctl", "--root", mRoot.path(), "setprop", "ro.build.version.incremental",
              kBuild});
    }

    std::string Host(const std::string& devicePath) const { return mRoot.path() + devicePath; }
    void Write(const std::string& devicePath, const std::string& text) const {
        std::ofstream(Host(devicePath), std::ios::binary) << text;
    }
    std::string Read(const std::string& devicePath) const {
        return ReadWholeFile(Host(devicePath));
    }

    // Runs a project tool to completion; its stdout.
    std::string Tool(std::vector<std::string> args, int expectedStatus = 0) {
        const std::string prefix = mRoot.path() + "/" + args[0];
        Subprocess tool(std::move(args), prefix);
        EXPECT_EQ(tool.wait(), expectedStatus) << tool.err();
        return tool.out();
    }
    std::string GetProp(const std::string& name) {
        std::string value = Tool({"tesselctl", "--root", mRoot.path(), "getprop", name});
        if (!value.empty() && value.back() == '\n') value.pop_back();
        return value;
    }

    void MakeBlackbox() {
        Tool({"tessel-image", "blackbox", "create", Host(kBlackbox), "--boot-index",
              std::to_string(kBootIndex)});
    }
    // A new raw dump of the real arm64 oops in slot 0, and a raw dump
    // partition for "minidump.gz".
    void AddOopsDump() {
        const std::string kmsg = mRoot.path() + "/md_kmsg.bin";
        std::ofstream(kmsg, std::ios::binary) << PrintkRecords(
                std::string(TESSEL_SOURCE_DIR) + "/tests/data/arm64-null-write-oops.kmsg");
        Tool({"tessel-image", "dump", "add", Host(kBlackbox), "--slot", "0", "--version", "0x2000",
              "--boot-index", std::to_string(kBootIndex - 1), "--section", "md_kmsg=" + kmsg});
        Write("/dev/block/by-name/rawdump", std::string(64 << 10, 'r'));
    }
    Json::Value Inspect(const std::string& hostPath) {
        const std::string out = Tool({"tessel-image", "inspect", hostPath, "--json"});
        return ParseJson(out);
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
    // daemon's log.
    std::string Boot() {
        const std::unique_ptr<Subprocess> peer = StartPeer(mRoot.path());
        EXPECT_TRUE(PeerServing(*peer)) << peer->err();
        Subprocess daemon({"tesseld", "--root", mRoot.path()}, mRoot.path() + "/tesseld");
        const bool ended = WaitFor(
                [&] { return daemon.err().find("Bye~ BSPLogProcessor") != std::string::npos; });
        EXPECT_TRUE(ended) << daemon.err();
        if (ended) {
            const std::string modules =
                    Tool({"tesselctl", "--root", mRoot.path(), "dump", "ModuleManager", "dump"});
            EXPECT_NE(modules.find("BSPLogProcessor\t\tStopped"), std::string::npos) << modules;
        }
        EXPECT_TRUE(daemon.running()) << "the daemon keeps serving after the run";
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
        EXPECT_EQ(log.find("NOT VALID LINE"), std::string::npos);

        const std::vector<std::string> history = MdHistory();
        ASSERT_FALSE(history.empty());
        EXPECT_EQ(history.back(), std::to_string(crashNumber) + ")[" +
                                          std::to_string(kBootIndex - 1) + "] " + kBuild + "|" +
                                          now + "|kpanic|" + kSummary);
    }

    TempRoot mRoot;
};

}  // namespace zelkor::tessel::testing
