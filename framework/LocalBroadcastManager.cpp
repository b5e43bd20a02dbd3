#define LOG_TAG "Halvex-LocalBroadcastManager"

#include "framework/LocalBroadcastManager.h"

#include <algorithm>

#include "framework/ModuleManager.h"
#include "platform/HalvexLog.h"
#include "utils/TimeUtil.h"

namespace zelkor::tessel {

LocalBroadcastManager::LocalBroadcastManager(Token)
    : mHandler(std::make_unique<HalvexHandler>(ModuleManager::GetManagerHandler()->getLooper(),
                                               [this](HalvexMessage* msg) {
                                                   if (msg->what == MSG_EXEC_PENDING_BROADCASTS)
                                                       executePendingBroadcasts();
                                               })) {}

// Registering a receiver again with an equal filter changes nothing, so it is
// still delivered once per broadcast. A filter naming one action twice puts its
// record twice on that action's list; the broadcasting flag skips the second.
void LocalBroadcastManager::registerReceiver(BroadcastReceiver* receiver, IntentFilter filter) {
    if (receiver == nullptr) return;
    std::lock_guard<std::mutex> lock(mLock);
    std::list<RecordPtr>& records = mReceivers[receiver];
    for (const RecordPtr& existing : records) {
        if (existing->filter.getActions() == filter.getActions() &&
            existing->filter.isInternal() == filter.isInternal()) {
            HLOGD("receiver %p already registered with this filter", receiver);
            return;
        }
    }
    auto record = std::make_shared<ReceiverRecord>(ReceiverRecord{std::move(filter), receiver});
    records.push_back(record);
    for (const std::string& action : record->filter.getActions()) {
        mActions[action].push_back(record);
    }
}

void LocalBroadcastManager::unregisterReceiver(BroadcastReceiver* receiver) {
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mReceivers.find(receiver);
    if (it == mReceivers.end()) return;
    for (const RecordPtr& record : it->second) {
        record->dead = true;
        for (const std::string& action : record->filter.getActions()) {
            auto byAction = mActions.find(action);
            if (byAction == mActions.end()) continue;
            byAction->second.remove(record);
            if (byAction->second.empty()) mActions.erase(byAction);
        }
    }
    mReceivers.erase(it);
}

bool LocalBroadcastManager::sendBroadcast(Intent intent, bool internal) {
    static const char* const kFunc = "sendBroadcast";
    std::lock_guard<std::mutex> lock(mLock);
    auto it = mActions.find(intent.getAction());
    if (it == mActions.end()) return false;

    std::list<RecordPtr> matched;
    for (const RecordPtr& record : it->second) {
        if (record->broadcasting) {
            HALVEX_LOG_FN(ANDROID_LOG_DEBUG, LOG_TAG, kFunc, "Filter's target already added");
            continue;
        }
        const auto& actions = record->filter.getActions();
        if (std::count(actions.begin(), actions.end(), intent.getAction()) == 0) {
            HALVEX_LOG_FN(ANDROID_LOG_DEBUG, LOG_TAG, kFunc,
                          "filter not matched. Reason: Action not matched!");
            continue;
        }
        if (record->filter.isInternal() != internal) {
            HALVEX_LOG_FN(ANDROID_LOG_DEBUG, LOG_TAG, kFunc,
                          "filter not matched. Reason: filter require internal %d but this "
                          "broadcast is %d",
                          record->filter.isInternal(), internal);
            continue;
        }
        record->broadcasting = true;
        matched.push_back(record);
    }
    if (!matched.empty()) {
        for (const RecordPtr& record : matched) record->broadcasting = false;
        mPendingBroadcasts.push_back(BroadcastRecord{std::move(intent), std::move(matched)});
        if (!mHandler->hasMessages(MSG_EXEC_PENDING_BROADCASTS)) {
            mHandler->sendMessage(HalvexMessage::obtain(MSG_EXEC_PENDING_BROADCASTS));
        }
    }
    return true;
}

void LocalBroadcastManager::executePendingBroadcasts() {
    static const char* const kFunc = "executePendingBroadcasts";
    for (;;) {
        std::list<BroadcastRecord> batch;
        uint64_t batchStart;
        {
            std::lock_guard<std::mutex> lock(mLock);
            if (mPendingBroadcasts.empty()) return;
            batch.swap(mPendingBroadcasts);
            batchStart = TimeUtil::getCurrentTimeMs();
        }
        for (BroadcastRecord& broadcast : batch) {
            for (const RecordPtr& record : broadcast.receivers) {
                BroadcastReceiver* receiver;
                {
                    // unregisterReceiver may run on another thread meanwhile.
                    std::lock_guard<std::mutex> lock(mLock);
                    if (record->dead) continue;
                    receiver = record->receiver;
                }
                if (receiver == nullptr) continue;
                uint64_t start = TimeUtil::getCurrentTimeMs();
                receiver->onReceive(broadcast.intent);
                long spent = static_cast<long>(TimeUtil::getCurrentTimeMs() - start);
                if (spent > kSlowReceiverMs) {
                    HALVEX_LOG_FN(ANDROID_LOG_WARN, LOG_TAG, kFunc,
                                  "The time that calling onReceive is too long!! spend time %ld, "
                                  "action: %s",
                                  spent, broadcast.intent.getAction().c_str());
                }
            }
            HALVEX_LOG_FN(ANDROID_LOG_VERBOSE, LOG_TAG, kFunc,
                          "Called all onReceive callback tooked %ld ms",
                          static_cast<long>(TimeUtil::getCurrentTimeMs() - batchStart));
        }
    }
}

}  // namespace zelkor::tessel
