// Zipping a folder's entries, now or after a delay, and moving old entries to
// the A/B reuse partition instead of deleting them.
#define LOG_TAG "Halvex-LogManagerVendor"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "framework/HalvexHandler.h"
#include "framework/HalvexMessage.h"
#include "modules/LogManager/LogManagerVendor.h"
#include "modules/LogManager/LogMgrFileEventListener.h"
#include "platform/HalvexLog.h"
#include "platform/Platform.h"
#include "platform/Properties.h"
#include "utils/FileUtil.h"
#include "utils/ZipFile.h"

namespace zelkor::tessel {

namespace {

constexpr int kLogGid = 1000;
constexpr unsigned kOpenMode = 0777;
constexpr unsigned kArchiveMode = 0775;

}  // namespace

bool LogManagerVendor::isReuseOpen() {
    const bool open = platform::GetBoolProperty(kReuseProperty, false);
    HLOGD("isReuseOpen %d", open);
    return open;
}

bool LogManagerVendor::Compress(std::string path) {
    const std::string archive = path + ".zip";
    ZipFile zip({path}, 0);
    if (!zip.create(archive)) {
        HLOGE("Create new zip failed!!");
        return false;
    }
    if (!zip.close()) {
        // The source stays; a partial archive must not pass for a log.
        FileUtil::DeleteDirectoryOrFile(platform::DevicePath(archive), nullptr);
        return false;
    }
    FileUtil::DeleteDirectoryOrFile(platform::DevicePath(path), nullptr);
    FileUtil::ChangeMode(platform::DevicePath(archive), kArchiveMode);
    return true;
}

void LogManagerVendor::compressPass(const std::string& path, const LogConfig& config,
                                    const NameList& names) {
    size_t count = names.size();
    // The newest entry may still be written: without a delay of its own it is
    // left for a later pass, except in the start-up pass of a folder zipped at once.
    if ((config.delayCompress || listening()) && config.compressLatestAfterSec == 0) --count;
    for (size_t i = 0; i < count; ++i) {
        if (names[i].find(".zip") != std::string::npos) continue;
        const std::string fullPath = path + "/" + names[i];
        if (fullPath == mLastDelayedPath) continue;  // its task is pending
        HALVEX_LOG_FN(ANDROID_LOG_DEBUG, LOG_TAG, "CheckAndClean", "Compress loop: fullPath %s",
                      fullPath.c_str());
        if (!listening() || config.compressLatestAfterSec == 0) {
            if (Compress(fullPath)) {
                HALVEX_LOG_FN(ANDROID_LOG_DEBUG, LOG_TAG, "CheckAndClean", "Compressed: %s",
                              fullPath.c_str());
            } else {
                HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, "CheckAndClean",
                              "Compress the path: %s returned error!", fullPath.c_str());
            }
        } else {
            scheduleCompress(fullPath, config.compressLatestAfterSec);
        }
    }
}

void LogManagerVendor::scheduleCompress(const std::string& fullPath, uint32_t delaySec) {
    std::shared_ptr<HalvexHandler> handler;
    {
        std::lock_guard<std::mutex> lock(mHandlerLock);
        handler = mHandler;
    }
    if (handler == nullptr) return;
    // A task still waiting is fired now: only the newest entry waits its delay.
    if (mPendingCompress != nullptr && handler->hasMessage(mPendingCompress) &&
        mPendingCompress->when > 0 && !mLastDelayedPath.empty()) {
        HALVEX_LOG_FN(ANDROID_LOG_DEBUG, LOG_TAG, "CheckAndClean",
                      "Last delay compress is not trigger, trigger it directly");
        handler->removeMessage(mPendingCompress, true);
        mPendingCompress->when = 0;
        handler->sendMessage(mPendingCompress);
    }
    const uint64_t seq = ++mPendingCompressSeq;
    mPendingCompress = handler->postDelayed(
            [this, fullPath, seq] {
                // Once run, the record goes back to the pool: forget it.
                if (seq == mPendingCompressSeq) mPendingCompress = nullptr;
                HLOGD("delayed compress task running for %s", fullPath.c_str());
                Compress(fullPath);
            },
            static_cast<long>(delaySec) * 1000);
    HALVEX_LOG_FN(ANDROID_LOG_DEBUG, LOG_TAG, "CheckAndClean",
                  "Scheduled delayed compress task for %s", fullPath.c_str());
    mLastDelayedPath = fullPath;
}

