#include "tools/evaluate/text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <numeric>
#include <vector>

#include "platform/text.h"

namespace plate_evaluation {
namespace {

std::wstring Widen(std::uint32_t codePage, std::string_view bytes) {
    if (bytes.empty()) {
        return {};
    }
    const int count = static_cast<int>(bytes.size());
    std::wstring wide(static_cast<std::size_t>(platform::ToWide(codePage, bytes.data(), count, nullptr, 0)), L'\0');
    const int written = platform::ToWide(codePage, bytes.data(), count, wide.data(), static_cast<int>(wide.size()));
    wide.resize(static_cast<std::size_t>(written));
    return wide;
}

}  // namespace

std::wstring FromEngineText(std::string_view bytes) {
    return Widen(platform::codePageSimplifiedChinese, bytes.substr(0, bytes.find('\0')));
}

std::wstring FromUtf8(std::string_view bytes) {
    return Widen(platform::codePageUtf8, bytes);
}

std::string ToUtf8(std::wstring_view text) {
    if (text.empty()) {
        return {};
    }
    const int count = static_cast<int>(text.size());
    std::string bytes(
        static_cast<std::size_t>(platform::FromWide(platform::codePageUtf8, text.data(), count, nullptr, 0)), '\0');
    const int written =
        platform::FromWide(platform::codePageUtf8, text.data(), count, bytes.data(), static_cast<int>(bytes.size()));
    bytes.resize(static_cast<std::size_t>(written));
    return bytes;
}

int EditDistance(std::wstring_view one, std::wstring_view other) {
    // The distances between the first characters of `one` and all non-empty prefixes of `other`.
    std::vector<int> row(other.size());
    std::iota(row.begin(), row.end(), 1);
    int distance = static_cast<int>(other.size());
    for (std::size_t i = 0; i < one.size(); ++i) {
        int diagonal = static_cast<int>(i);
        distance = diagonal + 1;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const int changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j];
            distance = std::min({changed, distance + 1, diagonal + 1});
            row[j] = distance;
        }
    }
    return distance;
}

std::wstring FoldLookAlikes(std::wstring_view text) {
    std::wstring folded(text);
    for (wchar_t& character : folded) {
        if (character == L'O' || character == L'Q') {
            character = L'0';
        } else if (character == L'I') {
            character = L'1';
        }
    }
    return folded;
}

std::string OneCell(std::string_view text) {
    std::string cell(text);
    for (char& character : cell) {
        if (static_cast<unsigned char>(character) < ' ' || character == '\x7F') {
            character = ' ';
        }
    }
    return cell;
}

}  // namespace plate_evaluation
