#define LOG_TAG "Halvex-LogManagerUtil"

#include "modules/LogManager/LogManagerUtil.h"

#include <cstring>
#include <string_view>

#include "modules/LogManager/LogManagerConstants.h"
#include "platform/HalvexLog.h"
#include "utils/TimeUtil.h"

namespace zelkor::tessel {

namespace {

// A ramdump file's date is the third '_'-separated piece of its name.
constexpr size_t kDateBuffer = 20;

// The '_'-separated date and the time after it, as strtok would find them in
// "ramdump_modem_2024-03-07_12-05-09.bin": "2024-03-07" and "12-05-09". A
// missing piece is empty.
std::string TimeTextOfFileName(const std::string& name) {
    std::string copy = name;
    char* save = nullptr;
    char* token = strtok_r(copy.data(), "_", &save);
    for (int skipped = 0; token != nullptr && skipped < 2; ++skipped) {
        token = strtok_r(nullptr, "_", &save);
    }
    // The date goes through a 20-byte buffer, as the time text does below.
    std::string date = token != nullptr ? std::string(token).substr(0, kDateBuffer - 1) : "";
    char* time = token != nullptr ? strtok_r(nullptr, ".", &save) : nullptr;
    if (time != nullptr && strchr(time, '_') != nullptr) time = strtok_r(nullptr, "_", &save);
    std::string text = date + "-" + (time != nullptr ? time : "");
    return text.substr(0, kDateBuffer - 1);
}

}  // namespace

std::vector<LogConfig> LogManagerUtil::GenerateConfigList(Json::Value json) {
    std::vector<LogConfig> configs;
    if (!json.isArray() || !JsonHelper::JsonToObject(configs, json, {})) {
        HLOGE("Failed to convert Json to valid config!");
    }
    for (auto& config : configs) {
        for (auto& child : config.children) child.parent = &config;
    }
    return configs;
}

std::string LogManagerUtil::GetFullPathByConfig(const LogConfig& config, bool inVendor) {
    if (!config.folderPath.empty()) return config.folderPath;
    std::string base;
    if (config.parent != nullptr) {
        // The child's own flag is passed up: a vendor child puts its parent
        // under the vendor root too.
        base = GetFullPathByConfig(*config.parent, config.inVendor);
    } else {
        base = config.inVendor || inVendor ? logmgr::kVendorRoot : logmgr::kNonVendorRoot;
    }
    return base + "/" + config.folderName;
}

std::optional<LogConfig> LogManagerUtil::GetConfigByFolderName(
        const std::string& name, const std::vector<LogConfig>& configs) {
    for (const auto& config : configs) {
        if (config.folderName == name || GetFullPathByConfig(config, false) == name) return config;
        // Children are addressed by their full path only.
        for (const auto& child : config.children) {
            if (GetFullPathByConfig(child, false) == name) return child;
        }
    }
    HLOGE("ERR! config not found for %s", name.c_str());
    return std::nullopt;
}

bool LogManagerUtil::CompareTimeStrExpired(const std::string& timeStr, const int64_t& limitSec,
                                           bool fromFileName) {
    std::string text = timeStr;
    if (fromFileName) {
        HLOGD("isOldRamdumpFileFormat, fileName %s", timeStr.c_str());
        // Date and time joined with '-' where the format wants '_': only the
        // date is read from a file name, and its time of day counts as 00:00:00.
        text = TimeTextOfFileName(timeStr);
    }
    const int64_t folderTime = TimeUtil::DateStrToTime(text, logmgr::kDatedNameFormat);
    HLOGD("folderTime %lld expiredTime %lld", static_cast<long long>(folderTime),
          static_cast<long long>(limitSec));
    return folderTime <= limitSec;
}

}  // namespace zelkor::tessel
