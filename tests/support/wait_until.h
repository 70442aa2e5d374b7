/// Waiting for what another thread or process does.
#pragma once

#include <chrono>
#include <thread>

/// Looks at a condition until it holds; false when it does not in all the time that a loaded machine may take.
template <class Condition>
bool WaitUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}
