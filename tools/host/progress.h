/// How far a run has come, on standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "tools/host/console.h"

namespace plate_host {

struct ProgressFigures {
    std::uint64_t frames = 0;                 ///< handled, over all channels
    std::optional<std::uint64_t> frameTotal;  ///< where it is known
    std::uint64_t plates = 0;
    std::uint64_t events = 0;
};

/// The figures as one line, a bar before them where the total is known and a bar is wanted.
std::string ProgressText(const ProgressFigures& figures, double seconds, bool withBar);

/// "12.3" frames a second; "0.0" for no time.
std::string FramesPerSecond(std::uint64_t frames, double seconds);

/// A bar on a terminal, a line now and then elsewhere. Used by one thread.
class Progress {
  public:
    using Clock = std::chrono::steady_clock;

    explicit Progress(Console& console);

    /// Shows the figures when it is time to.
    void Show(const ProgressFigures& figures);
    /// Takes the bar away.
    void End() { console_.Bar(""); }
    double Seconds() const;

  private:
    Console& console_;
    const Clock::time_point start_;
    Clock::time_point next_;
};

}  // namespace plate_host
