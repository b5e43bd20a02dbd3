// The in-process broadcast bus. Matching runs on the sender's thread; delivery
// always runs on the "ModuleManager" thread, one broadcast after another.
#pragma once

#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "framework/BroadcastReceiver.h"
#include "framework/HalvexHandler.h"
#include "framework/Intent.h"
#include "framework/IntentFilter.h"
#include "framework/Singleton.h"

namespace zelkor::tessel {

class LocalBroadcastManager : public Singleton<LocalBroadcastManager> {
  public:
    // The message that makes the manager's handler deliver pending broadcasts.
    static constexpr int MSG_EXEC_PENDING_BROADCASTS = 1;
    // onReceive calls taking longer than this are logged.
    static constexpr long kSlowReceiverMs = 300;

    explicit LocalBroadcastManager(Token);

    void registerReceiver(BroadcastReceiver* receiver, IntentFilter filter);
    void unregisterReceiver(BroadcastReceiver* receiver);
    // True when any receiver registered the intent's action (matched or not).
    bool sendBroadcast(Intent intent, bool internal);
    void executePendingBroadcasts();

  private:
    struct ReceiverRecord {
        IntentFilter filter;
        BroadcastReceiver* receiver;
        bool broadcasting = false;
        bool dead = false;
    };
    using RecordPtr = std::shared_ptr<ReceiverRecord>;
    struct BroadcastRecord {
        Intent intent;
        std::list<RecordPtr> receivers;
    };

    std::unordered_map<BroadcastReceiver*, std::list<RecordPtr>> mReceivers;
    std::unordered_map<std::string, std::list<RecordPtr>> mActions;
    std::list<BroadcastRecord> mPendingBroadcasts;
    std::unique_ptr<HalvexHandler> mHandler;
    std::mutex mLock;
};

}  // namespace zelkor::tessel
