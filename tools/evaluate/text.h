/// Plate texts as characters, so that they are compared by what one sees.
#pragma once

#include <string>
#include <string_view>

namespace plate_evaluation {

/// The text of a plate as the engine gives it: code page 936, up to the first NUL.
std::wstring FromEngineText(std::string_view bytes);

std::wstring FromUtf8(std::string_view bytes);
std::string ToUtf8(std::wstring_view text);

/// The number of characters that have to be changed, put in or taken out to make one of the other.
int EditDistance(std::wstring_view one, std::wstring_view other);

/// The text with the characters that look alike made the same: O and Q are 0, I is 1.
std::wstring FoldLookAlikes(std::wstring_view text);

/// A text without what would break a line or a column.
std::string OneCell(std::string_view text);

}  // namespace plate_evaluation
