/// Shows the progress of a run on standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/host/console.h"

namespace plate_host {

struct ProgressFigures {
    std::uint64_t frames = 0;                 ///< handled, over all channels
    std::optional<std::uint64_t> frameTotal;  ///< if known
    std::uint64_t plates = 0;
    std::uint64_t events = 0;
};

/// Formats the figures as one line, with a bar before them if `withBar` is true and the total is known.
std::string ProgressText(const ProgressFigures& figures, double seconds, bool withBar);

/// Formats frames per second as "12.3"; "0.0" for zero seconds.
std::string FramesPerSecond(std::uint64_t frames, double seconds);

/// A bar on a terminal, otherwise a line every few seconds. Used by one thread.
class Progress {
  public:
    using Clock = std::chrono::steady_clock;

    explicit Progress(Console& console);

    /// Shows the figures, unless the last ones were shown a moment ago.
    void Show(const ProgressFigures& figures);
    /// Removes the bar.
    void End() { console_.Bar(""); }
    double Seconds() const;

  private:
    Console& console_;
    const Clock::time_point start_;
    Clock::time_point next_;
};

}  // namespace plate_host
