/// Runs something on a thread of its own that must not hang.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <thread>

/// True when the action ended within a minute; one that did not keeps its thread.
inline bool EndsInTime(std::function<void()> action) {
    const auto ended = std::make_shared<std::promise<void>>();
    std::future<void> end = ended->get_future();
    std::thread thread([ended, action] {
        action();
        ended->set_value_at_thread_exit();
    });
    if (end.wait_for(std::chrono::minutes(1)) != std::future_status::ready) {
        thread.detach();
        return false;
    }
    thread.join();
    return true;
}
