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

// Of the wide characters all but the last, which stands for the NUL behind a text.
std::wstring WideWithoutLast(std::uint32_t codePage, const char* bytes, std::size_t count) {
    const int length = platform::ToWide(codePage, bytes, CountOf(count), nullptr, 0);
    if (length <= 0) {
        return {};
    }
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    platform::ToWide(codePage, bytes, CountOf(count), wide.data(), length);
    wide.pop_back();
    return wide;
}

}  // namespace

std::wstring ReadingTextOf(const RPLATE& plate) {
    return WideWithoutLast(platform::codePageSimplifiedChinese, plate.text, sizeof plate.text);
}

std::wstring ResultTextOf(const RPLATE& plate) {
    char terminated[sizeof plate.text + 1] = {};
    const auto end = std::find(std::begin(plate.text), std::end(plate.text), '\0');
    std::copy(std::begin(plate.text), end, terminated);
    const auto length = static_cast<std::size_t>(end - std::begin(plate.text));
    return WideWithoutLast(platform::codePageSimplifiedChinese, terminated, length + 1);
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
    return Utf8Of(WideWithoutLast(platform::codePageAnsi, text.c_str(), text.size() + 1));
}

}  // namespace plate_recognition
