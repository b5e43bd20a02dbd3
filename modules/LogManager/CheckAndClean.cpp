// The folder check of the log manager: measure, delete the oldest entries
// while over a limit, compress, report.
#define LOG_TAG "Halvex-LogManagerVendor"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <regex>

#include "modules/LogManager/LogManagerUtil.h"
#include "modules/LogManager/LogManagerVendor.h"
#include "platform/HalvexLog.h"
#include "platform/Platform.h"
#include "utils/FileUtil.h"
#include "utils/TimeUtil.h"

namespace zelkor::tessel {

namespace {

constexpr uint64_t kDayMs = 86400000;

// Ramdump files whose names carry their date, when a folder holds those
// instead of dated sub-folders.
bool IsDatedRamdumpName(const std::string& name) {
    static const std::regex kPattern(
            R"(ramdump_.*_\d{4}-\d{1,2}-\d{1,2}_\d{1,2}-\d{1,2}-\d{1,2}.*\..*)",
            std::regex::ECMAScript | std::regex::icase);
    return std::regex_match(name, kPattern);
}

// The entry's type, from the listing when it says, else from lstat.
unsigned char EntryType(const std::string& hostDir, const dirent* entry) {
    if (entry->d_type != DT_UNKNOWN) return entry->d_type;
    struct stat st {};
    if (lstat((hostDir + "/" + entry->d_name).c_str(), &st) != 0) return DT_UNKNOWN;
    if (S_ISDIR(st.st_mode)) return DT_DIR;
    if (S_ISREG(st.st_mode)) return DT_REG;
    return DT_UNKNOWN;
}

std::string LocalTimeText() {
    const time_t now = time(nullptr);
    struct tm local {};
    localtime_r(&now, &local);
    char text[32];
    strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S", &local);
    return text;
}

bool IsDotEntry(const char* name) {
    return strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

// One pass over an open folder: names (filtered by the ramdump form when
// `ramdumpNames`) and their bytes. The folder is closed here.
uint64_t ScanFolder(DIR* dir, const std::string& hostDir, bool ramdumpNames,
                    LogManagerVendor::NameList* names, const char* caller) {
    uint64_t total = 0;
    while (const dirent* entry = readdir(dir)) {
        if (IsDotEntry(entry->d_name)) continue;
        const std::string name = entry->d_name;
        if (ramdumpNames && !IsDatedRamdumpName(name)) {
            HALVEX_LOG_FN(ANDROID_LOG_DEBUG, LOG_TAG, caller,
                          "OldRamdumpFileFormatHack: fileName %s not matched regex, skip!",
                          name.c_str());
            continue;
        }
        names->push_back(name);
        const std::string entryPath = hostDir + "/" + name;
        switch (EntryType(hostDir, entry)) {
            case DT_DIR:
                total += static_cast<uint64_t>(
                        std::max<int64_t>(0, FileUtil::GetDirectorySize(entryPath)));
                break;
            case DT_REG:
                if (name.find(".zip") != std::string::npos) {
                    HALVEX_LOG_FN(ANDROID_LOG_DEBUG, LOG_TAG, caller, "Detected zipped log %s",
                                  name.c_str());
                }
                // The low 32 bits of the size, taken as signed: kept as the
                // folder's accounting has always done it.
                total += static_cast<uint64_t>(static_cast<int64_t>(
                        static_cast<int32_t>(FileUtil::GetFileSize(entryPath))));
                break;
            default:
                HALVEX_LOG_FN(ANDROID_LOG_WARN, LOG_TAG, caller,
                              "Only directory with date named is allowed, but unknown file %s was "
                              "detected!!",
                              name.c_str());
                break;
        }
    }
    if (closedir(dir) != 0) HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, caller, "Close Dir failed!");
    return total;
}

}  // namespace

uint64_t LogManagerVendor::getDirTotalSize(const std::string& path, NameList* names,
                                           const LogConfig* config) {
    const std::string host = platform::DevicePath(path);
    DIR* dir = opendir(host.c_str());
    if (dir == nullptr) {
        HLOGE("CheckAndClean: can not open dir %s error: %s", path.c_str(), strerror(errno));
        return 0;
    }
    return ScanFolder(dir, host, config != nullptr && config->watchSSRRamdumpHack, names,
                      "getDirTotalSize");
}

bool LogManagerVendor::DeleteFileUpdateDirConfig(const std::string& path, uint64_t* total,
                                                 NameList* names) {
    uint64_t removed = 0;
    const int result = FileUtil::DeleteDirectoryOrFile(platform::DevicePath(path), &removed);
    if (!names->empty()) names->erase(names->begin());
    if (result != 0) {
        HLOGE("remove %s failed! error:%s. skipped this file for now..., ", path.c_str(),
              strerror(errno));
        return false;
    }
    HLOGI("DeleteDirectoryOrFile succeed, removed size %zu bytes (%zu MB)",
          static_cast<size_t>(removed), static_cast<size_t>(removed >> 20));
    // A file that grew since it was measured must not wrap the total around.
    *total = removed > *total ? 0 : *total - removed;
    return true;
}

bool LogManagerVendor::CheckAndClean(const std::string& path) {
    const std::optional<LogConfig> found = LogManagerUtil::GetConfigByFolderName(path, mConfigs);
    if (!found) {
        HLOGE("get config failed for %s", path.c_str());
        return false;
    }
    const LogConfig& config = *found;
    if (!config.children.empty()) {
        HLOGD("found children items, ignore master folder clean");
        return true;
    }
    HLOGI("Start Checking %s", path.c_str());
    const std::string host = platform::DevicePath(path);
    DIR* dir = opendir(host.c_str());
    if (dir == nullptr) {
        HLOGE("can not open dir %s", path.c_str());
        return false;
    }
    NameList names;
    uint64_t total = ScanFolder(dir, host, config.watchSSRRamdumpHack, &names, "CheckAndClean");
    CheckFigures figures;
    figures.entries = names.size();
    figures.sizeBefore = total;
    figures.sizeAfter = total;
    figures.when = LocalTimeText();
    const uint64_t sizeQuota = config.maxSize << 10;
    auto remember = [&] {
        std::lock_guard<std::mutex> lock(mFiguresLock);
        mLastFigures[path] = figures;
    };

    if (config.pushEventOnly) {
        if (total > sizeQuota) reportLogMonitorEvent(total);
        remember();
        return true;
    }
    if (names.empty()) {
        HLOGI("%s is empty, no need clean!", path.c_str());
        remember();
        return true;
    }
    // Plain byte order: dated names are not zero-padded, so this is not always
    // the order of their dates, and the oldest by name goes first regardless.
    std::sort(names.begin(), names.end());
    const bool reuseOpen = isReuseOpen();

    const uint64_t nowMs = TimeUtil::getCurrentTimeMs();
    const uint64_t maxOffsetMs = static_cast<uint64_t>(config.maxValidDay) * kDayMs;
    const int64_t ageLimit =
            (static_cast<int64_t>(nowMs) - static_cast<int64_t>(maxOffsetMs)) / 1000;
    auto overLimit = [&] {
        return (config.maxLogNumber != 0 && names.size() > config.maxLogNumber) ||
               (config.maxSize != 0 && total > sizeQuota) ||
               (config.maxValidDay != 0 && !names.empty() &&
                LogManagerUtil::CompareTimeStrExpired(names.front(), ageLimit,
                                                      config.watchSSRRamdumpHack));
    };
    while (overLimit()) {
        if (names.empty()) {
            HLOGD("%s is clean, should not enter clean loop again!", path.c_str());
            remember();
            return true;
        }
        figures.overSize = config.maxSize != 0 && total > sizeQuota;
        HLOGI("Clean Start: fileName %s, fileNameList size %d, totalSize %zu, NowTime %llu(ms), "
              "MaxOffsetTime %lu(ms), time offset %lu(ms)",
              names.front().c_str(), static_cast<int>(names.size()), static_cast<size_t>(total),
              static_cast<unsigned long long>(nowMs), static_cast<unsigned long>(maxOffsetMs),
              static_cast<unsigned long>(nowMs - maxOffsetMs));
        removeOldest(path, config, &total, &names, &figures);
        ++figures.deleted;
    }

    figures.sizeAfter = total;
    if (config.compress && !names.empty()) {
        compressPass(path, config, names);
        if (figures.overSize) figures.sizeAfter = zippedSize(path);
    }
    if (figures.overSize) {
        LogManagerEvent event;
        event.dirFullPath = path;
        event.dirSizeBefore = static_cast<int64_t>(figures.sizeBefore);
        event.dirSizeAfter = static_cast<int64_t>(figures.sizeAfter);
        event.isReuseOpen = reuseOpen;
        event.reuseClearSize = figures.reuseClearSize;
        event.reuseMoveSize = figures.reuseMoveSize;
        reportLogMgrEvent(event);
    }
    remember();
    return true;
}

uint64_t LogManagerVendor::zippedSize(const std::string& path) {
    const std::string host = platform::DevicePath(path);
    DIR* dir = opendir(host.c_str());
    if (dir == nullptr) return 0;
    uint64_t total = 0;
    while (const dirent* entry = readdir(dir)) {
        if (IsDotEntry(entry->d_name)) continue;
        const std::string name = entry->d_name;
        const unsigned char type = EntryType(host, entry);
        if (type == DT_DIR) {
            total += static_cast<uint64_t>(
                    std::max<int64_t>(0, FileUtil::GetDirectorySize(host + "/" + name)));
        } else if (type == DT_REG && name.find(".zip") != std::string::npos) {
            total += FileUtil::GetFileSize(host + "/" + name);
        }
    }
    if (closedir(dir) != 0) {
        HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, "CheckAndClean", "Close Dir failed! error: %s",
                      strerror(errno));
    }
    return total;
}

}  // namespace zelkor::tessel
