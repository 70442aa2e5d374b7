#include "tools/evaluate/evaluation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <thread>

#include "tests/evaluate/pictures.h"
#include "tests/host/temporary_folder.h"
#include "tools/evaluate/failure.h"

namespace plate_evaluation {
namespace {

using evaluate_test::BgrPixels;
using evaluate_test::Ppm;
using host_test::TemporaryFolder;
using testing::ElementsAre;

const Checkpoint noCheckpoint = [] {};

/// Keeps one range for all callers, and returns a plate whose text is the picture's width.
class FakeEngine final : public PlateEngine {
  public:
    bool SetWidthRange(const WidthRange& range) override {
        const std::lock_guard lock(mutex_);
        if (refusals > 0) {
            --refusals;
            return false;
        }
        current_ = range;
        ranges.push_back(range);
        return true;
    }

    Recognition Recognise(Picture& picture, const std::optional<Region>& region) override {
        const auto hasOwnRange = [&] {
            const std::lock_guard lock(mutex_);
            return current_.maximum == picture.width;
        };
        bool hadOwnRange = hasOwnRange();
        // Long enough for an unsynchronised thread to change the range.
        for (int turn = 0; turn < 20; ++turn) {
            std::this_thread::yield();
            hadOwnRange = hadOwnRange && hasOwnRange();
        }
        const std::lock_guard lock(mutex_);
        foreignRanges += hadOwnRange ? 0 : 1;
        regions.push_back(region);
        pixels.push_back(picture.pixels);
        return {{{std::to_wstring(picture.width), 50, {{{0, 0}, {0, 4}, {8, 0}, {8, 4}}}}}, 2.0};
    }

    int refusals = 0;
    int foreignRanges = 0;
    std::vector<WidthRange> ranges;
    std::vector<std::optional<Region>> regions;
    std::vector<std::vector<std::uint8_t>> pixels;

  private:
    std::mutex mutex_;
    WidthRange current_;
};

TruePicture PictureNamed(const std::string& file, const std::wstring& text = L"8") {
    return {file, {{{0, 0, 8, 4}, text}}};
}

std::string ErrorOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const Failure& failure) {
        return failure.what();
    }
    return "none";
}

TEST(Evaluation, PassesThePixelsOfEveryPictureToTheEngine) {
    const TemporaryFolder folder;
    folder.Write("one.ppm", Ppm(8, 6, 1));
    folder.Write("two.ppm", Ppm(20, 10, 2));
    FakeEngine engine;
    const std::vector<PictureResult> results =
        Evaluate(folder.Path(""), {PictureNamed("two.ppm"), PictureNamed("one.ppm")}, engine, {}, noCheckpoint);
    EXPECT_THAT(engine.pixels, ElementsAre(BgrPixels(20, 10, 2), BgrPixels(8, 6, 1)));
    EXPECT_THAT(engine.ranges, ElementsAre(WidthRange{0, 20}, WidthRange{0, 8}));
    EXPECT_THAT(engine.regions, ElementsAre(std::nullopt, std::nullopt));
    ASSERT_EQ(results.size(), 2u);
    EXPECT_EQ(results[0].reports.at(0).text, L"20");
    EXPECT_EQ(results[0].milliseconds, 2.0);
    EXPECT_FALSE(results[0].score.plates.at(0).isExact);
    EXPECT_TRUE(results[1].score.plates.at(0).isExact);
}

TEST(Evaluation, WidthsAndRegionArePercentagesOfThePicture) {
    const TemporaryFolder folder;
    folder.Write("one.ppm", Ppm(200, 50, 1));
    FakeEngine engine;
    EvaluationSettings settings;
    settings.widths = {5, 40};
    settings.region = {10, 20, 90, 100};
    Evaluate(folder.Path(""), {PictureNamed("one.ppm")}, engine, settings, noCheckpoint);
    EXPECT_THAT(engine.ranges, ElementsAre(WidthRange{10, 80}));
    EXPECT_THAT(engine.regions, ElementsAre(Region{20, 10, 180, 50}));
}

TEST(Evaluation, AnUnreadablePictureIsNotLocalised) {
    const TemporaryFolder folder;
    folder.Write("bad.ppm", "no picture");
    folder.Write("good.ppm", Ppm(8, 6, 1));
    FakeEngine engine;
    const std::vector<PictureResult> results =
        Evaluate(folder.Path(""), {PictureNamed("none.ppm"), PictureNamed("bad.ppm"), PictureNamed("good.ppm")}, engine,
                 {}, noCheckpoint);
    ASSERT_EQ(results.size(), 3u);
    EXPECT_EQ(results[0].error, "No such file or directory");
    EXPECT_FALSE(results[0].score.plates.at(0).report.has_value());
    EXPECT_FALSE(results[1].IsReadable());
    EXPECT_TRUE(results[2].IsReadable());
    EXPECT_TRUE(results[2].score.plates.at(0).isExact);
    EXPECT_EQ(engine.pixels.size(), 1u);
}

