// The AStatus object and the mapping of arbitrary values onto the status and
// exception codes the API defines.
#pragma once

#include <android/binder_status.h>

#include <string>

struct AStatus {
    binder_exception_t exception = EX_NONE;
    // The service-specific code for EX_SERVICE_SPECIFIC, the transport status
    // for EX_TRANSACTION_FAILED, 0 otherwise.
    int32_t errorCode = 0;
    std::string message;
};

namespace zelkor::tessel::binder {

// Values outside the STATUS_* set (from a peer, or a service's onTransact)
// become STATUS_UNKNOWN_ERROR; the set itself passes unchanged.
binder_status_t PruneStatus(int32_t status);

}  // namespace zelkor::tessel::binder
