/// Writes the frames of events as pictures.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tools/host/console.h"
#include "tools/host/event.h"
#include "tools/host/held_frames.h"
#include "tools/host/snapshot_picture.h"

namespace plate_host {

struct SnapshotCounts {
    std::uint64_t written = 0;
    std::uint64_t withoutFrame = 0;  ///< the library had already released the event's frame
    std::uint64_t failed = 0;
    std::string error;  ///< why the first of those failed
};

/// What to draw for the targets of an event that have a plate, a text or a track.
std::vector<SnapshotTarget> SnapshotTargetsOf(const EventRecord& event);

/// The file name for the channel's event with that number: channel, number, time and the plate's text, in which "_"
/// replaces all but ASCII letters, digits and hyphens.
std::string SnapshotNameOf(const EventRecord& event, std::uint64_t number);

/// Passes every event on, then writes its frame as a picture into a folder. Prints the first failure and counts all;
/// events are passed on regardless. Any thread.
class SnapshotSink final : public EventSink {
  public:
    /// Creates the folder. The arguments must outlive the sink. Throws Failure.
    SnapshotSink(std::string folder, EventSink& next, const HeldFrames& heldFrames, Console& console);

    void OnEvent(const EventRecord& event) override;

    SnapshotCounts Counts() const;

  private:
    void Fail(const std::string& error);

    const std::string folder_;
    EventSink& next_;
    const HeldFrames& heldFrames_;
    Console& console_;
    mutable std::mutex mutex_;
    std::map<int, std::uint64_t> numbers_;  // by channel; guarded by mutex
    SnapshotCounts counts_;                 // guarded by mutex
};

}  // namespace plate_host
