/// How far two plate texts are apart.
#pragma once

#include <string>

/// Weighted Levenshtein distance: 0.5 to delete or insert a unit, 1.0 to replace one by another. Exact and
/// case-sensitive, unit by unit. A multiple of 0.5, and at most half the sum of the lengths.
double TextDistance(const std::wstring& first, const std::wstring& second);
