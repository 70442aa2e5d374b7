#include "tracker/text_distance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <random>
#include <string>
#include <utility>

#include "tests/tracker/reference_tracker.h"
#include "tests/tracker/rolling_rows.h"

namespace {

TEST(TextDistance, EqualTextsHaveDistanceZero) {
    EXPECT_EQ(TextDistance(L"", L""), 0.0);
    EXPECT_EQ(TextDistance(L"A123BC", L"A123BC"), 0.0);
}

TEST(TextDistance, DistanceToAnEmptyTextIsHalfTheLength) {
    EXPECT_EQ(TextDistance(L"", L"ABC"), 1.5);
    EXPECT_EQ(TextDistance(L"ABCD", L""), 2.0);
    EXPECT_EQ(TextDistance(L"", L"A"), 0.5);
}

TEST(TextDistance, AnInsertedOrDeletedUnitCostsHalf) {
    EXPECT_EQ(TextDistance(L"ABC", L"ABXC"), 0.5);
    EXPECT_EQ(TextDistance(L"ABXC", L"ABC"), 0.5);
    EXPECT_EQ(TextDistance(L"ABC", L"XABC"), 0.5);
    EXPECT_EQ(TextDistance(L"ABC", L"ABCX"), 0.5);
}

TEST(TextDistance, AReplacedUnitCostsOne) {
    EXPECT_EQ(TextDistance(L"ABC", L"AXC"), 1.0);
    EXPECT_EQ(TextDistance(L"ABC", L"XYZ"), 3.0);
}

TEST(TextDistance, IsCaseSensitive) {
    EXPECT_EQ(TextDistance(L"abc", L"aBc"), 1.0);
}

TEST(TextDistance, UnitsThatShareTheirLowByteDiffer) {
    EXPECT_EQ(TextDistance(std::wstring{wchar_t{0x4e41}}, std::wstring{wchar_t{0x0041}}), 1.0);
    EXPECT_EQ(TextDistance(std::wstring{wchar_t{0}}, std::wstring{wchar_t{0}}), 0.0);
    EXPECT_EQ(TextDistance(std::wstring(2, L'\0'), std::wstring(5, L'\0')), 1.5);
}

TEST(TextDistance, EqualsTheFullMatrixOnRandomPairs) {
    std::mt19937 random(20240517);
    // A routine that works on machine words changes its path at lengths around 64 and 128.
    const std::size_t longest[] = {3, 9, 16, 66, 131};
    for (int round = 0; round < 20000; ++round) {
        const std::size_t limit = longest[round % 400 == 0  ? 4
                                          : round % 40 == 0 ? 3
                                                            : static_cast<unsigned>(round) % 3];
        const wchar_t alphabet = static_cast<wchar_t>(std::uniform_int_distribution<int>(1, 36)(random));
        std::wstring texts[2];
        for (std::wstring& text : texts) {
            text.resize(std::uniform_int_distribution<std::size_t>(0, limit)(random));
            for (wchar_t& unit : text) {
                unit = static_cast<wchar_t>(L'0' + std::uniform_int_distribution<int>(0, alphabet)(random));
            }
        }
        ASSERT_EQ(TextDistance(texts[0], texts[1]), reference::TextDistance(texts[0], texts[1]))
            << "round " << round << ", lengths " << texts[0].size() << " and " << texts[1].size();
    }
}

TEST(TextDistance, IsCorrectAtLengthsAroundAMachineWord) {
    std::mt19937 random(7);
    for (std::size_t first = 60; first <= 68; ++first) {
        for (std::size_t second = 60; second <= 68; ++second) {
            std::wstring a(first, L' ');
            std::wstring b(second, L' ');
            for (std::wstring* text : {&a, &b}) {
                for (wchar_t& unit : *text) {
                    unit = static_cast<wchar_t>(L'A' + random() % 3);
                }
            }
            ASSERT_EQ(TextDistance(a, b), reference::TextDistance(a, b)) << first << " and " << second;
        }
    }
}

// Fewer pairs for sanitizers, which make the slow routine even slower.
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int randomPairs = 150000;
#else
constexpr int randomPairs = 1000000;
#endif

class RandomTexts {
  public:
    explicit RandomTexts(std::uint64_t seed) : random_(seed) {}

    std::pair<std::wstring, std::wstring> Pair() {
        static constexpr std::uint64_t sizes[] = {1, 2, 3, 36, 60000};
        alphabet_ = sizes[Below(std::size(sizes))];
        std::wstring first = Text();
        std::wstring second = Below(2) == 0 ? Text() : NearCopyOf(first);
        if (Below(2) == 0) {
            first.swap(second);
        }
        return {std::move(first), std::move(second)};
    }

