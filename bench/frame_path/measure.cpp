#include "bench/frame_path/measure.h"

#include <algorithm>
#include <boost/thread/barrier.hpp>
#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <thread>

namespace frame_path {
namespace {

using idle_engine::Traffic;
using Clock = std::chrono::steady_clock;

double Microseconds(Clock::duration duration) {
    return std::chrono::duration<double, std::micro>(duration).count();
}

double Median(std::vector<double> values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

std::size_t CoreCount() {
    return std::max(std::thread::hardware_concurrency(), 1u);
}

// Every reading stays with its vehicle, so there is an end to the frames of a batch.
int FramesOfABatch(Channel& channel, const Effort& effort) {
    constexpr int tried = 30;
    constexpr double most = 500;
    channel.Play(tried);
    const Clock::time_point start = Clock::now();
    channel.Play(tried);
    const double microseconds = Microseconds(Clock::now() - start) / tried;
    return static_cast<int>(std::clamp(1000.0 * effort.millisecondsOfABatch / microseconds, 1.0, most));
}

double MicrosecondsAFrame(Library& library, PictureSize size, const Effort& effort) {
    Channel channel(library, size);
    const int frames = FramesOfABatch(channel, effort);
    std::vector<double> batches;
    for (int batch = 0; batch < effort.batches; ++batch) {
        const Clock::time_point start = Clock::now();
        channel.Play(frames);
        batches.push_back(Microseconds(Clock::now() - start) / frames);
    }
    return Median(batches);
}

using Work = std::function<void(std::size_t thread)>;

// All threads begin together; the last one to end counts.
double WorksASecond(std::size_t count, const Work& work) {
    // The standard one loses a wake-up on Windows now and then, as mingw-w64 has it.
    boost::barrier together(static_cast<unsigned>(count) + 1);
    std::vector<std::exception_ptr> failures(count);
    std::vector<std::thread> threads;
    for (std::size_t index = 0; index < count; ++index) {
        threads.emplace_back([&, index] {
            together.wait();
            try {
                work(index);
            } catch (...) {
                failures[index] = std::current_exception();
            }
        });
    }
    together.wait();
    const Clock::time_point start = Clock::now();
    for (std::thread& thread : threads) {
        thread.join();
    }
    const double microseconds = Microseconds(Clock::now() - start);
    for (const std::exception_ptr& failure : failures) {
        if (failure) {
            std::rethrow_exception(failure);
        }
    }
    return 1e6 * static_cast<double>(count) / microseconds;
}

// One thread against as many as there are cores, in turn.
plate_host::Json OneAndAll(const Work& work, double framesOfAWork, const Effort& effort) {
    const std::size_t cores = CoreCount();
    std::vector<double> one;
    std::vector<double> all;
    std::vector<double> ratios;
    for (int round = 0; round < effort.batches / 3; ++round) {
        one.push_back(framesOfAWork * WorksASecond(1, work));
        all.push_back(framesOfAWork * WorksASecond(cores, work));
        ratios.push_back(all.back() / (static_cast<double>(cores) * one.back()));
    }
    return {{"threads", cores}, {"one", Median(one)}, {"all", Median(all)}, {"ratio", Median(ratios)}};
}

plate_host::Json ManyChannels(Library& library, PictureSize size, const Effort& effort) {
    std::vector<std::unique_ptr<Channel>> channels;
    for (std::size_t index = 0; index < CoreCount(); ++index) {
        channels.push_back(std::make_unique<Channel>(library, size));
        channels.back()->Play(30);
    }
    const int frames = 5 * FramesOfABatch(*channels.front(), effort);
    return OneAndAll([&](std::size_t thread) { channels[thread]->Play(frames); }, frames, effort);
}

// What the machine itself makes of threads that share nothing.
plate_host::Json ManyCalculations(const Effort& effort) {
    const auto calculate = [](std::size_t thread) {
        volatile std::size_t number = thread;
        for (int step = 0; step < 20'000'000; ++step) {
            number = number * 5 + 1;
        }
    };
    return OneAndAll(calculate, 1, effort);
}

}  // namespace

plate_host::Json Measure(Library& library, const SelectTraffic& select, const Effort& effort) {
    plate_host::Json answer;
    select(Traffic::None);
    answer["tiny_us"] = MicrosecondsAFrame(library, tiny, effort);
    answer["full_hd_us"] = MicrosecondsAFrame(library, fullHd, effort);
    answer["full_hd_channels"] = ManyChannels(library, fullHd, effort);
    answer["calculations"] = ManyCalculations(effort);
    select(Traffic::Standing);
    answer["tiny_ten_tracks_us"] = MicrosecondsAFrame(library, tiny, effort);
    answer["tiny_ten_tracks_channels"] = ManyChannels(library, tiny, effort);
    return answer;
}

}  // namespace frame_path
