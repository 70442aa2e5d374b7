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

// As wide as the frames of most cameras; what is asked is whether any range is taken.
constexpr WidthRange firstRange{0, 1920};
constexpr std::chrono::milliseconds pause{20};

void TakeRange(PlateEngine& engine, const WidthRange& range, std::chrono::milliseconds patience,
               const Checkpoint& checkpoint) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!engine.TakeRange(range)) {
        checkpoint();
        if (std::chrono::steady_clock::now() >= end) {
            throw Failure("the engine takes no range of plate widths: its server does not answer, after " +
                          std::to_string(patience.count()) + " ms");
        }
        std::this_thread::sleep_for(pause);
    }
}

int Share(int whole, int percent) {
    return static_cast<int>(std::int64_t{whole} * percent / 100);
}

/// Lets callers with the same range be inside together, and those with different ones after each other. Any thread.
class RangeGate {
  public:
    void Enter(const WidthRange& range) {
        std::unique_lock lock(mutex);
        hasLeft.wait(lock, [&] { return inside == 0 || current == range; });
        current = range;
        ++inside;
    }

    void Leave() {
        {
            const std::lock_guard lock(mutex);
            --inside;
        }
        hasLeft.notify_all();
    }

  private:
    std::mutex mutex;
    std::condition_variable hasLeft;
    WidthRange current;  // guarded by mutex
    int inside = 0;      // guarded by mutex
};

class Inside {
  public:
    Inside(RangeGate& newGate, const WidthRange& range) : gate(newGate) { gate.Enter(range); }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
    ~Inside() { gate.Leave(); }

  private:
    RangeGate& gate;
};

/// Works through the pictures on several threads.
class Run {
  public:
    Run(const std::filesystem::path& newFolder, const std::vector<TruePicture>& newPictures, PlateEngine& newEngine,
        const EvaluationSettings& newSettings, const Checkpoint& newCheckpoint)
        : folder(newFolder),
          pictures(newPictures),
          engine(newEngine),
          settings(newSettings),
          checkpoint(newCheckpoint),
          results(newPictures.size()) {}

    std::vector<PictureResult> Results() {
        std::vector<std::thread> others;
        for (int number = 1; number < settings.threads; ++number) {
            others.emplace_back([this] { Work(); });
        }
        Work();
        for (std::thread& other : others) {
            other.join();
        }
        if (failure != nullptr) {
            std::rethrow_exception(failure);
        }
        return std::move(results);
    }

  private:
    void Work() {
        try {
            for (std::size_t index = next++; index < pictures.size(); index = next++) {
                Handle(pictures[index], results[index]);
            }
        } catch (...) {
            next = pictures.size();
            const std::lock_guard lock(mutex);
            if (failure == nullptr) {
                failure = std::current_exception();
            }
        }
    }

    void Handle(const TruePicture& truth, PictureResult& result) {
        checkpoint();
        Picture picture;
        try {
            picture = ReadPicture(folder / truth.file);
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
        const WidthRange range{Share(picture.width, settings.widths.minimum),
                               Share(picture.width, settings.widths.maximum)};
        std::optional<Region> region;
        if (settings.region) {
            region = {Share(picture.width, settings.region->left), Share(picture.height, settings.region->top),
                      Share(picture.width, settings.region->right), Share(picture.height, settings.region->bottom)};
        }
        const Inside inside(gate, range);
        try {
            TakeRange(engine, range, settings.patience, checkpoint);
            Recognition recognition = engine.Recognise(picture, region);
            // An engine whose server goes meanwhile finds nothing, which would count as what it can do.
            checkpoint();
            return recognition;
        } catch (const Failure& failed) {
            throw Failure("\"" + truth.file + "\": " + failed.what());
        }
    }

    const std::filesystem::path& folder;
    const std::vector<TruePicture>& pictures;
    PlateEngine& engine;
    const EvaluationSettings& settings;
    const Checkpoint& checkpoint;
    RangeGate gate;
    std::vector<PictureResult> results;  // each is written by the thread that took its number
    std::atomic<std::size_t> next{0};
    std::mutex mutex;
    std::exception_ptr failure;  // guarded by mutex
};

}  // namespace

void WaitForEngine(PlateEngine& engine, std::chrono::milliseconds patience, const Checkpoint& checkpoint) {
    TakeRange(engine, firstRange, patience, checkpoint);
}

std::vector<PictureResult> Evaluate(const std::filesystem::path& folder, const std::vector<TruePicture>& pictures,
                                    PlateEngine& engine, const EvaluationSettings& settings,
                                    const Checkpoint& checkpoint) {
    return Run(folder, pictures, engine, settings, checkpoint).Results();
}

}  // namespace plate_evaluation
