/// Pictures of what events tell of.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "tools/host/console.h"
#include "tools/host/event.h"
#include "tools/host/frame_shelf.h"
#include "tools/host/snapshot_picture.h"

namespace plate_host {

struct SnapshotCounts {
    std::uint64_t written = 0;
    std::uint64_t withoutFrame = 0;  ///< the library had given back the frame of the event's time
    std::uint64_t failed = 0;
    std::string error;  ///< why the first of those failed
};

/// What is drawn for the targets of an event: those that have a plate, a text or a track.
std::vector<SnapshotTarget> SnapshotTargetsOf(const EventRecord& event);

/// The name of the file for the channel's event of that number: channel, number, time and the plate's text, of which
/// only letters, digits and hyphens of ASCII stay as they are.
std::string SnapshotNameOf(const EventRecord& event, std::uint64_t number);

/// Hands every event on, and then writes a picture of it into a folder. What fails is told once and counted; the events
/// go on. Any thread.
class SnapshotSink final : public EventSink {
  public:
    /// Makes the folder. What is handed in must outlive the sink. Throws Failure.
    SnapshotSink(std::string folder, EventSink& next, const FrameShelf& shelf, Console& console);

    void OnEvent(const EventRecord& event) override;

    SnapshotCounts Counts() const;

  private:
    void Fail(const std::string& error);

    const std::string folder_;
    EventSink& next_;
    const FrameShelf& shelf_;
    Console& console_;
    mutable std::mutex mutex_;
    std::map<int, std::uint64_t> numbers_;  // by channel; guarded by mutex
    SnapshotCounts counts_;                 // guarded by mutex
};

}  // namespace plate_host
