// The sender of the log manager's configuration, as the system side runs it:
// when the daemon announces "vendor_is_ready", the configuration array of a
// file goes back to it in "config_changed".
#pragma once

#include <json/json.h>

#include "framework/BroadcastReceiver.h"

namespace zelkor::tessel::peer {

class LogConfigSender : public BroadcastReceiver {
  public:
    explicit LogConfigSender(Json::Value config) : mConfig(std::move(config)) {}
    // Registers for "vendor_is_ready" on this process's internal channel.
    void start();
    void onReceive(Intent intent) override;

  private:
    const Json::Value mConfig;
};

}  // namespace zelkor::tessel::peer
