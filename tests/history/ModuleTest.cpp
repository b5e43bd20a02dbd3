// The BSPLogProcessor module: registration, the mode changes it asks of the
// core service, the wait for the diagnostic folder, and its run ending in
// its own removal.
#include <aidl/vendor/zelkor/hardware/tessel/core/BnTesselCore.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <new>
#include <set>
#include <utility>

#include "HistoryTestSupport.h"
#include "framework/HalvexUtil.h"
#include "framework/ModuleManager.h"
#include "framework/TestSupport.h"
#include "modules/BSPLogProcessor/BSPLogProcessor.h"

namespace zelkor::tessel::testing {
namespace {

constexpr char kModuleTag[] = "Halvex-BSPLogProcessor";
constexpr int kRwGroup = 0660;
constexpr int kRwReadable = 0664;

// Records what the module asks; says no when told to.
class FakeCore : public aidl::vendor::zelkor::hardware::tessel::core::BnTesselCore {
  public:
    ndk::ScopedAStatus ChangeMode(const std::string& path, int32_t mode,
                                  std::vector<std::string>* retDesc, bool* ret) override {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.emplace_back(path, mode);
        if (mFailWith == Fail::kTransaction) {
            return ndk::ScopedAStatus::fromServiceSpecificError(5);
        }
        *ret = mFailWith == Fail::kNo;
        if (!*ret) retDesc->push_back("refused by test");
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus GetPartitionSize(const std::string&, const std::string&,
                                        int64_t* ret) override {
        *ret = 0;
        return ndk::ScopedAStatus::ok();
    }

    enum class Fail { kNo, kRefuse, kTransaction };
    void failWith(Fail fail) { mFailWith = fail; }
    std::vector<std::pair<std::string, int>> calls() {
        std::lock_guard<std::mutex> lock(mLock);
        return mCalls;
    }

  private:
    std::mutex mLock;
    std::vector<std::pair<std::string, int>> mCalls;
    Fail mFailWith = Fail::kNo;
};

class ModuleTest : public HistoryTest {
  protected:
    void SetUp() override {
        HistoryTest::SetUp();
        mCore = ndk::SharedRefBase::make<FakeCore>();
        HalvexUtil::SetTesselCore(mCore);
    }
    void TearDown() override {
        HalvexUtil::Reset();
        HistoryTest::TearDown();
    }

    // A file standing for a block device, at a host path.
    static void Touch(const std::string& hostPath) {
        std::filesystem::create_directories(std::filesystem::path(hostPath).parent_path());
        std::ofstream(hostPath) << "";
    }
    void Link(const std::string& name, const std::string& target) {
        const std::string link = Host("/dev/block/by-name/" + name);
        std::filesystem::create_directories(std::filesystem::path(link).parent_path());
        ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0) << link;
    }
    // The module's own lines: threads started elsewhere in the process may log
    // at any time.
    std::vector<LogLine> ModuleLines() const {
        std::vector<LogLine> lines;
        for (const auto& line : mLog.all()) {
            if (line.tag == kModuleTag) lines.push_back(line);
        }
        return lines;
    }

