#include "platform/text.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/last_error.h"

namespace {

using platform::codePageAnsi;
using platform::codePageSimplifiedChinese;
using platform::codePageUtf8;

/// Converts as the callers do: queries the length, converts, and checks that no further unit was written.
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

TEST(SimplifiedChinese, AsciiIsUnchanged) {
    for (unsigned byte = 0; byte < 0x80; ++byte) {
        EXPECT_EQ(FromChinese(std::string(1, static_cast<char>(byte))), OneCharacter(byte));
    }
}

TEST(SimplifiedChinese, SingleBytesOutsideThePairsAreConverted) {
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

TEST(SimplifiedChinese, UnassignedPairsBecomeTheNextPrivateCharacters) {
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
            const bool openEnd = !lead && second >= 0x81 && second <= 0xFE;  // forms a pair with the "b"
            ASSERT_EQ(wide.size(), openEnd ? 3 : expected) << std::hex << first << ' ' << second;
            ASSERT_EQ(wide.front(), L'a');
        }
    }
}

// The rules of the code page, with which its tables are compared: runs of characters in Unicode order.
struct CharacterRun {
    unsigned firstPair;
    unsigned lastPair;
    unsigned firstCharacter;
};

unsigned CharacterOf(unsigned pair) {
    const std::wstring wide = FromChinese(Pair(pair >> 8, pair & 0xFF));
    EXPECT_EQ(wide.size(), 1u) << std::hex << pair;
    return wide.empty() ? 0 : static_cast<unsigned>(wide.front());
}

TEST(SimplifiedChinese, SymbolsAreInTheOrderOfTheirBlocks) {
    const CharacterRun runs[] = {
        {0xA2A1, 0xA2AA, 0x2170},  // small Roman numbers
        {0xA2B1, 0xA2C4, 0x2488},  // numbers with a full stop
        {0xA2C5, 0xA2D8, 0x2474},  // in parentheses
        {0xA2D9, 0xA2E2, 0x2460},  // in circles
        {0xA2E5, 0xA2EE, 0x3220},  // ideographs of numbers
        {0xA2F1, 0xA2FC, 0x2160},  // Roman numbers
        {0xA3A1, 0xA3A3, 0xFF01},  // wide forms of ASCII, without the dollar and the tilde
        {0xA3A4, 0xA3A4, 0xFFE5}, {0xA3A5, 0xA3FD, 0xFF05}, {0xA3FE, 0xA3FE, 0xFFE3},
        {0xA4A1, 0xA4F3, 0x3041},  // Hiragana
        {0xA5A1, 0xA5F6, 0x30A1},  // Katakana
        {0xA6A1, 0xA6B1, 0x0391},  // Greek, without the code point of the capital final sigma
        {0xA6B2, 0xA6B8, 0x03A3}, {0xA6C1, 0xA6D1, 0x03B1}, {0xA6D2, 0xA6D8, 0x03C3},
        {0xA7A1, 0xA7A6, 0x0410},  // Russian, with Yo in alphabetical order
        {0xA7A7, 0xA7A7, 0x0401}, {0xA7A8, 0xA7C1, 0x0416}, {0xA7D1, 0xA7D6, 0x0430},
        {0xA7D7, 0xA7D7, 0x0451}, {0xA7D8, 0xA7F1, 0x0436}, {0xA8C5, 0xA8E9, 0x3105},  // Bopomofo
        {0xA9A4, 0xA9EF, 0x2500},                                                      // lines of boxes
    };
    for (const CharacterRun& run : runs) {
        for (unsigned pair = run.firstPair; pair <= run.lastPair; ++pair) {
            ASSERT_EQ(CharacterOf(pair), run.firstCharacter + (pair - run.firstPair)) << std::hex << pair;
        }
    }
}

