/// Waits for another thread or process.
#pragma once

#include <chrono>
#include <thread>

/// Polls a condition until it holds; returns false when it does not within a minute, enough for a loaded machine.
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
