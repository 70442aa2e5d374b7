#include "bench/frame_path/soak.h"

#include <algorithm>
#include <boost/thread/barrier.hpp>
#include <exception>
#include <iostream>
#include <memory>
#include <mutex>
#include <thread>

#include "bench/memory.h"

namespace frame_path {
namespace {

constexpr PictureSize pictureSize{320, 240};
constexpr int framesAMinute = 25 * 60;

double Mebibytes(std::uint64_t bytes) {
    return static_cast<double>(bytes) / (1 << 20);
}

// The most that one measure of memory has shown, in each half.
struct Peaks {
    double first = 0.0;
    double second = 0.0;

    void Add(double value, bool isSecondHalf) {
        double& peak = isSecondHalf ? second : first;
        peak = std::max(peak, value);
    }
    double Growth() const { return second - first; }
};

// Threads that live for the whole run, since each is a camera to the engine.
class Players {
  public:
    Players(Library& library, const SoakOptions& options) : step(static_cast<unsigned>(options.channels) + 1) {
        for (int number = 0; number < options.channels; ++number) {
            channels.push_back(std::make_unique<Channel>(library, pictureSize));
        }
        for (const std::unique_ptr<Channel>& channel : channels) {
            threads.emplace_back([this, &channel, minutes = options.minutes] {
                for (int minute = 0; minute < minutes; ++minute) {
                    PlayMinute(*channel);
                    step.wait();  // all have played
                    step.wait();  // the memory has been looked at
                }
            });
        }
    }
    ~Players() {
        for (std::thread& thread : threads) {
            thread.join();
        }
    }
    Players(const Players&) = delete;
    Players& operator=(const Players&) = delete;

    void WaitUntilPlayed() { step.wait(); }
    void GoOn() { step.wait(); }

    std::exception_ptr Failure() {
        const std::lock_guard lock(mutex);
        return failure;
    }

  private:
    void PlayMinute(Channel& channel) {
        try {
            channel.Play(framesAMinute);
        } catch (...) {
            const std::lock_guard lock(mutex);
            failure = std::current_exception();
        }
    }

    boost::barrier step;
    std::vector<std::unique_ptr<Channel>> channels;
    std::mutex mutex;
    std::exception_ptr failure;  // guarded by mutex
    std::vector<std::thread> threads;
};

}  // namespace

bool Soak(Library& library, const SoakOptions& options) {
    Peaks resident;
    Peaks allocated;
    std::exception_ptr failure;
    {
        Players players(library, options);
        for (int minute = 1; minute <= options.minutes; ++minute) {
            players.WaitUntilPlayed();
            const bool isSecondHalf = minute > options.minutes / 2;
            plate_host::Json line = {{"minute", minute},
                                     {"frames", std::int64_t{framesAMinute} * options.channels * minute},
                                     {"events", library.events.Count()},
                                     {"resident_mib", Mebibytes(bench::ResidentBytes())}};
            resident.Add(line["resident_mib"], isSecondHalf);
            if (const auto bytes = bench::AllocatedBytes()) {
                line["allocated_mib"] = Mebibytes(*bytes);
                allocated.Add(line["allocated_mib"], isSecondHalf);
            }
            std::cout << line.dump() << std::endl;
            players.GoOn();
        }
        failure = players.Failure();
    }
    if (failure) {
        std::rethrow_exception(failure);
    }
    const double growth = std::max(resident.Growth(), allocated.Growth());
    const bool isWithinBound = growth <= growthBoundMebibytes && library.events.Count() > 0;
    const plate_host::Json verdict = {{"minutes", options.minutes},        {"channels", options.channels},
                                      {"events", library.events.Count()},  {"growth_mib", growth},
                                      {"bound_mib", growthBoundMebibytes}, {"is_within_bound", isWithinBound}};
    std::cout << verdict.dump() << std::endl;
    return isWithinBound;
}

}  // namespace frame_path
