// The log manager in the real daemon: tessel-peer sends the configuration
// when the daemon says it is ready, folders are cleaned as entries appear,
// and the reports reach the peer.
#include <gtest/gtest.h>
#include <json/json.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>

#include "DaemonTest.h"

namespace zelkor::tessel::testing {
namespace {

namespace fs = std::filesystem;

constexpr char kBsplog[] = "/data/vendor/bsplog";

class LogManagerE2ETest : public DaemonTest {
  protected:
    void Entry(const std::string& folder, const std::string& name, size_t bytes = 100) const {
        Put(folder + "/" + name + "/log", std::string(bytes, 'l'));
    }
    std::vector<std::string> Names(const std::string& folder) const {
        std::vector<std::string> names;
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(Host(folder), ec)) {
            names.push_back(e.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        return names;
    }
    // tessel-peer sending `config` on "vendor_is_ready", then tesseld, waited
    // for until the module's first pass is over and its folders are watched.
    void Start(const std::string& config) {
        std::ofstream(Scratch("config.json")) << config;
        mPeer = StartPeer(mRoot.path(), {"--log-config", Scratch("config.json")});
        ASSERT_TRUE(PeerServing(*mPeer)) << mPeer->err();
        mDaemon = StartDaemon();
        ASSERT_TRUE(Logged(*mDaemon, "LogMgrFileEventListener(")) << log();
        // The listener's thread starts before its watches are added: the
        // folders are watched once the module's dump says so.
        ASSERT_TRUE(WaitFor([&] {
            return ctl({"dump", "Halvex.LogManager"}).find("watched: yes") != npos;
        })) << log();
    }
    std::string log() const { return mDaemon->err(); }
    size_t count(const std::string& text) const { return Count(log(), text); }
    // The reports tessel-peer received, each with its JSON text parsed.
    std::vector<Json::Value> Reports() const {
        std::vector<Json::Value> reports;
        std::istringstream lines(Read("/data/peer/reports.jsonl"));
        Json::CharReaderBuilder builder;
        for (std::string line; std::getline(lines, line);) {
            Json::Value record, json;
            std::istringstream in(line), text;
            // The last line may still be being written.
            if (!Json::parseFromStream(builder, in, &record, nullptr)) continue;
            text.str(record["json"].asString());
            Json::parseFromStream(builder, text, &json, nullptr);
            for (const std::string key : {"eventId", "module", "flags"})
                json["@" + key] = record[key];
            reports.push_back(json);
        }
        return reports;
    }
    std::string ctl(std::vector<std::string> args) { return Out(Ctl(std::move(args))); }

    std::unique_ptr<Subprocess> mPeer;
    std::unique_ptr<Subprocess> mDaemon;
};

TEST_F(LogManagerE2ETest, FoldersAreKeptWithinTheirLimitsAndZippedAsEntriesArrive) {
    const std::string modem = std::string(kBsplog) + "/modem";
    const std::string wlan = std::string(kBsplog) + "/wlan";
    const std::string audio = std::string(kBsplog) + "/audio";
    for (const char* name : {"2026-11-1_1-0-0", "2026-11-2_1-0-0", "2026-11-3_1-0-0",
                             "2026-11-4_1-0-0", "2026-11-5_1-0-0"}) {
        Entry(modem, name);
    }
    Start(R"([{"folderName": "modem", "inVendor": true, "maxLogNumber": 3, "compress": true},
              {"folderName": "wlan", "inVendor": true, "maxSize": 64},
              {"folderName": "audio", "inVendor": true, "maxSize": 1, "pushEventOnly": true},
              {"folderName": "other", "maxLogNumber": 1},
              {"folderName": "late", "inVendor": true, "maxLogNumber": 100, "compress": true,
               "compressLatestAfterSec": 1}])");
    // The start-up pass: the count kept, every entry zipped.
    EXPECT_EQ(Names(modem), (std::vector<std::string>{"2026-11-3_1-0-0.zip", "2026-11-4_1-0-0.zip",
                                                      "2026-11-5_1-0-0.zip"}));
    EXPECT_FALSE(fs::exists(Host("/data/kestralog/bsp/other"))) << "not this side's folder";

    // An archive appearing starts nothing; the next entry does, after it.
    const size_t checks = count("Start Checking " + modem);
    std::ofstream(Host(modem + "/x.zip")) << "zip";
    Entry(modem, "2026-11-6_1-0-0");
    // x.zip counts as an entry and, last by name, is the one left unzipped.
    ASSERT_TRUE(WaitFor([&] {
        return Names(modem) ==
               std::vector<std::string>{"2026-11-5_1-0-0.zip", "2026-11-6_1-0-0.zip", "x.zip"};
    })) << log();
    EXPECT_EQ(count("Start Checking " + modem), checks + 1);

    // Over the size quota: the oldest go and the clean report says so.
    // A check runs when an entry appears, maybe before its log is written:
    // the third entry's arrival finds the two full ones at the latest.
    Entry(wlan, "2026-11-1_1-0-0", 40 << 10);
    Entry(wlan, "2026-11-2_1-0-0", 40 << 10);
    Entry(wlan, "2026-11-3_1-0-0");
    ASSERT_TRUE(WaitFor([&] {
        return Names(wlan) == std::vector<std::string>{"2026-11-2_1-0-0", "2026-11-3_1-0-0"};
    })) << log();
    // Push-only: reported, never cleaned.
    Entry(audio, "2026-11-1_1-0-0", 2000);
    ASSERT_TRUE(WaitFor([&] { return Reports().size() >= 2; })) << log();
    EXPECT_EQ(Names(audio).size(), 1u);

