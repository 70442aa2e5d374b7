/// Conversion of text between code pages and wide strings. Any thread.
#pragma once

#include <cstdint>

namespace platform {

inline constexpr std::uint32_t codePageAnsi = 0;  ///< the system's; UTF-8 on Linux
inline constexpr std::uint32_t codePageSimplifiedChinese = 936;
inline constexpr std::uint32_t codePageUtf8 = 65001;

/// Converts `byteCount` bytes, including NULs, to wide characters. With `capacity` 0 it returns the number of wide
/// characters needed; otherwise it writes them and returns the number written. Returns 0 on failure (no bytes, an
/// unknown code page, a capacity that is too small), with the last error set. Invalid bytes become replacement
/// characters; they are not failures and do not end the text.
int ToWide(std::uint32_t codePage, const char* bytes, int byteCount, wchar_t* wide, int capacity);

/// The reverse conversion. Characters that the code page lacks become "?"; an unpaired surrogate becomes U+FFFD in
/// UTF-8.
int FromWide(std::uint32_t codePage, const wchar_t* wide, int wideCount, char* bytes, int capacity);

}  // namespace platform
