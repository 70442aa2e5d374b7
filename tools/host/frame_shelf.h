/// The frames that the library holds, for who wants to see what an event tells of.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "tools/host/video_reader.h"

namespace plate_host {

/// A library keeps the buffer of a frame for as long as it may report something of it, so the frames that are out are
/// the ones that events can be about, and no copies are kept for that. Any thread.
class FrameShelf {
  public:
    /// The picture goes out to a detector. It must not change or go before Leave.
    void Enter(int channel, const Picture& picture);
    /// The picture comes back.
    void Leave(int channel, const Picture& picture);

    /// A copy of the channel's picture of that time, the youngest where there are several; nothing where none is out.
    std::optional<Picture> CopyOf(int channel, std::uint64_t timeMs) const;

  private:
    using Key = std::pair<int, std::uint64_t>;  // channel and time

    mutable std::mutex mutex_;
    std::multimap<Key, const Picture*> pictures_;  // guarded by mutex
};

}  // namespace plate_host
