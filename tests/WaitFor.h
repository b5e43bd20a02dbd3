// Waiting on a condition instead of sleeping a fixed time: the limit only
// guards against a hang.
#pragma once

#include <chrono>
#include <thread>

namespace zelkor::tessel::testing {

// Re-checks `done` every millisecond until it holds; false once `limit` passes.
template <typename Pred>
bool WaitFor(Pred&& done, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace zelkor::tessel::testing
