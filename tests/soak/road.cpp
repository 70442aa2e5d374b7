#include "tests/soak/road.h"

#include <algorithm>

namespace soak {
namespace {

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

}  // namespace

char Road::Character() {
    return "ABCDEFGHJKLMNPQRSTUVWXYZ0123456789"[Below(34)];
}

void Road::Enter(Vehicle& vehicle) {
    vehicle.isPresent = true;
    for (char& character : vehicle.text) {
        character = Character();
    }
    vehicle.across = 0.1 + 0.8 * Below(1000) / 1000.0;
    vehicle.along = 0.0;
    vehicle.step = 1.0 / (75 + Below(125));  // three to eight seconds through the frame
    vehicle.framesBeforeStop = static_cast<int>(Below(60));
    vehicle.framesOfStop = 0;
    if (Chance(2)) {
        vehicle.framesOfStop = static_cast<int>(Below(20'000));  // a quarter of an hour at most
    } else if (Chance(15)) {
        vehicle.framesOfStop = static_cast<int>(100 + Below(1400));
    }
}

void Road::Move(Vehicle& vehicle) {
    if (vehicle.framesBeforeStop > 0) {
        --vehicle.framesBeforeStop;
    } else if (vehicle.framesOfStop > 0) {
        --vehicle.framesOfStop;
        return;
    }
    vehicle.along += vehicle.step;
    vehicle.isPresent = vehicle.along < 1.0;
}

int Road::Read(const IMG& image, RPLATE* plates) {
    int count = 0;
    for (Vehicle& vehicle : vehicles_) {
        if (!vehicle.isPresent) {
            if (isOpen_ && Below(250) == 0) {
                Enter(vehicle);
            }
            continue;
        }
        Move(vehicle);
        if (!vehicle.isPresent || Chance(15)) {
            continue;
        }
        std::string text(vehicle.text.begin(), vehicle.text.end());
        if (Chance(20)) {
            text[Below(static_cast<std::uint32_t>(text.size()))] = Character();
        }
        plates[count++] = PlateRecord(text, static_cast<std::int32_t>(vehicle.across * image.width),
                                      static_cast<std::int32_t>(vehicle.along * image.height), image);
    }
    return count;
}

void Road::Close() {
    isOpen_ = false;
    for (Vehicle& vehicle : vehicles_) {
        vehicle.isPresent = false;
    }
}

}  // namespace soak
