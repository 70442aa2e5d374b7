// The engine's two functions. They look at no pixel; every thread has its own traffic.

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <string>

#include "bench/idle_engine/road.h"
#include "bench/idle_engine/traffic.h"
#include "engine/engine_records.h"

namespace idle_engine {
namespace {

constexpr int vehicleCount = 2 * engineRecordCount;

std::atomic<Traffic> traffic{Traffic::None};
std::atomic<std::uint32_t> roads{0};

// No two vehicles share a character, so that none is taken for another where both are near.
std::string StandingText(int vehicle, std::uint64_t frame) {
    std::string text;
    for (int position = 0; position < 7; ++position) {
        text += static_cast<char>((vehicle < 5 ? '0' : 'A' - 10) + 2 * vehicle + position % 2);
    }
    text.back() = text[frame % 3 == 0 ? 0 : 1];
    return text;
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

int ReadRoad(const IMG& image, RPLATE* plates) {
    thread_local Road road(++roads);
    return road.Read(image, plates);
}

}  // namespace
}  // namespace idle_engine

int Recognize2(YUV420_IMG*, IMG* image, tagRECT*, RPLATE* plates, int) {
    using idle_engine::Traffic;
    switch (idle_engine::traffic.load(std::memory_order_relaxed)) {
        case Traffic::None:
            return 0;
        case Traffic::Standing:
            return idle_engine::ReadStanding(*image, plates);
        case Traffic::Road:
            return idle_engine::ReadRoad(*image, plates);
    }
    return 0;
}

bool SetPlateRange(int, int) {
    return true;
}

extern "C" void SelectTraffic(int traffic) {
    idle_engine::traffic = static_cast<idle_engine::Traffic>(traffic);
}
