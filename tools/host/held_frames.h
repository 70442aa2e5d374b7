/// The frames that the library holds, to look up the frame of an event.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "tools/host/picture.h"

namespace plate_host {

/// The library keeps the buffer of a frame while it may still report a reading of it. So only these frames can belong
/// to an event, and the host need not copy any. Any thread.
class HeldFrames {
  public:
    /// Adds a picture that is passed to a detector. It must not change or be freed before it is removed.
    void Add(int channel, const Picture& picture);
    /// Removes a picture whose buffer is released.
    void Remove(int channel, const Picture& picture);

    /// Returns a copy of the channel's picture with that time, the latest if there are several; nothing if there is
    /// none.
    std::optional<Picture> Copy(int channel, std::uint64_t timeMs) const;

  private:
    using Key = std::pair<int, std::uint64_t>;  // channel and time

    mutable std::mutex mutex_;
    std::multimap<Key, const Picture*> pictures_;  // guarded by mutex
};

}  // namespace plate_host
