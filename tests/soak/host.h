/// The host's occasional failures, and its checks of events.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <random>

#include "sdk/plate_events.h"
#include "tools/validate/recording_host.h"

namespace soak {

/// Totals since the start. Any thread.
struct Counts {
    std::atomic<std::uint64_t> frames = 0;
    std::atomic<std::uint64_t> events = 0;
    std::atomic<std::uint64_t> failedEvents = 0;  ///< the host made them fail
    std::atomic<std::uint64_t> lostBuffers = 0;   ///< of detectors that were destroyed
    std::atomic<std::uint64_t> detectors = 0;
    std::atomic<std::uint64_t> refusedRanges = 0;
    std::atomic<std::uint64_t> kills = 0;
};

/// An exception that is not derived from std::exception.
struct OtherException {};

/// The events of one detector. Frame thread.
class Events {
  public:
    /// `onRaise` is called from inside Raise.
    Events(Counts& counts, std::uint32_t seed, std::function<void()> onRaise);

    /// Assigns the calling thread to this detector until EndFrame.
    void BeginFrame();
    /// Returns true if the host refused an object, which makes the frame fail. Throws std::runtime_error if a raiser
    /// was not ended exactly once.
    bool EndFrame();

    /// The host's hook. Any thread.
    static void OnCall(recording_host::HostCall& call);

  private:
    enum class Fault {
        None,
        NoFactory,
        NoTargetList,
        NoRaiser,
        NoArguments,
        NoTarget,
        ThrowingSetter,
        OtherThrowingSetter,
        ThrowingRaise,
        Count
    };

    void HandleCall(recording_host::HostCall& call);
    void Begin();
    void EndRaiser();
    bool HasTrack() const;

    Counts& counts_;
    const std::function<void()> onRaise_;
    std::mt19937 random_;
    Fault fault_ = Fault::None;  // of the current event
    int raisers_ = 0;            // not yet ended
    bool hasRefused_ = false;
    bool hasMissingTrack_ = false;
    bool isEndedTwice_ = false;
    bool hasTargets_ = false;
    OKM8::Analytics::TrackPointList track_ = {};  // of the current event, valid until it is raised
};

}  // namespace soak
