#define LOG_TAG "Halvex-InternalPing"

#include "common/default/InternalPing.h"

#include "framework/HalvexUtil.h"
#include "framework/InternalBroadcastManager.h"
#include "platform/HalvexLog.h"

namespace zelkor::tessel {

void InternalPing::Start() {
    static InternalPing& ping = *new InternalPing();  // lives as long as the process
    InternalBroadcastManager::registerReceiver(&ping, IntentFilter({kPingAction}));
}

void InternalPing::onReceive(Intent intent) {
    std::shared_ptr<IHalvexSsiIntl> peer = HalvexUtil::GetHalvexSsiIntl();
    if (peer == nullptr) {
        HLOGW("no system peer to answer the ping");
        return;
    }
    intent.setAction(kPongAction);
    ndk::ScopedAStatus status =
            peer->transferMessage(kPongAction, InternalBroadcastManager::intentToJsonStr(intent));
    if (status.isOk()) {
        HLOGI("answered ping");
    } else {
        HLOGE("pong to the system peer failed: %s", status.getDescription().c_str());
    }
}

}  // namespace zelkor::tessel
