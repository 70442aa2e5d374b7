#include "tools/evaluate/evaluation.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <mutex>
#include <thread>

#include "tools/evaluate/failure.h"

namespace plate_evaluation {
namespace {

// The width of most cameras' frames. Any range will do to find out whether the engine's server responds.
constexpr WidthRange probeRange{0, 1920};
constexpr std::chrono::milliseconds pollInterval{20};

void SetWidthRange(PlateEngine& engine, const WidthRange& range, std::chrono::milliseconds timeout,
                   const Checkpoint& checkpoint) {
    const auto end = std::chrono::steady_clock::now() + timeout;
    while (!engine.SetWidthRange(range)) {
        checkpoint();
        if (std::chrono::steady_clock::now() >= end) {
            throw Failure("the engine refused a range of plate widths because its server did not respond within " +
                          std::to_string(timeout.count()) + " ms");
        }
        std::this_thread::sleep_for(pollInterval);
    }
}

int PercentOf(int whole, int percent) {
    return static_cast<int>(std::int64_t{whole} * percent / 100);
}

/// Admits callers with the same range at the same time, and callers with different ranges one after another. Any
/// thread.
class RangeGate {
  public:
    void Enter(const WidthRange& range) {
        std::unique_lock lock(mutex_);
        left_.wait(lock, [&] { return callers_ == 0 || current_ == range; });
        current_ = range;
        ++callers_;
    }

    void Leave() {
        {
            const std::lock_guard lock(mutex_);
            --callers_;
        }
        left_.notify_all();
    }

  private:
    std::mutex mutex_;
    std::condition_variable left_;
    WidthRange current_;  // guarded by mutex
    int callers_ = 0;     // guarded by mutex
};

class RangeLock {
  public:
    RangeLock(RangeGate& gate, const WidthRange& range) : gate_(gate) { gate_.Enter(range); }
    RangeLock(const RangeLock&) = delete;
    RangeLock& operator=(const RangeLock&) = delete;
    ~RangeLock() { gate_.Leave(); }

  private:
    RangeGate& gate_;
};

/// Processes the pictures on several threads.
class Run {
  public:
    Run(const std::filesystem::path& folder, const std::vector<TruePicture>& pictures, PlateEngine& engine,
        const EvaluationSettings& settings, const Checkpoint& checkpoint)
        : folder_(folder),
          pictures_(pictures),
          engine_(engine),
          settings_(settings),
          checkpoint_(checkpoint),
          results_(pictures.size()) {}

    std::vector<PictureResult> Results() {
        std::vector<std::thread> others;
        for (int number = 1; number < settings_.threads; ++number) {
            others.emplace_back([this] { Work(); });
        }
        Work();
        for (std::thread& other : others) {
            other.join();
        }
        if (failure_ != nullptr) {
            std::rethrow_exception(failure_);
        }
        return std::move(results_);
    }

  private:
    void Work() {
        try {
            for (std::size_t index = next_++; index < pictures_.size(); index = next_++) {
                Handle(pictures_[index], results_[index]);
            }
        } catch (...) {
            next_ = pictures_.size();
            const std::lock_guard lock(mutex_);
            if (failure_ == nullptr) {
                failure_ = std::current_exception();
            }
        }
    }

    void Handle(const TruePicture& truth, PictureResult& result) {
        checkpoint_();
        Picture picture;
        try {
            picture = ReadPicture(folder_ / truth.file);
        } catch (const Failure& unreadable) {
            result.error = unreadable.what();
        }
        if (result.IsReadable()) {
            Recognition recognition = Recognise(truth, picture);
            result.reports = std::move(recognition.reports);
            result.milliseconds = recognition.milliseconds;
        }
        result.score = ScorePicture(truth.plates, result.reports);
    }

    Recognition Recognise(const TruePicture& truth, Picture& picture) {
        const WidthRange range{PercentOf(picture.width, settings_.widths.minimum),
                               PercentOf(picture.width, settings_.widths.maximum)};
        std::optional<Region> region;
        if (settings_.region) {
            region = {
                PercentOf(picture.width, settings_.region->left), PercentOf(picture.height, settings_.region->top),
                PercentOf(picture.width, settings_.region->right), PercentOf(picture.height, settings_.region->bottom)};
        }
        const RangeLock lock(gate_, range);
        try {
            SetWidthRange(engine_, range, settings_.timeout, checkpoint_);
            Recognition recognition = engine_.Recognise(picture, region);
            // If its server ended meanwhile, the engine has found nothing, which must not count as its result.
            checkpoint_();
            return recognition;
        } catch (const Failure& failed) {
            throw Failure("\"" + truth.file + "\": " + failed.what());
        }
    }

    const std::filesystem::path& folder_;
    const std::vector<TruePicture>& pictures_;
    PlateEngine& engine_;
    const EvaluationSettings& settings_;
    const Checkpoint& checkpoint_;
    RangeGate gate_;
    std::vector<PictureResult> results_;  // each is written only by the thread that took its index
    std::atomic<std::size_t> next_{0};
    std::mutex mutex_;
    std::exception_ptr failure_;  // guarded by mutex
};

}  // namespace

void WaitForEngine(PlateEngine& engine, std::chrono::milliseconds timeout, const Checkpoint& checkpoint) {
    SetWidthRange(engine, probeRange, timeout, checkpoint);
}

std::vector<PictureResult> Evaluate(const std::filesystem::path& folder, const std::vector<TruePicture>& pictures,
                                    PlateEngine& engine, const EvaluationSettings& settings,
                                    const Checkpoint& checkpoint) {
    return Run(folder, pictures, engine, settings, checkpoint).Results();
}

}  // namespace plate_evaluation
