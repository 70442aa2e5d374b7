/// The tracker against the slow reference, call by call, over random sequences of frames.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "tests/tracker/comparison.h"
#include "tests/tracker/tracker_fixture.h"

namespace {

using tracker_test::Comparison;
using tracker_test::Sequence;
using tracker_test::Step;

constexpr int shards = 8;
#if defined(__SANITIZE_THREAD__)
// The test has no other threads, and the thread sanitizer is slow.
constexpr int sequencesPerShard = 1500;
#else
constexpr int sequencesPerShard = 15000;
#endif

/// Makes one random sequence. Each is of one kind, so that extreme values do not hide ordinary traffic.
class Generator {
  public:
    explicit Generator(std::uint64_t seed) : random_(seed) {}

    Sequence Make() {
        Sequence sequence;
        kind_ = static_cast<int>(Below(8));
        PickFrame();
        sequence.lostTimeout =
            AnyOf<std::uint64_t>({3000, 3000, 0, 60, 400, std::numeric_limits<std::uint64_t>::max()});
        sequence.maximumAge = AnyOf<std::uint64_t>({tracker_test::NoLimit, tracker_test::NoLimit, tracker_test::NoLimit,
                                                    0, 90, 400, 2000, std::numeric_limits<std::uint64_t>::max()});
        sequence.readingsToReport =
            AnyOf<std::uint64_t>({tracker_test::NoLimit, tracker_test::NoLimit, tracker_test::NoLimit, 1, 2, 4, 9, 0});
        Vehicles(1 + Below(kind_ == Crossing ? 4 : 3));
        std::uint64_t now = FirstTime();
        const std::uint64_t frames = kind_ == Standing ? 8 + Below(24) : 3 + Below(14);
        for (std::uint64_t frame = 0; frame < frames; ++frame) {
            if (OneIn(40)) {
                sequence.steps.push_back({Step::Kind::LostTimeout, AnyTimeout(), {}});
            }
            if (OneIn(60)) {
                sequence.steps.push_back({Step::Kind::FinishAll, 0, {}});
            }
            Step step;
            step.time = now;
            if (!OneIn(9)) {
                step.readings = Readings(now);
            }
            if (kind_ == TimeChaos && OneIn(4)) {
                step.time = AnyTime(now);
            }
            sequence.steps.push_back(step);
            now = NextTime(now);
        }
        if (OneIn(2)) {
            sequence.steps.push_back({Step::Kind::FinishAll, 0, {}});
        }
        return sequence;
    }

  private:
    enum Kind { Smooth, Crossing, Standing, EqualTexts, TimeChaos, PlaceChaos, FrameChaos, Mixed };

    struct Vehicle {
        double x;
        double y;
        double perMillisecondX;
        double perMillisecondY;
        std::int32_t halfWidth;
        std::int32_t halfHeight;
        std::wstring text;
    };

    std::uint64_t Below(std::uint64_t limit) {
        return std::uniform_int_distribution<std::uint64_t>(0, limit - 1)(random_);
    }
    bool OneIn(std::uint64_t cases) { return Below(cases) == 0; }
    double Real(double low, double high) { return std::uniform_real_distribution<double>(low, high)(random_); }

    template <class Value>
    Value AnyOf(std::initializer_list<Value> values) {
        return values.begin()[Below(values.size())];
    }

    void PickFrame() {
        frameWidth_ = AnyOf<std::uint32_t>({1280, 1920, 640, 320});
        frameHeight_ = frameWidth_ / 16 * 9;
    }

    std::uint64_t FirstTime() {
        if (kind_ == TimeChaos && OneIn(2)) {
            return AnyTime(0);
        }
        return 1000 + Below(100000);
    }

    std::uint64_t AnyTimeout() {
        return AnyOf<std::uint64_t>({0, 1, 40, 100, 1000, 5000, std::numeric_limits<std::uint64_t>::max()});
    }

    std::uint64_t AnyTime(std::uint64_t now) {
        constexpr std::uint64_t top = std::uint64_t{1} << 63;
        return AnyOf<std::uint64_t>({0, 1, now, now + 1, now - 1, now - 40, now - 5000, now + 100000, top - 1, top,
                                     top + 40, std::numeric_limits<std::uint64_t>::max(),
                                     std::numeric_limits<std::uint64_t>::max() - 100, random_()});
    }

    std::uint64_t NextTime(std::uint64_t now) {
        if (kind_ == TimeChaos && OneIn(3)) {
            return AnyTime(now);
        }
        if (OneIn(25)) {
            return now + AnyOf<std::uint64_t>({0, 1, 700, 3000, 3001, 10000});
        }
        return now + (OneIn(3) ? 20 + Below(100) : 40);
    }

    wchar_t Character() {
        static const std::wstring alphabet = L"0123456789ABCEHKMOPTXY\u4eac\u6caa";
        return alphabet[Below(kind_ == EqualTexts ? 3 : alphabet.size())];
    }

