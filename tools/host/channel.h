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
#include "tools/host/run_recorder.h"

namespace plate_host {

/// Results of the frames of a channel.
struct ChannelOutcome {
    std::uint64_t frames = 0;
    std::map<std::string, std::uint64_t> failures;  ///< failed frames by error text
    std::uint64_t frameDoneCalls = 0;
    std::uint64_t wrongFrameDoneCalls = 0;
};

/// Used on the owner's thread, unless an operation says otherwise.
class Channel {
  public:
    /// Creates the detector and applies its settings. The recorder receives its events. Throws Failure. The arguments
    /// must outlive the channel; `heldFrames` may be null.
    Channel(int number, Plugin& plugin, HostObject& host, RunRecorder& recorder, Console& console,
            BufferCounts& buffers, HeldFrames* heldFrames, const PlayOptions& options);
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    /// Drops the queued frames, ends the thread and destroys the detector.
    ~Channel();

    void Start();
    /// Waits up to `timeout` for room in the queue. Moves from the picture only if it returns true.
    bool TryPush(Picture& picture, std::chrono::milliseconds timeout) { return queue_.TryPush(picture, timeout); }
    /// Marks the end of the frames.
    void Close() { queue_.Close(); }
    /// Drops the queued frames; the detector finishes its current one.
    void Abandon() { queue_.Abandon(); }
    /// True after the thread has handled all frames following Close or Abandon. Any thread.
    bool HasFinished() const { return hasFinished_.load(); }
    /// Waits for the thread to end and destroys the detector. REQUIRES: Close or Abandon has been called.
    void Finish();

    /// Any thread.
    std::uint64_t FrameCount() const { return frameCount_.load(); }
    /// REQUIRES: Finish has returned.
    const ChannelOutcome& Outcome() const { return outcome_; }
    RaiserCounts Raisers() const { return peer_.Counts(); }

  private:
    void Run();
    void Handle(Picture picture);
    recording::Frame RecordOf(const Picture& picture) const;
    int32_t PassToDetector(FrameBuffer& buffer);

    DetectorPeer peer_;
    Detector detector_;
    const int number_;
    BufferCounts& buffers_;
    HeldFrames* const heldFrames_;
    RunRecorder& recorder_;
    const std::optional<OKM8::FrameArea> singleArea_;
    FrameDoneCounter frameDone_;
    PictureQueue queue_;
    ChannelOutcome outcome_;  // used by the thread until it ends
    std::atomic<std::uint64_t> frameCount_{0};
    std::atomic<bool> hasFinished_{false};
    std::thread thread_;
};

}  // namespace plate_host
