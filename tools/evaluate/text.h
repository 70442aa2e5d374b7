/// Plate texts as wide characters, so that they are compared by character and not by byte.
#pragma once

#include <string>
#include <string_view>

namespace plate_evaluation {

/// Decodes the text of a plate from the engine: code page 936, up to the first NUL.
std::wstring FromEngineText(std::string_view bytes);

std::wstring FromUtf8(std::string_view bytes);
std::string ToUtf8(std::wstring_view text);

/// The number of characters to replace, insert or delete to turn one text into the other.
int EditDistance(std::wstring_view one, std::wstring_view other);

/// Replaces look-alike characters: O and Q by 0, I by 1.
std::wstring FoldLookAlikes(std::wstring_view text);

/// Replaces control characters, which would break a line or a column, by spaces.
std::string OneCell(std::string_view text);

}  // namespace plate_evaluation