TEST(Evaluation, ThreadsDoNotMixRanges) {
    const TemporaryFolder folder;
    std::vector<TruePicture> pictures;
    for (int width = 8; width < 12; ++width) {
        folder.Write(std::to_string(width) + ".ppm", Ppm(width, 4, 1));
    }
    for (int number = 0; number < 48; ++number) {
        pictures.push_back(PictureNamed(std::to_string(8 + number % 4) + ".ppm"));
    }
    FakeEngine engine;
    EvaluationSettings settings;
    settings.threads = 4;
    const std::vector<PictureResult> results = Evaluate(folder.Path(""), pictures, engine, settings, noCheckpoint);
    EXPECT_EQ(engine.foreignRanges, 0);
    EXPECT_EQ(engine.pixels.size(), pictures.size()) << "each picture once";
    for (std::size_t index = 0; index < results.size(); ++index) {
        EXPECT_EQ(results[index].reports.at(0).text, std::to_wstring(8 + index % 4)) << "result " << index;
    }
}

TEST(Evaluation, ThreadsUseTheEngineAtTheSameTime) {
    /// Blocks until two threads are in Recognise.
    class BlockingEngine final : public PlateEngine {
      public:
        bool SetWidthRange(const WidthRange&) override { return true; }
        Recognition Recognise(Picture&, const std::optional<Region>&) override {
            ++inside;
            const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
            while (inside < 2 && std::chrono::steady_clock::now() < end) {
                std::this_thread::yield();
            }
            met = inside >= 2;
            return {};
        }
        std::atomic<int> inside{0};
        std::atomic<bool> met{false};
    };
    const TemporaryFolder folder;
    folder.Write("a.ppm", Ppm(8, 4, 1));
    BlockingEngine engine;
    EvaluationSettings settings;
    settings.threads = 2;
    Evaluate(folder.Path(""), {PictureNamed("a.ppm"), PictureNamed("a.ppm")}, engine, settings, noCheckpoint);
    EXPECT_TRUE(engine.met);
}

TEST(Evaluation, WaitsForASlowServer) {
    FakeEngine engine;
    engine.refusals = 3;
    WaitForEngine(engine, std::chrono::seconds(60), noCheckpoint);
    EXPECT_EQ(engine.ranges.size(), 1u);
}

TEST(Evaluation, FailsWithoutAServer) {
    FakeEngine engine;
    engine.refusals = 1000000;
    EXPECT_EQ(ErrorOf([&] { WaitForEngine(engine, std::chrono::milliseconds(30), noCheckpoint); }),
              "the engine refused a range of plate widths because its server did not respond within 30 ms");
    const TemporaryFolder folder;
    folder.Write("a.ppm", Ppm(8, 4, 1));
    EvaluationSettings settings;
    settings.timeout = std::chrono::milliseconds(30);
    EXPECT_EQ(ErrorOf([&] { Evaluate(folder.Path(""), {PictureNamed("a.ppm")}, engine, settings, noCheckpoint); }),
              "\"a.ppm\": the engine refused a range of plate widths because its server did not respond within 30 ms");
    EXPECT_TRUE(engine.pixels.empty());
}

TEST(Evaluation, AnExceptionOfTheCheckpointEndsItAtOnce) {
    const TemporaryFolder folder;
    folder.Write("a.ppm", Ppm(8, 4, 1));
    const std::vector<TruePicture> pictures(100, PictureNamed("a.ppm"));
    FakeEngine engine;
    const Checkpoint afterTheThird = [&engine] {
        if (engine.pixels.size() >= 3) {
            throw Failure("the server has gone");
        }
    };
    EXPECT_EQ(ErrorOf([&] { Evaluate(folder.Path(""), pictures, engine, {}, afterTheThird); }),
              "\"a.ppm\": the server has gone");
    EXPECT_EQ(engine.pixels.size(), 3u);
    engine.refusals = 1000000;
    EXPECT_EQ(ErrorOf([&] { WaitForEngine(engine, std::chrono::seconds(60), afterTheThird); }), "the server has gone");
}

}  // namespace
}  // namespace plate_evaluation
