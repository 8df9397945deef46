#pragma once

#include <chrono>
#include <thread>

namespace Korvel {

// Waits for what another process or thread is about to do; false after a minute, which is for
// machines that are busy.
template <typename Condition>
bool becomesTrue(Condition&& condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

}  // namespace Korvel