    BSPLogProcessor mModule{[] { FAIL() << "no pause expected"; }};
    std::shared_ptr<FakeCore> mCore;
};

// ---- registration -------------------------------------------------------------

TEST_F(ModuleTest, RegisteredOnceByNameWithPriorityZero) {
    ModuleList& list = GetModuleList();
    ASSERT_EQ(list.count("BSPLogProcessor"), 1u);
    const ModulePrio& entry = list.at("BSPLogProcessor");
    EXPECT_EQ(entry.priority, 0u);
    EXPECT_TRUE(entry.stopped);
    ASSERT_NE(entry.instance, nullptr);
    EXPECT_NE(dynamic_cast<BSPLogProcessor*>(entry.instance), nullptr);
    EXPECT_EQ(entry.instance->getName(), "BSPLogProcessor");
    EXPECT_EQ(entry.factory, &BSPLogProcessorRegister::createInstance);

    ModuleBase* first = entry.instance;
    BSPLogProcessorRegister again;
    EXPECT_TRUE(mLog.contains(
            "Halvex-ModuleRegister",
            "[BSPLogProcessorRegister] Can not register module! Module name MUST BE UNIQUE!"));
    EXPECT_EQ(GetModuleList().at("BSPLogProcessor").instance, first);
}

// ---- PreparePartitions ----------------------------------------------------------

TEST_F(ModuleTest, NoLinksOrNoCoreServiceNothingAskedNothingLogged) {
    const size_t logged = ModuleLines().size();
    mModule.PreparePartitions();
    EXPECT_TRUE(mCore->calls().empty());
    EXPECT_EQ(ModuleLines().size(), logged);

    HalvexUtil::Reset();
    Touch(Host("/dev/block/sda17"));
    Link("blackbox", "../sda17");
    mModule.PreparePartitions();
    EXPECT_TRUE(mCore->calls().empty());
}

TEST_F(ModuleTest, ResolvedNodesAreAskedForByDevicePathInOrder) {
    Touch(Host("/dev/block/sda17"));
    Touch(Host("/dev/block/sdb3"));
    TempRoot outside;
    Touch(outside.path() + "/loop7");
    Link("xbl_sc_logs", "../sdb3");                    // relative, inside the root
    Link("blackbox", Host("/dev/block/sda17"));        // absolute host path, inside the root
    Link("crash_history", outside.path() + "/loop7");  // a node outside the root
    Link("rawdump", Host("/dev/block/gone"));          // dangling: skipped
    Touch(Host("/dev/block/by-name/ramdump"));         // not a link: the path itself

    const size_t logged = ModuleLines().size();
    ASSERT_TRUE(mModule.OnInit());

    char outsideReal[PATH_MAX];
    ASSERT_NE(realpath((outside.path() + "/loop7").c_str(), outsideReal), nullptr);
    const std::vector<std::pair<std::string, int>> expected = {
            {"/dev/block/sda17", kRwGroup},
            {outsideReal, kRwGroup},
            {"/dev/block/by-name/ramdump", kRwGroup},
            {"/dev/block/sdb3", kRwGroup},
    };
    EXPECT_EQ(mCore->calls(), expected);
    EXPECT_EQ(ModuleLines().size(), logged);
}

TEST_F(ModuleTest, RefusalsAreLoggedWithTheServicesWords) {
    Touch(Host("/dev/block/sda17"));
    Link("blackbox", "../sda17");
    mCore->failWith(FakeCore::Fail::kRefuse);
    const size_t logged = ModuleLines().size();
    mModule.PreparePartitions();
    ASSERT_EQ(ModuleLines().size(), logged + 1);
    const LogLine line = ModuleLines().back();
    EXPECT_EQ(line.priority, ANDROID_LOG_ERROR);
    EXPECT_EQ(line.tag, kModuleTag);
    EXPECT_EQ(line.message.rfind("[PreparePartitions] Chmod /dev/block/sda17 failed! error: ", 0),
              0u)
            << line.message;
    EXPECT_NE(line.message.find(", ret desc: refused by test"), std::string::npos);

    mCore->failWith(FakeCore::Fail::kTransaction);
    mModule.PreparePartitions();
    EXPECT_EQ(mLog.count(kModuleTag, "[PreparePartitions] Chmod /dev/block/sda17 failed!"), 2);
}

// ---- the diagnostic folder ------------------------------------------------------

TEST_F(ModuleTest, DiagEntriesAreMadeReadableByAllAndRefusalsLogged) {
    WriteText("/data/vendor/diag/last_kmsg", "k");
    WriteText("/data/vendor/diag/md_history", "h");
    std::filesystem::create_directories(Host("/data/vendor/diag/sub"));
    mModule.PrepareLogFolder();
    auto calls = mCore->calls();
    std::sort(calls.begin(), calls.end());
    const std::vector<std::pair<std::string, int>> expected = {
            {"/data/vendor/diag/last_kmsg", kRwReadable},
            {"/data/vendor/diag/md_history", kRwReadable},
            {"/data/vendor/diag/sub", kRwReadable},
    };
    EXPECT_EQ(calls, expected);

    mCore->failWith(FakeCore::Fail::kRefuse);
    mModule.PrepareLogFolder();
    EXPECT_EQ(mLog.count(kModuleTag,
                         "[PrepareLogFolder] Chmod /data/vendor/diag/last_kmsg failed! "
                         "error: "),
              1);
}

TEST_F(ModuleTest, WaitForTheDiagFolderEndsWhenItAppearsOrAfterTenPauses) {
    std::filesystem::remove_all(Host(kDiag));
    int pauses = 0;
    bool appears = false;
    BSPLogProcessor module([&] {
        if (++pauses == 3 && appears) std::filesystem::create_directories(Host(kDiag));
    });
    EXPECT_FALSE(module.WaitForDiagDir());
    EXPECT_EQ(pauses, 10);

    // Appearing after three seconds: the fourth test finds it.
    pauses = 0;
    appears = true;
    EXPECT_TRUE(module.WaitForDiagDir());
    EXPECT_EQ(pauses, 3);
}

// ---- the run ---------------------------------------------------------------------

// Waits until every job queued on the manager's thread so far has run.
// Immediate jobs run newest first, so the marker is a due-now delayed job.
void DrainManager() {
    for (int round = 0; round < 2; ++round) {
        Latch done;
        ModuleManager::GetManagerHandler()->postDelayed([&done] { done.open(); }, 0);
        ASSERT_TRUE(done.wait());
    }
}

struct ProbeRegister {
    static ModuleBase* createInstance() {
        return new (std::nothrow) BSPLogProcessor([] {});
    }
};

TEST_F(ModuleTest, RunEndsWithTheModuleRemovingItself) {
    RegisterModule("BSPLogProcessorProbeRegister", "BSPLogProcessorProbe", 0,
                   &ProbeRegister::createInstance);
    ModulePrio& entry = GetModuleList().at("BSPLogProcessorProbe");
    ASSERT_NE(entry.instance, nullptr);
    entry.stopped = false;
    WriteText("/data/vendor/diag/stale", "from the last run");

    entry.instance->OnAllModulesLoaded();
    DrainManager();

    EXPECT_TRUE(entry.stopped);
    EXPECT_EQ(entry.instance, nullptr);
    EXPECT_EQ(mCore->calls(),
              (std::vector<std::pair<std::string, int>>{{"/data/vendor/diag/stale", kRwReadable}}));
    EXPECT_FALSE(Exists("/data/vendor/diag/stale"));
    EXPECT_EQ(platform::GetProperty("vendor.minidump.is.valid", ""), "0");
    std::vector<std::string> steps;
    for (const LogLine& line : mLog.all()) {
        if (line.tag == kModuleTag) steps.push_back(line.message);
    }
    EXPECT_EQ(steps, (std::vector<std::string>{"[OnAllModulesLoaded] Waiting for diag dir "
                                               "accessible...",
                                               "[OnAllModulesLoaded] loading minidump...",
                                               "[OnAllModulesLoaded] minidump done~ loading log "
                                               "utils",
                                               "[OnAllModulesLoaded] log utils done, quit"}));
}

}  // namespace
}  // namespace zelkor::tessel::testing
