// Receives the log manager's configuration broadcasts on the bus's thread and
// hands them to the module's thread.
#pragma once

#include "framework/BroadcastReceiver.h"

namespace zelkor::tessel {

class LogManagerVendor;

class LogMgrBroadcastReceiver : public BroadcastReceiver {
  public:
    // "config_changed" closer than this to the last accepted one is dropped.
    static constexpr uint64_t kDebounceMs = 300;

    explicit LogMgrBroadcastReceiver(LogManagerVendor* module) : mModule(module) {}
    void onReceive(Intent intent) override;

    // The posted task: applies the intent's configuration on the module's thread.
    static void apply(LogManagerVendor* module, const Intent& intent);

  private:
    LogManagerVendor* mModule;
};

}  // namespace zelkor::tessel
