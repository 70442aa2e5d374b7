/// A bounded queue between the reader and one detector's thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <utility>

#include "tools/host/video_reader.h"

namespace plate_host {

/// One thread pushes, another pops.
class PictureQueue {
  public:
    /// The pictures read ahead of the detector, which bound the memory in use.
    static constexpr std::size_t capacity = 4;

    /// Waits at most that long for room; the picture is moved from only when true is answered.
    bool TryPush(Picture& picture, std::chrono::milliseconds timeout) {
        std::unique_lock lock(mutex);
        if (!changed.wait_for(lock, timeout, [this] { return pictures.size() < capacity; })) {
            return false;
        }
        pictures.push_back(std::move(picture));
        changed.notify_all();
        return true;
    }

    /// Waits for a picture; nothing when the queue is closed and empty.
    std::optional<Picture> Pop() {
        std::unique_lock lock(mutex);
        changed.wait(lock, [this] { return closed || !pictures.empty(); });
        if (pictures.empty()) {
            return std::nullopt;
        }
        Picture picture = std::move(pictures.front());
        pictures.pop_front();
        changed.notify_all();
        return picture;
    }

    /// Nothing is pushed any more. Any thread.
    void Close() {
        const std::lock_guard lock(mutex);
        closed = true;
        changed.notify_all();
    }

    /// Closes the queue and drops what waits in it. Any thread.
    void Abandon() {
        const std::lock_guard lock(mutex);
        pictures.clear();
        closed = true;
        changed.notify_all();
    }

    bool IsEmpty() const {
        const std::lock_guard lock(mutex);
        return pictures.empty();
    }

  private:
    mutable std::mutex mutex;
    std::condition_variable changed;
    std::deque<Picture> pictures;  // guarded by mutex
    bool closed = false;           // guarded by mutex
};

}  // namespace plate_host
