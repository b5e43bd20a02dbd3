#include "tools/tesselctl/ServiceCommands.h"

#include <aidl/vendor/zelkor/hardware/tessel/common/IHalvexIntl.h>
#include <aidl/vendor/zelkor/hardware/tessel/common/ITesselImpl.h>
#include <android/binder_manager.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "platform/host/binder_ndk/ServiceRegistry.h"

namespace zelkor::tessel::tools {
namespace {

using ::aidl::vendor::zelkor::hardware::tessel::common::IHalvexIntl;
using ::aidl::vendor::zelkor::hardware::tessel::common::ITesselImpl;

// The daemon's instance of I if it is up; null (with a message) otherwise. A
// command-line tool never waits for a service that may never come.
template <typename I>
ndk::SpAIBinder GetDaemonService(const char* command) {
    const std::string instance = std::string(I::descriptor) + "/default";
    ndk::SpAIBinder binder(AServiceManager_checkService(instance.c_str()));
    if (binder.get() == nullptr) {
        fprintf(stderr, "%s: %s is not running\n", command, instance.c_str());
    }
    return binder;
}

}  // namespace

std::shared_ptr<ITesselImpl> ConnectTessel(const char* command) {
    return ITesselImpl::fromBinder(GetDaemonService<ITesselImpl>(command));
}

int ListServices() {
    for (const std::string& instance : binder::RegisteredServices()) {
        printf("%s\n", instance.c_str());
    }
    return 0;
}

int DumpTessel(int argc, char** argv) {
    ndk::SpAIBinder binder = GetDaemonService<ITesselImpl>("dump");
    if (binder.get() == nullptr) return 1;
    fflush(stdout);
    binder_status_t status =
            AIBinder_dump(binder.get(), STDOUT_FILENO, const_cast<const char**>(argv), argc);
    if (status != STATUS_OK) {
        ndk::ScopedAStatus described(AStatus_fromStatus(status));
        fprintf(stderr, "dump: %s\n", described.getDescription().c_str());
        return 1;
    }
    return 0;
}

int TransferMessage(const char* action, const char* json) {
    ndk::SpAIBinder binder = GetDaemonService<IHalvexIntl>("transfer");
    if (binder.get() == nullptr) return 1;
    std::shared_ptr<IHalvexIntl> intl = IHalvexIntl::fromBinder(binder);
    ndk::ScopedAStatus status = intl->transferMessage(action, json);
    if (!status.isOk()) {
        fprintf(stderr, "transfer: %s\n", status.getDescription().c_str());
        return 1;
    }
    return 0;
}

}  // namespace zelkor::tessel::tools