// The older standard contains a selection of the ideographs. The code page adds all others in Unicode order, in two
// areas around it, and at the end some compatibility ideographs.
TEST(SimplifiedChinese, EveryIdeographIsInOrder) {
    std::set<unsigned> chosen;
    for (unsigned lead = 0xB0; lead <= 0xF7; ++lead) {
        for (unsigned trail = 0xA1; trail <= (lead == 0xD7 ? 0xF9u : 0xFEu); ++trail) {
            chosen.insert(CharacterOf(lead << 8 | trail));
        }
    }
    EXPECT_EQ(chosen.size(), 6763u);
    std::vector<unsigned> others;
    for (unsigned character = 0x4E00; character <= 0x9FA5; ++character) {
        if (!chosen.contains(character)) {
            others.push_back(character);
        }
    }
    EXPECT_EQ(others.size() + chosen.size(), 0x9FA5u - 0x4E00 + 1) << "all of them are in the range";

    std::vector<unsigned> added;
    std::vector<unsigned> again;
    const auto read = [&](unsigned firstLead, unsigned lastLead, unsigned lastTrail) {
        for (unsigned lead = firstLead; lead <= lastLead; ++lead) {
            for (unsigned trail = 0x40; trail <= lastTrail; ++trail) {
                const unsigned pair = lead << 8 | trail;
                if (trail != 0x7F && pair < 0xFE50) {
                    (pair < 0xFD9C ? added : again).push_back(CharacterOf(pair));
                }
            }
        }
    };
    read(0x81, 0xA0, 0xFE);
    read(0xAA, 0xFE, 0xA0);
    EXPECT_EQ(added, others);
    EXPECT_EQ(again, (std::vector<unsigned>{0xF92C, 0xF979, 0xF995, 0xF9E7, 0xF9F1, 0xFA0C, 0xFA0D,
                                            0xFA0E, 0xFA0F, 0xFA11, 0xFA13, 0xFA14, 0xFA18, 0xFA1F,
                                            0xFA20, 0xFA21, 0xFA23, 0xFA24, 0xFA27, 0xFA28, 0xFA29}));
}

TEST(SimplifiedChinese, EveryProvinceIsConverted) {
    const std::pair<unsigned, unsigned> provinces[] = {
        {0xBEA9, 0x4EAC}, {0xBDF2, 0x6D25}, {0xBCBD, 0x5180}, {0xBDFA, 0x664B}, {0xC3C9, 0x8499}, {0xC1C9, 0x8FBD},
        {0xBCAA, 0x5409}, {0xBADA, 0x9ED1}, {0xBBA6, 0x6CAA}, {0xCBD5, 0x82CF}, {0xD5E3, 0x6D59}, {0xCDEE, 0x7696},
        {0xC3F6, 0x95FD}, {0xB8D3, 0x8D63}, {0xC2B3, 0x9C81}, {0xD4A5, 0x8C6B}, {0xB6F5, 0x9102}, {0xCFE6, 0x6E58},
        {0xD4C1, 0x7CA4}, {0xB9F0, 0x6842}, {0xC7ED, 0x743C}, {0xD3E5, 0x6E1D}, {0xB4A8, 0x5DDD}, {0xB9F3, 0x8D35},
        {0xD4C6, 0x4E91}, {0xB2D8, 0x85CF}, {0xC9C2, 0x9655}, {0xB8CA, 0x7518}, {0xC7E0, 0x9752}, {0xC4FE, 0x5B81},
        {0xD0C2, 0x65B0}};
    for (const auto& [pair, character] : provinces) {
        EXPECT_EQ(CharacterOf(pair), character) << std::hex << pair;
    }
}

