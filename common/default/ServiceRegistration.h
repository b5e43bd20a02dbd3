// Creates the daemon's three binder services and registers them.
#pragma once

#include <memory>

#include "common/default/service/BlackboxImpl.h"
#include "common/default/service/HalvexInternal.h"
#include "common/default/service/TesselImpl.h"

namespace zelkor::tessel {

struct Services {
    std::shared_ptr<TesselImpl> tessel;
    std::shared_ptr<BlackboxImpl> blackbox;
    std::shared_ptr<HalvexInternal> internal;
};

// Registers TesselImpl, BlackboxImpl and HalvexInternal in that order under
// "<descriptor>/default" and hands two of them to the lookup cache. A service
// that cannot be created or registered ends the process.
bool RegisterServices(Services& services);

}  // namespace zelkor::tessel
