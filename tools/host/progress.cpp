#include "tools/host/progress.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace plate_host {
namespace {

constexpr std::chrono::milliseconds terminalInterval{100};
constexpr std::chrono::seconds lineInterval{5};

std::string Bar(std::uint64_t frames, std::uint64_t total) {
    constexpr std::uint64_t width = 30;
    const double part = total == 0 ? 1.0 : std::min(1.0, static_cast<double>(frames) / static_cast<double>(total));
    const auto filled = static_cast<std::size_t>(part * static_cast<double>(width));
    std::array<char, 16> percent{};
    std::snprintf(percent.data(), percent.size(), "] %3.0f %%  ", part * 100.0);
    std::string bar(1, '[');
    bar.append(filled, '#').append(width - filled, '-').append(percent.data());
    return bar;
}

std::string Counted(std::uint64_t number, const char* one, const char* many) {
    return std::to_string(number) + " " + (number == 1 ? one : many);
}

}  // namespace

std::string FramesPerSecond(std::uint64_t frames, double seconds) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.1f", seconds > 0.0 ? static_cast<double>(frames) / seconds : 0.0);
    return text.data();
}

std::string ProgressText(const ProgressFigures& figures, double seconds, bool withBar) {
    const bool hasTotal = figures.frameTotal.has_value();
    std::string text = withBar && hasTotal ? Bar(figures.frames, *figures.frameTotal) : std::string();
    text += std::to_string(figures.frames);
    text += hasTotal ? " of " + Counted(*figures.frameTotal, "frame", "frames")
                     : std::string(figures.frames == 1 ? " frame" : " frames");
    text += ", " + FramesPerSecond(figures.frames, seconds) + " a second, ";
    text += Counted(figures.plates, "plate", "plates") + ", " + Counted(figures.events, "event", "events");
    return text;
}

Progress::Progress(Console& console) : console_(console), start_(Clock::now()), next_(start_) {
    if (!console_.IsTerminal()) {
        next_ = start_ + lineInterval;
    }
}

double Progress::Seconds() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
}

void Progress::Show(const ProgressFigures& figures) {
    const Clock::time_point now = Clock::now();
    if (now < next_) {
        return;
    }
    const std::string text = ProgressText(figures, Seconds(), console_.IsTerminal());
    if (console_.IsTerminal()) {
        console_.Bar(text);
        next_ = now + terminalInterval;
    } else {
        console_.Line("plate-host: " + text);
        next_ = now + lineInterval;
    }
}

}  // namespace plate_host
