// The engine's two functions. They ignore the pixels; every thread has separate traffic.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "bench/idle_engine/traffic.h"
#include "engine/engine_records.h"

namespace idle_engine {
namespace {

constexpr int vehicleCount = 2 * engineRecordCount;

std::atomic<Traffic> traffic{Traffic::None};
thread_local std::uint8_t* lastPixels = nullptr;

// Two vehicles never share a character, so that the tracker does not confuse vehicles that are close together.
std::string StandingText(int vehicle, std::uint64_t frame) {
    std::string text;
    for (int position = 0; position < 7; ++position) {
        text += static_cast<char>((vehicle < 5 ? '0' : 'A' - 10) + 2 * vehicle + position % 2);
    }
    text.back() = text[frame % 3 == 0 ? 0 : 1];
    return text;
}

// `x` and `y` are the plate's centre in pixels.
RPLATE PlateRecord(const std::string& text, std::int32_t x, std::int32_t y, const IMG& image) {
    const std::int32_t halfWidth = static_cast<std::int32_t>(std::max(image.width / 32, 1u));
    const std::int32_t halfHeight = static_cast<std::int32_t>(std::max(image.height / 64, 1u));
    RPLATE plate = {};
    text.copy(plate.text, sizeof plate.text);
    SetConfidenceSum(plate, 90.0 * static_cast<double>(text.size()));
    plate.corner1 = {x - halfWidth, y - halfHeight};
    plate.corner2 = {x - halfWidth, y + halfHeight};
    plate.corner3 = {x + halfWidth, y - halfHeight};
    plate.corner4 = {x + halfWidth, y + halfHeight};
    return plate;
}

int ReadStanding(const IMG& image, RPLATE* plates) {
    thread_local std::uint64_t frame = 0;
    const int half = static_cast<int>(frame % 2);
    for (int column = 0; column < engineRecordCount; ++column) {
        const auto x = static_cast<std::int32_t>(image.width) * (2 * column + 1) / (2 * engineRecordCount);
        const auto y = static_cast<std::int32_t>(image.height) * (2 * half + 1) / 4;
        plates[column] = PlateRecord(StandingText(half * engineRecordCount + column, frame / 2), x, y, image);
    }
    static_assert(vehicleCount == 10);
    ++frame;
    return engineRecordCount;
}

}  // namespace
}  // namespace idle_engine

int Recognize2(YUV420_IMG*, IMG* image, tagRECT*, RPLATE* plates, int) {
    using idle_engine::Traffic;
    idle_engine::lastPixels = image->pixels;
    switch (idle_engine::traffic.load(std::memory_order_relaxed)) {
        case Traffic::None:
            return 0;
        case Traffic::Standing:
            return idle_engine::ReadStanding(*image, plates);
    }
    return 0;
}

bool SetPlateRange(int, int) {
    return true;
}

extern "C" void SelectTraffic(int traffic) {
    idle_engine::traffic = static_cast<idle_engine::Traffic>(traffic);
}

extern "C" std::uint8_t* LastPixels() {
    return idle_engine::lastPixels;
}
