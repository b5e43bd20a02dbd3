// The log manager's folder check, driven in process on a temporary root: the
// module object is used directly, without its thread, so every check runs on
// the test's thread and file events are not acted on.
#include "modules/LogManager/LogManagerVendor.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <any>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>

#include "LogCapture.h"
#include "TempRoot.h"
#include "modules/LogManager/LogMgrBroadcastReceiver.h"
#include "platform/Platform.h"
#include "platform/Properties.h"
#include "utils/FileUtil.h"
#include "utils/JsonUtil.h"

namespace zelkor::tessel {
namespace {

namespace fs = std::filesystem;
using testing::LogCapture;

const std::string kModem = "/data/vendor/bsplog/modem";
using List = std::vector<std::string>;

// A small tmpfs over a folder for one test, so that writes there run out of
// space; unmounted when it goes. Not every machine lets a test mount.
struct SmallDisk {
    SmallDisk(const std::string& dir, const std::string& size) : dir(dir) {
        fs::create_directories(dir);
        mounted = mount("tmpfs", dir.c_str(), "tmpfs", 0, ("size=" + size).c_str()) == 0;
    }
    ~SmallDisk() {
        if (mounted) umount2(dir.c_str(), MNT_DETACH);
    }
    std::string dir;
    bool mounted = false;
};

class LogManagerVendorTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_TRUE(platform::SetRoot(mRoot.path())); }

    std::string Host(const std::string& devicePath) const { return mRoot.path() + devicePath; }
    // A file of `bytes` bytes at a device path.
    void File(const std::string& devicePath, size_t bytes) const {
        fs::create_directories(fs::path(Host(devicePath)).parent_path());
        std::ofstream(Host(devicePath), std::ios::binary) << std::string(bytes, 'x');
    }
    // A dated entry: a folder holding one log file.
    void Entry(const std::string& folder, const std::string& name, size_t bytes = 100) const {
        File(folder + "/" + name + "/kernel.log", bytes);
    }
    // The names in a folder, sorted; none when it is not there.
    List Names(const std::string& folder) const {
        std::set<std::string> names;
        std::error_code ec;
        for (const auto& e : fs::directory_iterator(Host(folder), ec)) {
            names.insert(e.path().filename());
        }
        return {names.begin(), names.end()};
    }
    // Applies a configuration as the broadcast would: the first one checks
    // every managed folder and starts the listener.
    void Configure(const std::string& json) {
        Json::Value value;
        ASSERT_TRUE(JsonUtil::ConvertStringToJson(json, value)) << json;
        mModule.addFolderToManage(value);
    }

    // Whether the module logged this line.
    bool Logged(const std::string& line) const {
        return mLog.contains("Halvex-LogManagerVendor", "[CheckAndClean] " + line);
    }

    testing::TempRoot mRoot;
    LogCapture mLog;
    LogManagerVendor mModule;
};

TEST_F(LogManagerVendorTest, CountLimitDeletesTheLexicallySmallestNames) {
    // Deletion goes by name, not by date: "2024-10-10_..." < "2024-10-11_..."
    // < "2024-10-12_..." < "2024-10-1_...".
    for (const char* day : {"10-1", "9-30", "10-2", "10-10", "10-11", "10-12"}) {
        Entry(kModem, std::string("2024-") + day + "_0-0-0");
    }
    Configure(R"([{"folderName": "modem", "inVendor": true, "maxLogNumber": 4}])");
    EXPECT_EQ(Names(kModem),
              (List{"2024-10-12_0-0-0", "2024-10-1_0-0-0", "2024-10-2_0-0-0", "2024-9-30_0-0-0"}));
    EXPECT_EQ(mLog.count("Halvex-LogManagerVendor", "DeleteDirectoryOrFile succeed"), 2);
    // The folder is made group-owned and open to all, as the log writers need.
    struct stat st {};
    ASSERT_EQ(stat(Host(kModem).c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0777u);
    EXPECT_EQ(st.st_gid, 1000u);
}

TEST_F(LogManagerVendorTest, SizeLimitIsInKiBAndCountsFilesExactly) {
    for (const char* name : {"a", "b", "c", "d"}) File(kModem + "/" + name, 256 << 10);
    Configure(R"([{"folderName": "modem", "inVendor": true, "maxSize": 1024}])");
    EXPECT_EQ(Names(kModem).size(), 4u) << "exactly 1 MiB is within 1024 KiB";
    File(kModem + "/e", 1);
    ASSERT_TRUE(mModule.CheckAndClean(kModem));
    EXPECT_EQ(Names(kModem), (List{"b", "c", "d", "e"}));
}

TEST_F(LogManagerVendorTest, CompressionZipsAllAtStartUpThenLeavesTheNewest) {
    for (const char* name : {"a", "b"}) Entry(kModem, name, 5000);
    Configure(R"([{"folderName": "modem", "inVendor": true, "maxLogNumber": 10,
                   "compress": true}])");
    EXPECT_EQ(Names(kModem), (List{"a.zip", "b.zip"})) << "start-up pass";
    struct stat st {};
    ASSERT_EQ(stat(Host(kModem + "/a.zip").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0775u);

    for (const char* name : {"c", "d", "e"}) Entry(kModem, name, 5000);
    // An entry that cannot be read whole: its archive is dropped, it stays.
    fs::create_directories(Host(kModem + "/bad"));
    fs::create_symlink("/nowhere", Host(kModem + "/bad/dangling"));
    ASSERT_TRUE(mModule.CheckAndClean(kModem));
    EXPECT_EQ(Names(kModem), (List{"a.zip", "b.zip", "bad", "c.zip", "d.zip", "e"}));
    EXPECT_TRUE(Logged("Compress the path: " + kModem + "/bad returned error!"));
}

