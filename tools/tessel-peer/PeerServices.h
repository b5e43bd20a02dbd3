// The system-side services a Tessel daemon talks to, as served on a host.
#pragma once

#include <aidl/vendor/zelkor/hardware/tessel/core/BnTesselCore.h>
#include <aidl/zelkor/system/halvex/common/BnHalvexSsi.h>
#include <aidl/zelkor/system/halvex/common/BnHalvexSsiIntl.h>

#include "tools/tessel-peer/JsonLines.h"

namespace zelkor::tessel::peer {

// Mode changes and partition sizes, confined to the root.
class TesselCoreService : public ::aidl::vendor::zelkor::hardware::tessel::core::BnTesselCore {
  public:
    ndk::ScopedAStatus ChangeMode(const std::string& path, int32_t mode,
                                  std::vector<std::string>* retDesc, bool* result) override;
    ndk::ScopedAStatus GetPartitionSize(const std::string& caller, const std::string& partitionName,
                                        int64_t* result) override;
};

// Records every report in "/data/peer/reports.jsonl" and accepts it.
class HalvexSsiService : public ::aidl::zelkor::system::halvex::common::BnHalvexSsi {
  public:
    ndk::ScopedAStatus reportEvent(const std::string& eventId, const std::string& moduleName,
                                   const std::string& json, int32_t flags,
                                   int32_t* result) override;

  private:
    JsonLines mReports{"/data/peer/reports.jsonl"};
};

// Records every internal-channel message in "/data/peer/messages.jsonl" and
// broadcasts it in this process.
class HalvexSsiIntlService : public ::aidl::zelkor::system::halvex::common::BnHalvexSsiIntl {
  public:
    ndk::ScopedAStatus transferMessage(const std::string& action, const std::string& json) override;

  private:
    JsonLines mMessages{"/data/peer/messages.jsonl"};
};

}  // namespace zelkor::tessel::peer
