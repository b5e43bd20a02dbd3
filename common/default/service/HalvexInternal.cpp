#include "common/default/service/HalvexInternal.h"

#include <android-base/logging.h>

#include "framework/InternalBroadcastManager.h"

namespace zelkor::tessel {

ndk::ScopedAStatus HalvexInternal::transferMessage(const std::string& action,
                                                   const std::string& json) {
    LOG(INFO) << "HalvexInternal: vendor received message: action " << action << " json " << json;
    InternalBroadcastManager::onHalvexIntlMessageReceived(action, json);
    return ndk::ScopedAStatus::ok();
}

}  // namespace zelkor::tessel
