#include "tools/tesselctl/LogConfigCheck.h"

#include <android/log.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <string>

#include "modules/LogManager/LogManagerUtil.h"
#include "utils/JsonUtil.h"

namespace zelkor::tessel::tools {

namespace {

// A value as it appears in the file, cut short when long.
std::string Shown(const Json::Value& value) {
    std::string text;
    JsonUtil::ConvertJsonToString(value, text);
    if (!text.empty() && text.back() == '\n') text.pop_back();
    return text.size() > 60 ? text.substr(0, 57) + "..." : text;
}

// Why `element` (record `where`) does not convert: the first key whose value
// the record refuses, followed into children. Empty when it converts.
std::string Diagnose(const Json::Value& element, const std::string& where) {
    if (!element.isNull() && !element.isObject()) {
        return where + ": " + Shown(element) + " is not an object";
    }
    for (const auto& [key, type] : JsonHelper::MemberTypes(LogConfig{})) {
        if (element.isNull() || !element.isMember(key)) continue;
        const Json::Value& value = element[key];
        Json::Value alone(Json::objectValue);
        alone[key] = value;
        LogConfig probe;
        if (probe.HALVEX_CONVER_JSON_TO_OBJECT(alone, {})) continue;
        if (key == "children" && value.isArray()) {
            for (Json::ArrayIndex i = 0; i < value.size(); ++i) {
                std::string inner =
                        Diagnose(value[i], where + ", children[" + std::to_string(i) + "]");
                if (!inner.empty()) return inner;
            }
        }
        return where + ", key \"" + key + "\": " + Shown(value) + " is not " + type;
    }
    return "";
}

void Print(const LogConfig& config, int depth) {
    const std::string indent(depth * 2, ' ');
    printf("%s%s: %s\n", indent.c_str(),
           config.folderName.empty() ? "(no folderName)" : config.folderName.c_str(),
           LogManagerUtil::GetFullPathByConfig(config, false).c_str());
    printf("%s  maxSize %llu KiB, reuseMaxSize %llu KiB, maxValidDay %u, maxLogNumber %u, "
           "compressLatestAfterSec %u\n",
           indent.c_str(), static_cast<unsigned long long>(config.maxSize),
           static_cast<unsigned long long>(config.reuseMaxSize), config.maxValidDay,
           config.maxLogNumber, config.compressLatestAfterSec);
    printf("%s  compress %d, delayCompress %d, pushEventOnly %d, watchSSRRamdumpHack %d, "
           "inVendor %d\n",
           indent.c_str(), config.compress, config.delayCompress, config.pushEventOnly,
           config.watchSSRRamdumpHack, config.inVendor);
    for (const auto& child : config.children) Print(child, depth + 1);
}

}  // namespace

int CheckLogConfig(const char* path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    if (!in) {
        fprintf(stderr, "logconfig: cannot read %s\n", path);
        return 1;
    }
    Json::Value json;
    if (!JsonUtil::ConvertStringToJson(text.str(), json)) {
        fprintf(stderr, "logconfig: %s is not JSON\n", path);
        return 1;
    }
    if (!json.isArray()) {
        fprintf(stderr, "logconfig: %s holds %s, not an array of records\n", path,
                Shown(json).c_str());
        return 1;
    }
    // The records the daemon keeps: those before the first bad one. The
    // conversion's own error line says less than the diagnosis below.
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    const std::vector<LogConfig> configs = LogManagerUtil::GenerateConfigList(json);
    for (const auto& config : configs) Print(config, 0);
    for (Json::ArrayIndex i = 0; i < json.size(); ++i) {
        const std::string why = Diagnose(json[i], "record " + std::to_string(i));
        if (!why.empty()) {
            fprintf(stderr, "logconfig: %s; the daemon keeps the %zu record(s) before it\n",
                    why.c_str(), configs.size());
            return 1;
        }
    }
    return 0;
}

}  // namespace zelkor::tessel::tools
