/// Runs an action that must not hang.
#pragma once

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <thread>

/// Runs the action on a new thread. Returns whether it completes within the limit; otherwise the thread is detached.
inline bool CompletesWithin(std::chrono::seconds limit, std::function<void()> action) {
    const auto completed = std::make_shared<std::promise<void>>();
    std::future<void> completion = completed->get_future();
    std::thread thread([completed, action] {
        action();
        completed->set_value_at_thread_exit();
    });
    if (completion.wait_for(limit) != std::future_status::ready) {
        thread.detach();
        return false;
    }
    thread.join();
    return true;
}
