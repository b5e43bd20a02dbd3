#define LOG_TAG "Tessel"

#include <android-base/logging.h>
#include <unistd.h>

#include "framework/ModuleManager.h"
#include "platform/Platform.h"

using zelkor::tessel::ModuleManager;

int main(int argc, char** argv) {
    if (!zelkor::tessel::platform::InitPlatform(&argc, argv)) return 2;

    LOG(INFO) << "Tessel is starting...";
    // Only posts the load run to the "ModuleManager" thread: modules come up
    // beside the rest of start-up, never ahead of it.
    ModuleManager::loadModules();
    LOG(INFO) << "Tessel is started!";

    // The daemon has no shutdown path: the main thread parks for good and the
    // process lives until it is killed.
    for (;;) pause();
    return 1;
}