    std::wstring Text() {
        if (kind_ == EqualTexts) {
            return AnyOf<std::wstring>({L"", L"", L"A", L"A", L"AB", L"B", L"BA", L"AAAA"});
        }
        std::wstring text(4 + Below(5), L' ');
        for (wchar_t& character : text) {
            character = Character();
        }
        return text;
    }

    std::wstring Misread(std::wstring text) {
        if (kind_ == EqualTexts) {
            return OneIn(3) ? Text() : text;
        }
        while (OneIn(2)) {
            const std::size_t place = Below(text.size() + 1);
            switch (Below(4)) {
                case 0:
                    text.insert(text.begin() + static_cast<std::ptrdiff_t>(place), Character());
                    break;
                case 1:
                    if (place < text.size()) {
                        text.erase(place, 1);
                    }
                    break;
                default:
                    if (place < text.size()) {
                        text[place] = Character();
                    }
            }
        }
        return OneIn(150) ? std::wstring() : text;
    }

    void Vehicles(std::uint64_t number) {
        const double width = frameWidth_;
        const double height = frameHeight_;
        for (std::uint64_t index = 0; index < number; ++index) {
            Vehicle vehicle{};
            vehicle.x = Real(0, width);
            vehicle.y = OneIn(2) ? Real(0, height * 0.3) : Real(height * 0.7, height);
            const double pixelsPerSecond = kind_ == Standing ? Real(0, 8) : Real(30, 900);
            const double down = vehicle.y < height / 2 ? 1 : -1;
            vehicle.perMillisecondY = down * pixelsPerSecond / 1000.0;
            vehicle.perMillisecondX = Real(-0.6, 0.6) * pixelsPerSecond / 1000.0;
            if (kind_ == Crossing) {
                // All of them meet around the middle.
                vehicle.perMillisecondX = (width / 2 - vehicle.x) / 600.0;
                vehicle.perMillisecondY = (height / 2 - vehicle.y) / 600.0;
            }
            vehicle.halfWidth = static_cast<std::int32_t>(5 + Below(40));
            vehicle.halfHeight = static_cast<std::int32_t>(2 + Below(12));
            vehicle.text = index > 0 && OneIn(4) ? Misread(vehicles_.front().text) : Text();
            vehicles_.push_back(vehicle);
        }
    }

    std::int32_t AnyPlace() {
        constexpr std::int32_t low = std::numeric_limits<std::int32_t>::min();
        constexpr std::int32_t high = std::numeric_limits<std::int32_t>::max();
        return AnyOf<std::int32_t>({low, low + 1, high, high - 1, 0, -1, 1, 40000, -40000, 46341, 65536, -70000,
                                    1000000000, -1000000000, static_cast<std::int32_t>(random_())});
    }

    std::uint32_t AnyFrameSize() {
        return AnyOf<std::uint32_t>({0, 0, 1, 2, 3, 640, 1280, 0x7fffffff, 0x80000000, 0xffffffff, 0xfffffff0,
                                     0x40000000, static_cast<std::uint32_t>(random_())});
    }

    std::vector<LicencePlatePtr> Readings(std::uint64_t now) {
        std::vector<LicencePlatePtr> readings;
        const std::uint64_t elapsed = now - begin_;
        if (begin_ == 0) {
            begin_ = now;
        }
        for (Vehicle& vehicle : vehicles_) {
            const double passed = begin_ == now ? 0.0 : static_cast<double>(std::min<std::uint64_t>(elapsed, 100000));
            if (OneIn(8)) {
                continue;  // not read in this frame
            }
            const double jitter = kind_ == Standing ? Real(-0.3, 0.3) : Real(-3, 3);
            LicencePlate plate;
            plate.timeStamp = now;
            plate.frameWidth = frameWidth_;
            plate.frameHeight = frameHeight_;
            const auto x = static_cast<std::int32_t>(vehicle.x + vehicle.perMillisecondX * passed + jitter);
            const auto y = static_cast<std::int32_t>(vehicle.y + vehicle.perMillisecondY * passed + jitter);
            plate.cornerA = {x - vehicle.halfWidth, y - vehicle.halfHeight};
            plate.cornerB = {x + vehicle.halfWidth, y - vehicle.halfHeight};
            plate.cornerC = {x + vehicle.halfWidth, y + vehicle.halfHeight};
            plate.cornerD = {x - vehicle.halfWidth, y + vehicle.halfHeight};
            plate.weight = 100;
            plate.text = OneIn(3) ? Misread(vehicle.text) : vehicle.text;
            Disturb(plate);
            plate.id = nextId_++;
            readings.push_back(boost::make_shared<LicencePlate>(plate));
            if (OneIn(200)) {
                readings.push_back(readings[Below(readings.size())]);  // the same object once more
            }
            if (OneIn(200)) {
                readings.push_back(nullptr);
            }
        }
        if (OneIn(3)) {
            std::shuffle(readings.begin(), readings.end(), random_);
        }
        return readings;
    }

