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
    Channel(int newNumber, Plugin& plugin, HostObject& host, EventSink& sink, Console& console, BufferLedger& newLedger,
            FrameShelf* newShelf, const PlayOptions& options);
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;
    /// Gives up the waiting frames, ends the thread and destroys the detector.
    ~Channel();

    void Start();
    /// Waits at most that long for room; the picture is moved from only when true is answered.
    bool TryPush(Picture& picture, std::chrono::milliseconds timeout) { return queue.TryPush(picture, timeout); }
    /// No frames follow.
    void Close() { queue.Close(); }
    /// The waiting frames are dropped; the one in the detector ends.
    void Abandon() { queue.Abandon(); }
    /// True when the thread has handled all frames after Close or Abandon. Any thread.
    bool HasFinished() const { return hasFinished.load(); }
    /// Ends the thread, behind Close or Abandon, and destroys the detector.
    void Finish();

    /// Any thread.
    std::uint64_t FrameCount() const { return frameCount.load(); }
    /// REQUIRES: Finish has returned.
    const ChannelOutcome& Outcome() const { return outcome; }
    RaiserCounts Raisers() const { return peer.Counts(); }

  private:
    void Run();
    void Handle(Picture picture);
    int32_t HandOver(FrameBuffer& buffer);

    DetectorPeer peer;
    Detector detector;
    const int number;
    BufferLedger& ledger;
    FrameShelf* const shelf;
    const std::optional<OKM8::FrameArea> singleArea;
    FrameDoneCounter frameDone;
    PictureQueue queue;
    ChannelOutcome outcome;  // the thread's until it has ended
    std::atomic<std::uint64_t> frameCount{0};
    std::atomic<bool> hasFinished{false};
    std::thread thread;
};

}  // namespace plate_host
