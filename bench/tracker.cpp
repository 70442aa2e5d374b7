#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "bench/benchmarks.h"
#include "bench/tracker_traffic.h"
#include "tracker/licence_plate_tracker.h"

namespace bench {

namespace {

constexpr int mostPlates = 5;
constexpr std::uint64_t framePeriod = 40;
constexpr std::uint64_t noLimit = std::numeric_limits<std::int32_t>::max();

// A tracker in the middle of its work: so many vehicles that stand, each read as so many texts.
class Scene {
  public:
    Scene(int trackCount, int textCount)
        : tracks(trackCount), texts(textCount), tracker(nullptr, noLimit, noLimit, noLimit) {
        std::vector<LicencePlatePtr> firsts;
        for (int vehicle = 0; vehicle < tracks; ++vehicle) {
            firsts.push_back(ReadingOf(vehicle, TextOf(vehicle, 0), time));
        }
        tracker.ProcessPlates(firsts, time);
        // From the youngest on, so that a reading meets tracks of one text before it meets its own.
        for (int vehicle = tracks - 1; vehicle >= 0; --vehicle) {
            // The second reading gives a track its place, by which it takes any text.
            for (int text = 0; text < texts; ++text) {
                Process({vehicle, vehicle + 1}, text);
            }
        }
    }

    void ProcessFrame() {
        const int plates = std::min(tracks, mostPlates);
        Process({nextVehicle, nextVehicle + plates}, nextText);
        nextVehicle = (nextVehicle + plates) % tracks;
        nextText = (nextText + 1) % texts;
    }

  private:
    struct Range {
        int first;
        int last;
    };

    void Process(Range vehicles, int text) {
        time += framePeriod;
        readings.clear();
        for (int vehicle = vehicles.first; vehicle < vehicles.last; ++vehicle) {
            readings.push_back(ReadingOf(vehicle, TextOf(vehicle, text), time));
        }
        tracker.ProcessPlates(readings, time);
    }

    const int tracks;
    const int texts;
    CLicencePlateTracker tracker;
    std::vector<LicencePlatePtr> readings;
    std::uint64_t time = 1'700'000'000'000;
    int nextVehicle = 0;
    int nextText = 0;
};

void MeasureFrames(benchmark::State& state) {
    // Readings stay with their tracks, so the scene is set anew before they fill the memory.
    constexpr int framesOfAScene = 20'000;
    std::optional<Scene> scene;
    int frame = 0;
    for (auto _ : state) {
        if (frame-- == 0) {
            state.PauseTiming();
            scene.emplace(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
            frame = framesOfAScene;
            state.ResumeTiming();
        }
        scene->ProcessFrame();
    }
}

}  // namespace

void RegisterTracker() {
    benchmark::RegisterBenchmark("tracker", MeasureFrames)
        ->ArgNames({"tracks", "texts"})
        ->ArgsProduct({{1, 10, 100}, {1, 10, 100}})
        ->Unit(benchmark::kMicrosecond);
}

}  // namespace bench
