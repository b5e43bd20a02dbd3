#define LOG_TAG "tessel-peer"

#include "tools/tessel-peer/PeerServices.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <android-base/logging.h>
#include <android-base/unique_fd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "framework/InternalBroadcastManager.h"
#include "modules/blackbox/BlackBoxIo.h"
#include "platform/ClientPath.h"
#include "platform/Platform.h"

namespace zelkor::tessel::peer {
namespace {

// True when the node behind `fd` (opened O_PATH, links followed) lies inside
// the root, which is kept resolved; a symbolic link cannot carry a mode change
// out of it.
bool InsideRoot(int fd) {
    return !platform::ClientPathOf(fd).empty();
}

}  // namespace

ndk::ScopedAStatus TesselCoreService::ChangeMode(const std::string& path, int32_t mode,
                                                 std::vector<std::string>* retDesc, bool* result) {
    // The path is resolved once: the check and the change act on the same
    // node, so a link swapped in between cannot redirect the change.
    std::string desc;
    android::base::unique_fd node;
    if (path.empty() || path[0] != '/') {
        desc = "path must be absolute";
    } else if (node.reset(open(platform::DevicePath(path).c_str(), O_PATH | O_CLOEXEC));
               !node.ok()) {
        desc = std::string("no such path: ") + strerror(errno);
    } else if (!InsideRoot(node.get())) {
        desc = "path leads outside the root";
    } else if (chmod(("/proc/self/fd/" + std::to_string(node.get())).c_str(),
                     static_cast<mode_t>(mode) & 07777) != 0) {
        desc = std::string("chmod failed: ") + strerror(errno);
    }
    *result = desc.empty();
    retDesc->assign(1, desc.empty() ? "ok" : desc);
    LOG(INFO) << "ChangeMode " << path << " " << std::oct << mode << std::dec << ": "
              << (*result ? "ok" : desc);
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus TesselCoreService::GetPartitionSize(const std::string& caller,
                                                       const std::string& partitionName,
                                                       int64_t* result) {
    *result = -1;
    if (partitionName.empty() || partitionName == "." || partitionName == ".." ||
        partitionName.find('/') != std::string::npos) {
        return ndk::ScopedAStatus(AStatus_fromExceptionCodeWithMessage(
                EX_ILLEGAL_ARGUMENT, "partition name must be a bare name"));
    }
    const std::string host = platform::DevicePath("/dev/block/by-name/" + partitionName);
    android::base::unique_fd fd(open(host.c_str(), O_RDONLY | O_CLOEXEC));
    const int64_t size = fd.ok() ? blackbox::partition_size(fd.get()) : -1;
    if (size < 0) {
        return ndk::ScopedAStatus(
                AStatus_fromServiceSpecificErrorWithMessage(errno, strerror(errno)));
    }
    *result = size;
    LOG(INFO) << caller << " asked the size of " << partitionName << ": " << size;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus HalvexSsiService::reportEvent(const std::string& eventId,
                                                 const std::string& moduleName,
                                                 const std::string& json, int32_t flags,
                                                 int32_t* result) {
    Json::Value record(Json::objectValue);
    record["eventId"] = eventId;
    record["module"] = moduleName;
    record["json"] = json;
    record["flags"] = flags;
    *result = mReports.append(record) ? 0 : -1;
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus HalvexSsiIntlService::transferMessage(const std::string& action,
                                                         const std::string& json) {
    Json::Value record(Json::objectValue);
    record["action"] = action;
    record["json"] = json;
    mMessages.append(record);
    InternalBroadcastManager::onHalvexIntlMessageReceived(action, json);
    return ndk::ScopedAStatus::ok();
}

}  // namespace zelkor::tessel::peer
