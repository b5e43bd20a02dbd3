// Answers "zelkor.halvex.tessel.ping" on the internal channel with
// "zelkor.halvex.tessel.pong" carrying the same extras, so that the system
// side (or a BSP engineer with tesselctl and tessel-peer) can check the whole
// channel: peer -> HalvexInternal -> local bus -> receiver -> peer.
#pragma once

#include "framework/BroadcastReceiver.h"

namespace zelkor::tessel {

class InternalPing : public BroadcastReceiver {
  public:
    static constexpr char kPingAction[] = "zelkor.halvex.tessel.ping";
    static constexpr char kPongAction[] = "zelkor.halvex.tessel.pong";

    // Registers the process-wide instance on the internal bus.
    static void Start();
    void onReceive(Intent intent) override;
};

}  // namespace zelkor::tessel
