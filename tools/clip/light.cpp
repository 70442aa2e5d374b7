#include "tools/clip/light.h"

#include <algorithm>
#include <cmath>
#include <iterator>

#include "tools/clip/traffic.h"

namespace road_clip {
namespace {

struct Keyframe {
    double second;
    Light light;
};

constexpr Light sunny{1.0, 1.0, 0.0, 0.0, 1.6, 1.0 / 160, 0.0};
constexpr Light cloudy{0.12, 0.84, 6.0, 0.15, 2.0, 1.0 / 125, 0.0};
constexpr Light dusk{0.0, 0.42, 20.0, 0.6, 3.0, 1.0 / 90, 1.0};

constexpr Keyframe keyframes[] = {
    {0.0, sunny},          {22.0, sunny}, {24.0, cloudy}, {30.5, cloudy}, {35.0, dusk}, {roundSeconds - 1.0, dusk},
    {roundSeconds, sunny},
};

double Between(double from, double to, double part) {
    return from + (to - from) * part;
}

}  // namespace

Light LightAt(double second) {
    const double time = std::fmod(std::max(second, 0.0), roundSeconds);
    const auto* const next = std::find_if(std::begin(keyframes), std::end(keyframes),
                                          [&](const Keyframe& keyframe) { return keyframe.second > time; });
    const Keyframe& from = *std::prev(next);
    const Light& a = from.light;
    const Light& b = next->light;
    const double part = (time - from.second) / (next->second - from.second);
    return {Between(a.sun, b.sun, part),     Between(a.brightness, b.brightness, part),
            Between(a.haze, b.haze, part),   Between(a.blueness, b.blueness, part),
            Between(a.noise, b.noise, part), Between(a.exposure, b.exposure, part),
            Between(a.lamps, b.lamps, part)};
}

}  // namespace road_clip
