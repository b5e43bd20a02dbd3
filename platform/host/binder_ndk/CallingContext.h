// Who the transaction a thread is serving came from.
#pragma once

#include <sys/types.h>

namespace zelkor::tessel::binder {

struct CallerIdentity {
    pid_t pid;
    uid_t uid;
};

// Marks the current thread as serving a transaction from `caller` for its
// lifetime.
class ScopedCaller {
  public:
    explicit ScopedCaller(CallerIdentity caller);
    ~ScopedCaller();
    ScopedCaller(const ScopedCaller&) = delete;
    ScopedCaller& operator=(const ScopedCaller&) = delete;

  private:
    CallerIdentity mCaller;
    const CallerIdentity* mPrevious;
};

// The caller of the transaction being served, or null outside one.
const CallerIdentity* CurrentCaller();

}  // namespace zelkor::tessel::binder
