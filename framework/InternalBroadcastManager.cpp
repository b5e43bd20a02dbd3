#define LOG_TAG "Halvex-InternalBroadcastManager"

#include "framework/InternalBroadcastManager.h"

#include "framework/HalvexUtil.h"
#include "framework/LocalBroadcastManager.h"
#include "platform/HalvexLog.h"
#include "utils/JsonUtil.h"

namespace zelkor::tessel {

std::string InternalBroadcastManager::intentToJsonStr(Intent& intent) {
    Json::Value root(Json::objectValue);
    Json::Value extras(Json::arrayValue);
    Intent::Extras copy = intent.getExtras();
    for (auto& [key, value] : copy) extras.append(generateJsonValueByExtra(key, value));
    root["extras"] = extras;
    std::string text;
    JsonUtil::ConvertJsonToString(root, text);
    return text;
}

Json::Value InternalBroadcastManager::generateJsonValueByExtra(const std::string& key,
                                                               ExtraValue& value) {
    Json::Value element(Json::objectValue);
    element["key"] = key;
    element["value_type"] = static_cast<int>(value.index());
    switch (value.index()) {
        case EXTRA_JSON:
            element["value"] = std::get<Json::Value>(value);
            break;
        case EXTRA_BOOL:
            element["value"] = std::get<bool>(value);
            break;
        case EXTRA_STRING:
            element["value"] = std::get<std::string>(value);
            break;
        case EXTRA_CSTRING: {
            const char* text = std::get<const char*>(value);
            element["value"] = text != nullptr ? text : "";
            break;
        }
        case EXTRA_FLOAT:
            element["value"] = std::get<float>(value);
            break;
        case EXTRA_INT64:
            element["value"] = static_cast<Json::Int64>(std::get<int64_t>(value));
            break;
        case EXTRA_INT32:
            element["value"] = std::get<int32_t>(value);
            break;
        default: {
            // std::any cannot cross processes; a valueless variant has index npos.
            int code = value.valueless_by_exception() ? -1 : static_cast<int>(value.index());
            HLOGE("Unknown Type! value is not the supported type. Supported type: int boot string "
                  "float int64_t Json::Value, current type is %d",
                  code);
            element["value"] = Json::Value();
            break;
        }
    }
    return element;
}

// Elements come from the peer: a value of the wrong JSON type is converted
// where jsoncpp can (asBool, asFloat, ...) and skipped where it cannot.
void InternalBroadcastManager::putExtraByJson(Intent& intent, Json::Value element) {
    if (!element.isObject() || !element["key"].isString() || !element["value_type"].isInt()) {
        HLOGE("extra element is not valid, skip it");
        return;
    }
    const std::string key = element["key"].asString();
    const Json::Value& value = element["value"];
    try {
        switch (element["value_type"].asInt()) {
            case EXTRA_JSON:
                intent.putExtra(key, value);
                break;
            case EXTRA_BOOL:
                intent.putExtra(key, value.asBool());
                break;
            case EXTRA_STRING:
            case EXTRA_CSTRING:
                intent.putExtra(key, value.asString());
                break;
            case EXTRA_FLOAT:
                intent.putExtra(key, value.asFloat());
                break;
            case EXTRA_INT64:
                intent.putExtra(key, static_cast<int64_t>(value.asInt64()));
                break;
            case EXTRA_INT32:
                intent.putExtra(key, static_cast<int32_t>(value.asInt()));
                break;
            default:
                HLOGE("extra %s has unknown value_type %d, skip it", key.c_str(),
                      element["value_type"].asInt());
                break;
        }
    } catch (const Json::Exception& e) {
        HLOGE("extra %s does not match its value_type: %s", key.c_str(), e.what());
    }
}

Intent InternalBroadcastManager::jsonStrToIntent(const std::string& action,
                                                 const std::string& json) {
    Intent intent(action);
    Json::Value root;
    if (!JsonUtil::ConvertStringToJson(json, root)) {
        HLOGE("ConvertStringToJson failed!");
        return intent;
    }
    if (!root.isObject() || !root["extras"].isArray()) {
        HLOGE("extras is null or not the valid array! intent will no extra info");
        return intent;
    }
    for (const Json::Value& element : root["extras"]) putExtraByJson(intent, element);
    return intent;
}

void InternalBroadcastManager::onHalvexIntlMessageReceived(const std::string& action,
                                                           const std::string& json) {
    sendBroadcast(jsonStrToIntent(action, json), false);
}

void InternalBroadcastManager::sendBroadcast(Intent intent, bool toPeer) {
    if (toPeer) {
        std::string json = intentToJsonStr(intent);
        if (HalvexUtil::isSSI()) {
            // This process is the system side: the peer is the vendor daemon.
            if (auto vendor = HalvexUtil::GetHalvexIntl()) {
                vendor->transferMessage(intent.getAction(), json);
            } else {
                HLOGW("Failed to get Halvex Vendor instance!");
            }
        } else if (auto system = HalvexUtil::GetHalvexSsiIntl()) {
            system->transferMessage(intent.getAction(), json);
        } else {
            HLOGW("Failed to get Halvex System instance!");
        }
    }
    LocalBroadcastManager::getInstance().sendBroadcast(std::move(intent), true);
}

void InternalBroadcastManager::registerReceiver(BroadcastReceiver* receiver, IntentFilter filter) {
    filter.setInternal(true);
    LocalBroadcastManager::getInstance().registerReceiver(receiver, std::move(filter));
}

void InternalBroadcastManager::unregisterReceiver(BroadcastReceiver* receiver) {
    LocalBroadcastManager::getInstance().unregisterReceiver(receiver);
}

}  // namespace zelkor::tessel
