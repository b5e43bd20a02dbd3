#include "modules/LogManager/LogMgrBroadcastReceiver.h"

#include <any>

#include "modules/LogManager/LogManagerConstants.h"
#include "modules/LogManager/LogManagerUtil.h"
#include "modules/LogManager/LogManagerVendor.h"
#include "platform/HalvexLog.h"
#include "utils/TimeUtil.h"

namespace zelkor::tessel {

namespace {

// One value for the process, written only on the bus's thread.
uint64_t sLastConfigChangedMs = 0;

constexpr char kConfigKey[] = "config";
constexpr char kTaskTag[] = "Halvex-LogMgr-onReceive";
constexpr char kReceiverTag[] = "Halvex-LogMgrBroadcastReceiver";

}  // namespace

void LogMgrBroadcastReceiver::onReceive(Intent intent) {
    if (mModule == nullptr) return;
    if (intent.getAction() == logmgr::kActionConfigChanged) {
        const uint64_t now = TimeUtil::getCurrentTimeMs();
        if (now - sLastConfigChangedMs < kDebounceMs) return;
        sLastConfigChangedMs = now;
    }
    LogManagerVendor* module = mModule;
    const std::string action = intent.getAction();
    if (!module->post([module, intent = std::move(intent)] { apply(module, intent); })) {
        HALVEX_LOG_FN(ANDROID_LOG_WARN, kReceiverTag, "onReceive",
                      "%s arrived before the module runs, dropped", action.c_str());
    }
}

void LogMgrBroadcastReceiver::apply(LogManagerVendor* module, const Intent& intent) {
    if (intent.getExtras().empty()) return;
    const ExtraValue extra = intent.getExtra(kConfigKey);
    if (intent.getAction() == logmgr::kActionConfigChanged) {
        const Json::Value* json = std::get_if<Json::Value>(&extra);
        module->replaceConfigs(
                LogManagerUtil::GenerateConfigList(json != nullptr ? *json : Json::Value()));
        return;
    }
    if (intent.getAction() != logmgr::kActionConfigAppend) return;
    if (const Json::Value* json = std::get_if<Json::Value>(&extra)) {
        module->addFolderToManage(*json);
    } else if (const std::any* any = std::get_if<std::any>(&extra)) {
        try {
            module->addFolderToManage(std::any_cast<const LogConfig&>(*any));
        } catch (const std::bad_any_cast& e) {
            HALVEX_LOG_FN(ANDROID_LOG_ERROR, kTaskTag, "apply",
                          "obj is not a valid LogConfig! e.what %s", e.what());
        }
    } else {
        HALVEX_LOG_FN(ANDROID_LOG_ERROR, kTaskTag, "apply",
                      "Intent extra is invalid for log manager!!");
    }
}

}  // namespace zelkor::tessel
