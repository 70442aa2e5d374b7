/// The list of the plates in the pictures of a folder.
#pragma once

#include <filesystem>
#include <istream>
#include <string>
#include <vector>

#include "tools/evaluate/scoring.h"

namespace plate_evaluation {

/// A picture and the plates in it.
struct TruePicture {
    std::string file;  ///< relative to the list's folder, with slashes
    std::vector<TruePlate> plates;
};

inline constexpr const char* truthFileName = "truth.tsv";

/// Parses lines of tab-separated columns. The first line names the columns, in any order: file, x, y, width, height and
/// plate are required, others are ignored. A picture has one line for each of its plates. Returns the pictures in the
/// order of their first lines. Throws Failure, whose text names the wrong line.
std::vector<TruePicture> ReadTruth(std::istream& stream);

/// Reads the list in a folder. Throws Failure.
std::vector<TruePicture> ReadTruthOf(const std::filesystem::path& folder);

/// The subfolder in whose group a picture is counted: the first part of its path, or "." for a path of one part.
std::string GroupOf(const std::string& file);

}  // namespace plate_evaluation