  private:
    std::uint64_t Below(std::uint64_t limit) {
        return std::uniform_int_distribution<std::uint64_t>(0, limit - 1)(random_);
    }

    std::size_t Length() {
        switch (Below(60)) {
            case 0:
                return 127 + Below(4);
            case 1:
            case 2:
            case 3:
                return 63 + Below(4);
            default:
                return Below(41);
        }
    }

    wchar_t Unit() { return static_cast<wchar_t>(Below(alphabet_)); }

    std::wstring Text() {
        std::wstring text(Length(), L'\0');
        std::generate(text.begin(), text.end(), [this] { return Unit(); });
        return text;
    }

    std::wstring NearCopyOf(std::wstring text) {
        for (std::uint64_t change = Below(5); change > 0; --change) {
            const std::size_t place = Below(text.size() + 1);
            const std::uint64_t kind = Below(3);
            if (kind == 0 || place == text.size()) {
                text.insert(place, 1, Unit());
            } else if (kind == 1) {
                text.erase(place, 1);
            } else {
                text[place] = Unit();
            }
        }
        return text;
    }

    std::mt19937_64 random_;
    std::uint64_t alphabet_ = 1;
};

TEST(TextDistance, EqualsTheRollingRows) {
    const char* const given = std::getenv("VEXLANE_TEST_SEED");
    const std::uint64_t seed = given != nullptr ? std::strtoull(given, nullptr, 10) : 20261121;
    std::printf("VEXLANE_TEST_SEED=%llu, %d pairs\n", static_cast<unsigned long long>(seed), randomPairs);
    RandomTexts texts(seed);
    for (int number = 0; number < randomPairs; ++number) {
        const auto [first, second] = texts.Pair();
        ASSERT_EQ(TextDistance(first, second), RollingRowsDistance(first, second))
            << "pair " << number << ", lengths " << first.size() << " and " << second.size();
    }
}

TEST(TextDistance, PatternEqualsTheDistanceOfEachPair) {
    RandomTexts texts(3);
    for (int round = 0; round < 200; ++round) {
        const std::wstring read = texts.Pair().first;
        const TextPattern pattern(read);
        for (int other = 0; other < 20; ++other) {
            const std::wstring known = texts.Pair().second;
            ASSERT_EQ(pattern.DistanceTo(known), RollingRowsDistance(read, known));
        }
    }
}

TEST(TextDistance, IsCorrectForVeryLongTexts) {
    std::wstring first(1000, L'A');
    std::wstring second = first;
    EXPECT_EQ(TextDistance(first, second), 0.0);
    second[999] = L'B';
    EXPECT_EQ(TextDistance(first, second), 1.0);
    second.erase(64, 1);
    EXPECT_EQ(TextDistance(first, second), 1.5);
    EXPECT_EQ(TextDistance(second, first), 1.5);
    EXPECT_EQ(TextDistance(first, L""), 500.0);
}

// A carry from the match at the beginning passes through a machine word without matches.
TEST(TextDistance, CarriesAcrossAWholeMachineWord) {
    const std::wstring text = L"A" + std::wstring(127, L'-') + L"B";
    EXPECT_EQ(TextDistance(text, L"BA"), 64.5);
    EXPECT_EQ(TextDistance(text, L"AB"), 63.5);
    EXPECT_EQ(TextDistance(L"BA", text), 64.5);
}

TEST(TextDistance, EqualsTheRollingRowsForLongTexts) {
    std::mt19937 random(5);
    for (int round = 0; round < 500; ++round) {
        std::wstring texts[2];
        for (std::wstring& text : texts) {
            text.assign(200 + random() % 130, &text == texts ? L'-' : L'+');
            for (int place = 0; place < 12; ++place) {
                text[random() % text.size()] = static_cast<wchar_t>(L'A' + random() % 6);
            }
        }
        ASSERT_EQ(TextDistance(texts[0], texts[1]), RollingRowsDistance(texts[0], texts[1])) << "round " << round;
    }
}

TEST(TextDistance, UnitsThatCollideInTheTableDiffer) {
    // 64 units at steps of the table's size, so that all of them hash to one slot.
    std::wstring text;
    for (int unit = 0; unit < 64; ++unit) {
        text.push_back(static_cast<wchar_t>(unit * 128 + 7));
    }
    EXPECT_EQ(TextDistance(text, text), 0.0);
    EXPECT_EQ(TextDistance(text, std::wstring(text.rbegin(), text.rend())), 63.0);
    EXPECT_EQ(TextDistance(text, std::wstring(1, wchar_t{64 * 128 + 7})), 32.5);
}

}  // namespace