TEST_F(LogManagerVendorTest, SizeAfterACompressedCleanCountsArchivesAndFoldersOnly) {
    Configure(R"([{"folderName": "modem", "inVendor": true, "maxSize": 48,
                   "compress": true}])");
    File(kModem + "/0.txt", 100);
    Entry(kModem, "a", 30 << 10);
    File(kModem + "/b.zip", 10 << 10);
    Entry(kModem, "c", 30 << 10);
    ASSERT_TRUE(mModule.CheckAndClean(kModem));
    // Over 48 KiB until 0.txt and a are gone; b.zip is an archive already and
    // c, the newest, waits for the next check.
    ASSERT_EQ(Names(kModem), (List{"b.zip", "c"}));
    const uint64_t after = FileUtil::GetDirectorySize(Host(kModem + "/c")) +
                           fs::file_size(Host(kModem + "/b.zip"));
    const int fd = open(Host("/dump").c_str(), O_CREAT | O_WRONLY, 0600);
    mModule.dump(fd, nullptr, 0);
    close(fd);
    std::ifstream in(Host("/dump"));
    const std::string dump((std::istreambuf_iterator<char>(in)), {});
    EXPECT_NE(dump.find("deleted 2, " + std::to_string(after) + " bytes after, over size 1"),
              std::string::npos)
            << dump;
}

TEST_F(LogManagerVendorTest, OldEntriesMoveToTheReusePartitionWithinItsQuota) {
    ASSERT_TRUE(platform::SetProperty("persist.sys.abreuse.abstatus", "1"));
    const std::string reuse = "/mnt/reuse/bsplog/modem";
    for (const char* name : {"r1", "r2"}) Entry(reuse, name, 30 << 10);
    Entry(kModem, "a", 30 << 10);
    Entry(kModem, "b", 200 << 10);  // larger than the whole reuse quota
    Entry(kModem, "c", 10 << 10);
    Entry(kModem, "d", 10 << 10);
    Configure(R"([{"folderName": "modem", "inVendor": true, "maxLogNumber": 1,
                   "reuseMaxSize": 100}])");
    EXPECT_EQ(Names(kModem), (List{"d"}));
    // a fitted beside r1 and r2; b was larger than the quota and only deleted;
    // c made room by dropping the reuse side's first name, which was a.
    EXPECT_EQ(Names(reuse), (List{"c", "r1", "r2"}));
    EXPECT_TRUE(Logged("Start delete A/B reused partition file: " + reuse + "/a"));
    EXPECT_TRUE(Logged("Log " + kModem + "/b size is too large to move file."));
    std::ifstream moved(Host(reuse + "/c/kernel.log"), std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(moved), {}), std::string(10 << 10, 'x'));
}

