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

constexpr int maxPlates = 5;
constexpr std::uint64_t framePeriod = 40;
constexpr std::uint64_t noLimit = std::numeric_limits<std::int32_t>::max();

// A running tracker with `trackCount` standing vehicles, each read as `textCount` texts.
class Scene {
  public:
    Scene(int trackCount, int textCount)
        : tracks_(trackCount), texts_(textCount), tracker_(nullptr, noLimit, noLimit, noLimit) {
        std::vector<LicencePlatePtr> firsts;
        for (int vehicle = 0; vehicle < tracks_; ++vehicle) {
            firsts.push_back(ReadingOf(vehicle, TextOf(vehicle, 0), time_));
        }
        tracker_.ProcessPlates(firsts, time_);
        // Starts with the youngest, so that a reading is compared with tracks of one text before its own.
        for (int vehicle = tracks_ - 1; vehicle >= 0; --vehicle) {
            // After its second reading a track accepts any text at the predicted place.
            for (int text = 0; text < texts_; ++text) {
                Process({vehicle, vehicle + 1}, text);
            }
        }
    }

    void ProcessFrame() {
        const int plates = std::min(tracks_, maxPlates);
        Process({nextVehicle_, nextVehicle_ + plates}, nextText_);
        nextVehicle_ = (nextVehicle_ + plates) % tracks_;
        nextText_ = (nextText_ + 1) % texts_;
    }

  private:
    struct Range {
        int first;
        int last;
    };

    void Process(Range vehicles, int text) {
        time_ += framePeriod;
        readings_.clear();
        for (int vehicle = vehicles.first; vehicle < vehicles.last; ++vehicle) {
            readings_.push_back(ReadingOf(vehicle, TextOf(vehicle, text), time_));
        }
        tracker_.ProcessPlates(readings_, time_);
    }

    const int tracks_;
    const int texts_;
    CLicencePlateTracker tracker_;
    std::vector<LicencePlatePtr> readings_;
    std::uint64_t time_ = 1'700'000'000'000;
    int nextVehicle_ = 0;
    int nextText_ = 0;
};

void MeasureFrames(benchmark::State& state) {
    // Tracks keep their readings, so the scene is recreated before they fill the memory.
    constexpr int framesPerScene = 20'000;
    std::optional<Scene> scene;
    int frame = 0;
    for (auto _ : state) {
        if (frame-- == 0) {
            state.PauseTiming();
            scene.emplace(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)));
            frame = framesPerScene;
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
