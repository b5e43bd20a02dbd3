// AServiceManager_*.
#include <android/binder_manager.h>

#include <algorithm>
#include <chrono>
#include <string>

#include "platform/Platform.h"
#include "platform/host/binder_ndk/Limits.h"
#include "platform/host/binder_ndk/LocalBinder.h"
#include "platform/host/binder_ndk/ServiceRegistry.h"
#include "platform/host/binder_ndk/VintfManifest.h"

using namespace zelkor::tessel::binder;

namespace {

std::vector<std::string> Declared() {
    const std::string& root = zelkor::tessel::platform::Root();
    if (root.empty()) return {};
    return DeclaredAidlInstances(root);
}

}  // namespace

binder_exception_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    if (binder == nullptr || instance == nullptr) return EX_ILLEGAL_ARGUMENT;
    LocalBinder* local = binder->asLocal();
    // Serving another process's object would need this process to relay
    // every call; nothing on the host registers proxies.
    if (local == nullptr) return EX_UNSUPPORTED_OPERATION;
    return PublishService(instance, local);
}

binder_exception_t AServiceManager_addServiceWithFlags(AIBinder* binder, const char* instance,
                                                       const AServiceManager_AddServiceFlag) {
    return AServiceManager_addService(binder, instance);
}

AIBinder* AServiceManager_checkService(const char* instance) {
    if (instance == nullptr) return nullptr;
    return LookupService(instance).release();
}

AIBinder* AServiceManager_getService(const char* instance) {
    if (instance == nullptr) return nullptr;
    return WaitForService(instance, std::chrono::steady_clock::now() + kGetServiceTimeout)
            .release();
}

binder_status_t AServiceManager_registerLazyService(AIBinder* binder, const char* instance) {
    binder_exception_t exception = AServiceManager_addService(binder, instance);
    return exception == EX_NONE ? STATUS_OK : STATUS_UNKNOWN_ERROR;
}

AIBinder* AServiceManager_waitForService(const char* instance) {
    if (instance == nullptr) return nullptr;
    return WaitForService(instance, std::nullopt).release();
}

bool AServiceManager_isDeclared(const char* instance) {
    if (instance == nullptr) return false;
    const std::vector<std::string> declared = Declared();
    return std::find(declared.begin(), declared.end(), instance) != declared.end();
}

void AServiceManager_forEachDeclaredInstance(const char* interface, void* context,
                                             void (*callback)(const char*, void*)) {
    if (interface == nullptr || callback == nullptr) return;
    const std::string prefix = std::string(interface) + "/";
    for (const std::string& declared : Declared()) {
        if (declared.compare(0, prefix.size(), prefix) == 0) {
            callback(declared.c_str() + prefix.size(), context);
        }
    }
}

bool AServiceManager_isUpdatableViaApex(const char* /*instance*/) {
    return false;
}

void AServiceManager_getUpdatableApexName(const char* /*instance*/, void* /*context*/,
                                          void (* /*callback*/)(const char*, void*)) {}

void AServiceManager_forceLazyServicesPersist(bool /*persist*/) {}

bool AServiceManager_tryUnregister() {
    return false;
}

void AServiceManager_reRegister() {}
