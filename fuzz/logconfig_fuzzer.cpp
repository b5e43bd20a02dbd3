// A log-folder configuration as it arrives in a broadcast: JSON text turned
// into the record list, every folder resolved and looked up again, the list
// written back; and the same bytes taken as a dated name and a file name.
#include <string>

#include "SilentLog.h"
#include "modules/LogManager/LogManagerUtil.h"
#include "utils/JsonUtil.h"

using namespace zelkor::tessel;

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    fuzz::SilenceLog();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    Json::Value json;
    if (JsonUtil::ConvertStringToJson(text, json)) {
        const std::vector<LogConfig> configs = LogManagerUtil::GenerateConfigList(json);
        for (const auto& config : configs) {
            (void)LogManagerUtil::GetConfigByFolderName(
                    LogManagerUtil::GetFullPathByConfig(config, false), configs);
            for (const auto& child : config.children) {
                (void)LogManagerUtil::GetFullPathByConfig(child, true);
            }
            std::string out;
            (void)JsonHelper::ObjectToJson(config, out);
        }
    }
    const int64_t limit = 1700000000;
    (void)LogManagerUtil::CompareTimeStrExpired(text, limit, false);
    (void)LogManagerUtil::CompareTimeStrExpired(text, limit, true);
    return 0;
}
