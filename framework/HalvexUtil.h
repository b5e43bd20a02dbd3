// Finds the binder services of this family and caches them. In-process service
// objects handed over at start-up are returned directly, without a binder
// round trip.
#pragma once

#include <aidl/vendor/zelkor/hardware/tessel/common/IHalvexIntl.h>
#include <aidl/vendor/zelkor/hardware/tessel/common/ITesselImpl.h>
#include <aidl/vendor/zelkor/hardware/tessel/core/ITesselCore.h>
#include <aidl/zelkor/system/halvex/common/IHalvexSsi.h>
#include <aidl/zelkor/system/halvex/common/IHalvexSsiIntl.h>

#include <memory>

namespace zelkor::tessel {

using ::aidl::vendor::zelkor::hardware::tessel::common::IHalvexIntl;
using ::aidl::vendor::zelkor::hardware::tessel::common::ITesselImpl;
using ::aidl::vendor::zelkor::hardware::tessel::core::ITesselCore;
using ::aidl::zelkor::system::halvex::common::IHalvexSsi;
using ::aidl::zelkor::system::halvex::common::IHalvexSsiIntl;

class HalvexUtil {
  public:
    // Each getter: "<descriptor>/default". A declared instance is waited for
    // on the first lookup; once a cached remote service has died, lookups
    // only check (without waiting) whether it is back, so a dead peer gives
    // an empty pointer instead of blocking the caller. Undeclared instances
    // give an empty pointer.
    static std::shared_ptr<ITesselCore> GetTesselCore();
    static std::shared_ptr<IHalvexSsi> GetHalvexSsiAidl();
    static std::shared_ptr<IHalvexIntl> GetHalvexIntl();
    static std::shared_ptr<IHalvexSsiIntl> GetHalvexSsiIntl();
    static std::shared_ptr<ITesselImpl> GetTesselAidl();

    static void SetTesselAidl(std::shared_ptr<ITesselImpl> service);
    // Hands over an in-process ITesselCore; on a device the core service is
    // always remote, so only tests and host tools call this.
    static void SetTesselCore(std::shared_ptr<ITesselCore> service);
    static void SetHalvexIntl(std::shared_ptr<IHalvexIntl> service);
    // Called by the system-side process that serves IHalvexSsiIntl itself.
    static void SetHalvexSsiIntl(std::shared_ptr<IHalvexSsiIntl> service);
    // True in the system-side process (its own IHalvexSsiIntl is set).
    static bool isSSI();

    // Forgets every cached service (tests run several roots in one process).
    static void Reset();
};

}  // namespace zelkor::tessel
