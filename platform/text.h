/// Text between code pages and wide strings. Any thread.
#pragma once

#include <cstdint>

namespace platform {

inline constexpr std::uint32_t codePageAnsi = 0;  ///< the system's own; UTF-8 where the system has no such notion
inline constexpr std::uint32_t codePageSimplifiedChinese = 936;
inline constexpr std::uint32_t codePageUtf8 = 65001;

/// Converts `byteCount` bytes, NULs included, to wide characters. With `capacity` 0 returns the number of wide
/// characters that the text takes; otherwise writes them and returns how many were written. 0 on failure (nothing to
/// convert, an unknown code page, too small a capacity), with the last error set. Bytes without meaning become
/// replacement characters; they neither shorten the text nor fail.
int ToWide(std::uint32_t codePage, const char* bytes, int byteCount, wchar_t* wide, int capacity);

/// The same the other way. Characters that the code page does not have become "?"; halves of a surrogate pair that
/// stand alone become U+FFFD in UTF-8.
int FromWide(std::uint32_t codePage, const wchar_t* wide, int wideCount, char* bytes, int capacity);

}  // namespace platform
