// libbinder_ndk thread pool, host build.
//
// Incoming calls are served by the process's binder threads: the one
// ABinderProcess_startThreadPool starts, every thread that calls
// ABinderProcess_joinThreadPool, and up to the maximum count of further
// threads started on demand when all others are busy.
#pragma once

#include <android/binder_status.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

// Starts serving with one thread (once; later calls do nothing).
void ABinderProcess_startThreadPool(void);

// Caps the threads started on demand, not counting the one from
// startThreadPool nor joined threads; 15 unless set. Never stops a running
// thread. Returns true.
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads);

// True once ABinderProcess_startThreadPool has run.
bool ABinderProcess_isThreadPoolStarted(void);

// The calling thread serves calls too, for good.
void ABinderProcess_joinThreadPool(void);

// For a single-threaded process that runs its own poll loop: *fd becomes
// readable whenever calls wait; ABinderProcess_handlePolledCommands then
// serves what is pending without blocking.
binder_status_t ABinderProcess_setupPolling(int* fd) __INTRODUCED_IN(31);
binder_status_t ABinderProcess_handlePolledCommands(void) __INTRODUCED_IN(31);

__END_DECLS
