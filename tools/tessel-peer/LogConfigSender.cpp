#define LOG_TAG "tessel-peer"

#include "tools/tessel-peer/LogConfigSender.h"

#include <android-base/logging.h>

#include "framework/InternalBroadcastManager.h"
#include "modules/LogManager/LogManagerConstants.h"

namespace zelkor::tessel::peer {

void LogConfigSender::start() {
    InternalBroadcastManager::registerReceiver(this, IntentFilter({logmgr::kActionVendorIsReady}));
}

void LogConfigSender::onReceive(Intent) {
    Intent config(logmgr::kActionConfigChanged);
    config.putExtra("config", mConfig);
    LOG(INFO) << "vendor is ready: sending the log configuration";
    InternalBroadcastManager::sendBroadcast(std::move(config), true);
}

}  // namespace zelkor::tessel::peer
