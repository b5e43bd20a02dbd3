// ABinderProcess_*: the binder thread pool.
#include <android/binder_process.h>

#include "platform/host/binder_ndk/Dispatcher.h"

using zelkor::tessel::binder::Dispatcher;

void ABinderProcess_startThreadPool() {
    Dispatcher::Get().startPool();
}

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads) {
    Dispatcher::Get().setMaxThreads(numThreads);
    return true;
}

bool ABinderProcess_isThreadPoolStarted() {
    return Dispatcher::Get().poolStarted();
}

void ABinderProcess_joinThreadPool() {
    Dispatcher::Get().joinPool();
}

binder_status_t ABinderProcess_setupPolling(int* fd) {
    if (fd == nullptr) return STATUS_UNEXPECTED_NULL;
    *fd = Dispatcher::Get().pollFd();
    return STATUS_OK;
}

binder_status_t ABinderProcess_handlePolledCommands() {
    Dispatcher::Get().handlePending();
    return STATUS_OK;
}
