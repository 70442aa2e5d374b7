#include "tools/host/held_frames.h"

#include <iterator>

namespace plate_host {

void HeldFrames::Add(int channel, const Picture& picture) {
    const std::lock_guard lock(mutex_);
    pictures_.emplace(Key(channel, picture.timeMs), &picture);
}

void HeldFrames::Remove(int channel, const Picture& picture) {
    const std::lock_guard lock(mutex_);
    const auto [first, last] = pictures_.equal_range(Key(channel, picture.timeMs));
    for (auto entry = first; entry != last; ++entry) {
        if (entry->second == &picture) {
            pictures_.erase(entry);
            return;
        }
    }
}

std::optional<Picture> HeldFrames::Copy(int channel, std::uint64_t timeMs) const {
    // Copied under the lock: Release of the buffer waits for it.
    const std::lock_guard lock(mutex_);
    const auto [first, last] = pictures_.equal_range(Key(channel, timeMs));
    if (first == last) {
        return std::nullopt;
    }
    return CopyPicture(*std::prev(last)->second);
}

}  // namespace plate_host
