// libbinder_ndk service manager, host build.
//
// Services are registered by instance name, conventionally the interface
// descriptor plus "/" and an instance ("pkg.IFoo/default"). On the host the
// registry is a folder of Unix sockets under the host root and declarations
// come from the VINTF manifest fragments installed under it.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_status.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

enum AServiceManager_AddServiceFlag : uint32_t {
    // Lets isolated processes look the service up; no meaning on the host.
    ADD_SERVICE_ALLOW_ISOLATED = 1,
};

// Registers the local object `binder` under `instance`, replacing an earlier
// registration of the name. The caller keeps its reference. EX_NONE on
// success; EX_ILLEGAL_ARGUMENT for a null binder or a bad name,
// EX_UNSUPPORTED_OPERATION for a proxy, EX_ILLEGAL_STATE when the registry
// cannot be written.
__attribute__((warn_unused_result)) binder_exception_t AServiceManager_addService(
        AIBinder* binder, const char* instance) __INTRODUCED_IN(29);

__attribute__((warn_unused_result)) binder_exception_t AServiceManager_addServiceWithFlags(
        AIBinder* binder, const char* instance, const AServiceManager_AddServiceFlag flags)
        __INTRODUCED_IN(34);

// The service registered under `instance` (a strong reference for the caller)
// or null at once when it is not up.
__attribute__((warn_unused_result)) AIBinder* AServiceManager_checkService(const char* instance)
        __INTRODUCED_IN(29);

// Like checkService but waits up to about five seconds for the service.
[[deprecated(
        "waits up to 5s; use AServiceManager_waitForService or "
        "AServiceManager_checkService")]] __attribute__((warn_unused_result)) AIBinder*
AServiceManager_getService(const char* instance) __INTRODUCED_IN(29);

// Registration for services started on demand; the host registers them like
// any other service.
binder_status_t AServiceManager_registerLazyService(AIBinder* binder, const char* instance)
        __INTRODUCED_IN(31);

// The service registered under `instance`, waiting as long as it takes (no
// polling: woken by the registration). A strong reference for the caller.
__attribute__((warn_unused_result)) AIBinder* AServiceManager_waitForService(const char* instance)
        __INTRODUCED_IN(31);

// True when a VINTF manifest declares `instance`, i.e. waitForService is
// expected to find it.
bool AServiceManager_isDeclared(const char* instance) __INTRODUCED_IN(31);

// Calls `callback` with each declared instance name ("default", ...) of the
// interface descriptor `interface`.
void AServiceManager_forEachDeclaredInstance(const char* interface, void* context,
                                             void (*callback)(const char*, void*))
        __INTRODUCED_IN(31);

// APEX updates do not exist on the host: never updatable, no APEX name.
bool AServiceManager_isUpdatableViaApex(const char* instance) __INTRODUCED_IN(31);
void AServiceManager_getUpdatableApexName(const char* instance, void* context,
                                          void (*callback)(const char*, void*)) __INTRODUCED_IN(34);

// Lazy-service lifetime control; the host never shuts processes down for lack
// of clients, so these only report that nothing was done.
void AServiceManager_forceLazyServicesPersist(bool persist) __INTRODUCED_IN(31);
bool AServiceManager_tryUnregister(void) __INTRODUCED_IN(31);
void AServiceManager_reRegister(void) __INTRODUCED_IN(31);

__END_DECLS
