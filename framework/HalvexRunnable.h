#pragma once

#include "framework/HalvexJob.h"
#include "framework/Object.h"

namespace zelkor::tessel {

// The one-shot job carried by a posted message: the first call runs the job
// and destroys it, so a second call does nothing.
class HalvexRunnable : public Object {
  public:
    explicit HalvexRunnable(HalvexJob&& job) : mJob(std::move(job)) {}

    void operator()(Object* arg);
    void run(Object* arg) { (*this)(arg); }

  private:
    HalvexJob mJob;
};

}  // namespace zelkor::tessel
