#define LOG_TAG "Halvex-Handler"

#include "framework/HalvexHandler.h"

#include "platform/HalvexLog.h"
#include "utils/TimeUtil.h"

namespace zelkor::tessel {

void HalvexHandler::_enqueueMessage(HalvexMessage* msg) {
    if (mLooper == nullptr) {
        HLOGW("Looper is null!");
        delete msg;
        return;
    }
    msg->target = this;
    mLooper->sendMessage(msg);
}

void HalvexHandler::sendMessage(HalvexMessage* msg) {
    if (msg == nullptr) return;
    msg->when = 0;
    _enqueueMessage(msg);
}

HalvexMessage* HalvexHandler::getPostMessage(HalvexJob&& job) {
    HalvexMessage* msg = HalvexMessage::obtain(0);
    msg->emplaceRunnable(std::move(job));
    return msg;
}

void HalvexHandler::post(HalvexJob&& job) {
    sendMessage(getPostMessage(std::move(job)));
}

HalvexMessage* HalvexHandler::postDelayed(HalvexJob&& job, long delayMs) {
    HalvexMessage* msg = getPostMessage(std::move(job));
    // Not clamped: a negative delay makes the job due before those due now.
    msg->when = static_cast<int64_t>(TimeUtil::getUptimeMillis()) + delayMs;
    _enqueueMessage(msg);
    return msg;
}

void HalvexHandler::removeMessage(HalvexMessage* msg, bool keep) {
    if (mLooper != nullptr) mLooper->getQueue()->removeMessage(msg, keep);
}

bool HalvexHandler::hasMessages(int what) {
    return mLooper != nullptr && mLooper->getQueue()->hasMessages(what);
}

bool HalvexHandler::hasMessage(HalvexMessage* msg) {
    return mLooper != nullptr && mLooper->getQueue()->hasMessage(msg);
}

void HalvexHandler::dispatchMessage(HalvexMessage* msg) {
    if (mCallback && msg->runnable == nullptr) mCallback(msg);
}

}  // namespace zelkor::tessel
