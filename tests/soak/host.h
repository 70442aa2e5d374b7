/// The host's objects. They fail now and then, and keep nothing of an event that is over.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <random>

#include "sdk/host.h"

namespace soak {

/// What has happened since the beginning. Any thread.
struct Counts {
    std::atomic<std::uint64_t> frames = 0;
    std::atomic<std::uint64_t> events = 0;
    std::atomic<std::uint64_t> failedEvents = 0;  ///< the host made them fail
    std::atomic<std::uint64_t> buffersMade = 0;
    std::atomic<std::uint64_t> buffersReleased = 0;
    std::atomic<std::uint64_t> detectors = 0;
    std::atomic<std::uint64_t> refusedRanges = 0;
    std::atomic<std::uint64_t> kills = 0;
};

/// What is thrown when it is no standard exception.
struct OtherException {};

/// The host's object for one detector; owns the objects of all events of the current frame. Frame thread.
class Peer final : public OKM8::Analytics::IDetectorPeer {
  public:
    OKM8_OBJECT_DESTRUCTOR_SLOT(Peer)
    /// `onRaise` is called from inside Raise.
    Peer(Counts& counts, std::uint32_t seed, std::function<void()> onRaise);
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void* QueryContract(const char*) override { return nullptr; }
    void* QueryContract(const char*) const override { return nullptr; }
    OKM8::Analytics::IDetectorEventRaiser* CreateEventRaiser(OKM8::Analytics::IDetector* detector,
                                                             const char* eventName, std::int64_t timeMs,
                                                             std::int32_t kind) override;

    /// The calling thread's frame is this peer's until EndFrame.
    void BeginFrame();
    /// Drops the objects of the frame's events. Returns whether the library was refused one of them, which is an error
    /// of the frame. Throws std::runtime_error when a raiser was not ended exactly once.
    bool EndFrame();

    struct Objects;

  private:
    std::unique_ptr<Objects> objects_;
};

/// The argument of InitializeModule. Any thread.
class Host {
  public:
    Host();
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    void* Object();

  private:
    struct Objects;

    std::unique_ptr<Objects> objects_;
};

}  // namespace soak
