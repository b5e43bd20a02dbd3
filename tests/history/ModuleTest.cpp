// The BSPLogProcessor module: the mode changes it asks of the core service,
// the wait for the diagnostic folder, and its run ending in its own removal.
#include <aidl/vendor/zelkor/hardware/tessel/core/BnTesselCore.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <new>
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

using Calls = std::vector<std::pair<std::string, int>>;

// Records what the module asks; says no when told to.
class FakeCore : public aidl::vendor::zelkor::hardware::tessel::core::BnTesselCore {
  public:
    enum class Fail { kNo, kRefuse, kTransaction };
    ndk::ScopedAStatus ChangeMode(const std::string& path, int32_t mode,
                                  std::vector<std::string>* retDesc, bool* ret) override {
        std::lock_guard<std::mutex> lock(mLock);
        mCalls.emplace_back(path, mode);
        if (fail == Fail::kTransaction) return ndk::ScopedAStatus::fromServiceSpecificError(5);
        *ret = fail == Fail::kNo;
        if (!*ret) retDesc->push_back("refused by test");
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus GetPartitionSize(const std::string&, const std::string&,
                                        int64_t* ret) override {
        *ret = 0;
        return ndk::ScopedAStatus::ok();
    }
    Calls calls() {
        std::lock_guard<std::mutex> lock(mLock);
        return mCalls;
    }
    std::atomic<Fail> fail{Fail::kNo};

  private:
    std::mutex mLock;
    Calls mCalls;
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

// Nothing is asked without a core service; then each node by its device
// path, and each refusal is logged.
TEST_F(ModuleTest, ResolvedNodesAreAskedForByDevicePathInOrderAndRefusalsLogged) {
    WriteText("/dev/block/sda17", "");
    WriteText("/dev/block/sdb3", "");
    TempRoot outside;
    std::ofstream(outside.path() + "/loop7") << "";
    Link("xbl_sc_logs", "../sdb3");                    // relative, inside the root
    Link("blackbox", Host("/dev/block/sda17"));        // absolute host path, inside the root
    Link("crash_history", outside.path() + "/loop7");  // a node outside the root
    Link("rawdump", Host("/dev/block/gone"));          // dangling: skipped
    WriteText("/dev/block/by-name/ramdump", "");       // not a link: the path itself
    HalvexUtil::Reset();
    mModule.PreparePartitions();
    EXPECT_TRUE(mCore->calls().empty());

    HalvexUtil::SetTesselCore(mCore);
    ASSERT_TRUE(mModule.OnInit());
    char outsideReal[PATH_MAX];
    ASSERT_NE(realpath((outside.path() + "/loop7").c_str(), outsideReal), nullptr);
    EXPECT_EQ(mCore->calls(), (Calls{{"/dev/block/sda17", kRwGroup},
                                     {outsideReal, kRwGroup},
                                     {"/dev/block/by-name/ramdump", kRwGroup},
                                     {"/dev/block/sdb3", kRwGroup}}));
    EXPECT_TRUE(ModuleLines().empty());

    mCore->fail = FakeCore::Fail::kRefuse;
    mModule.PreparePartitions();
    EXPECT_EQ(mLog.count(kModuleTag, ", ret desc: refused by test"), 4);
    mCore->fail = FakeCore::Fail::kTransaction;
    mModule.PreparePartitions();
    EXPECT_EQ(mLog.count(kModuleTag, "[PreparePartitions] Chmod /dev/block/sda17 failed! error: "),
              2);
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

struct ProbeRegister {
    static ModuleBase* createInstance() {
        return new (std::nothrow) BSPLogProcessor([] {});
    }
};

// The diag folder's entries are made readable by all, each refusal logged,
// before the run; the module then leaves.
TEST_F(ModuleTest, RunMakesDiagEntriesReadableAndEndsWithTheModuleRemovingItself) {
    RegisterModule("BSPLogProcessorProbeRegister", "BSPLogProcessorProbe", 0,
                   &ProbeRegister::createInstance);
    ModulePrio& entry = GetModuleList().at("BSPLogProcessorProbe");
    ASSERT_NE(entry.instance, nullptr);
    entry.stopped = false;
    WriteText("/data/vendor/diag/last_kmsg", "k");
    std::filesystem::create_directories(Host("/data/vendor/diag/sub"));
    mCore->fail = FakeCore::Fail::kRefuse;

    entry.instance->OnAllModulesLoaded();
    ASSERT_TRUE(DrainManagerThread(2));

    EXPECT_TRUE(entry.stopped);
    EXPECT_EQ(entry.instance, nullptr);
    Calls calls = mCore->calls();
    std::sort(calls.begin(), calls.end());
    EXPECT_EQ(calls, (Calls{{"/data/vendor/diag/last_kmsg", kRwReadable},
                            {"/data/vendor/diag/sub", kRwReadable}}));
    EXPECT_EQ(mLog.count(kModuleTag, "[PrepareLogFolder] Chmod /data/vendor/diag/sub failed! "), 1);
    std::vector<std::string> steps;
    for (const LogLine& line : ModuleLines()) {
        if (line.message.rfind("[OnAllModulesLoaded]", 0) == 0) steps.push_back(line.message);
    }
    EXPECT_EQ(steps,
              (std::vector<std::string>{"[OnAllModulesLoaded] Waiting for diag dir accessible...",
                                        "[OnAllModulesLoaded] loading minidump...",
                                        "[OnAllModulesLoaded] minidump done~ loading log utils",
                                        "[OnAllModulesLoaded] log utils done, quit"}));
}

}  // namespace
}  // namespace zelkor::tessel::testing
