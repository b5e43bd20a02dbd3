#define LOG_TAG "Halvex-InternalPing"

#include "common/default/InternalPing.h"

#include "framework/HalvexHandler.h"
#include "framework/HalvexHandlerThread.h"
#include "framework/HalvexUtil.h"
#include "framework/InternalBroadcastManager.h"
#include "platform/HalvexLog.h"

namespace zelkor::tessel {

namespace {

// Looking the system peer up waits while it is declared but not running.
// Answers go out from this thread of their own, so that the thread delivering
// every local broadcast never waits for them.
HalvexHandler& AnswerHandler() {
    // Both live as long as the process.
    static HalvexHandlerThread* thread = HalvexHandlerThread::create("InternalPing");
    static HalvexHandler* handler = new HalvexHandler(thread->getLooper());
    return *handler;
}

void Answer(Intent intent) {
    std::shared_ptr<IHalvexSsiIntl> peer = HalvexUtil::GetHalvexSsiIntl();
    if (peer == nullptr) {
        HLOGW("no system peer to answer the ping");
        return;
    }
    intent.setAction(InternalPing::kPongAction);
    ndk::ScopedAStatus status = peer->transferMessage(
            InternalPing::kPongAction, InternalBroadcastManager::intentToJsonStr(intent));
    if (status.isOk()) {
        HLOGI("answered ping");
    } else {
        HLOGE("pong to the system peer failed: %s", status.getDescription().c_str());
    }
}

}  // namespace

void InternalPing::Start() {
    static InternalPing& ping = *new InternalPing();  // lives as long as the process
    AnswerHandler();
    InternalBroadcastManager::registerReceiver(&ping, IntentFilter({kPingAction}));
}

void InternalPing::onReceive(Intent intent) {
    AnswerHandler().post([intent = std::move(intent)]() mutable { Answer(std::move(intent)); });
}

}  // namespace zelkor::tessel
