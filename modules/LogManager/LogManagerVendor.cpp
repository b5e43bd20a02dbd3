#define LOG_TAG "Halvex-LogManagerVendor"

#include "modules/LogManager/LogManagerVendor.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>

#include <condition_variable>
#include <new>

#include "framework/HalvexHandler.h"
#include "framework/HalvexHandlerThread.h"
#include "framework/InternalBroadcastManager.h"
#include "framework/ModuleManager.h"
#include "modules/LogManager/LogManagerConstants.h"
#include "modules/LogManager/LogManagerUtil.h"
#include "modules/LogManager/LogMgrBroadcastReceiver.h"
#include "modules/LogManager/LogMgrFileEventListener.h"
#include "platform/HalvexLog.h"
#include "platform/Platform.h"
#include "platform/Properties.h"
#include "utils/FileUtil.h"

namespace zelkor::tessel {

namespace {

constexpr int kLogGid = 1000;
constexpr unsigned kFolderMode = 0777;

// A record this side keeps: named, limited, and on the vendor side.
bool Managed(const LogConfig& config) {
    return (!config.folderName.empty() || !config.folderPath.empty()) &&
           (config.maxSize != 0 || config.maxValidDay != 0 || config.maxLogNumber != 0) &&
           config.inVendor;
}

// The folders of a configuration in the order they are watched: each
// top-level record's children, then the record itself.
template <typename Fn>
void ForEachFolder(const std::vector<LogConfig>& configs, Fn&& fn) {
    for (const auto& config : configs) {
        for (const auto& child : config.children) fn(child);
        fn(config);
    }
}

}  // namespace

LogManagerVendor::LogManagerVendor()
    : mVendorRoot(logmgr::kVendorRoot),
      mReuseRoot(logmgr::kReuseRoot),
      mMonitorEventName("logMonitor") {}

LogManagerVendor::~LogManagerVendor() {
    // The listener first: its thread posts to the handler.
    mListener.reset();
    OnStop();
    mReceiver.reset();
}

bool LogManagerVendor::OnInit() {
    if (platform::GetBoolProperty(kDisableProperty, false)) {
        HLOGW("Will not load caused by disableLogMgr is true");
        return false;
    }
    mReceiver = std::make_unique<LogMgrBroadcastReceiver>(this);
    InternalBroadcastManager::registerReceiver(
            mReceiver.get(),
            IntentFilter({logmgr::kActionConfigAppend, logmgr::kActionConfigChanged}));
    return true;
}

void LogManagerVendor::OnAllModulesLoaded() {
    {
        std::lock_guard<std::mutex> lock(mHandlerLock);
        mHandler = std::make_shared<HalvexHandler>(getModuleThread()->getLooper());
    }
    InternalBroadcastManager::sendBroadcast(Intent(logmgr::kActionVendorIsReady), true);
}

void LogManagerVendor::OnStop() {
    // Nothing may post to the module's thread once it stops: the receiver (on
    // this very thread) is taken off the bus and the handler dropped, so the
    // listener's posts find none. The listener itself goes with the module.
    if (mReceiver != nullptr) InternalBroadcastManager::unregisterReceiver(mReceiver.get());
    std::lock_guard<std::mutex> lock(mHandlerLock);
    mHandler.reset();
}

bool LogManagerVendor::post(HalvexJob&& job) {
    std::lock_guard<std::mutex> lock(mHandlerLock);
    if (mHandler == nullptr) return false;
    mHandler->post(std::move(job));
    return true;
}

bool LogManagerVendor::watchByConfigs(std::vector<LogConfig>& configs) {
    std::vector<std::string> paths;
    auto take = [&](const LogConfig& config) {
        if (!Managed(config)) return;
        const std::string path = LogManagerUtil::GetFullPathByConfig(config, false);
        if (config.folderPath.empty()) {
            const std::string host = platform::DevicePath(path);
            if (FileUtil::CreateDirectoryWithOwner(host, 0, kLogGid)) {
                FileUtil::ChangeMode(host, kFolderMode);
            }
        }
        paths.push_back(path);
    };
    ForEachFolder(configs, take);
    if (mListener != nullptr) {
        for (const auto& path : paths) mListener->addWatching(path, kWatchMask);
        return true;
    }
    for (const auto& path : paths) CheckAndClean(path);
    auto listener = std::make_unique<LogMgrFileEventListener>(this, paths, kWatchMask);
    std::lock_guard<std::mutex> lock(mConfigsLock);
    mListener = std::move(listener);
    return true;
}

void LogManagerVendor::repointChildren() {
    for (auto& config : mConfigs) {
        for (auto& child : config.children) child.parent = &config;
    }
}

void LogManagerVendor::replaceConfigs(std::vector<LogConfig> configs) {
    {
        std::lock_guard<std::mutex> lock(mConfigsLock);
        mConfigs = std::move(configs);
    }
    watchByConfigs(mConfigs);
}

void LogManagerVendor::addFolderToManage(const Json::Value& json) {
    if (json.isArray()) {
        std::vector<LogConfig> added = LogManagerUtil::GenerateConfigList(json);
        {
            std::lock_guard<std::mutex> lock(mConfigsLock);
            mConfigs.insert(mConfigs.end(), added.begin(), added.end());
            // The copies' children still point into `added`, and the append
            // may have moved every earlier record.
            repointChildren();
        }
        watchByConfigs(added);
        return;
    }
    if (!json.isObject()) return;
    LogConfig config;
    if (JsonHelper::JsonToObject(config, json, {})) addFolderToManage(config);
}

void LogManagerVendor::addFolderToManage(const LogConfig& config) {
    {
        std::lock_guard<std::mutex> lock(mConfigsLock);
        mConfigs.push_back(config);
        repointChildren();
    }
    std::vector<LogConfig> one{config};
    for (auto& child : one[0].children) child.parent = &one[0];
    watchByConfigs(one);
}

void LogManagerVendor::checkAllWatched() {
    std::vector<std::string> paths;
    ForEachFolder(mConfigs, [&](const LogConfig& config) {
        paths.push_back(LogManagerUtil::GetFullPathByConfig(config, false));
    });
    for (const auto& path : paths) {
        if (mListener != nullptr && mListener->isWatching(path)) CheckAndClean(path);
    }
}

void LogManagerVendor::dump(int fd, const char**, uint32_t) {
    using android::base::StringPrintf;
    std::lock_guard<std::mutex> configsLock(mConfigsLock);
    std::string out =
            StringPrintf("%zu folder record(s), reuse partition %s\n", mConfigs.size(),
                         platform::GetBoolProperty(kReuseProperty, false) ? "open" : "closed");
    auto describe = [&](const LogConfig& config, const char* indent) {
        const std::string path = LogManagerUtil::GetFullPathByConfig(config, false);
        out += StringPrintf(
                "%s%s%s\n%s  limits: maxSize %llu KiB, maxLogNumber %u, maxValidDay %u, "
                "reuseMaxSize %llu KiB, compress %d (after %u s, delayed %d), pushEventOnly %d\n"
                "%s  watched: %s\n",
                indent, path.c_str(), Managed(config) ? "" : " (not managed here)", indent,
                static_cast<unsigned long long>(config.maxSize), config.maxLogNumber,
                config.maxValidDay, static_cast<unsigned long long>(config.reuseMaxSize),
                config.compress, config.compressLatestAfterSec, config.delayCompress,
                config.pushEventOnly, indent,
                mListener != nullptr && mListener->isWatching(path) ? "yes" : "no");
        std::lock_guard<std::mutex> lock(mFiguresLock);
        auto it = mLastFigures.find(path);
        if (it == mLastFigures.end()) {
            out += StringPrintf("%s  last check: never\n", indent);
            return;
        }
        const CheckFigures& f = it->second;
        out += StringPrintf(
                "%s  last check: %s, %llu entries, %llu bytes; deleted %llu, %llu bytes after, "
                "over size %d, reuse cleared %lld, moved %lld\n",
                indent, f.when.c_str(), static_cast<unsigned long long>(f.entries),
                static_cast<unsigned long long>(f.sizeBefore),
                static_cast<unsigned long long>(f.deleted),
                static_cast<unsigned long long>(f.sizeAfter), f.overSize,
                static_cast<long long>(f.reuseClearSize), static_cast<long long>(f.reuseMoveSize));
    };
    for (const auto& config : mConfigs) {
        describe(config, "");
        for (const auto& child : config.children) describe(child, "  ");
    }
    android::base::WriteStringToFd(out, fd);
}

LogManagerVendorRegister::LogManagerVendorRegister() {
    RegisterModule("LogManagerVendorRegister", LogManagerVendor::kName, 1, &createInstance);
}

ModuleBase* LogManagerVendorRegister::createInstance() {
    return new (std::nothrow) LogManagerVendor();
}

// Its construction is the registration; the daemon links this library whole
// so that the object is kept.
static LogManagerVendorRegister sLogManagerVendorRegister;

}  // namespace zelkor::tessel
