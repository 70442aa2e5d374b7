#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "platform/last_error.h"
#include "platform/text.h"

namespace {

// Tests every byte, followed by a valid second byte in case it is a lead byte.
TEST(WindowsText, TheSystemCodePageIsTheActiveOne) {
    for (int byte = 1; byte <= 0xFF; ++byte) {
        const char text[] = {static_cast<char>(byte), 'A', 'z'};
        wchar_t own[4] = {};
        wchar_t named[4] = {};
        const int ownCount = platform::ToWide(platform::codePageAnsi, text, 3, own, 4);
        ASSERT_EQ(ownCount, platform::ToWide(GetACP(), text, 3, named, 4)) << byte;
        ASSERT_EQ(std::wstring(own, 4), std::wstring(named, 4)) << byte;
    }
}

TEST(WindowsText, FailuresSetTheLastError) {
    wchar_t wide[1] = {};
    char byte[1] = {};
    platform::SetLastError(0);
    EXPECT_EQ(platform::ToWide(platform::codePageUtf8, "ab", 2, wide, 1), 0);
    EXPECT_EQ(platform::LastError(), std::uint32_t{ERROR_INSUFFICIENT_BUFFER});
    platform::SetLastError(0);
    EXPECT_EQ(platform::FromWide(platform::codePageSimplifiedChinese, L"\x4EAC", 1, byte, 1), 0);
    EXPECT_EQ(platform::LastError(), std::uint32_t{ERROR_INSUFFICIENT_BUFFER});
    for (const int count : {0, -1}) {
        platform::SetLastError(0);
        EXPECT_EQ(platform::ToWide(platform::codePageUtf8, "ab", count, wide, 1), 0);
        EXPECT_EQ(platform::LastError(), std::uint32_t{ERROR_INVALID_PARAMETER});
    }
}

}  // namespace
