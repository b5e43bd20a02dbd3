// Thread-local calling identity.
#include "platform/host/binder_ndk/CallingContext.h"

namespace zelkor::tessel::binder {
namespace {

thread_local const CallerIdentity* tCaller = nullptr;

}  // namespace

ScopedCaller::ScopedCaller(CallerIdentity caller) : mCaller(caller), mPrevious(tCaller) {
    tCaller = &mCaller;
}

ScopedCaller::~ScopedCaller() {
    tCaller = mPrevious;
}

const CallerIdentity* CurrentCaller() {
    return tCaller;
}

}  // namespace zelkor::tessel::binder
