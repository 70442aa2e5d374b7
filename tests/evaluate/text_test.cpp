#include "tools/evaluate/text.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace plate_evaluation {
namespace {

/// The recursive definition.
int ReferenceDistance(std::wstring_view one, std::wstring_view other) {
    if (one.empty() || other.empty()) {
        return static_cast<int>(std::max(one.size(), other.size()));
    }
    const int changed = ReferenceDistance(one.substr(1), other.substr(1)) + (one[0] == other[0] ? 0 : 1);
    return std::min(
        {changed, ReferenceDistance(one.substr(1), other) + 1, ReferenceDistance(one, other.substr(1)) + 1});
}

TEST(EditDistance, EqualsTheDefinition) {
    // All texts of up to three characters from an alphabet of three.
    std::vector<std::wstring> texts{L""};
    for (std::size_t index = 0; texts[index].size() < 3; ++index) {
        for (const wchar_t character : {L'A', L'B', L'C'}) {
            texts.push_back(texts[index] + character);
        }
    }
    ASSERT_EQ(texts.size(), 40u);
    for (const std::wstring& one : texts) {
        for (const std::wstring& other : texts) {
            ASSERT_EQ(EditDistance(one, other), ReferenceDistance(one, other)) << ToUtf8(one) << " " << ToUtf8(other);
        }
    }
    EXPECT_EQ(EditDistance(L"KITTEN", L"SITTING"), 3);
}

TEST(EngineText, EndsAtItsFirstNulOrAfterSixteenBytes) {
    EXPECT_EQ(FromEngineText(std::string_view("AB12\0\0\0\0XY", 10)), L"AB12");
    EXPECT_EQ(FromEngineText(std::string_view("0123456789ABCDEF", 16)), L"0123456789ABCDEF");
    EXPECT_EQ(FromEngineText(std::string_view("\0\0", 2)), L"");
}

TEST(EngineText, IsDecodedFromCodePage936) {
    EXPECT_EQ(ToUtf8(FromEngineText("\xBE\xA9"
                                    "A1")),
              "\xE4\xBA\xAC"
              "A1");
    EXPECT_EQ(FromEngineText("\xBE\xA9"
                             "A1")
                  .size(),
              3u);
    EXPECT_EQ(FromUtf8("\xE4\xBA\xAC"
                       "A1"),
              FromEngineText("\xBE\xA9"
                             "A1"));
}

TEST(OneCell, ReplacesControlCharacters) {
    EXPECT_EQ(OneCell("a\tb\nc\rd\x1B"
                      "e"),
              "a b c d e");
}

}  // namespace
}  // namespace plate_evaluation
