#include "platform/text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "platform/last_error.h"

namespace {

using platform::codePageAnsi;
using platform::codePageSimplifiedChinese;
using platform::codePageUtf8;

/// Converts as the callers do: the length is asked for, then that much is written, and not a unit more.
std::wstring Widen(std::uint32_t codePage, const std::string& bytes) {
    const int byteCount = static_cast<int>(bytes.size());
    const int length = platform::ToWide(codePage, bytes.data(), byteCount, nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(length) + 1, L'#');
    EXPECT_EQ(platform::ToWide(codePage, bytes.data(), byteCount, wide.data(), length), length);
    EXPECT_EQ(wide.back(), L'#');
    wide.pop_back();
    return wide;
}

std::string Narrow(std::uint32_t codePage, const std::wstring& wide) {
    const int wideCount = static_cast<int>(wide.size());
    const int length = platform::FromWide(codePage, wide.data(), wideCount, nullptr, 0);
    std::string bytes(static_cast<std::size_t>(length) + 1, '#');
    EXPECT_EQ(platform::FromWide(codePage, wide.data(), wideCount, bytes.data(), length), length);
    EXPECT_EQ(bytes.back(), '#');
    bytes.pop_back();
    return bytes;
}

std::wstring FromChinese(const std::string& bytes) {
    return Widen(codePageSimplifiedChinese, bytes);
}

std::wstring OneCharacter(unsigned character) {
    return std::wstring(1, static_cast<wchar_t>(character));
}

std::string Pair(unsigned lead, unsigned trail) {
    return {static_cast<char>(lead), static_cast<char>(trail)};
}

TEST(SimplifiedChinese, APlateKeepsItsProvinceAndItsNulPadding) {
    const std::string plate(
        "\xBE\xA9"
        "A12345\0\0\0\0\0\0\0\0",
        16);
    EXPECT_EQ(FromChinese(plate), std::wstring(L"\x4EAC"
                                               L"A12345\0\0\0\0\0\0\0\0",
                                               15));
}

TEST(SimplifiedChinese, AsciiStaysAsItIs) {
    for (unsigned byte = 0; byte < 0x80; ++byte) {
        EXPECT_EQ(FromChinese(std::string(1, static_cast<char>(byte))), OneCharacter(byte));
    }
}

TEST(SimplifiedChinese, SingleBytesOutsideThePairsHaveCharactersOfTheirOwn) {
    EXPECT_EQ(FromChinese("\x80"), L"\x20AC");
    EXPECT_EQ(FromChinese("\xFF"), L"\xF8F5");
    EXPECT_EQ(FromChinese("\x80\xFF"), L"\x20AC\xF8F5");
    EXPECT_EQ(FromChinese("\xFF"
                          "A"),
              L"\xF8F5"
              L"A");
}

TEST(SimplifiedChinese, UserDefinedRowsBecomePrivateCharactersInOrder) {
    unsigned expected = 0xE000;
    for (const auto& [firstLead, lastLead] : {std::pair(0xAAu, 0xAFu), std::pair(0xF8u, 0xFEu)}) {
        for (unsigned lead = firstLead; lead <= lastLead; ++lead) {
            for (unsigned trail = 0xA1; trail <= 0xFE; ++trail) {
                ASSERT_EQ(FromChinese(Pair(lead, trail)), OneCharacter(expected++)) << std::hex << lead << trail;
            }
        }
    }
    EXPECT_EQ(expected, 0xE4C6u);
    for (unsigned lead = 0xA1; lead <= 0xA7; ++lead) {
        for (unsigned trail = 0x40; trail <= 0xA0; ++trail) {
            if (trail != 0x7F) {
                ASSERT_EQ(FromChinese(Pair(lead, trail)), OneCharacter(expected++)) << std::hex << lead << trail;
            }
        }
    }
    EXPECT_EQ(expected, 0xE766u);
}

TEST(SimplifiedChinese, UnassignedPairsBecomeThePrivateCharactersBehindThose) {
    EXPECT_EQ(FromChinese("\xA2\xAB"), L"\xE766");
    EXPECT_EQ(FromChinese("\xA6\xD9"), L"\xE78D");
    EXPECT_EQ(FromChinese("\xA8\xBF"), L"\xE7C8");
    EXPECT_EQ(FromChinese("\xD7\xFE"), L"\xE814");
    EXPECT_EQ(FromChinese("\xFE\x50"), L"\xE815");
    EXPECT_EQ(FromChinese("\xFE\xA0"), L"\xE864");
}

TEST(SimplifiedChinese, AnInvalidPairIsOneQuestionMark) {
    for (unsigned lead = 0x81; lead <= 0xFE; ++lead) {
        for (unsigned trail = 1; trail <= 0xFF; ++trail) {
            if (trail < 0x40 || trail == 0x7F || trail == 0xFF) {
                ASSERT_EQ(FromChinese(Pair(lead, trail) + "z"), L"?z") << std::hex << lead << ' ' << trail;
            }
        }
    }
}

TEST(SimplifiedChinese, ALeadByteBeforeANulIsAQuestionMarkAndTheNulStays) {
    for (unsigned lead = 0x81; lead <= 0xFE; ++lead) {
        ASSERT_EQ(FromChinese(Pair(lead, 0) + "z"), std::wstring(L"?\0z", 3));
    }
}

TEST(SimplifiedChinese, ALeadByteAtTheEndIsAQuestionMark) {
    for (unsigned lead = 0x81; lead <= 0xFE; ++lead) {
        ASSERT_EQ(FromChinese(std::string{'z', static_cast<char>(lead)}), L"z?");
    }
}

TEST(SimplifiedChinese, NoPairOfBytesShortensTheText) {
    for (unsigned first = 0; first <= 0xFF; ++first) {
        for (unsigned second = 0; second <= 0xFF; ++second) {
            const bool lead = first >= 0x81 && first <= 0xFE;
            const std::size_t expected = lead && second != 0 ? 3 : 4;
            const std::string bytes = {'a', static_cast<char>(first), static_cast<char>(second), 'b'};
            const std::wstring wide = FromChinese(bytes);
            const bool openEnd = !lead && second >= 0x81 && second <= 0xFE;  // takes the "b" with it
            ASSERT_EQ(wide.size(), openEnd ? 3 : expected) << std::hex << first << ' ' << second;
            ASSERT_EQ(wide.front(), L'a');
        }
    }
}

// Windows' own answers for all pairs, summed up (FNV-1a over each answer's length and code units).
TEST(SimplifiedChinese, EveryPairIsTheCharacterThatWindowsMakesOfIt) {
    std::uint32_t sum = 2166136261u;
    const auto add = [&sum](unsigned value) { sum = (sum ^ value) * 16777619u; };
    for (unsigned first = 0; first <= 0xFF; ++first) {
        for (unsigned second = 0; second <= 0xFF; ++second) {
            const std::wstring wide = FromChinese(Pair(first, second));
            add(static_cast<unsigned>(wide.size()));
            for (const wchar_t character : wide) {
                add(static_cast<unsigned>(character) & 0xFF);
                add(static_cast<unsigned>(character) >> 8);
            }
        }
    }
    EXPECT_EQ(sum, 0x9DFD12EBu);
}

TEST(SimplifiedChinese, EveryCharacterThatItHasComesBack) {
    for (unsigned first = 0; first <= 0xFF; ++first) {
        const std::string single(1, static_cast<char>(first));
        if (first <= 0x80 || first == 0xFF) {
            ASSERT_EQ(Narrow(codePageSimplifiedChinese, FromChinese(single)), single);
            continue;
        }
        for (unsigned second = 0x40; second <= 0xFE; ++second) {
            if (second != 0x7F) {
                const std::string pair = Pair(first, second);
                ASSERT_EQ(Narrow(codePageSimplifiedChinese, FromChinese(pair)), pair) << std::hex << first << second;
            }
        }
    }
}

TEST(SimplifiedChinese, ACharacterThatItDoesNotHaveIsAQuestionMark) {
    EXPECT_EQ(Narrow(codePageSimplifiedChinese, L"a\x0E01z"), "a?z");
    EXPECT_EQ(Narrow(codePageSimplifiedChinese, L"\x00A2"), "?");  // and not one that looks like it
    EXPECT_EQ(Narrow(codePageSimplifiedChinese, std::wstring(1, static_cast<wchar_t>(0xD800))), "?");
    EXPECT_EQ(Narrow(codePageSimplifiedChinese, std::wstring(L"a\0z", 3)), std::string("a\0z", 3));
}

TEST(SimplifiedChinese, ManyThreadsMayConvertFirst) {
    std::vector<std::thread> threads;
    std::vector<std::wstring> answers(8);
    for (std::wstring& answer : answers) {
        threads.emplace_back([&answer] { answer = FromChinese("\xBE\xA9"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::wstring& answer : answers) {
        EXPECT_EQ(answer, L"\x4EAC");
    }
}

TEST(Utf8, TextGoesBothWays) {
    const std::string bytes("A\0\xC3\xA4\xE4\xBA\xAC\xEF\xBF\xBD\xF0\x9F\x98\x80z", 15);
    std::wstring wide(L"A\0\x00E4\x4EAC\xFFFD", 5);
    if constexpr (sizeof(wchar_t) == 2) {
        wide.push_back(static_cast<wchar_t>(0xD83D));
        wide.push_back(static_cast<wchar_t>(0xDE00));
    } else {
        wide.push_back(static_cast<wchar_t>(0x1F600));
    }
    wide.push_back(L'z');
    EXPECT_EQ(Widen(codePageUtf8, bytes), wide);
    EXPECT_EQ(Narrow(codePageUtf8, wide), bytes);
}

TEST(Utf8, EveryCharacterOfTheFirstPlaneComesBack) {
    for (unsigned character = 0; character <= 0xFFFF; ++character) {
        if (character < 0xD800 || character > 0xDFFF) {
            const std::wstring wide = OneCharacter(character);
            ASSERT_EQ(Widen(codePageUtf8, Narrow(codePageUtf8, wide)), wide) << std::hex << character;
        }
    }
}

TEST(Utf8, BytesWithoutMeaningBecomeReplacementCharactersAndWhatFollowsStays) {
    const auto widened = [](const std::string& bytes) { return Widen(codePageUtf8, bytes + "xyz"); };
    EXPECT_EQ(widened("\x80"), L"\xFFFDxyz");
    EXPECT_EQ(widened("\xFF"), L"\xFFFDxyz");
    EXPECT_EQ(widened("\xC3"), L"\xFFFDxyz");
    EXPECT_EQ(widened("\xE4\xB8"), L"\xFFFDxyz");
    EXPECT_EQ(widened("\xC0\x80"), L"\xFFFD\xFFFDxyz");
    EXPECT_EQ(widened("\xED\xA0\x80"), L"\xFFFD\xFFFDxyz");
    EXPECT_EQ(widened("\xE0\x80\x80"), L"\xFFFD\xFFFDxyz");
    EXPECT_EQ(widened("\xF4\x90\x80\x80"), L"\xFFFD\xFFFD\xFFFDxyz");
    EXPECT_EQ(widened("\xF5\x80\x80\x80"), L"\xFFFD\xFFFD\xFFFD\xFFFDxyz");
}

TEST(Utf8, ACharacterCutOffAtTheEndIsOneReplacementCharacter) {
    EXPECT_EQ(Widen(codePageUtf8, "a\xE4"), L"a\xFFFD");
    EXPECT_EQ(Widen(codePageUtf8, "a\xE4\xB8"), L"a\xFFFD");
    EXPECT_EQ(Widen(codePageUtf8, "a\xF0\x9F\x98"), L"a\xFFFD");
}

TEST(Utf8, HalvesOfASurrogatePairThatStandAloneBecomeReplacementCharacters) {
    const wchar_t high = static_cast<wchar_t>(0xD83D);
    const wchar_t low = static_cast<wchar_t>(0xDE00);
    EXPECT_EQ(Narrow(codePageUtf8, {high, L'a'}),
              "\xEF\xBF\xBD"
              "a");
    EXPECT_EQ(Narrow(codePageUtf8, {low, high}), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(Narrow(codePageUtf8, {high, high, low}), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
    EXPECT_EQ(Narrow(codePageUtf8, {L'a', high}), "a\xEF\xBF\xBD");
}

TEST(Conversion, NothingToConvertIsAFailure) {
    wchar_t wide[4] = {};
    char bytes[4] = {};
    for (const int count : {0, -1, -7}) {
        platform::SetLastError(0);
        EXPECT_EQ(platform::ToWide(codePageSimplifiedChinese, "abc", count, wide, 4), 0);
        EXPECT_NE(platform::LastError(), 0u);
        platform::SetLastError(0);
        EXPECT_EQ(platform::FromWide(codePageUtf8, L"abc", count, bytes, 4), 0);
        EXPECT_NE(platform::LastError(), 0u);
    }
}

TEST(Conversion, AnUnknownCodePageIsAFailure) {
    wchar_t wide[4] = {};
    char bytes[4] = {};
    platform::SetLastError(0);
    EXPECT_EQ(platform::ToWide(99, "abc", 3, wide, 4), 0);
    EXPECT_NE(platform::LastError(), 0u);
    platform::SetLastError(0);
    EXPECT_EQ(platform::FromWide(99, L"abc", 3, bytes, 4), 0);
    EXPECT_NE(platform::LastError(), 0u);
}

TEST(Conversion, TooSmallACapacityIsAFailureAndWritesNothingBehindIt) {
    for (const std::uint32_t codePage : {codePageSimplifiedChinese, codePageUtf8}) {
        wchar_t wide[4] = {L'#', L'#', L'#', L'#'};
        platform::SetLastError(0);
        EXPECT_EQ(platform::ToWide(codePage, "abc", 3, wide, 2), 0);
        EXPECT_NE(platform::LastError(), 0u);
        EXPECT_EQ(wide[2], L'#');

        char bytes[4] = {'#', '#', '#', '#'};
        platform::SetLastError(0);
        EXPECT_EQ(platform::FromWide(codePage, L"a\x4EAC", 2, bytes, 2), 0);
        EXPECT_NE(platform::LastError(), 0u);
        EXPECT_EQ(bytes[2], '#');
    }
}

TEST(Conversion, ASuccessLeavesTheLastErrorAsItWas) {
    platform::SetLastError(77);
    EXPECT_EQ(FromChinese("\xBE\xA9"), L"\x4EAC");
    EXPECT_EQ(Narrow(codePageUtf8, L"\x4EAC"), "\xE4\xBA\xAC");
    EXPECT_EQ(platform::LastError(), 77u);
}

}  // namespace
