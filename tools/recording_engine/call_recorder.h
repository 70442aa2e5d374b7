/// Records the calls of an engine.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/engine_records.h"
#include "tools/recording/recording_writer.h"

namespace recording_engine {

/// Writes a frame for each recognition; each calling thread is a channel. Any thread. No operation throws but the
/// constructor. One for each process: a thread that has called one recorder is unknown to another.
class CallRecorder {
  public:
    /// Creates the file and its folder. `warn` is called at most once, when nothing more can be written. Throws
    /// std::exception.
    CallRecorder(const std::filesystem::path& file, const recording::Run& run,
                 std::function<void(const std::string&)> warn);

    /// A recognition that has begun. Owned by the recorder, because an exception of another compiler's runtime skips
    /// the destructors of the stack frames that it leaves.
    struct Call {
        bool isOpen = false;
        std::chrono::steady_clock::time_point start;
        std::uint64_t recognitions = 0;
        recording::Frame frame;  ///< with the ranges since the thread's previous recognition
    };

    /// Called right before a recognition. Returns null if it cannot be recorded.
    Call* Begin(const IMG* image, const tagRECT* region) noexcept;
    /// Called right after a recognition. The call may be null.
    void End(Call* call, int count, const RPLATE* plates) noexcept;
    /// Called after a recognition that an exception has left. Without this, the thread's next recognition finds out.
    void EndThrown(Call* call) noexcept;

    void AddRange(int minimumWidth, int maximumWidth, bool isAccepted) noexcept;

  private:
    Call& CallOfThread();
    void Write(Call& call);

    recording::RecordingWriter writer_;
    const std::function<void(const std::string&)> warn_;
    const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
    std::atomic<bool> hasFailed_ = false;
    std::mutex mutex_;
    std::vector<std::unique_ptr<Call>> calls_;  // guarded by mutex; one for each thread
};

}  // namespace recording_engine