// Entries past their days move to the reuse partition while it is open and
// are deleted once it is closed. In a folder of ramdumps, the date in a dump's
// name decides and other files stay; a folder with children keeps its own.
TEST_F(LogManagerVendorTest, ExpiredEntriesMoveToTheReusePartitionWhileItIsOpen) {
    const std::string reuse = "/mnt/reuse/bsplog/modem";
    const std::string wlan = "/data/vendor/bsplog/wlan", ssr = wlan + "/ssr";
    // Dated names of days before today; zero-padded, so name order is date order.
    auto dated = [](int daysAgo) {
        const time_t then = time(nullptr) - static_cast<time_t>(daysAgo) * 86400;
        struct tm local {};
        localtime_r(&then, &local);
        char text[32];
        strftime(text, sizeof(text), "%Y-%m-%d_10-00-00", &local);
        return std::string(text);
    };
    ASSERT_TRUE(platform::SetProperty("persist.sys.abreuse.abstatus", "true"));
    Entry(kModem, dated(30), 10 << 10);
    Entry(kModem, dated(0));
    Entry(wlan, "2026-1-1_0-0-0");
    Entry(wlan, "2026-1-2_0-0-0");
    for (const char* name : {"ramdump_adsp_2020-01-01_00-00-00.bin",
                             "ramdump_adsp_2099-01-01_00-00-00.bin", "readme.txt"}) {
        File(ssr + "/" + name, 4);
    }
    Configure(R"([{"folderName": "modem", "inVendor": true, "maxValidDay": 7, "reuseMaxSize": 100},
                  {"folderName": "wlan", "inVendor": true, "maxLogNumber": 1,
                   "children": [{"folderName": "ssr", "inVendor": true, "maxValidDay": 7,
                                 "watchSSRRamdumpHack": true}]}])");
    EXPECT_EQ(Names(kModem), (List{dated(0)}));
    EXPECT_EQ(Names(reuse), (List{dated(30)}));
    std::ifstream moved(Host(reuse + "/" + dated(30) + "/kernel.log"), std::ios::binary);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(moved), {}), std::string(10 << 10, 'x'));
    EXPECT_EQ(Names(wlan), (List{"2026-1-1_0-0-0", "2026-1-2_0-0-0", "ssr"}));
    EXPECT_EQ(Names(ssr), (List{"ramdump_adsp_2099-01-01_00-00-00.bin", "readme.txt"}));

    // Closed, the partition gets nothing more: the next expired entry is deleted.
    ASSERT_TRUE(platform::SetProperty("persist.sys.abreuse.abstatus", "false"));
    Entry(kModem, dated(20));
    ASSERT_TRUE(mModule.CheckAndClean(kModem));
    EXPECT_EQ(Names(kModem), (List{dated(0)}));
    EXPECT_EQ(Names(reuse), (List{dated(30)}));
}

TEST_F(LogManagerVendorTest, LostEventsMakeEveryWatchedFolderChecked) {
    Configure(R"([{"folderName": "modem", "inVendor": true, "maxLogNumber": 1,
                   "children": [{"folderName": "ssr", "inVendor": true, "maxLogNumber": 1}]},
                  {"folderName": "other", "maxLogNumber": 1}])");
    // Appending re-points every child at the record the module now holds.
    Configure(R"([{"folderName": "wlan", "inVendor": true, "maxLogNumber": 1}])");
    for (const auto& config : mModule.configs()) {
        for (const auto& c : config.children) EXPECT_EQ(c.parent, &config);
    }
    const std::string ssr = kModem + "/ssr", wlan = "/data/vendor/bsplog/wlan";
    for (const char* name : {"a", "b"}) {
        Entry(ssr, name);
        Entry(wlan, name);
    }
    // Here no thread acts on the events: as if the kernel had dropped them.
    mModule.checkAllWatched();
    EXPECT_EQ(Names(ssr), (List{"b"}));
    EXPECT_EQ(Names(wlan), (List{"b"}));
}

