#define LOG_TAG "Tessel"

#include <android-base/logging.h>
#include <android/binder_process.h>

#include "common/default/InternalPing.h"
#include "common/default/ServiceRegistration.h"
#include "framework/ModuleManager.h"
#include "platform/Platform.h"

using namespace zelkor::tessel;

int main(int argc, char** argv) {
    if (!platform::InitPlatform(&argc, argv)) return 2;

    LOG(INFO) << "Tessel is starting...";
    ABinderProcess_setThreadPoolMaxThreadCount(4);
    // Only posts the load run to the "ModuleManager" thread: modules come up
    // beside the rest of start-up, never ahead of it.
    ModuleManager::loadModules();

    Services services;
    if (!RegisterServices(services)) return 1;
    InternalPing::Start();
    LOG(INFO) << "Tessel is started!";

    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
    return 1;
}
