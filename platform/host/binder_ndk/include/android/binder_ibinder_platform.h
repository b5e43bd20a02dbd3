// Platform-only additions to binder_ibinder.h, host build.
#pragma once

#include <android/binder_ibinder.h>

__BEGIN_DECLS

enum {
    // Asks the kernel to wipe the transaction buffers after use. Accepted and
    // ignored on the host, where buffers are ordinary heap memory.
    FLAG_CLEAR_BUF = 0x20,
};

// Security contexts do not exist on the host: requesting them is a no-op and
// the calling context is always null.
void AIBinder_setRequestingSid(AIBinder* binder, bool requestingSid) __INTRODUCED_IN(31);
__attribute__((warn_unused_result)) const char* AIBinder_getCallingSid(void) __INTRODUCED_IN(31);

// Scheduling hints for the threads serving `binder`; no-ops on the host.
void AIBinder_setMinSchedulerPolicy(AIBinder* binder, int policy, int priority) __INTRODUCED_IN(33);
void AIBinder_setInheritRt(AIBinder* binder, bool inheritRt) __INTRODUCED_IN(33);

__END_DECLS
