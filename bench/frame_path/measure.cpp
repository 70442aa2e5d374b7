#include "bench/frame_path/measure.h"

#include <algorithm>
#include <array>
#include <boost/thread/barrier.hpp>
#include <chrono>
#include <cstring>
#include <exception>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "image_transform/kernels/kernel.h"
#include "tools/host/failure.h"

namespace frame_path {
namespace {

namespace kernels = image_transform::kernels;
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

// Tracks keep their readings, so the number of frames in a batch is limited.
int FramesPerBatch(Channel& channel, const Effort& effort) {
    constexpr int tried = 30;
    constexpr double most = 500;
    channel.Play(tried);
    const Clock::time_point start = Clock::now();
    channel.Play(tried);
    const double microseconds = Microseconds(Clock::now() - start) / tried;
    return static_cast<int>(std::clamp(1000.0 * effort.batchMilliseconds / microseconds, 1.0, most));
}

double MicrosecondsPerFrame(Library& library, PictureSize size, const Effort& effort) {
    Channel channel(library, size);
    const int frames = FramesPerBatch(channel, effort);
    std::vector<double> batches;
    for (int batch = 0; batch < effort.batches; ++batch) {
        const Clock::time_point start = Clock::now();
        channel.Play(frames);
        batches.push_back(Microseconds(Clock::now() - start) / frames);
    }
    return Median(batches);
}

// Calls the library and then its kernel alone, with the same source and target, again and again: the median ratio of
// their times.
double ReceiveOverKernel(Library& library, const Engine& engine, PictureSize size, const Effort& effort) {
    Channel channel(library, size);
    const int frames = FramesPerBatch(channel, effort);
    const std::ptrdiff_t width = size.width;
    const std::ptrdiff_t pixels = width * size.height;
    const std::uint8_t* const u = channel.Pixels() + pixels;
    const kernels::I420Planes source = {channel.Pixels(), u, u + pixels / 4, width, width / 2, width / 2};
    std::uint8_t* const target = engine.lastPixels();
    std::vector<double> ratios;
    for (int batch = 0; batch < effort.batches; ++batch) {
        const Clock::time_point start = Clock::now();
        channel.Play(frames);
        const Clock::time_point middle = Clock::now();
        for (int frame = 0; frame < frames; ++frame) {
            const int status = kernels::ActiveKernel().toBgr24(
                source, target, 3 * width, static_cast<std::int32_t>(width), static_cast<std::int32_t>(size.height));
            if (status != kernels::Status::Ok) {
                throw plate_host::Failure("the kernel refused the frame");
            }
        }
        ratios.push_back(Microseconds(middle - start) / Microseconds(Clock::now() - middle));
    }
    return Median(ratios);
}

using Work = std::function<void(std::size_t thread)>;

// Permanent threads, as in a host: memory is freed by the thread that allocated it.
class Workers {
  public:
    Workers(std::size_t count, Work work)
        : work_(std::move(work)), begin_(static_cast<unsigned>(count) + 1), end_(static_cast<unsigned>(count) + 1) {
        for (std::size_t index = 0; index < count; ++index) {
            threads_.emplace_back([this, index] { Run(index); });
        }
    }
    ~Workers() {
        busy_ = 0;
        hasEnded_ = true;
        begin_.wait();
        for (std::thread& thread : threads_) {
            thread.join();
        }
    }
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;

    // Starts the first `count` threads at the same time and waits for the last one to finish.
    double RunsPerSecond(std::size_t count) {
        busy_ = count;
        const Clock::time_point start = Clock::now();
        begin_.wait();
        end_.wait();
        const double microseconds = Microseconds(Clock::now() - start);
        if (failure_) {
            std::rethrow_exception(failure_);
        }
        return 1e6 * static_cast<double>(count) / microseconds;
    }

  private:
    void Run(std::size_t index) {
        for (;;) {
            begin_.wait();
            if (hasEnded_) {
                return;
            }
            try {
                if (index < busy_) {
                    work_(index);
                }
            } catch (...) {
                const std::lock_guard lock(failing_);
                failure_ = std::current_exception();
            }
            end_.wait();
        }
    }

