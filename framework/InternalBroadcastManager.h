// Carries intents between this process and its peer on the other side of the
// internal channel. An intent travels as its action plus the JSON text of its
// extras; whatever passes through here is broadcast locally as internal.
#pragma once

#include <json/json.h>

#include <string>

#include "framework/BroadcastReceiver.h"
#include "framework/Intent.h"
#include "framework/IntentFilter.h"

namespace zelkor::tessel {

class InternalBroadcastManager {
  public:
    // {"extras":[{"key":..,"value":..,"value_type":..}, ...]}, extras in key order.
    static std::string intentToJsonStr(Intent& intent);
    static Json::Value generateJsonValueByExtra(const std::string& key, ExtraValue& value);
    static void putExtraByJson(Intent& intent, Json::Value element);
    static Intent jsonStrToIntent(const std::string& action, const std::string& json);

    // An intent received from the peer: broadcast here, never echoed back.
    static void onHalvexIntlMessageReceived(const std::string& action, const std::string& json);
    // Sends to the peer when toPeer is set, and always broadcasts locally as
    // internal.
    static void sendBroadcast(Intent intent, bool toPeer);

    // Registers with the filter forced to internal.
    static void registerReceiver(BroadcastReceiver* receiver, IntentFilter filter);
    static void unregisterReceiver(BroadcastReceiver* receiver);
};

}  // namespace zelkor::tessel
