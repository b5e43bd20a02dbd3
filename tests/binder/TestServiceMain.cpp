// binder_test_service --root DIR [--max-threads N]
//
// Registers the test service and serves it, like the daemon's main: the
// pool's first thread, the main thread joined, and up to N more on demand.
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "TestService.h"
#include "platform/Platform.h"

int main(int argc, char** argv) {
    using namespace zelkor::tessel;
    if (!platform::InitPlatform(&argc, argv)) return 2;
    uint32_t maxThreads = 15;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (strcmp(argv[i], "--max-threads") == 0) {
            maxThreads = static_cast<uint32_t>(atoi(argv[i + 1]));
        }
    }
    auto service = ndk::SharedRefBase::make<testing::TestService>();
    const std::string instance = testing::TestServiceInstance();
    if (AServiceManager_addService(service->asBinder().get(), instance.c_str()) != EX_NONE) {
        return 1;
    }
    ABinderProcess_setThreadPoolMaxThreadCount(maxThreads);
    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
    return 1;
}