void LogManagerVendor::removeOldest(const std::string& path, const LogConfig& config,
                                    uint64_t* total, NameList* names, CheckFigures* figures) {
    const std::string& name = names->front();
    const std::string fullPath = path + "/" + name;
    std::string reuseFolder = mReuseRoot + "/";
    if (config.parent != nullptr) reuseFolder += config.parent->folderName + "/";
    reuseFolder += config.folderName;
    const std::string reuseFullPath = reuseFolder + "/" + name;
    HALVEX_LOG_FN(ANDROID_LOG_INFO, LOG_TAG, "CheckAndClean",
                  "fullPath: %s; reusePath: %s; reuseFullPath: %s", fullPath.c_str(),
                  reuseFolder.c_str(), reuseFullPath.c_str());
    if (isReuseOpen() && config.reuseMaxSize != 0) {
        moveToReuse(fullPath, reuseFolder, reuseFullPath, config, total, names, figures);
        return;
    }
    HALVEX_LOG_FN(ANDROID_LOG_INFO, LOG_TAG, "CheckAndClean", "Delete File By Inital Logic.");
    DeleteFileUpdateDirConfig(fullPath, total, names);
}

void LogManagerVendor::moveToReuse(const std::string& fullPath, const std::string& reuseFolder,
                                   const std::string& reuseFullPath, const LogConfig& config,
                                   uint64_t* total, NameList* names, CheckFigures* figures) {
    static constexpr char kFn[] = "CheckAndClean";
    NameList reuseNames;
    uint64_t reuseSize = getDirTotalSize(reuseFolder, &reuseNames, &config);
    const uint64_t reuseBefore = reuseSize;
    const std::string hostEntry = platform::DevicePath(fullPath);
    uint64_t entrySize;
    if (FileUtil::IsDirectory(hostEntry)) {
        NameList ignored;
        entrySize = getDirTotalSize(fullPath, &ignored, &config);
    } else {
        entrySize = FileUtil::GetFileSize(hostEntry);
    }
    std::sort(reuseNames.begin(), reuseNames.end());
    const uint64_t quota = config.reuseMaxSize << 10;
    if (entrySize > quota) {
        HALVEX_LOG_FN(ANDROID_LOG_INFO, LOG_TAG, kFn, "Log %s size is too large to move file.",
                      fullPath.c_str());
        DeleteFileUpdateDirConfig(fullPath, total, names);
        return;
    }
    while (isReuseOpen() && reuseSize + entrySize > quota) {
        // Nothing left to delete there: the entry cannot fit.
        const std::string oldest =
                reuseNames.empty() ? std::string() : reuseFolder + "/" + reuseNames.front();
        HALVEX_LOG_FN(ANDROID_LOG_INFO, LOG_TAG, kFn, "Start delete A/B reused partition file: %s",
                      oldest.c_str());
        if (reuseNames.empty() || !DeleteFileUpdateDirConfig(oldest, &reuseSize, &reuseNames)) {
            DeleteFileUpdateDirConfig(fullPath, total, names);
            return;
        }
    }
    figures->reuseClearSize = static_cast<int64_t>(reuseBefore - reuseSize);
    HALVEX_LOG_FN(ANDROID_LOG_INFO, LOG_TAG, kFn, "Start move file to A/B reused partition");
    const std::string hostReuse = platform::DevicePath(reuseFolder);
    if (FileUtil::CreateDirectoryWithOwner(hostReuse, 0, kLogGid)) {
        FileUtil::ChangeMode(hostReuse, kOpenMode);
    }
    if (isReuseOpen()) {
        const std::string hostCopy = platform::DevicePath(reuseFullPath);
        if (FileUtil::CopyFileOrDirectory(hostEntry, hostCopy)) {
            figures->reuseMoveSize = static_cast<int64_t>(entrySize);
            FileUtil::ChangeMode(hostCopy, kOpenMode);
            HALVEX_LOG_FN(ANDROID_LOG_INFO, LOG_TAG, kFn,
                          "Move file %s to A/B reused partition %s succeed, moved size %zu bytes.",
                          fullPath.c_str(), reuseFullPath.c_str(), static_cast<size_t>(entrySize));
        } else {
            HALVEX_LOG_FN(ANDROID_LOG_WARN, LOG_TAG, kFn,
                          "Move file %s to A/B reused partition %s failed,error: %s",
                          fullPath.c_str(), reuseFullPath.c_str(), strerror(errno));
        }
    }
    DeleteFileUpdateDirConfig(fullPath, total, names);
}

}  // namespace zelkor::tessel
