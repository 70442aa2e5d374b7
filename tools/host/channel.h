/// One detector, and the thread that feeds it.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <thread>

#include "tools/host/frame_buffer.h"
#include "tools/host/host_objects.h"
#include "tools/host/options.h"
#include "tools/host/picture_queue.h"
#include "tools/host/plugin.h"

namespace plate_host {

/// What came of the frames of a channel.
struct ChannelOutcome {
    std::uint64_t frames = 0;
    std::map<std::string, std::uint64_t> failures;  ///< failed frames by error text
    std::uint64_t frameDoneCalls = 0;
    std::uint64_t wrongFrameDoneCalls = 0;
};

/// Owner thread, unless an operation says otherwise.
class Channel {
  public:
    /// Makes the detector and gives it its settings. Throws Failure. What is handed in must outlive the channel;
    /// the shelf may be null.
    Channel(int number, Plugin& plugin, HostObject& host, EventSink& sink, Console& console, BufferLedger& ledger,
            FrameShelf* shelf, const PlayOptions& options);
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    /// Gives up the waiting frames, ends the thread and destroys the detector.
    ~Channel();

    void Start();
    /// Waits at most that long for room; the picture is moved from only when true is answered.
    bool TryPush(Picture& picture, std::chrono::milliseconds timeout) { return queue_.TryPush(picture, timeout); }
    /// No frames follow.
    void Close() { queue_.Close(); }
    /// The waiting frames are dropped; the one in the detector ends.
    void Abandon() { queue_.Abandon(); }
    /// True when the thread has handled all frames after Close or Abandon. Any thread.
    bool HasFinished() const { return hasFinished_.load(); }
    /// Ends the thread, after Close or Abandon, and destroys the detector.
    void Finish();

    /// Any thread.
    std::uint64_t FrameCount() const { return frameCount_.load(); }
    /// REQUIRES: Finish has returned.
    const ChannelOutcome& Outcome() const { return outcome_; }
    RaiserCounts Raisers() const { return peer_.Counts(); }

  private:
    void Run();
    void Handle(Picture picture);
    int32_t HandOver(FrameBuffer& buffer);

    DetectorPeer peer_;
    Detector detector_;
    const int number_;
    BufferLedger& ledger_;
    FrameShelf* const shelf_;
    const std::optional<OKM8::FrameArea> singleArea_;
    FrameDoneCounter frameDone_;
    PictureQueue queue_;
    ChannelOutcome outcome_;  // the thread's until it has ended
    std::atomic<std::uint64_t> frameCount_{0};
    std::atomic<bool> hasFinished_{false};
    std::thread thread_;
};

}  // namespace plate_host
