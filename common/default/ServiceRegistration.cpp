#include "common/default/ServiceRegistration.h"

#include <android-base/logging.h>
#include <android/binder_manager.h>

#include <new>
#include <string>

#include "framework/HalvexUtil.h"

namespace zelkor::tessel {
namespace {

// Adds service under "<descriptor>/default"; the check aborts the process on
// any other status than STATUS_OK.
template <typename Service>
void AddService(const std::shared_ptr<Service>& service) {
    const std::string instance = std::string(Service::descriptor) + "/default";
    ndk::SpAIBinder binder = service->asBinder();
    binder_status_t status = AServiceManager_addService(binder.get(), instance.c_str());
    binder.set(nullptr);
    CHECK_EQ(status, STATUS_OK);
}

template <typename Service>
std::shared_ptr<Service> Create() {
    try {
        return ndk::SharedRefBase::make<Service>();
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

}  // namespace

bool RegisterServices(Services& services) {
    services.tessel = Create<TesselImpl>();
    if (services.tessel == nullptr) {
        LOG(FATAL) << "Create Tessel Instance failed!!";
        return false;
    }
    AddService(services.tessel);
    LOG(INFO) << "Tessel registered!";

    services.blackbox = Create<BlackboxImpl>();
    if (services.blackbox == nullptr) {
        LOG(FATAL) << "Create Blackbox Instance failed!!";
        return false;
    }
    AddService(services.blackbox);
    LOG(INFO) << "Blackbox registered!";

    services.internal = Create<HalvexInternal>();
    if (services.internal == nullptr) {
        LOG(FATAL) << "Create HalvexInternal Instance failed!!";
        return false;
    }
    AddService(services.internal);

    HalvexUtil::SetHalvexIntl(services.internal);
    HalvexUtil::SetTesselAidl(services.tessel);
    return true;
}

}  // namespace zelkor::tessel
