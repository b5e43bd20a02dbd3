// The log manager's reports to the system side: a push-only folder over its
// quota, and the figures of a clean that started over the size quota.
#define LOG_TAG "Halvex-LogManagerVendor"

#include "framework/HalvexUtil.h"
#include "modules/LogManager/LogManagerVendor.h"
#include "platform/HalvexLog.h"
#include "utils/JsonUtil.h"

namespace zelkor::tessel {

namespace {

// Sends one report; a refusal or a failed call is logged.
void Send(const char* caller, const std::shared_ptr<IHalvexSsi>& ssi, const std::string& json) {
    int32_t status = -1;
    const ndk::ScopedAStatus call =
            ssi->reportEvent(LogManagerVendor::kEventId, LogManagerVendor::kName, json, 0, &status);
    if (!call.isOk() || status != 0) {
        HALVEX_LOG_FN(ANDROID_LOG_ERROR, LOG_TAG, caller, "Failed to connect Dovetel Binder!!");
    }
}

}  // namespace

void LogManagerVendor::reportLogMonitorEvent(unsigned long size) {
    std::shared_ptr<IHalvexSsi> ssi = HalvexUtil::GetHalvexSsiAidl();
    if (ssi == nullptr) {
        HLOGE("Failed to connect to Halvex-System !!");
        return;
    }
    Json::Value report(Json::objectValue);
    report["EVENT_NAME"] = mMonitorEventName;
    report["dirSize"] = Json::UInt64(size);
    std::string json;
    JsonUtil::ConvertJsonToString(report, json);
    Send("reportLogMonitorEvent", ssi, json);
}

void LogManagerVendor::reportLogMgrEvent(LogManagerEvent& event) {
    std::shared_ptr<IHalvexSsi> ssi = HalvexUtil::GetHalvexSsiAidl();
    if (ssi == nullptr) {
        HLOGE("Failed to connect to Halvex-System !!");
        return;
    }
    std::string json;
    if (!JsonHelper::ObjectToJson(event, json)) {
        HLOGE("Convert event to json string failed!");
        return;
    }
    Send("reportLogMgrEvent", ssi, json);
}

}  // namespace zelkor::tessel