    Json::Value clean, monitor;
    for (const auto& report : Reports()) {
        EXPECT_EQ(report["@eventId"].asString(), "31000401754");
        EXPECT_EQ(report["@module"].asString(), "Halvex.LogManager");
        EXPECT_EQ(report["@flags"].asInt(), 0);
        if (report["EVENT_NAME"] == "logManage") clean = report;
        if (report["EVENT_NAME"] == "logMonitor") monitor = report;
    }
    // The report's layout is the event's own (JsonHelperTest); here its values.
    ASSERT_TRUE(clean.isObject());
    EXPECT_EQ(clean["folderPath"].asString(), wlan);
    EXPECT_GT(clean["totalSizeBefore"].asInt64(), 64 << 10);
    EXPECT_LE(clean["totalSize"].asInt64(), 64 << 10);
    EXPECT_EQ(clean["reuseOpen"].asBool(), false);
    ASSERT_TRUE(monitor.isObject());
    EXPECT_GT(monitor["dirSize"].asUInt64(), 1024u);

    // The newest entry is zipped after its delay; the next one fires that
    // task at once and waits its own.
    const std::string late = std::string(kBsplog) + "/late";
    Entry(late, "a");
    ASSERT_TRUE(WaitFor([&] { return count("Scheduled delayed compress task for " + late) == 1; }))
            << log();
    Entry(late, "b");
    ASSERT_TRUE(WaitFor([&] {
        return Names(late) == std::vector<std::string>{"a.zip", "b"};
    })) << log();
    EXPECT_NE(log().find("Last delay compress is not trigger, trigger it directly"), npos);
    ASSERT_TRUE(WaitFor([&] {
        return Names(late) == std::vector<std::string>{"a.zip", "b.zip"};
    })) << log();

    const std::string dump = ctl({"dump", "Halvex.LogManager"});
    EXPECT_NE(dump.find("5 folder record(s), reuse partition closed"), npos) << dump;
    EXPECT_NE(dump.find(wlan + "\n  limits: maxSize 64 KiB"), npos) << dump;
    EXPECT_NE(dump.find("watched: yes"), npos) << dump;
    EXPECT_NE(dump.find("/data/kestralog/bsp/other (not managed here)"), npos) << dump;
}

TEST_F(LogManagerE2ETest, ConfigurationBroadcastsAreDebouncedAndCheckedByKind) {
    Start(R"([{"folderName": "first", "inVendor": true, "maxLogNumber": 1}])");
    // The peer's configuration was the last one taken: wait out its window.
    auto pastWindow = [](std::chrono::steady_clock::time_point since) {
        return WaitFor([&] {
            return std::chrono::steady_clock::now() - since > std::chrono::milliseconds(350);
        });
    };
    ASSERT_TRUE(pastWindow(std::chrono::steady_clock::now()));
    auto changed = [&](const std::string& name) {
        ctl({"transfer", "zelkor.halvex.logmgr.config_changed",
             R"({"extras":[{"key":"config","value":[{"folderName":")" + name +
                     R"(","inVendor":true,"maxLogNumber":1}],"value_type":0}]})"});
    };
    const auto sent = std::chrono::steady_clock::now();
    changed("second");
    changed("dropped");
    // Both arrived between `sent` and now: closer than 300 ms when this is.
    const bool withinWindow =
            std::chrono::steady_clock::now() - sent < std::chrono::milliseconds(300);
    ASSERT_TRUE(WaitFor([&] { return fs::is_directory(Host(std::string(kBsplog) + "/second")); }));
    // Past the window the next one is taken again.
    ASSERT_TRUE(pastWindow(sent));
    changed("third");
    ASSERT_TRUE(WaitFor([&] { return fs::is_directory(Host(std::string(kBsplog) + "/third")); }));
    if (withinWindow) {
        EXPECT_FALSE(fs::exists(Host(std::string(kBsplog) + "/dropped")));
    }

    // Appends: a record as an object, and extras of the wrong kind.
    ctl({"transfer", "zelkor.halvex.logmgr.config_append",
         R"({"extras":[{"key":"config","value":{"folderName":"appended","inVendor":true,
             "maxValidDay":3},"value_type":0}]})"});
    ctl({"transfer", "zelkor.halvex.logmgr.config_append",
         R"({"extras":[{"key":"config","value":"modem","value_type":2}]})"});
    ctl({"transfer", "zelkor.halvex.logmgr.config_append",
         R"({"extras":[{"key":"config","value":[{"maxSize":-1}],"value_type":0}]})"});
    ASSERT_TRUE(WaitFor([&] {
        return log().find("Intent extra is invalid for log manager!!") != npos;
    })) << log();
    EXPECT_TRUE(fs::is_directory(Host(std::string(kBsplog) + "/appended")));
    const std::string dump = ctl({"dump", "Halvex.LogManager"});
    EXPECT_NE(dump.find("2 folder record(s)"), npos) << dump;
}

TEST_F(LogManagerE2ETest, ThePropertyKeepsTheModuleFromLoading) {
    ctl({"setprop", "persist.bsp.logmgr.disable", "true"});
    const auto daemon = StartDaemon();
    EXPECT_TRUE(Logged(*daemon, "Will not load caused by disableLogMgr is true")) << daemon->err();
}

}  // namespace
}  // namespace zelkor::tessel::testing
