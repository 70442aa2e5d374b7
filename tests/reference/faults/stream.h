/// A stream of frames through the whole library, with the reading engine and the server in the program's folder.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/plugin/plugin.h"
#include "tools/validate/recording_host.h"

namespace reading_faults {

struct Played {
    std::int32_t status = -1;  ///< the detector's return value, 0 on success
    int plates = -1;           ///< returned by the engine, according to the library's trace
    bool restarts = false;     ///< the engine refused the range
    std::chrono::milliseconds time{};
};

/// A detector that accepts plates of any width, and optionally an idle second one. One stream at a time, on one thread.
class Stream {
  public:
    Stream();
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// Plays one frame with two plates.
    Played Play();

    /// Returns the newest lines of the library's trace, for failure messages.
    std::string LastLines() const;

    /// Creates and destroys the detector of another channel.
    void AddNeighbour();
    void DestroyNeighbour();

    /// Destroys the detectors and returns the number of buffers that were not released.
    int End();

  private:
    plugin_test::TestFolder folder_;
    plugin_test::DebugLines trace_;
    std::size_t traceRead_ = 0;
    recording_host::RecordingHost host_;
    recording_host::BufferCounts buffers_;
    plugin_test::Plugin plugin_;
    OKM8::Analytics::IDetector* detector_ = nullptr;
    OKM8::Analytics::IDetector* neighbour_ = nullptr;
    OKM8::Analytics::IMediaReceiver* receiver_ = nullptr;
    const std::vector<std::uint8_t> pixels_;
    std::uint64_t time_ = 0;
};

}  // namespace reading_faults
