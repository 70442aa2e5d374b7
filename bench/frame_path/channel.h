/// One camera: a detector, and frames without cost for the host.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "sdk/buffer.h"
#include "tools/host/console.h"
#include "tools/host/event.h"
#include "tools/host/host_objects.h"
#include "tools/host/plugin.h"

namespace frame_path {

/// Counts events. Any thread.
class EventCounter final : public plate_host::EventSink {
  public:
    void OnEvent(const plate_host::EventRecord&) override { ++count_; }
    std::uint64_t Count() const { return count_; }

  private:
    std::atomic<std::uint64_t> count_{0};
};

/// The library with its host objects.
struct Library {
    Library(const plate_host::PluginPaths& paths) : host(console), plugin(paths) { plugin.Initialize(host); }

    plate_host::Console console{false};
    EventCounter events;
    plate_host::HostObject host;
    plate_host::Plugin plugin;
};

struct PictureSize {
    std::uint32_t width;
    std::uint32_t height;
};

inline constexpr PictureSize tiny{64, 48};
inline constexpr PictureSize fullHd{1920, 1080};
inline constexpr PictureSize videoSizes[] = {{640, 480}, {1280, 720}, fullHd, {3840, 2160}};

/// One thread at a time; the library must outlive it.
class Channel {
  public:
    Channel(Library& library, PictureSize size);
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// Sends that many more frames, 25 for each second of their time stamps. Throws plate_host::Failure if the library
    /// refuses one.
    void Play(int frames);

    /// The pixels of every frame, which begin where the run-time's allocator puts them.
    const std::uint8_t* Pixels() const { return picture_.data(); }

  private:
    class Buffer;

    Buffer& FreeBuffer();

    const PictureSize size_;
    std::vector<std::uint8_t> picture_;             // the pixels of all frames
    std::vector<std::unique_ptr<Buffer>> buffers_;  // all buffers
    std::vector<Buffer*> freeBuffers_;              // not held by the library
    std::uint64_t time_ = 1'700'000'000'000;        // milliseconds
    plate_host::DetectorPeer peer_;
    plate_host::Detector detector_;
};

}  // namespace frame_path
