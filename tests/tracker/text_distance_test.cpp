#include "tracker/text_distance.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>

#include "tests/tracker/reference_tracker.h"

namespace {

TEST(TextDistance, EqualTextsAreNotApart) {
    EXPECT_EQ(TextDistance(L"", L""), 0.0);
    EXPECT_EQ(TextDistance(L"A123BC", L"A123BC"), 0.0);
}

TEST(TextDistance, AgainstAnEmptyTextIsHalfTheLength) {
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

TEST(TextDistance, CaseMakesADifference) {
    EXPECT_EQ(TextDistance(L"abc", L"aBc"), 1.0);
}

TEST(TextDistance, UnitsThatShareTheirLowByteDiffer) {
    EXPECT_EQ(TextDistance(std::wstring{wchar_t{0x4e41}}, std::wstring{wchar_t{0x0041}}), 1.0);
    EXPECT_EQ(TextDistance(std::wstring{wchar_t{0}}, std::wstring{wchar_t{0}}), 0.0);
    EXPECT_EQ(TextDistance(std::wstring(2, L'\0'), std::wstring(5, L'\0')), 1.5);
}

TEST(TextDistance, IsTheWholeMatrixsAnswerOnRandomPairs) {
    std::mt19937 random(20240517);
    // Lengths around 64 and 128 are where a routine that works on machine words changes its path.
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

TEST(TextDistance, IsRightAtEveryLengthAroundAMachineWord) {
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

}  // namespace
