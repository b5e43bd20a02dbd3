#define LOG_TAG "Halvex-BSPLogProcessor"

#include "modules/BSPLogProcessor/BSPLogProcessor.h"

#include <dirent.h>
#include <errno.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <new>
#include <thread>
#include <utility>
#include <vector>

#include "framework/HalvexUtil.h"
#include "framework/ModuleManager.h"
#include "modules/BSPLogProcessor/MinidumpMain.h"
#include "modules/BSPLogProcessor/crash/GeneralLogUtils.h"
#include "platform/HalvexLog.h"
#include "platform/Platform.h"

namespace zelkor::tessel {

namespace {

// The raw partitions whose device nodes the boot run and the services open.
constexpr const char* kPartitions[] = {"blackbox",      "rawdump", "minidump",
                                       "crash_history", "ramdump", "xbl_sc_logs"};

// The host root as realpath() spells it; "/" on a device.
std::string RealRoot() {
    char root[PATH_MAX];
    return realpath(platform::Root().c_str(), root) != nullptr ? root : "/";
}

// The device path of a node that realpath() resolved under `root`, this
// process's real root. The core service takes device paths and maps them
// under its own root, so on a host the root comes off again; on a device the
// root is "/" and nothing changes. A link that leads out of the root (a
// host's loop device, say) names a node without a device path: its real path
// is passed as it is, and the service sees it as such.
std::string DeviceNodePath(const std::string& resolved, const std::string& root) {
    if (root != "/" && resolved.size() > root.size() &&
        resolved.compare(0, root.size(), root) == 0 && resolved[root.size()] == '/') {
        return resolved.substr(root.size());
    }
    return resolved;
}

}  // namespace

BSPLogProcessor::BSPLogProcessor()
    : mSleeper([] { std::this_thread::sleep_for(std::chrono::seconds(1)); }) {}

BSPLogProcessor::BSPLogProcessor(Sleeper sleeper) : mSleeper(std::move(sleeper)) {}

bool BSPLogProcessor::OnInit() {
    PreparePartitions();
    return true;
}

void BSPLogProcessor::OnAllModulesLoaded() {
    HLOGI("Waiting for diag dir accessible...");
    // The run goes on without it; its files then keep their modes.
    if (!WaitForDiagDir()) HLOGW("%s is still missing, going on", kDiagDir);
    PrepareLogFolder();
    HLOGI("loading minidump...");
    Minidump::minidump_main();
    HLOGI("minidump done~ loading log utils");
    GeneralLogUtils::log_utils_main();
    HLOGI("log utils done, quit");
    removeModule(getName(), true);
}

void BSPLogProcessor::PreparePartitions() {
    std::shared_ptr<ITesselCore> core = HalvexUtil::GetTesselCore();
    if (core == nullptr) return;
    const std::string root = RealRoot();
    for (const char* name : kPartitions) {
        const std::string link = platform::DevicePath(std::string(kByNameDir) + name);
        if (access(link.c_str(), F_OK) != 0) continue;
        char resolved[PATH_MAX];
        if (realpath(link.c_str(), resolved) == nullptr) continue;
        const std::string node = DeviceNodePath(resolved, root);
        std::vector<std::string> retDesc;
        bool ok = false;
        ndk::ScopedAStatus status = core->ChangeMode(node, kPartitionMode, &retDesc, &ok);
        if (!status.isOk() || !ok) {
            HLOGE("Chmod %s failed! error: %s, ret desc: %s", node.c_str(),
                  status.getDescription().c_str(), retDesc.empty() ? "" : retDesc[0].c_str());
        }
    }
}

void BSPLogProcessor::PrepareLogFolder() {
    std::shared_ptr<ITesselCore> core = HalvexUtil::GetTesselCore();
    if (core == nullptr) {
        HLOGW("no core service, modes under %s stay as they are", kDiagDir);
        return;
    }
    DIR* dir = opendir(platform::DevicePath(kDiagDir).c_str());
    if (dir == nullptr) {
        HLOGE("open %s failed! error: %d(%s)", kDiagDir, errno, strerror(errno));
        return;
    }
    while (struct dirent* entry = readdir(dir)) {
        if (strcmp(entry->d_name, ".") == 0 || strcmp(entry->d_name, "..") == 0) continue;
        const std::string path = std::string(kDiagDir) + entry->d_name;
        std::vector<std::string> retDesc;
        bool ok = false;
        if (!core->ChangeMode(path, kDiagFileMode, &retDesc, &ok).isOk() || !ok) {
            HLOGE("Chmod %s failed! error: %d(%s)", path.c_str(), errno, strerror(errno));
        }
    }
    closedir(dir);
}

bool BSPLogProcessor::WaitForDiagDir() {
    const std::string dir = platform::DevicePath(kDiagDir);
    for (int waits = 0;; ++waits) {
        if (access(dir.c_str(), F_OK) == 0) return true;
        if (waits == kDiagDirWaits) return false;
        mSleeper();
    }
}

BSPLogProcessorRegister::BSPLogProcessorRegister() {
    RegisterModule("BSPLogProcessorRegister", BSPLogProcessor::kName, 0, &createInstance);
}

ModuleBase* BSPLogProcessorRegister::createInstance() {
    return new (std::nothrow) BSPLogProcessor();
}

// Its construction is the registration; the daemon links this library whole
// so that the object is kept.
static BSPLogProcessorRegister sBSPLogProcessorRegister;

}  // namespace zelkor::tessel
