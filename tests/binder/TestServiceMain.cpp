// binder_test_service --root DIR [--instance NAME] [--max-threads N]
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
    if (!zelkor::tessel::platform::InitPlatform(&argc, argv)) return 2;
    std::string instance = zelkor::tessel::testing::TestServiceInstance();
    uint32_t maxThreads = 15;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (strcmp(argv[i], "--instance") == 0) {
            instance = argv[i + 1];
        } else if (strcmp(argv[i], "--max-threads") == 0) {
            maxThreads = static_cast<uint32_t>(atoi(argv[i + 1]));
        }
    }
    auto service = ndk::SharedRefBase::make<zelkor::tessel::testing::TestService>();
    if (AServiceManager_addService(service->asBinder().get(), instance.c_str()) != EX_NONE) {
        return 1;
    }
    ABinderProcess_setThreadPoolMaxThreadCount(maxThreads);
    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
    return 1;
}
