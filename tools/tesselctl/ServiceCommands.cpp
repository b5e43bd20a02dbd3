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

using ::aidl::vendor::zelkor::hardware::blackbox::IBlackboxImpl;
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

// Names of the status values the daemon's services answer with.
const char* StatusName(binder_status_t status) {
    switch (status) {
        case -1:
            return "FAILED";
        case -2:
            return "TESSEL_NOENT";
        case -12:
            return "NO_MEMORY";
        case -17:
            return "OPEN_FAILED";
        case -22:
            return "TESSEL_EINVAL";
        case STATUS_INVALID_OPERATION:
            return "INVALID_OPERATION";
        case STATUS_UNKNOWN_ERROR:
            return "UNKNOWN_ERROR";
        default:
            return nullptr;
    }
}

}  // namespace

std::shared_ptr<ITesselImpl> ConnectTessel(const char* command) {
    return ITesselImpl::fromBinder(GetDaemonService<ITesselImpl>(command));
}

std::shared_ptr<IBlackboxImpl> ConnectBlackbox(const char* command) {
    return IBlackboxImpl::fromBinder(GetDaemonService<IBlackboxImpl>(command));
}

int ReportStatus(const std::string& command, const ndk::ScopedAStatus& status) {
    if (status.isOk()) return 0;
    const char* name = status.getExceptionCode() == EX_TRANSACTION_FAILED
                               ? StatusName(status.getStatus())
                               : nullptr;
    if (name != nullptr && status.getStatus() == STATUS_UNKNOWN_ERROR) {
        fprintf(stderr, "%s: %s (0x80000000)\n", command.c_str(), name);
    } else if (name != nullptr) {
        fprintf(stderr, "%s: %s (%d)\n", command.c_str(), name, status.getStatus());
    } else {
        fprintf(stderr, "%s: %s\n", command.c_str(), status.getDescription().c_str());
    }
    return 1;
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
