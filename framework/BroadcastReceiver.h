#pragma once

#include "framework/Intent.h"
#include "framework/Object.h"

namespace zelkor::tessel {

// Receives broadcasts on the "ModuleManager" thread. The bus does not own
// receivers: they must stay alive until unregistered.
class BroadcastReceiver : public Object {
  public:
    virtual void onReceive(Intent intent) = 0;
};

}  // namespace zelkor::tessel
