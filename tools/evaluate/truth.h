/// The list of what is in the pictures of a folder.
#pragma once

#include <filesystem>
#include <istream>
#include <string>
#include <vector>

#include "tools/evaluate/scoring.h"

namespace plate_evaluation {

/// A picture and the plates in it.
struct TruePicture {
    std::string file;  ///< as the list names it: from its folder, with slashes
    std::vector<TruePlate> plates;
};

inline constexpr const char* truthFileName = "truth.tsv";

/// Reads lines of columns with tabs between them. The first line names the columns, in any order: file, x, y, width,
/// height and plate are wanted, others are passed over. A picture has one line for each of its plates. Pictures come in
/// the order in which they are first named. Throws Failure, whose text says which line is wrong.
std::vector<TruePicture> ReadTruth(std::istream& stream);

/// Reads the list that lies in a folder. Throws Failure.
std::vector<TruePicture> ReadTruthOf(const std::filesystem::path& folder);

/// The subfolder that a picture is counted under: the first part of its name, or "." where that has one part alone.
std::string GroupOf(const std::string& file);

}  // namespace plate_evaluation
