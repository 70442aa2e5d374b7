/// The text distance by its definition: the slow reference for the fast routine.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

/// Weighted Levenshtein distance by two rolling rows: 0.5 to delete or insert a unit, 1.0 to replace one.
inline double RollingRowsDistance(const std::wstring& first, const std::wstring& second) {
    constexpr double insertOrDelete = 0.5;
    constexpr double replace = 1.0;
    std::vector<double> above(second.size() + 1);
    std::vector<double> row(second.size() + 1);
    for (std::size_t column = 0; column < above.size(); ++column) {
        above[column] = insertOrDelete * static_cast<double>(column);
    }
    for (std::size_t line = 1; line <= first.size(); ++line) {
        row[0] = insertOrDelete * static_cast<double>(line);
        for (std::size_t column = 1; column <= second.size(); ++column) {
            const double kept = above[column - 1] + (first[line - 1] == second[column - 1] ? 0.0 : replace);
            row[column] = std::min({kept, above[column] + insertOrDelete, row[column - 1] + insertOrDelete});
        }
        std::swap(above, row);
    }
    return above.back();
}