    void Disturb(LicencePlate& plate) {
        const bool mixed = kind_ == Mixed;
        if (OneIn(mixed ? 3 : 6)) {
            plate.weight = AnyOf<std::int32_t>({100, 99, 101, 0, -5, std::numeric_limits<std::int32_t>::max(),
                                                std::numeric_limits<std::int32_t>::min()});
        }
        if ((kind_ == TimeChaos && OneIn(3)) || (mixed && OneIn(8))) {
            plate.timeStamp = AnyTime(plate.timeStamp);
        }
        if ((kind_ == PlaceChaos && OneIn(3)) || (mixed && OneIn(8))) {
            for (PlateCorner* corner : {&plate.cornerA, &plate.cornerB, &plate.cornerC}) {
                if (OneIn(2)) {
                    corner->x = AnyPlace();
                }
                if (OneIn(2)) {
                    corner->y = AnyPlace();
                }
            }
        }
        if ((kind_ == FrameChaos && OneIn(2)) || (mixed && OneIn(8))) {
            plate.frameWidth = AnyFrameSize();
            plate.frameHeight = AnyFrameSize();
        }
    }

    std::mt19937_64 random_;
    int kind_ = Smooth;
    std::uint32_t frameWidth_ = 1280;
    std::uint32_t frameHeight_ = 720;
    std::vector<Vehicle> vehicles_;
    std::uint64_t begin_ = 0;
    std::uint64_t nextId_ = 1;
};

std::uint64_t BaseSeed() {
    const char* given = std::getenv("VEXLANE_TEST_SEED");
    return given != nullptr ? std::strtoull(given, nullptr, 10) : 20240601;
}

class RandomSequences : public testing::TestWithParam<int> {};

TEST_P(RandomSequences, ProduceTheReferencesCallsInOrder) {
    const std::uint64_t first = BaseSeed() + static_cast<std::uint64_t>(GetParam()) * 1000000000;
    std::printf("VEXLANE_TEST_SEED=%llu, sequences %llu to %llu\n", static_cast<unsigned long long>(BaseSeed()),
                static_cast<unsigned long long>(first),
                static_cast<unsigned long long>(first + static_cast<std::uint64_t>(sequencesPerShard) - 1));
    reference::Coverage coverage;
    for (int number = 0; number < sequencesPerShard; ++number) {
        const std::uint64_t seed = first + static_cast<std::uint64_t>(number);
        const Sequence sequence = Generator(seed).Make();

        const Comparison comparison = Compare(sequence, coverage);
        ASSERT_TRUE(comparison.IsEqual()) << "sequence " << seed << ", " << comparison.Difference() << '\n'
                                          << Describe(sequence);
        for (const reference::Call& call : comparison.expected) {
            coverage.releases += call.kind == reference::Call::Kind::Release ? 1u : 0u;
        }
    }

    std::printf("reported by reason: %llu %llu %llu %llu\n", static_cast<unsigned long long>(coverage.reported[0]),
                static_cast<unsigned long long>(coverage.reported[1]),
                static_cast<unsigned long long>(coverage.reported[2]),
                static_cast<unsigned long long>(coverage.reported[3]));
    for (std::size_t list = 0; list < coverage.accepted.size(); ++list) {
        std::printf("candidate list %zu: accepted %llu, refused %llu\n", list,
                    static_cast<unsigned long long>(coverage.accepted[list]),
                    static_cast<unsigned long long>(coverage.refused[list]));
        EXPECT_GT(coverage.accepted[list], 0u) << list;
    }
    std::printf("releases %llu, infinite speeds %llu, NaN speeds %llu, NaN distances %llu\n",
                static_cast<unsigned long long>(coverage.releases),
                static_cast<unsigned long long>(coverage.infiniteSpeeds),
                static_cast<unsigned long long>(coverage.notANumberSpeeds),
                static_cast<unsigned long long>(coverage.notANumberDistances));
    for (std::size_t reason = 0; reason < coverage.reported.size(); ++reason) {
        EXPECT_GT(coverage.reported[reason], 0u) << "reason " << reason;
    }
    EXPECT_GT(coverage.refused[1], 0u);
    EXPECT_GT(coverage.refused[2], 0u);
    EXPECT_GT(coverage.releases, 0u);
    EXPECT_GT(coverage.infiniteSpeeds, 0u);
    EXPECT_GT(coverage.notANumberSpeeds, 0u);
    EXPECT_GT(coverage.notANumberDistances, 0u);
}

INSTANTIATE_TEST_SUITE_P(Shards, RandomSequences, testing::Range(0, shards));

}  // namespace