    const Work work_;
    // mingw-w64's std::barrier sometimes loses a wake-up on Windows.
    boost::barrier begin_;
    boost::barrier end_;
    std::size_t busy_ = 0;   // written while all threads wait for begin_
    bool hasEnded_ = false;  // the same
    std::mutex failing_;
    std::exception_ptr failure_;
    std::vector<std::thread> threads_;
};

// Alternates between one thread and one thread per core.
plate_host::Json OneAndAll(const Work& work, double framesPerRun, const Effort& effort) {
    const std::size_t cores = CoreCount();
    Workers workers(cores, work);
    workers.RunsPerSecond(cores);
    std::vector<double> one;
    std::vector<double> all;
    std::vector<double> ratios;
    for (int round = 0; round < effort.batches / 3; ++round) {
        one.push_back(framesPerRun * workers.RunsPerSecond(1));
        all.push_back(framesPerRun * workers.RunsPerSecond(cores));
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
    const int frames = 5 * FramesPerBatch(*channels.front(), effort);
    return OneAndAll([&](std::size_t thread) { channels[thread]->Play(frames); }, frames, effort);
}

// The machine's limit for threads that share nothing: each reads and writes as many bytes as a frame of this size.
plate_host::Json ManyCopies(PictureSize size, const Effort& effort) {
    const std::size_t read = std::size_t{3} * size.width * size.height / 2;
    struct Memory {
        std::vector<std::uint8_t> source;
        std::vector<std::uint8_t> target;
    };
    std::vector<Memory> memories(CoreCount());
    for (Memory& memory : memories) {
        memory.source.assign(read, 1);
        memory.target.assign(2 * read, 2);
    }
    constexpr int copies = 100;
    const auto copy = [&](std::size_t thread) {
        Memory& memory = memories[thread];
        for (int turn = 0; turn < copies; ++turn) {
            memory.source[0] = static_cast<std::uint8_t>(turn);
            for (const std::size_t half : {std::size_t{0}, read}) {
                std::memcpy(memory.target.data() + half, memory.source.data(), read);
            }
        }
    };
    return OneAndAll(copy, copies, effort);
}

// The allocator's limit: each thread allocates and frees as many blocks, of about the same sizes, as a frame with five
// plates does, and does nothing else.
plate_host::Json ManyAllocations(const Effort& effort) {
    constexpr int frames = 20'000;  // long enough for the system to move the threads to different cores
    const auto allocate = [](std::size_t) {
        constexpr std::size_t sizes[] = {136, 64, 80, 368, 32, 56};
        std::array<std::unique_ptr<std::uint8_t[]>, 33> blocks;
        for (int frame = 0; frame < frames; ++frame) {
            for (std::size_t index = 0; index < blocks.size(); ++index) {
                blocks[index].reset(new std::uint8_t[sizes[index % std::size(sizes)]]);
                blocks[index][0] = 1;
            }
        }
    };
    return OneAndAll(allocate, frames, effort);
}

}  // namespace

plate_host::Json Measure(Library& library, const Engine& engine, const Effort& effort) {
    plate_host::Json results;
    engine.selectTraffic(Traffic::None);
    for (const PictureSize size : videoSizes) {
        const std::string name = std::to_string(size.width) + 'x' + std::to_string(size.height);
        results["receive_over_kernel"][name] = ReceiveOverKernel(library, engine, size, effort);
    }
    results["tiny_us"] = MicrosecondsPerFrame(library, tiny, effort);
    results["full_hd_us"] = MicrosecondsPerFrame(library, fullHd, effort);
    results["full_hd_channels"] = ManyChannels(library, fullHd, effort);
    results["full_hd_copies"] = ManyCopies(fullHd, effort);
    engine.selectTraffic(Traffic::Standing);
    results["tiny_ten_tracks_us"] = MicrosecondsPerFrame(library, tiny, effort);
    results["tiny_ten_tracks_channels"] = ManyChannels(library, tiny, effort);
    results["allocations"] = ManyAllocations(effort);
    return results;
}

}  // namespace frame_path
