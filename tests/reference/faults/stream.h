/// A stream of frames through the whole library, with the reading engine and the server that lies beside the program.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/plugin/plugin.h"
#include "tests/support/recording_host.h"

namespace reading_faults {

struct Played {
    std::int32_t answer = -1;  ///< the detector's, 0 for well
    int plates = -1;           ///< that the engine has answered, as the library's trace tells
    bool restarts = false;     ///< the engine has refused the range
    std::chrono::milliseconds time{};
};

/// A detector, which looks at plates of any width, and maybe a second one, which does nothing. One stream at a time, on
/// one thread.
class Stream {
  public:
    Stream();
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    /// Plays a picture with two plates.
    Played Play();

    /// The newest lines of the library's trace, for what says why a test fails.
    std::string LastLines() const;

    /// A detector of another channel comes, and goes.
    void AddNeighbour();
    void DestroyNeighbour();

    /// Destroys the detectors, and returns how many of its pictures it has not given back.
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
