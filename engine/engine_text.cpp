#include "engine/engine_text.h"

#include <algorithm>
#include <iterator>

#include "platform/text.h"

namespace plate_recognition {

namespace {

// Sizes here are those of plates and settings; what is longer than the system takes at once counts as empty.
int CountOf(std::size_t size) {
    return size <= INT32_MAX ? static_cast<int>(size) : 0;
}

// Of the wide characters all but the last, which stands for the NUL after a text.
std::wstring AnsiWithoutLast(const char* bytes, std::size_t count) {
    const int length = platform::ToWide(platform::codePageAnsi, bytes, CountOf(count), nullptr, 0);
    if (length <= 0) {
        return {};
    }
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    platform::ToWide(platform::codePageAnsi, bytes, CountOf(count), wide.data(), length);
    wide.pop_back();
    return wide;
}

// Of a plate's text a byte is one wide character at most, so there is no need to ask for the length first.
std::wstring PlateTextWithoutLast(const char* bytes, std::size_t count) {
    wchar_t wide[sizeof(RPLATE::text) + 1];
    const int length = platform::ToWide(platform::codePageSimplifiedChinese, bytes, CountOf(count), wide,
                                        static_cast<int>(std::size(wide)));
    return length > 0 ? std::wstring(wide, static_cast<std::size_t>(length) - 1) : std::wstring();
}

}  // namespace

std::wstring ReadingTextOf(const RPLATE& plate) {
    return PlateTextWithoutLast(plate.text, sizeof plate.text);
}

std::wstring ResultTextOf(const RPLATE& plate) {
    char terminated[sizeof plate.text + 1] = {};
    const auto end = std::find(std::begin(plate.text), std::end(plate.text), '\0');
    std::copy(std::begin(plate.text), end, terminated);
    const auto length = static_cast<std::size_t>(end - std::begin(plate.text));
    return PlateTextWithoutLast(terminated, length + 1);
}

std::string Utf8Of(const std::wstring& text) {
    const int length = platform::FromWide(platform::codePageUtf8, text.data(), CountOf(text.size()), nullptr, 0);
    if (length <= 0) {
        return {};
    }
    std::string bytes(static_cast<std::size_t>(length), '\0');
    platform::FromWide(platform::codePageUtf8, text.data(), CountOf(text.size()), bytes.data(), length);
    return bytes;
}

std::string Utf8OfAnsi(const std::string& text) {
    return Utf8Of(AnsiWithoutLast(text.c_str(), text.size() + 1));
}

}  // namespace plate_recognition
