#include "engine/engine_text.h"

#include <algorithm>
#include <iterator>

#include "platform/text.h"

namespace plate_recognition {

namespace {

// A text longer than the conversion accepts, which no plate or setting is, counts as empty.
int ConvertibleCount(std::size_t size) {
    return size <= INT32_MAX ? static_cast<int>(size) : 0;
}

// Converts from the ANSI code page and drops the last wide character, which is the terminating NUL.
std::wstring AnsiToWideWithoutNul(const char* bytes, std::size_t count) {
    const int length = platform::ToWide(platform::codePageAnsi, bytes, ConvertibleCount(count), nullptr, 0);
    if (length <= 0) {
        return {};
    }
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    platform::ToWide(platform::codePageAnsi, bytes, ConvertibleCount(count), wide.data(), length);
    wide.pop_back();
    return wide;
}

// The same from code page 936, for a plate's text: each byte is at most one wide character, so the size is known.
std::wstring PlateTextToWideWithoutLast(const char* bytes, std::size_t count) {
    wchar_t wide[sizeof(RPLATE::text) + 1];
    const int length = platform::ToWide(platform::codePageSimplifiedChinese, bytes, ConvertibleCount(count), wide,
                                        static_cast<int>(std::size(wide)));
    return length > 0 ? std::wstring(wide, static_cast<std::size_t>(length) - 1) : std::wstring();
}

}  // namespace

std::wstring ReadingTextOf(const RPLATE& plate) {
    return PlateTextToWideWithoutLast(plate.text, sizeof plate.text);
}

std::wstring ResultTextOf(const RPLATE& plate) {
    char terminated[sizeof plate.text + 1] = {};
    const auto end = std::find(std::begin(plate.text), std::end(plate.text), '\0');
    std::copy(std::begin(plate.text), end, terminated);
    const auto length = static_cast<std::size_t>(end - std::begin(plate.text));
    return PlateTextToWideWithoutLast(terminated, length + 1);
}

std::string Utf8Of(const std::wstring& text) {
    const int length =
        platform::FromWide(platform::codePageUtf8, text.data(), ConvertibleCount(text.size()), nullptr, 0);
    if (length <= 0) {
        return {};
    }
    std::string bytes(static_cast<std::size_t>(length), '\0');
    platform::FromWide(platform::codePageUtf8, text.data(), ConvertibleCount(text.size()), bytes.data(), length);
    return bytes;
}

std::string Utf8OfAnsi(const std::string& text) {
    return Utf8Of(AnsiToWideWithoutNul(text.c_str(), text.size() + 1));
}

}  // namespace plate_recognition