TEST_F(LogManagerVendorTest, ReceiverTakesEachKindOfConfigurationExtra) {
    constexpr char kAppend[] = "zelkor.halvex.logmgr.config_append";
    auto intent = [](const char* action, ExtraValue value) {
        Intent i(action);
        i.putExtra("config", std::move(value));
        return i;
    };
    auto apply = [&](const Intent& i) { LogMgrBroadcastReceiver::apply(&mModule, i); };
    LogConfig record;
    record.folderName = "modem";
    record.inVendor = true;
    record.maxLogNumber = 1;
    // A record in the any-typed slot, as an in-process sender puts it.
    apply(intent(kAppend, std::any(record)));
    ASSERT_EQ(mModule.configs().size(), 1u);
    EXPECT_TRUE(fs::is_directory(Host(kModem)));
    apply(intent(kAppend, std::any(42)));
    EXPECT_TRUE(mLog.contains("Halvex-LogMgr-onReceive",
                              "[apply] obj is not a valid LogConfig! e.what bad any_cast"));
    apply(Intent(kAppend));  // no extras: nothing
    EXPECT_EQ(mModule.configs().size(), 1u);

    // Not running yet (no module thread): the broadcast is named and dropped.
    LogMgrBroadcastReceiver receiver(&mModule);
    receiver.onReceive(intent(kAppend, std::any(record)));
    EXPECT_TRUE(mLog.contains("Halvex-LogMgrBroadcastReceiver",
                              "[onReceive] zelkor.halvex.logmgr.config_append arrived before the "
                              "module runs, dropped"));
}

TEST_F(LogManagerVendorTest, AFullDiskKeepsTheSourceOfAnArchiveAndTheQuotaOfAMove) {
    SmallDisk disk(Host(kModem), "64k");
    if (!disk.mounted) GTEST_SKIP() << "cannot mount a tmpfs here";
    // Bytes that deflate cannot shrink: the archive needs as much again as
    // the entry, and the disk fills up.
    std::string noise(40 << 10, '\0');
    std::mt19937 rng(7);
    for (auto& c : noise) c = static_cast<char>(rng());
    File(kModem + "/a/fw.bin", 0);
    std::ofstream(Host(kModem + "/a/fw.bin"), std::ios::binary) << noise;
    Configure(R"([{"folderName": "modem", "inVendor": true, "maxLogNumber": 5,
                   "compress": true}])");
    EXPECT_EQ(Names(kModem), (List{"a"})) << "source kept, partial archive gone";
    EXPECT_TRUE(Logged("Compress the path: " + kModem + "/a returned error!"));

    // The reuse side runs out of space during the copy, as when it goes away
    // mid-move: the copy fails, and the entry leaves the folder all the same.
    const std::string reuse = "/mnt/reuse/bsplog/wlan";
    SmallDisk reuseDisk(Host(reuse), "16k");
    ASSERT_TRUE(platform::SetProperty("persist.sys.abreuse.abstatus", "1"));
    const std::string wlan = "/data/vendor/bsplog/wlan";
    for (const char* name : {"x", "y"}) Entry(wlan, name, 30 << 10);
    Configure(R"([{"folderName": "wlan", "inVendor": true, "maxLogNumber": 1,
                   "reuseMaxSize": 1000}])");
    ASSERT_TRUE(mModule.CheckAndClean(wlan));  // later configurations only add watches
    EXPECT_EQ(Names(wlan), (List{"y"}));
    EXPECT_TRUE(Logged("Move file " + wlan + "/x to A/B reused partition " + reuse +
                       "/x failed,error: No space left on device"));
}

TEST_F(LogManagerVendorTest, UnknownUnlimitedVanishedOrReplacedFoldersAreSkipped) {
    Configure(R"([{"folderName": "modem", "inVendor": true, "maxLogNumber": 1},
                  {"folderName": "nolimit", "inVendor": true}])");
    EXPECT_FALSE(fs::exists(Host("/data/vendor/bsplog/nolimit")));
    EXPECT_FALSE(mModule.CheckAndClean("/data/vendor/bsplog/unknown"));
    EXPECT_TRUE(Logged("get config failed for /data/vendor/bsplog/unknown"));
    fs::remove_all(Host(kModem));
    EXPECT_FALSE(mModule.CheckAndClean(kModem));
    std::ofstream(Host(kModem)) << "now a file";
    EXPECT_FALSE(mModule.CheckAndClean(kModem));
    EXPECT_EQ(mLog.count("Halvex-LogManagerVendor", "[CheckAndClean] can not open dir " + kModem),
              2);
    // Entries other than folders and files count for nothing and are still
    // deleted first by name.
    fs::remove(Host(kModem));
    Entry(kModem, "b");
    ASSERT_EQ(mkfifo(Host(kModem + "/a-fifo").c_str(), 0600), 0);
    ASSERT_TRUE(mModule.CheckAndClean(kModem));
    EXPECT_EQ(Names(kModem), (List{"b"}));
}

}  // namespace
}  // namespace zelkor::tessel
