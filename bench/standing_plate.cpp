// standing-plate: a vehicle stands in front of the camera for an hour and is read as a hundred texts. Prints as JSON
// the time of its last thousand frames, that of the first thousand with as many known texts, and the memory of a
// reading.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <limits>
#include <nlohmann/json.hpp>
#include <vector>

#include "bench/tracker_traffic.h"
#include "tests/support/descriptors.h"
#include "tracker/licence_plate_tracker.h"

namespace bench {
namespace {

constexpr int texts = 100;
constexpr int frames = 90'000;  // an hour
constexpr int measured = 1000;
constexpr std::uint64_t framePeriod = 40;

using Clock = std::chrono::steady_clock;

template <class Value>
Value Median(std::vector<Value> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

struct Hour {
    double firstMicroseconds;  // per frame, median of a thousand
    double lastMicroseconds;
    double bytesPerReading;
};

Hour PlayHour() {
    constexpr std::uint64_t noLimit = std::numeric_limits<std::int32_t>::max();
    CLicencePlateTracker tracker(nullptr, noLimit, noLimit, noLimit);
    std::uint64_t time = 1'700'000'000'000;
    int frame = 0;
    const auto playFrame = [&] {
        time += framePeriod;
        // Every text occurs within the first hundred frames, and later at irregular intervals.
        const int text = (frame * 37 + frame / texts * 11) % texts;
        ++frame;
        const std::vector<LicencePlatePtr> readings = {ReadingOf(0, TextOf(0, text), time)};
        const Clock::time_point start = Clock::now();
        tracker.ProcessPlates(readings, time);
        return std::chrono::duration<double, std::micro>(Clock::now() - start).count();
    };
    const auto playThousand = [&] {
        std::vector<double> costs(measured);
        std::generate(costs.begin(), costs.end(), playFrame);
        return Median(std::move(costs));
    };

    while (frame < texts) {
        playFrame();
    }
    Hour hour = {};
    hour.firstMicroseconds = playThousand();
    const std::uint64_t before = test_support::AllocatedBytes();
    const int from = frame;
    while (frame < frames - measured) {
        playFrame();
    }
    hour.bytesPerReading = static_cast<double>(test_support::AllocatedBytes() - before) / (frame - from);
    hour.lastMicroseconds = playThousand();
    return hour;
}

nlohmann::json Measure() {
    constexpr int hours = 5;
    std::vector<double> first;
    std::vector<double> last;
    std::vector<double> ratios;
    std::vector<double> bytes;
    for (int number = 0; number < hours; ++number) {
        const Hour hour = PlayHour();
        first.push_back(hour.firstMicroseconds);
        last.push_back(hour.lastMicroseconds);
        ratios.push_back(hour.lastMicroseconds / hour.firstMicroseconds);
        bytes.push_back(hour.bytesPerReading);
    }
    return {{"frames", frames},
            {"texts", texts},
            {"first_thousand_us", Median(first)},
            {"last_thousand_us", Median(last)},
            {"last_over_first", Median(ratios)},
            {"bytes_a_reading", Median(bytes)}};
}

}  // namespace
}  // namespace bench

int main() {
    std::cout << bench::Measure().dump() << std::endl;
}
