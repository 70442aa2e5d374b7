/// A bounded queue between the reader and one detector's thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "tools/host/picture.h"

namespace plate_host {

/// One thread pushes, another pops.
class PictureQueue {
  public:
    /// The number of pictures read ahead of the detector; limits the memory in use.
    static constexpr std::size_t capacity = 4;

    /// Waits up to `timeout` for room. Moves from the picture only if it returns true.
    bool TryPush(Picture& picture, std::chrono::milliseconds timeout) {
        std::unique_lock lock(mutex_);
        if (!changed_.wait_for(lock, timeout, [this] { return pictures_.size() < capacity; })) {
            return false;
        }
        pictures_.push_back(std::move(picture));
        changed_.notify_all();
        return true;
    }

    /// Waits for a picture; returns nothing when the queue is closed and empty.
    std::optional<Picture> Pop() {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [this] { return closed_ || !pictures_.empty(); });
        if (pictures_.empty()) {
            return std::nullopt;
        }
        Picture picture = std::move(pictures_.front());
        pictures_.pop_front();
        changed_.notify_all();
        return picture;
    }

    /// Nothing may be pushed after it. Any thread.
    void Close() {
        const std::lock_guard lock(mutex_);
        closed_ = true;
        changed_.notify_all();
    }

    /// Closes the queue and drops its pictures. Any thread.
    void Abandon() {
        const std::lock_guard lock(mutex_);
        pictures_.clear();
        closed_ = true;
        changed_.notify_all();
    }

    bool IsEmpty() const {
        const std::lock_guard lock(mutex_);
        return pictures_.empty();
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<Picture> pictures_;  // guarded by mutex
    bool closed_ = false;           // guarded by mutex
};

}  // namespace plate_host