// 21791 characters, and a different private character for every other pair.
TEST(SimplifiedChinese, NoTwoPairsHaveTheSameCharacter) {
    std::set<unsigned> assigned;
    std::set<unsigned> unassigned;
    for (unsigned lead = 0x81; lead <= 0xFE; ++lead) {
        for (unsigned trail = 0x40; trail <= 0xFE; ++trail) {
            if (trail != 0x7F) {
                const unsigned character = CharacterOf(lead << 8 | trail);
                (character >= 0xE000 && character <= 0xF8FF ? unassigned : assigned).insert(character);
            }
        }
    }
    EXPECT_EQ(assigned.size(), 21791u);
    EXPECT_EQ(unassigned.size(), 126u * 190 - 21791);
    EXPECT_EQ(*unassigned.begin(), 0xE000u);
    EXPECT_EQ(*unassigned.rbegin(), 0xE000u + 126 * 190 - 21791 - 1);
}

// A checksum of the results of Windows for all pairs (FNV-1a over each result's length and code units).
TEST(SimplifiedChinese, EveryPairIsConvertedAsByWindows) {
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

TEST(SimplifiedChinese, EveryCharacterRoundTrips) {
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

TEST(SimplifiedChinese, AnUnmappableCharacterIsAQuestionMark) {
    EXPECT_EQ(Narrow(codePageSimplifiedChinese, L"a\x0E01z"), "a?z");
    EXPECT_EQ(Narrow(codePageSimplifiedChinese, L"\x00A2"), "?");  // not a similar character
    EXPECT_EQ(Narrow(codePageSimplifiedChinese, std::wstring(1, static_cast<wchar_t>(0xD800))), "?");
    EXPECT_EQ(Narrow(codePageSimplifiedChinese, std::wstring(L"a\0z", 3)), std::string("a\0z", 3));
}

TEST(SimplifiedChinese, ManyThreadsCanConvertFirst) {
    std::vector<std::thread> threads;
    std::vector<std::wstring> results(8);
    for (std::wstring& result : results) {
        threads.emplace_back([&result] { result = FromChinese("\xBE\xA9"); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (const std::wstring& result : results) {
        EXPECT_EQ(result, L"\x4EAC");
    }
}

TEST(Utf8, TextRoundTrips) {
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

TEST(Utf8, EveryCharacterOfTheFirstPlaneRoundTrips) {
    for (unsigned character = 0; character <= 0xFFFF; ++character) {
        if (character < 0xD800 || character > 0xDFFF) {
            const std::wstring wide = OneCharacter(character);
            ASSERT_EQ(Widen(codePageUtf8, Narrow(codePageUtf8, wide)), wide) << std::hex << character;
        }
    }
}

TEST(Utf8, InvalidBytesBecomeReplacementCharacters) {
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

TEST(Utf8, UnpairedSurrogatesBecomeReplacementCharacters) {
    const wchar_t high = static_cast<wchar_t>(0xD83D);
    const wchar_t low = static_cast<wchar_t>(0xDE00);
    EXPECT_EQ(Narrow(codePageUtf8, {high, L'a'}),
              "\xEF\xBF\xBD"
              "a");
    EXPECT_EQ(Narrow(codePageUtf8, {low, high}), "\xEF\xBF\xBD\xEF\xBF\xBD");
    EXPECT_EQ(Narrow(codePageUtf8, {high, high, low}), "\xEF\xBF\xBD\xF0\x9F\x98\x80");
    EXPECT_EQ(Narrow(codePageUtf8, {L'a', high}), "a\xEF\xBF\xBD");
    for (unsigned half = 0xD800; half <= 0xDFFF; ++half) {
        ASSERT_EQ(Narrow(codePageUtf8, L"a" + OneCharacter(half) + L"z"), "a\xEF\xBF\xBDz") << std::hex << half;
    }
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

TEST(Conversion, TooSmallACapacityIsAFailureAndIsNotExceeded) {
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

TEST(Conversion, SuccessKeepsTheLastError) {
    platform::SetLastError(77);
    EXPECT_EQ(FromChinese("\xBE\xA9"), L"\x4EAC");
    EXPECT_EQ(Narrow(codePageUtf8, L"\x4EAC"), "\xE4\xBA\xAC");
    EXPECT_EQ(platform::LastError(), 77u);
}

}  // namespace
