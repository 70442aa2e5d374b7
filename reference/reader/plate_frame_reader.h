/// Finds and reads plates with the networks of this folder.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "reference/reader/column_scores.h"
#include "reference/reader/frame_reader.h"

namespace plate_reading {

struct ReadingOptions {
    std::vector<Template> templates = {};     ///< empty: the formats of `countries`
    int confirmations = 3;                    ///< frames of a stream that must agree; 1: frames are independent
    std::vector<std::string> countries = {};  ///< whose formats are expected, ISO 3166-1 alpha-3; empty: all
};

/// Takes a few milliseconds, and about 20 MB of memory after it has read a 1280x720 frame. Throws std::exception.
std::unique_ptr<FrameReader> MakePlateFrameReader(const ReadingOptions& options);

}  // namespace plate_reading
