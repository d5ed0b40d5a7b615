// Bounded waiting for end-to-end tests: poll a condition until it holds or a
// time-out passes, instead of sleeping for a guessed time; and a watchdog for
// calls that must not hang.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
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

// Runs `action` on its own thread and reports whether it finished within
// `limit`: a watchdog against hangs. A hung action is left behind (the test
// fails anyway).
inline bool finishesWithin(std::function<void()> action, std::chrono::milliseconds limit) {
    auto done = std::make_shared<std::promise<void>>();
    auto future = done->get_future();
    std::thread([action = std::move(action), done] {
        action();
        done->set_value();
    }).detach();
    return future.wait_for(limit) == std::future_status::ready;
}

}  // namespace vyx::test
