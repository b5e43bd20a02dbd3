// The log manager's folder check next to what a user would script instead.
//
// "logmgr/clean_10000_to_1000": one check of a folder of 10,000 dated entries
// (a folder with one small log each) with a count limit of 1,000, in process,
// against `ls | sort | head -n 9000 | xargs rm -rf` in the same folder.
// "logmgr/event_to_check": one new entry in a watched folder at its limit of
// 100, from its creation until tesseld's check has deleted the oldest entry,
// against creating the entry and running `ls | sort | head -n 1 | xargs rm -rf`.
#include <benchmark/benchmark.h>
#include <json/json.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "BenchMain.h"
#include "DaemonRoot.h"
#include "TempRoot.h"
#include "modules/LogManager/LogManagerVendor.h"
#include "platform/Platform.h"
#include "utils/JsonUtil.h"

namespace zelkor::tessel::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using testing::Subprocess;

constexpr char kFolder[] = "/data/vendor/bsplog/modem";
constexpr int kEntries = 10000;
constexpr int kKept = 1000;

// Entry i's dated name, one second after entry i - 1 from 10:00:00; the
// two-digit fields make the names sort in the order of i.
std::string EntryName(int i) {
    char name[64];
    snprintf(name, sizeof(name), "2026-11-25_%02d-%02d-%02d", 10 + i / 3600, (i / 60) % 60, i % 60);
    return name;
}

void MakeEntry(const std::string& folder, const std::string& name) {
    fs::create_directory(folder + "/" + name);
    std::ofstream(folder + "/" + name + "/log") << "modem: link up\n";
}

// The folder under which device paths live for one run, removed after it.
class Root : public testing::TempRoot {
  public:
    std::string host(const std::string& device) const { return path() + device; }
};

void Fill(const std::string& hostFolder) {
    fs::remove_all(hostFolder);
    fs::create_directories(hostFolder);
    for (int i = 0; i < kEntries; ++i) MakeEntry(hostFolder, EntryName(i));
}

bool Shell(const std::string& command) {
    return system(command.c_str()) == 0;
}

void Finish(benchmark::State& state, const std::string& hostFolder, int expected) {
    int left = 0;
    for (auto it = fs::directory_iterator(hostFolder); it != fs::end(it); ++it) ++left;
    if (left != expected) state.SkipWithError("wrong number of entries left");
}

void BM_CheckAndClean(benchmark::State& state) {
    Root root;
    platform::SetRoot(root.path());
    fs::create_directories(root.host(kFolder));
    LogManagerVendor module;
    Json::Value config;
    JsonUtil::ConvertStringToJson(R"([{"folderName": "modem", "inVendor": true,
                                       "maxLogNumber": 1000}])",
                                  config);
    module.addFolderToManage(config);
    for (auto _ : state) {
        Fill(root.host(kFolder));
        const auto start = Clock::now();
        module.CheckAndClean(kFolder);
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        Finish(state, root.host(kFolder), kKept);
    }
}

void BM_ShellPipeline(benchmark::State& state) {
    Root root;
    for (auto _ : state) {
        Fill(root.host(kFolder));
        const auto start = Clock::now();
        if (!Shell("cd " + root.host(kFolder) + " && ls | sort | head -n " +
                   std::to_string(kEntries - kKept) + " | xargs rm -rf")) {
            state.SkipWithError("pipeline failed");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        Finish(state, root.host(kFolder), kKept);
    }
}

constexpr int kLimit = 100;

// tesseld and tessel-peer on a root whose modem folder is at its limit.
void BM_EventToCheck(benchmark::State& state) {
    Root root;
    testing::InstallDaemonManifest(root.path());
    const std::string folder = root.host(kFolder);
    fs::create_directories(folder);
    for (int i = 0; i < kLimit; ++i) MakeEntry(folder, EntryName(i));
    std::ofstream(root.host("/config.json"))
            << R"([{"folderName": "modem", "inVendor": true, "maxLogNumber": 100}])";
    Subprocess peer(
            {"tessel-peer", "--root", root.path(), "--log-config", root.host("/config.json")},
            root.host("/peer"));
    testing::WaitFor([&] { return testing::PeerServing(peer); });
    Subprocess daemon({"tesseld", "--root", root.path()}, root.host("/tesseld"),
                      {"TESSEL_LOG_LEVEL=i"});
    // The listener runs once the start-up check is over.
    if (!testing::WaitFor([&] {
            return daemon.err().find("LogMgrFileEventListener(") != std::string::npos;
        })) {
        state.SkipWithError("the daemon did not start");
        return;
    }
    int next = kLimit;
    for (auto _ : state) {
        const std::string oldest = folder + "/" + EntryName(next - kLimit);
        const auto start = Clock::now();
        MakeEntry(folder, EntryName(next++));
        // Spins: the figure is the latency, a sleep would add its own.
        const auto deadline = start + std::chrono::seconds(10);
        while (access(oldest.c_str(), F_OK) == 0 && Clock::now() < deadline) {
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
        if (access(oldest.c_str(), F_OK) == 0) {
            state.SkipWithError("no check in 10 s");
            break;
        }
    }
    daemon.signal(SIGTERM);
    peer.signal(SIGTERM);
}

void BM_EventShell(benchmark::State& state) {
    Root root;
    const std::string folder = root.host(kFolder);
    fs::create_directories(folder);
    for (int i = 0; i < kLimit; ++i) MakeEntry(folder, EntryName(i));
    int next = kLimit;
    for (auto _ : state) {
        const auto start = Clock::now();
        MakeEntry(folder, EntryName(next++));
        if (!Shell("cd " + folder + " && ls | sort | head -n 1 | xargs rm -rf")) {
            state.SkipWithError("pipeline failed");
            break;
        }
        state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    }
}

void Register() {
    RegisterSingleShots("logmgr/clean_10000_to_1000",
                        {{"halvex", BM_CheckAndClean}, {"baseline", BM_ShellPipeline}});
    for (auto [name, fn] : {std::pair{"logmgr/event_to_check/halvex", BM_EventToCheck},
                            std::pair{"logmgr/event_to_check/baseline", BM_EventShell}}) {
        benchmark::RegisterBenchmark(name, fn)->UseManualTime()->Iterations(200)->Unit(
                benchmark::kMicrosecond);
    }
}

}  // namespace
}  // namespace zelkor::tessel::bench

int main(int argc, char** argv) {
    return zelkor::tessel::bench::RunBenchmarks(argc, argv, zelkor::tessel::bench::Register, true);
}
