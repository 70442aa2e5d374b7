#include "tools/clip/readings.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <string_view>

#include "tools/clip/random.h"

namespace road_clip {
namespace {

// Probabilities of errors per reading; some misses last for several frames.
constexpr double missProbability = 0.04;
constexpr double misreadingProbability = 0.10;
constexpr double secondMistakeProbability = 0.25;
constexpr int maxMissFrames = 4;

/// Only digits are misread, as letters. Of a vehicle's texts the tracker reports the one that sorts first, and letters
/// sort after digits, so it reports the right text.
char MisreadAs(char character) {
    switch (character) {
        case '0':
            return 'D';
        case '1':
            return 'T';
        case '2':
            return 'Z';
        case '4':
            return 'A';
        case '5':
            return 'S';
        case '6':
            return 'G';
        case '7':
            return 'T';
        case '8':
            return 'B';
        default:
            return character;
    }
}

std::string Misread(const std::string& plate, Random& random) {
    std::vector<std::size_t> candidates;
    for (std::size_t i = 0; i < plate.size(); ++i) {
        if (MisreadAs(plate[i]) != plate[i]) {
            candidates.push_back(i);
        }
    }
    std::string text = plate;
    const int mistakes = random.Unit() < secondMistakeProbability ? 2 : 1;
    for (int i = 0; i < mistakes && !candidates.empty(); ++i) {
        const auto chosen = candidates.begin() + random.Below(static_cast<int>(candidates.size()));
        text[*chosen] = MisreadAs(text[*chosen]);
        candidates.erase(chosen);
    }
    return text;
}

/// The error of a plate's location; it stays the same while the picture does not change.
struct LocationError {
    PlateCorners seen{};
    std::array<std::array<int, 2>, 4> error{};
};

double MaxMove(const PlateCorners& from, const PlateCorners& to) {
    double max = 0;
    for (std::size_t i = 0; i < from.size(); ++i) {
        max = std::max({max, std::abs(from[i].x - to[i].x), std::abs(from[i].y - to[i].y)});
    }
    return max;
}

struct VehicleState {
    std::size_t firstFrame = std::numeric_limits<std::size_t>::max();
    int readings = 0;
    int framesToMiss = 0;
    LocationError locationError;
};

}  // namespace

std::vector<std::vector<Reading>> MakeReadings(std::uint64_t seed, const std::vector<Vehicle>& vehicles,
                                               const PlateTracks& frames) {
    Random random(seed ^ 0x5eed0f7ead1165U);
    std::vector<VehicleState> states(vehicles.size());
    for (std::size_t frame = frames.size(); frame-- > 0;) {
        for (std::size_t i = 0; i < vehicles.size(); ++i) {
            if (frames[frame][i] && frames[frame][i]->readable) {
                states[i].firstFrame = frame;
            }
        }
    }

    std::vector<std::vector<Reading>> readings(frames.size());
    for (std::size_t frame = 0; frame < frames.size(); ++frame) {
        const auto seen = [&](std::size_t i) { return frames[frame][i] && frames[frame][i]->readable; };
        for (std::size_t i = 0; i < vehicles.size(); ++i) {
            if (!seen(i)) {
                continue;
            }
            VehicleState& state = states[i];
            // While a vehicle is missed, the tracker may assign a reading of a later vehicle to its track. So no
            // vehicle is missed while a later one is readable, or before it has been read twice.
            bool mayMiss = state.readings >= 2;
            for (std::size_t other = 0; other < vehicles.size(); ++other) {
                if (other != i && seen(other) && states[other].firstFrame >= state.firstFrame) {
                    mayMiss = false;
                }
            }
            if (state.framesToMiss == 0 && random.Unit() < missProbability) {
                state.framesToMiss = 1 + random.Below(maxMissFrames);
            }
            if (state.framesToMiss > 0) {
                --state.framesToMiss;
                if (mayMiss) {
                    continue;
                }
                state.framesToMiss = 0;
            }

            const PlateCorners& corners = frames[frame][i]->corners;
            if (state.readings == 0 || MaxMove(state.locationError.seen, corners) >= 0.5) {
                state.locationError.seen = corners;
                for (auto& error : state.locationError.error) {
                    for (int& axis : error) {
                        axis = random.Unit() < 0.25 ? random.Below(3) - 1 : 0;
                    }
                }
            }

            Reading reading;
            reading.vehicle = i;
            const bool wrong = random.Unit() < misreadingProbability;
            reading.text = wrong ? Misread(vehicles[i].plate, random) : vehicles[i].plate;
            for (std::size_t k = 0; k < reading.text.size(); ++k) {
                const bool sure = reading.text[k] == vehicles[i].plate[k];
                const double confidence = sure ? random.Between(84, 99) : random.Between(45, 70);
                reading.confidenceSum += std::round(confidence * 10) / 10;
            }
            for (std::size_t corner = 0; corner < corners.size(); ++corner) {
                reading.corners[corner] = {
                    static_cast<int>(std::lround(corners[corner].x)) + state.locationError.error[corner][0],
                    static_cast<int>(std::lround(corners[corner].y)) + state.locationError.error[corner][1]};
            }
            ++state.readings;
            readings[frame].push_back(reading);
        }
    }
    return readings;
}

}  // namespace road_clip
