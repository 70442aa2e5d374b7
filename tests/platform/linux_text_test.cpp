#include <errno.h>
#include <gtest/gtest.h>
#include <iconv.h>

#include <string>

#include "platform/last_error.h"
#include "platform/text.h"

namespace {

/// Returns the character to which the system's converter maps a pair; 0 if there is none.
wchar_t ConvertBySystem(iconv_t converter, unsigned lead, unsigned trail) {
    char pair[2] = {static_cast<char>(lead), static_cast<char>(trail)};
    wchar_t character = 0;
    char* from = pair;
    char* to = reinterpret_cast<char*>(&character);
    std::size_t sourceBytesLeft = sizeof(pair);
    std::size_t targetBytesLeft = sizeof(character);
    iconv(converter, nullptr, nullptr, nullptr, nullptr);
    return iconv(converter, &from, &sourceBytesLeft, &to, &targetBytesLeft) == 0 && sourceBytesLeft == 0 &&
                   targetBytesLeft == 0
               ? character
               : L'\0';
}

TEST(LinuxText, EveryPairIsConvertedAsBySystemIconv) {
    const iconv_t converter = iconv_open("WCHAR_T", "CP936");
    ASSERT_NE(reinterpret_cast<std::intptr_t>(converter), -1);
    int known = 0;
    for (unsigned lead = 0x81; lead <= 0xFE; ++lead) {
        for (unsigned trail = 1; trail <= 0xFF; ++trail) {
            const wchar_t expected = ConvertBySystem(converter, lead, trail);
            if (expected == 0) {
                continue;
            }
            ++known;
            const char pair[2] = {static_cast<char>(lead), static_cast<char>(trail)};
            wchar_t wide[2] = {};
            ASSERT_EQ(platform::ToWide(platform::codePageSimplifiedChinese, pair, 2, wide, 2), 1);
            ASSERT_EQ(wide[0], expected) << std::hex << lead << trail;
        }
    }
    EXPECT_GT(known, 21000);
    iconv_close(converter);
}

TEST(LinuxText, TheSystemCodePageIsUtf8) {
    wchar_t wide[2] = {};
    ASSERT_EQ(platform::ToWide(platform::codePageAnsi, "\xE4\xBA\xAC", 3, wide, 2), 1);
    EXPECT_EQ(wide[0], L'\x4EAC');
    char bytes[4] = {};
    ASSERT_EQ(platform::FromWide(platform::codePageAnsi, wide, 1, bytes, 4), 3);
    EXPECT_STREQ(bytes, "\xE4\xBA\xAC");
}

TEST(LinuxText, CharactersBeyondUnicodeBecomeReplacementCharacters) {
    const wchar_t wide[] = {0x10FFFF, 0x110000, -1};
    char bytes[16] = {};
    ASSERT_EQ(platform::FromWide(platform::codePageUtf8, wide, 3, bytes, 16), 10);
    EXPECT_STREQ(bytes, "\xF4\x8F\xBF\xBF\xEF\xBF\xBD\xEF\xBF\xBD");
    ASSERT_EQ(platform::FromWide(platform::codePageSimplifiedChinese, wide, 3, bytes, 16), 3);
    EXPECT_EQ(std::string(bytes, 3), "???");
}

TEST(LinuxText, FailuresSetTheLastError) {
    wchar_t wide[1] = {};
    EXPECT_EQ(platform::ToWide(platform::codePageUtf8, nullptr, 1, wide, 1), 0);
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(EINVAL));
    EXPECT_EQ(platform::ToWide(platform::codePageUtf8, "ab", 2, wide, 1), 0);
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(ERANGE));
    EXPECT_EQ(platform::ToWide(platform::codePageUtf8, "ab", 2, nullptr, 2), 0);
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(EINVAL));
    EXPECT_EQ(platform::ToWide(platform::codePageUtf8, "ab", 2, wide, -1), 0);
    EXPECT_EQ(platform::LastError(), static_cast<std::uint32_t>(EINVAL));
}

}  // namespace
