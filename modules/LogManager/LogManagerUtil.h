// The log manager's configuration helpers: the record list from JSON, a
// record's folder, lookups by name or path, and the age test of dated entries.
#pragma once

#include <json/json.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "modules/LogManager/LogConfig.h"

namespace zelkor::tessel {

class LogManagerUtil {
  public:
    // The records of a JSON array, each direct child pointing to its record.
    // What converted before a bad record is kept (and the error logged). Keep
    // the vector whole: the parent pointers point into it.
    static std::vector<LogConfig> GenerateConfigList(Json::Value json);
    // folderPath when set, else the parent's folder (or the root chosen by the
    // vendor flags) followed by folderName.
    static std::string GetFullPathByConfig(const LogConfig& config, bool inVendor);
    // A top-level record by folder name or full path, or a direct child by its
    // full path.
    static std::optional<LogConfig> GetConfigByFolderName(const std::string& name,
                                                          const std::vector<LogConfig>& configs);
    // True when the date of a dated folder name (or of a ramdump file's name,
    // whose time of day is not read) is at or before `limitSec`.
    static bool CompareTimeStrExpired(const std::string& timeStr, const int64_t& limitSec,
                                      bool fromFileName);
};

}  // namespace zelkor::tessel
