#define LOG_TAG "Halvex-LogMgrFileEventListener"

#include "modules/LogManager/LogMgrFileEventListener.h"

#include <sys/inotify.h>

#include "modules/LogManager/LogManagerVendor.h"
#include "platform/HalvexLog.h"

namespace zelkor::tessel {

LogMgrFileEventListener::LogMgrFileEventListener(LogManagerVendor* module,
                                                 const std::vector<std::string>& paths,
                                                 uint32_t mask)
    : FileEventListener("LogMgrFileEventListener", paths, mask, false), mModule(module) {
    startListening();
}

LogMgrFileEventListener::~LogMgrFileEventListener() {
    // No callback may run while the module is going away.
    stopListening();
}

void LogMgrFileEventListener::OnFileEvent(uint32_t mask, std::optional<std::string> name,
                                          const std::string& basePath) {
    if ((mask & IN_DELETE_SELF) != 0) {
        HLOGI("watching dir %s deleted, remove watching", basePath.c_str());
        removeWatching(basePath);
        return;
    }
    // The module's own archives must not start another check.
    if (name && name->find(".zip") != std::string::npos) return;
    HLOGD("fileName: %s, basePath: %s", name ? name->c_str() : "", basePath.c_str());
    mModule->post([module = mModule, basePath] { module->CheckAndClean(basePath); });
}

void LogMgrFileEventListener::OnQueueOverflow() {
    HLOGW("inotify queue overflowed, events lost: checking every watched folder");
    mModule->post([module = mModule] { module->checkAllWatched(); });
}

}  // namespace zelkor::tessel
