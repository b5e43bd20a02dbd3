#pragma once

#include <cstddef>

#include "framework/HalvexJob.h"
#include "framework/Object.h"

namespace zelkor::tessel {

// The one-shot job carried by a posted message: the first call runs the job
// and destroys it, so a second call does nothing.
class HalvexRunnable : public Object {
  public:
    explicit HalvexRunnable(HalvexJob job) : mJob(std::move(job)) {}

    void operator()(Object* arg);
    void run(Object* arg) { (*this)(arg); }

    // Runnables are recycled through a free list of their own, so posting
    // allocates nothing once the list holds as many as are ever in flight.
    static void* operator new(size_t size);
    static void operator delete(void* p, size_t size);

  private:
    HalvexJob mJob;
};

}  // namespace zelkor::tessel
