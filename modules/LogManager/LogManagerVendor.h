// LogManagerVendor: the module that keeps the vendor log folders within their
// limits. Each configured folder is created and watched; every new entry makes
// the module check the folder on its own thread: measure it, delete (or move
// to the A/B reuse partition) the oldest entries while it is over its count,
// size or age limit, zip what remains and report what it did.
#pragma once

#include <json/json.h>
#include <sys/inotify.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "framework/HalvexJob.h"
#include "framework/ModuleBase.h"
#include "modules/LogManager/LogConfig.h"
#include "modules/LogManager/LogManagerEvent.h"

namespace zelkor::tessel {

class HalvexHandler;
class HalvexMessage;
class LogMgrBroadcastReceiver;
class LogMgrFileEventListener;

class LogManagerVendor : public ModuleBase {
  public:
    // A folder's entry names; the oldest are taken off the front one by one.
    using NameList = std::deque<std::string>;

    static constexpr char kName[] = "Halvex.LogManager";
    static constexpr uint32_t kWatchMask = IN_CREATE | IN_DELETE_SELF | IN_ONLYDIR;
    static constexpr char kDisableProperty[] = "persist.bsp.logmgr.disable";
    static constexpr char kReuseProperty[] = "persist.sys.abreuse.abstatus";
    static constexpr char kEventId[] = "31000401754";

    LogManagerVendor();
    ~LogManagerVendor() override;

    bool OnInit() override;
    void OnAllModulesLoaded() override;
    void OnStop() override;
    // Every managed folder: its path, limits, whether it is watched, and the
    // figures of its last check.
    void dump(int fd, const char** args, uint32_t nargs) override;

    // Creates and watches the folders of `configs` that this side manages. The
    // first call checks each of them and starts the listener; later calls
    // only add watches. Always true.
    bool watchByConfigs(std::vector<LogConfig>& configs);
    // Appends records (a JSON array or object, or one record) and watches them.
    void addFolderToManage(const Json::Value& json);
    void addFolderToManage(const LogConfig& config);
    // Replaces the whole configuration and watches it.
    void replaceConfigs(std::vector<LogConfig> configs);

    // Measures `path` and brings it within its record's limits.
    bool CheckAndClean(const std::string& path);
    // Fills `names` with the folder's entries (ramdump names only, when the
    // record says so) and returns their bytes; 0 when it cannot be opened.
    uint64_t getDirTotalSize(const std::string& path, NameList* names, const LogConfig* config);
    // Deletes `path`, drops the first name and takes the freed bytes off
    // `total`; on failure the name is dropped all the same.
    bool DeleteFileUpdateDirConfig(const std::string& path, uint64_t* total, NameList* names);

    bool isReuseOpen();
    // Zips `path` into `path`.zip beside it and removes the source.
    bool Compress(std::string path);

    void reportLogMonitorEvent(unsigned long size);
    void reportLogMgrEvent(LogManagerEvent& event);

    // Runs `job` on the module's thread; false when it is not running (yet).
    bool post(HalvexJob&& job);
    // Checks every watched folder once: events may have been lost.
    void checkAllWatched();

    const std::vector<LogConfig>& configs() const { return mConfigs; }

  private:
    // What one check found and did, for the report and the dump.
    struct CheckFigures {
        uint64_t entries = 0;
        uint64_t sizeBefore = 0;
        uint64_t sizeAfter = 0;
        uint64_t deleted = 0;
        int64_t reuseClearSize = -1;
        int64_t reuseMoveSize = -1;
        bool overSize = false;
        std::string when;
    };

    // Takes the names' first entry out of the folder: moved to the reuse
    // partition when it is open and the folder has a reuse quota, else deleted.
    void removeOldest(const std::string& path, const LogConfig& config, uint64_t* total,
                      NameList* names, CheckFigures* figures);
    void moveToReuse(const std::string& fullPath, const std::string& reuseFolder,
                     const std::string& reuseFullPath, const LogConfig& config, uint64_t* total,
                     NameList* names, CheckFigures* figures);
    void compressPass(const std::string& path, const LogConfig& config, const NameList& names);
    void scheduleCompress(const std::string& fullPath, uint32_t delaySec);
    uint64_t zippedSize(const std::string& path);
    // Points every child at the record that now holds it.
    void repointChildren();
    bool listening() const { return mListener != nullptr; }

    std::vector<LogConfig> mConfigs;
    const std::string mVendorRoot;
    const std::string mReuseRoot;
    const std::string mMonitorEventName;
    std::shared_ptr<HalvexHandler> mHandler;  // guarded by mHandlerLock
    HalvexMessage* mPendingCompress = nullptr;
    std::string mLastDelayedPath;
    std::unique_ptr<LogMgrFileEventListener> mListener;
    std::unique_ptr<LogMgrBroadcastReceiver> mReceiver;

    std::mutex mHandlerLock;
    // Held by the module's thread while it changes the list or the listener,
    // and by dump, which reads them from a binder thread.
    std::mutex mConfigsLock;
    uint64_t mPendingCompressSeq = 0;
    // Per folder path, the last check's figures; read by dump on a binder
    // thread, written on the module's thread.
    std::mutex mFiguresLock;
    std::map<std::string, CheckFigures> mLastFigures;
};

// Registers "Halvex.LogManager" with priority 1 at static initialisation.
class LogManagerVendorRegister {
  public:
    LogManagerVendorRegister();
    static ModuleBase* createInstance();
};

}  // namespace zelkor::tessel
