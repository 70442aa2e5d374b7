/// What an evaluation tells.
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

/// REQUIRES: as many results as pictures, in their order.
Summary Summarise(const std::vector<TruePicture>& pictures, const std::vector<PictureResult>& results);

/// A table for the eye, one line for each group and one for all of them.
std::string ToTable(const Summary& summary);

/// One JSON object with "groups" and "total".
std::string ToJson(const Summary& summary);

/// Columns with tabs between them, under a line that names them: one line for each plate, so one for most pictures.
std::string ToDetails(const std::vector<TruePicture>& pictures, const std::vector<PictureResult>& results);

}  // namespace plate_evaluation
