// The vendor end of the internal broadcast channel.
#pragma once

#include <aidl/vendor/zelkor/hardware/tessel/common/BnHalvexIntl.h>

namespace zelkor::tessel {

class HalvexInternal : public ::aidl::vendor::zelkor::hardware::tessel::common::BnHalvexIntl {
  public:
    ndk::ScopedAStatus transferMessage(const std::string& action, const std::string& json) override;
};

}  // namespace zelkor::tessel
