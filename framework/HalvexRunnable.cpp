#include "framework/HalvexRunnable.h"

namespace zelkor::tessel {

void HalvexRunnable::operator()(Object* arg) {
    // The job is gone before it runs, even if it posts itself again.
    mJob.runOnce(arg);
}

}  // namespace zelkor::tessel
