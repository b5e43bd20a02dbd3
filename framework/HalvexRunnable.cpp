#include "framework/HalvexRunnable.h"

namespace zelkor::tessel {

void HalvexRunnable::operator()(Object* arg) {
    if (!mJob) return;
    // Moved out first so the job is gone even if it posts itself again.
    HalvexJob job = std::move(mJob);
    job(arg);
}

}  // namespace zelkor::tessel
