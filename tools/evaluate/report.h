/// Formats the results of an evaluation.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tools/evaluate/evaluation.h"
#include "tools/evaluate/scoring.h"
#include "tools/evaluate/truth.h"

namespace plate_evaluation {

struct Summary {
    std::vector<std::pair<std::string, Figures>> groups;  ///< subfolders, in the order in which they are first named
    Figures total;
};

/// REQUIRES: one result for each picture, in the same order.
Summary Summarise(const std::vector<TruePicture>& pictures, const std::vector<PictureResult>& results);

/// A table for people, with one line for each group and one for the total.
std::string ToTable(const Summary& summary);

/// One JSON object with "groups" and "total".
std::string ToJson(const Summary& summary);

/// Tab-separated columns with a header line, and one line for each plate.
std::string ToDetails(const std::vector<TruePicture>& pictures, const std::vector<PictureResult>& results);

}  // namespace plate_evaluation
