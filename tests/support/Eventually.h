// Bounded waiting for end-to-end tests: poll a condition until it holds or a
// time-out passes, instead of sleeping for a guessed time.
#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace vyx::test {

// Polls `condition` every millisecond until it holds or `timeout` passes;
// returns whether it held.
inline bool eventually(const std::function<bool()>& condition,
                       std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (std::chrono::steady_clock::now() < deadline) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return condition();
}

}  // namespace vyx::test
