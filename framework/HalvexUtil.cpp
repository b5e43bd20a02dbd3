#define LOG_TAG "Halvex-HalvexUtil"

#include "framework/HalvexUtil.h"

#include <android/binder_ibinder.h>
#include <android/binder_manager.h>

#include <mutex>
#include <string>

#include "platform/HalvexLog.h"

namespace zelkor::tessel {
namespace {

// One cache slot: the service, and whether a remote one has been seen dying.
template <typename I>
struct Slot {
    std::shared_ptr<I> service;
    bool died = false;
};

struct Cache {
    std::mutex lock;
    Slot<ITesselCore> core;
    Slot<IHalvexSsi> ssi;
    Slot<IHalvexIntl> intl;
    Slot<IHalvexSsiIntl> ssiIntl;
    Slot<ITesselImpl> tessel;
};

Cache& GetCache() {
    static Cache& cache = *new Cache();  // used by binder threads during exit
    return cache;
}

template <typename I>
std::shared_ptr<I> Lookup(Slot<I> Cache::*member) {
    Cache& cache = GetCache();
    bool waitForIt;
    {
        std::lock_guard<std::mutex> lock(cache.lock);
        Slot<I>& slot = cache.*member;
        if (slot.service != nullptr) {
            // A local object is always alive.
            if (AIBinder_isAlive(slot.service->asBinder().get())) {
                return slot.service;
            }
            slot.service.reset();
            slot.died = true;
        }
        waitForIt = !slot.died;
    }

    const std::string instance = std::string(I::descriptor) + "/default";
    if (!AServiceManager_isDeclared(instance.c_str())) {
        HLOGD("%s is not declared", instance.c_str());
        return nullptr;
    }
    ndk::SpAIBinder binder(waitForIt ? AServiceManager_waitForService(instance.c_str())
                                     : AServiceManager_checkService(instance.c_str()));
    std::shared_ptr<I> service = I::fromBinder(binder);
    if (service == nullptr) {
        HLOGW("%s is not available", instance.c_str());
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(cache.lock);
    Slot<I>& slot = cache.*member;
    if (slot.service == nullptr) {
        slot.service = service;
        slot.died = false;
    }
    return slot.service;
}

template <typename I>
void Store(Slot<I> Cache::*member, std::shared_ptr<I> service) {
    std::lock_guard<std::mutex> lock(GetCache().lock);
    Slot<I>& slot = GetCache().*member;
    slot.service = std::move(service);
    slot.died = false;
}

}  // namespace

std::shared_ptr<ITesselCore> HalvexUtil::GetTesselCore() {
    return Lookup(&Cache::core);
}
std::shared_ptr<IHalvexSsi> HalvexUtil::GetHalvexSsiAidl() {
    return Lookup(&Cache::ssi);
}
std::shared_ptr<IHalvexIntl> HalvexUtil::GetHalvexIntl() {
    return Lookup(&Cache::intl);
}
std::shared_ptr<IHalvexSsiIntl> HalvexUtil::GetHalvexSsiIntl() {
    return Lookup(&Cache::ssiIntl);
}
std::shared_ptr<ITesselImpl> HalvexUtil::GetTesselAidl() {
    return Lookup(&Cache::tessel);
}

void HalvexUtil::SetTesselAidl(std::shared_ptr<ITesselImpl> service) {
    Store(&Cache::tessel, std::move(service));
}
void HalvexUtil::SetTesselCore(std::shared_ptr<ITesselCore> service) {
    Store(&Cache::core, std::move(service));
}
void HalvexUtil::SetHalvexIntl(std::shared_ptr<IHalvexIntl> service) {
    Store(&Cache::intl, std::move(service));
}
void HalvexUtil::SetHalvexSsiIntl(std::shared_ptr<IHalvexSsiIntl> service) {
    Store(&Cache::ssiIntl, std::move(service));
}

// Only an in-process object counts: the first send from the vendor side
// caches the peer's proxy in the same slot, and reading "the slot is set" as
// "this is the system side" would from then on loop every send back into the
// daemon.
bool HalvexUtil::isSSI() {
    std::lock_guard<std::mutex> lock(GetCache().lock);
    const auto& service = GetCache().ssiIntl.service;
    return service != nullptr && !service->isRemote();
}

void HalvexUtil::Reset() {
    Cache& cache = GetCache();
    std::lock_guard<std::mutex> lock(cache.lock);
    cache.core = {};
    cache.ssi = {};
    cache.intl = {};
    cache.ssiIntl = {};
    cache.tessel = {};
}

}  // namespace zelkor::tessel
